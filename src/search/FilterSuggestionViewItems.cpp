#include "search/FilterSuggestionViewItems.h"

#include "search/SearchPredicates.h"

#include <QCoreApplication>

InstalledSuggestionViewItem::InstalledSuggestionViewItem()
    : SGKSuggestionViewItem(QCoreApplication::translate("Suggestions", "Installed"))
{
    setIcon(iconName);
    setPredicate(SearchPredicates::installed());
    setConflictingSuggestions({AvailableSuggestionViewItem::staticKind()});
}

AvailableSuggestionViewItem::AvailableSuggestionViewItem()
    : SGKSuggestionViewItem(QCoreApplication::translate("Suggestions", "Available"))
{
    setIcon(iconName);
    setPredicate(SearchPredicates::available());
    setConflictingSuggestions({InstalledSuggestionViewItem::staticKind()});
}

AppSuggestionViewItem::AppSuggestionViewItem()
    : SGKSuggestionViewItem(QCoreApplication::translate("Suggestions", "App"))
{
    setIcon(iconName);
    setPredicate(SearchPredicates::app());
    setConflictingSuggestions({FontSuggestionViewItem::staticKind()});
}

FontSuggestionViewItem::FontSuggestionViewItem()
    : SGKSuggestionViewItem(QCoreApplication::translate("Suggestions", "Font"))
{
    setIcon(iconName);
    setPredicate(SearchPredicates::font());
    setConflictingSuggestions({AppSuggestionViewItem::staticKind()});
}
