// Learns what the user does with a suggestion list, and may refuse a selection or a choice. Every operation has
// a default, so a delegate implements only what it cares about.
#pragma once

#include "catalogue/Predicate.h"
#include "search/SGKSuggestionViewItem.h"

#include <optional>

class SGKSuggestionListDelegate {
public:
    virtual ~SGKSuggestionListDelegate() = default;

    // Asked before the selection moves to item (keyboard or pointer); false keeps the current selection.
    virtual bool shouldSelectSuggestion(const SGKSuggestionViewItemPtr& item)
    {
        Q_UNUSED(item);
        return true;
    }
    // Asked before a chosen item acts; false cancels the choice.
    virtual bool shouldChooseSuggestion(const SGKSuggestionViewItemPtr& item)
    {
        Q_UNUSED(item);
        return true;
    }
    // A "completion" item was chosen.
    virtual void completionChosen(const QString& completion, const SGKSuggestionViewItemPtr& item)
    {
        Q_UNUSED(completion);
        Q_UNUSED(item);
    }
    // The active "predicate" items changed; none when no active item carries a predicate.
    virtual void predicateChanged(const std::optional<Predicate>& predicate) { Q_UNUSED(predicate); }
    // After any choice has acted.
    virtual void didChooseSuggestion(const SGKSuggestionViewItemPtr& item) { Q_UNUSED(item); }
};
