// A heading over the items that follow it in a suggestion list; never selected, never active.
#pragma once

#include "search/SGKSuggestionViewItem.h"

class SGKGroupSuggestionViewItem : public SGKSuggestionViewItem {
public:
    explicit SGKGroupSuggestionViewItem(const QString& title);

    SGK_SUGGESTION_KIND(SGKGroupSuggestionViewItem)
    bool isGroup() const override { return true; }
    const QString& title() const { return key(); }
};
