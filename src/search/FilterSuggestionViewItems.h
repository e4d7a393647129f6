// The fixed filter suggestions: installed or available records, and apps or fonts among the casks. Each pair
// excludes itself: choosing one replaces the other.
#pragma once

#include "search/SGKSuggestionViewItem.h"

class InstalledSuggestionViewItem : public SGKSuggestionViewItem {
public:
    static inline const QString iconName = QStringLiteral(":/icons/Installed.svg");
    InstalledSuggestionViewItem();
    SGK_SUGGESTION_KIND(InstalledSuggestionViewItem)
};

class AvailableSuggestionViewItem : public SGKSuggestionViewItem {
public:
    static inline const QString iconName = QStringLiteral(":/icons/Available.svg");
    AvailableSuggestionViewItem();
    SGK_SUGGESTION_KIND(AvailableSuggestionViewItem)
};

class AppSuggestionViewItem : public SGKSuggestionViewItem {
public:
    static inline const QString iconName = QStringLiteral(":/icons/App.svg");
    AppSuggestionViewItem();
    SGK_SUGGESTION_KIND(AppSuggestionViewItem)
};

class FontSuggestionViewItem : public SGKSuggestionViewItem {
public:
    static inline const QString iconName = QStringLiteral(":/icons/Font.svg");
    FontSuggestionViewItem();
    SGK_SUGGESTION_KIND(FontSuggestionViewItem)
};
