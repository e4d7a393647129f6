// The rows of an empty search field: the user's recent searches and the command that forgets them.
#pragma once

#include "search/SGKRecentSearchSuggestionViewItem.h"

class RecentSearchSuggestionViewItem : public SGKRecentSearchSuggestionViewItem {
public:
    explicit RecentSearchSuggestionViewItem(const QString& query);
    SGK_SUGGESTION_KIND(RecentSearchSuggestionViewItem)
};

class ClearRecentSearchesSuggestionViewItem : public SGKSuggestionViewItem {
public:
    explicit ClearRecentSearchesSuggestionViewItem(std::function<void()> clear);
    SGK_SUGGESTION_KIND(ClearRecentSearchesSuggestionViewItem)
};
