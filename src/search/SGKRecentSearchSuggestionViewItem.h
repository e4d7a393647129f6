// A row offering an earlier search again: choosing it puts the query back into the search field.
#pragma once

#include "search/SGKSuggestionViewItem.h"

class SGKRecentSearchSuggestionViewItem : public SGKSuggestionViewItem {
public:
    SGKRecentSearchSuggestionViewItem(const QString& query, const QString& key);

    SGK_SUGGESTION_KIND(SGKRecentSearchSuggestionViewItem)
};
