#include "search/SearchController.h"

#include "activities/Notifications.h"
#include "foundation/Defaults.h"
#include "foundation/PreferenceKeys.h"
#include "search/FilterSuggestionViewItems.h"
#include "search/RecentSearchSuggestionViewItems.h"
#include "search/SGKGroupSuggestionViewItem.h"
#include "search/SGKSeparatorSuggestionViewItem.h"
#include "search/SearchPredicates.h"
#include "search/TextSuggestionViewItems.h"

#include <QCoreApplication>

namespace {

constexpr int appsPersona = 0;
constexpr int scriptsPersona = 1;

SGKSuggestionViewItemPtr separator()
{
    auto item = std::make_shared<SGKSeparatorSuggestionViewItem>(QString());
    item->setSelectable(false);
    item->setHasState(false);
    return item;
}

} // namespace

SearchController::SearchController(Defaults& defaults, SGKSuggestionList* list, QObject* parent)
    : QObject(parent)
    , m_defaults(defaults)
    , m_list(list)
    , m_recentSearches(defaults)
{
    if (m_list) {
        m_list->setDataSource(this);
        m_list->setDelegate(this);
    }
    m_recentSearchesTimer.setSingleShot(true);
    m_recentSearchesTimer.setInterval(recentSearchesDelayMs);
    connect(&m_recentSearchesTimer, &QTimer::timeout, this, &SearchController::recordPending);
}

SearchController::~SearchController()
{
    if (m_list) {
        m_list->setDataSource(nullptr);
        m_list->setDelegate(nullptr);
        // The rows' commands call back into this controller.
        m_list->setSuggestionViewItems({});
    }
}

int SearchController::personaIndex() const
{
    return int(m_defaults.integerValue(PreferenceKeys::PersonasSelectedIndex));
}

void SearchController::searchTextDidChange(const QString& text)
{
    m_searchText = text;
    if (m_list) {
        m_list->suggest(text);
    }
}

void SearchController::searchAction(const QString& text)
{
    const QString trimmed = text.trimmed();
    if (trimmed.isEmpty()) {
        Q_EMIT Notifications::instance().searchPerformed(std::nullopt);
        return;
    }
    Q_EMIT Notifications::instance().searchPerformed(m_list ? m_list->predicate() : std::nullopt);
    // The persona travels with the text: switching personas within the delay must not move the entry.
    m_pendingText = trimmed;
    m_pendingPersona = personaIndex();
    m_recentSearchesTimer.start();
}

void SearchController::recordPending()
{
    m_recentSearches.record(m_pendingText, m_pendingPersona);
    Q_EMIT recentSearchRecorded(m_pendingText, m_pendingPersona);
}

Predicate SearchController::filterPredicate(const std::optional<Predicate>& searchPredicate)
{
    return searchPredicate.value_or(SearchPredicates::defaultFilter());
}

SGKSuggestionViewItems SearchController::suggestionsForText(const QString& text)
{
    const int persona = personaIndex();
    if (persona != appsPersona && persona != scriptsPersona) {
        return {};
    }
    SGKSuggestionViewItems items;
    if (text.isEmpty()) {
        const QStringList searches = m_recentSearches.searches(persona);
        if (searches.isEmpty()) {
            return {};
        }
        for (const QString& search : searches) {
            items.append(std::make_shared<RecentSearchSuggestionViewItem>(search));
        }
        items.append(separator());
        items.append(std::make_shared<ClearRecentSearchesSuggestionViewItem>([this] { clearRecentSearches(); }));
        return items;
    }
    items = {
        std::make_shared<SearchSuggestionViewItem>(text),
        std::make_shared<NameSuggestionViewItem>(text),
        std::make_shared<DescriptionSuggestionViewItem>(text),
        std::make_shared<TokenSuggestionViewItem>(text),
        separator(),
        std::make_shared<SGKGroupSuggestionViewItem>(QCoreApplication::translate("Suggestions", "State")),
        std::make_shared<InstalledSuggestionViewItem>(),
        std::make_shared<AvailableSuggestionViewItem>(),
    };
    if (persona == appsPersona) {
        items.append({
            separator(),
            std::make_shared<SGKGroupSuggestionViewItem>(QCoreApplication::translate("Suggestions", "Kind")),
            std::make_shared<AppSuggestionViewItem>(),
            std::make_shared<FontSuggestionViewItem>(),
        });
    }
    return items;
}

void SearchController::clearRecentSearches()
{
    m_recentSearches.clear();
    if (m_list) {
        m_list->removeSuggestionViewItems(ClearRecentSearchesSuggestionViewItem::staticKind());
    }
}

void SearchController::completionChosen(const QString& completion, const SGKSuggestionViewItemPtr& item)
{
    const QString text = item && item->shouldCompletionReplaceString() ? completion : m_searchText + completion;
    // The field reports the new text back through searchTextDidChange, as if the user had typed it.
    Q_EMIT searchTextChangeRequested(text);
}

void SearchController::predicateChanged(const std::optional<Predicate>& predicate)
{
    Q_EMIT Notifications::instance().searchPerformed(predicate);
}
