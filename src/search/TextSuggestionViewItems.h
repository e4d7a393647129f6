// The four suggestions that filter by the typed text: in all text fields, the name, the description or the token.
// They are one family: each replaces, and can be switched into, any other.
#pragma once

#include "search/SGKSuggestionViewItem.h"

// What the four share: the typed text as value, and the other three as conflicts and alternates.
class TextSuggestionViewItem : public SGKSuggestionViewItem {
public:
    static QStringList familyKinds();

protected:
    TextSuggestionViewItem(const QString& key, const QString& text, const QString& ownKind, const Predicate& predicate);
};

class SearchSuggestionViewItem : public TextSuggestionViewItem {
public:
    explicit SearchSuggestionViewItem(const QString& text);
    SGK_SUGGESTION_KIND(SearchSuggestionViewItem)
};

class NameSuggestionViewItem : public TextSuggestionViewItem {
public:
    explicit NameSuggestionViewItem(const QString& text);
    SGK_SUGGESTION_KIND(NameSuggestionViewItem)
};

class DescriptionSuggestionViewItem : public TextSuggestionViewItem {
public:
    explicit DescriptionSuggestionViewItem(const QString& text);
    SGK_SUGGESTION_KIND(DescriptionSuggestionViewItem)
};

class TokenSuggestionViewItem : public TextSuggestionViewItem {
public:
    explicit TokenSuggestionViewItem(const QString& text);
    SGK_SUGGESTION_KIND(TokenSuggestionViewItem)
};
