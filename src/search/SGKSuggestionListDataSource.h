// Supplies the rows of a suggestion list for the search field's text.
#pragma once

#include "search/SGKSuggestionViewItem.h"

class SGKSuggestionListDataSource {
public:
    virtual ~SGKSuggestionListDataSource() = default;

    // A fresh, ordered list for text; the list keeps which of them are active by identifier.
    virtual SGKSuggestionViewItems suggestionsForText(const QString& text) = 0;
};
