#include "search/SGKRecentSearchSuggestionViewItem.h"

SGKRecentSearchSuggestionViewItem::SGKRecentSearchSuggestionViewItem(const QString& query, const QString& key)
    : SGKSuggestionViewItem(key)
{
    // Several recent searches share one list, so the query is part of the identity.
    setIdentifier(QStringLiteral("SGKRecentSearchSuggestionViewItem:") + query);
    setValue(query);
    setHasState(false);
    setIcon(recentSymbol);
    setStrategy(Strategy::Completion);
    setCompletion(query);
    setShouldCompletionReplaceString(true);
}
