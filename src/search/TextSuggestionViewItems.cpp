#include "search/TextSuggestionViewItems.h"

#include "search/SearchPredicates.h"

#include <QCoreApplication>

QStringList TextSuggestionViewItem::familyKinds()
{
    return {SearchSuggestionViewItem::staticKind(), NameSuggestionViewItem::staticKind(),
            DescriptionSuggestionViewItem::staticKind(), TokenSuggestionViewItem::staticKind()};
}

TextSuggestionViewItem::TextSuggestionViewItem(const QString& key, const QString& text, const QString& ownKind,
                                               const Predicate& predicate)
    : SGKSuggestionViewItem(key)
{
    setValue(text);
    setPredicate(predicate);
    QStringList others = familyKinds();
    others.removeAll(ownKind);
    setConflictingSuggestions(others);
    setAlternateSuggestions(others);
}

SearchSuggestionViewItem::SearchSuggestionViewItem(const QString& text)
    : TextSuggestionViewItem(QCoreApplication::translate("Suggestions", "Search: "), text, staticKind(),
                             SearchPredicates::search(text))
{}

NameSuggestionViewItem::NameSuggestionViewItem(const QString& text)
    : TextSuggestionViewItem(QCoreApplication::translate("Suggestions", "Name Contains: "), text, staticKind(),
                             SearchPredicates::name(text))
{}

DescriptionSuggestionViewItem::DescriptionSuggestionViewItem(const QString& text)
    : TextSuggestionViewItem(QCoreApplication::translate("Suggestions", "Description Contains: "), text, staticKind(),
                             SearchPredicates::description(text))
{}

TokenSuggestionViewItem::TokenSuggestionViewItem(const QString& text)
    : TextSuggestionViewItem(QCoreApplication::translate("Suggestions", "Token Contains: "), text, staticKind(),
                             SearchPredicates::token(text))
{}
