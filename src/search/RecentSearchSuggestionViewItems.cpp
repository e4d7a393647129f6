#include "search/RecentSearchSuggestionViewItems.h"

#include <QCoreApplication>

RecentSearchSuggestionViewItem::RecentSearchSuggestionViewItem(const QString& query)
    : SGKRecentSearchSuggestionViewItem(
          query,
          QCoreApplication::translate("Suggestions", "Recent: ", "The label of a recent search query suggestion."))
{}

ClearRecentSearchesSuggestionViewItem::ClearRecentSearchesSuggestionViewItem(std::function<void()> clear)
    : SGKSuggestionViewItem(QCoreApplication::translate("Suggestions", "Clear Recent Searches"))
{
    setStrategy(Strategy::Command);
    setHasState(false);
    setCommand(std::move(clear));
}
