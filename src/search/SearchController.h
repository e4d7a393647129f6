// The main window's search logic without its widgets: the suggestions for the typed text and persona, what
// choosing them does, the search action that filters the tables, and the delayed recording of recent searches.
#pragma once

#include "catalogue/Predicate.h"
#include "search/RecentSearches.h"
#include "search/SGKSuggestionList.h"
#include "search/SGKSuggestionListDataSource.h"
#include "search/SGKSuggestionListDelegate.h"

#include <QObject>
#include <QPointer>
#include <QTimer>
#include <optional>

class Defaults;

class SearchController : public QObject, public SGKSuggestionListDataSource, public SGKSuggestionListDelegate {
    Q_OBJECT

public:
    static constexpr int recentSearchesDelayMs = 1000;

    // Becomes list's data source and delegate.
    SearchController(Defaults& defaults, SGKSuggestionList* list, QObject* parent = nullptr);
    ~SearchController() override;

    SGKSuggestionList* suggestionList() const { return m_list; }
    RecentSearches& recentSearches() { return m_recentSearches; }

    // The search field's text changed (typing, or a completion put into it): rebuilds the suggestions.
    void searchTextDidChange(const QString& text);
    const QString& searchText() const { return m_searchText; }

    // The field's action (Return without a chosen row): filters the tables and, a second later, records the text.
    void searchAction(const QString& text);
    // A searched text waits for its second before it is recorded.
    bool isRecordingPending() const { return m_recentSearchesTimer.isActive(); }

    // What a table filters by after a search: the search's predicate, or its installed records without one.
    static Predicate filterPredicate(const std::optional<Predicate>& searchPredicate);

    // Data source: recent searches for an empty text, otherwise the persona's suggestions.
    SGKSuggestionViewItems suggestionsForText(const QString& text) override;

    // Delegate.
    void completionChosen(const QString& completion, const SGKSuggestionViewItemPtr& item) override;
    void predicateChanged(const std::optional<Predicate>& predicate) override;

Q_SIGNALS:
    // The search field must show text; the field's change handling then calls searchTextDidChange.
    void searchTextChangeRequested(const QString& text);
    // A pending recording was written.
    void recentSearchRecorded(const QString& text, int personaIndex);

private:
    int personaIndex() const;
    void clearRecentSearches();
    void recordPending();

    Defaults& m_defaults;
    QPointer<SGKSuggestionList> m_list;
    RecentSearches m_recentSearches;
    QString m_searchText;
    QTimer m_recentSearchesTimer;
    QString m_pendingText;
    int m_pendingPersona = 0;
};
