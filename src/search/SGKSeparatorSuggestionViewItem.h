// A divider between sections of a suggestion list; never selected, never active.
#pragma once

#include "search/SGKSuggestionViewItem.h"

class SGKSeparatorSuggestionViewItem : public SGKSuggestionViewItem {
public:
    explicit SGKSeparatorSuggestionViewItem(const QString& key = {});

    SGK_SUGGESTION_KIND(SGKSeparatorSuggestionViewItem)
    bool isSeparator() const override { return true; }
};
