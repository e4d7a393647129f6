#include "search/SGKSuggestionList.h"

#include "search/SGKSuggestionListDataSource.h"
#include "search/SGKSuggestionListDelegate.h"

#include <algorithm>

SGKSuggestionList::SGKSuggestionList(QObject* parent)
    : QAbstractListModel(parent)
{}

SGKSuggestionList::~SGKSuggestionList() = default;

void SGKSuggestionList::suggest(const QString& text)
{
    setSuggestionViewItems(m_dataSource ? m_dataSource->suggestionsForText(text) : SGKSuggestionViewItems{});
}

void SGKSuggestionList::setSuggestionViewItems(const SGKSuggestionViewItems& items)
{
    beginResetModel();
    m_items = items;
    m_items.removeAll(nullptr);
    const bool hadSelection = m_selectedRow != -1;
    m_selectedRow = -1;
    ++m_generation;
    for (int row = 0; row < m_items.size(); ++row) {
        const SGKSuggestionViewItemPtr& item = m_items.at(row);
        const auto entry = m_active.find(item->identifier());
        if (entry != m_active.end()) {
            // The fresh item stands for the active one from now on: a text token follows the typed text.
            *entry = {item, m_items, row, m_generation};
        }
        item->setState(entry != m_active.end() ? SGKSuggestionViewItem::State::On : SGKSuggestionViewItem::State::Off);
    }
    endResetModel();
    if (hadSelection) {
        Q_EMIT selectedRowChanged(-1);
    }
}

SGKSuggestionViewItemPtr SGKSuggestionList::itemAt(int row) const
{
    return row >= 0 && row < m_items.size() ? m_items.at(row) : nullptr;
}

SGKSuggestionViewItems SGKSuggestionList::activeSuggestionViewItems() const
{
    QList<ActiveEntry> entries = m_active.values();
    std::sort(entries.begin(), entries.end(), [](const ActiveEntry& a, const ActiveEntry& b) {
        return std::tie(a.position, a.generation) < std::tie(b.position, b.generation);
    });
    SGKSuggestionViewItems items;
    items.reserve(entries.size());
    for (const ActiveEntry& entry : std::as_const(entries)) {
        items.append(entry.item);
    }
    return items;
}

std::optional<Predicate> SGKSuggestionList::predicate() const
{
    QList<Predicate> terms;
    for (const SGKSuggestionViewItemPtr& item : activeSuggestionViewItems()) {
        if (item->strategy() == SGKSuggestionViewItem::Strategy::Predicate && item->predicate()) {
            terms.append(*item->predicate());
        }
    }
    if (terms.isEmpty()) {
        return std::nullopt;
    }
    return terms.size() == 1 ? terms.first() : Predicate::andPredicate(terms);
}

bool SGKSuggestionList::selectRow(int row)
{
    if (row == m_selectedRow) {
        return row == -1 || itemAt(row) != nullptr;
    }
    if (row != -1) {
        const SGKSuggestionViewItemPtr item = itemAt(row);
        if (!item || !item->isSelectable() || (m_delegate && !m_delegate->shouldSelectSuggestion(item))) {
            return false;
        }
    }
    const int previous = m_selectedRow;
    m_selectedRow = row;
    emitRowChanged(previous);
    emitRowChanged(row);
    Q_EMIT selectedRowChanged(row);
    return true;
}

bool SGKSuggestionList::moveSelection(int step)
{
    const int count = int(m_items.size());
    int row = m_selectedRow == -1 ? (step > 0 ? 0 : count - 1) : m_selectedRow + step;
    for (; row >= 0 && row < count; row += step) {
        if (m_items.at(row)->isSelectable()) {
            return selectRow(row);
        }
    }
    return false;
}

bool SGKSuggestionList::selectNextSuggestionViewItem()
{
    return moveSelection(1);
}

bool SGKSuggestionList::selectPreviousSuggestionViewItem()
{
    return moveSelection(-1);
}

bool SGKSuggestionList::toggleSelectedSuggestion()
{
    return chooseRow(m_selectedRow);
}

bool SGKSuggestionList::chooseRow(int row)
{
    const SGKSuggestionViewItemPtr item = itemAt(row);
    if (!item || !item->isSelectable()) {
        return false;
    }
    return choose(item);
}

bool SGKSuggestionList::choose(const SGKSuggestionViewItemPtr& item)
{
    if (m_delegate && !m_delegate->shouldChooseSuggestion(item)) {
        return false;
    }
    switch (item->strategy()) {
    case SGKSuggestionViewItem::Strategy::Predicate:
        if (m_active.contains(item->identifier())) {
            m_active.remove(item->identifier());
            m_activeIdentifiers.remove(item->identifier());
        } else {
            activate(item, m_items, int(m_items.indexOf(item)));
        }
        refreshStates();
        Q_EMIT activeSuggestionsChanged();
        reportPredicate();
        break;
    case SGKSuggestionViewItem::Strategy::Completion: {
        const QString completion = item->completion().value_or(QString());
        if (m_delegate) {
            m_delegate->completionChosen(completion, item);
        }
        Q_EMIT completionChosen(completion);
        break;
    }
    case SGKSuggestionViewItem::Strategy::Command:
        if (item->command()) {
            item->command()();
        }
        break;
    }
    if (m_delegate) {
        m_delegate->didChooseSuggestion(item);
    }
    return true;
}

void SGKSuggestionList::activate(const SGKSuggestionViewItemPtr& item, const SGKSuggestionViewItems& list, int position)
{
    const QStringList& conflicts = item->conflictingSuggestions();
    for (auto it = m_active.begin(); it != m_active.end();) {
        if (conflicts.contains(it->item->kind())) {
            m_activeIdentifiers.remove(it.key());
            it = m_active.erase(it);
        } else {
            ++it;
        }
    }
    m_active.insert(item->identifier(), {item, list, position, ++m_generation});
    m_activeIdentifiers.insert(item->identifier());
}

bool SGKSuggestionList::handleCommand(Command command)
{
    switch (command) {
    case Command::MoveUp:
        selectPreviousSuggestionViewItem();
        return true;
    case Command::MoveDown:
        selectNextSuggestionViewItem();
        return true;
    case Command::InsertNewline:
        toggleSelectedSuggestion();
        return true;
    case Command::Other:
        break;
    }
    return false;
}

bool SGKSuggestionList::deactivate(const QString& identifier)
{
    if (!m_active.remove(identifier)) {
        return false;
    }
    m_activeIdentifiers.remove(identifier);
    refreshStates();
    Q_EMIT activeSuggestionsChanged();
    reportPredicate();
    return true;
}

bool SGKSuggestionList::switchActiveItem(const QString& identifier, const QString& alternateKind)
{
    const auto entry = m_active.constFind(identifier);
    if (entry == m_active.cend() || !entry->item->alternateSuggestions().contains(alternateKind)) {
        return false;
    }
    const SGKSuggestionViewItems list = entry->list;
    const auto replacement = std::find_if(
        list.cbegin(), list.cend(), [&](const SGKSuggestionViewItemPtr& item) { return item->isKind(alternateKind); });
    if (replacement == list.cend()) {
        return false;
    }
    m_active.remove(identifier);
    m_activeIdentifiers.remove(identifier);
    activate(*replacement, list, int(replacement - list.cbegin()));
    refreshStates();
    Q_EMIT activeSuggestionsChanged();
    reportPredicate();
    return true;
}

QStringList SGKSuggestionList::availableAlternates(const QString& identifier) const
{
    const auto entry = m_active.constFind(identifier);
    if (entry == m_active.cend()) {
        return {};
    }
    QStringList kinds;
    for (const QString& kind : entry->item->alternateSuggestions()) {
        if (std::any_of(entry->list.cbegin(), entry->list.cend(),
                        [&](const SGKSuggestionViewItemPtr& item) { return item->isKind(kind); })) {
            kinds.append(kind);
        }
    }
    return kinds;
}

void SGKSuggestionList::removeSuggestionViewItems(const QString& kind)
{
    SGKSuggestionViewItems remaining = m_items;
    for (qsizetype row = remaining.size() - 1; row >= 0; --row) {
        if (row >= remaining.size() || !remaining.at(row)->isKind(kind)) {
            continue;
        }
        qsizetype first = row;
        if (row > 0 && remaining.at(row - 1)->isSeparator()) {
            first = row - 1;
            while (first > 0 && !remaining.at(first - 1)->isSeparator()) {
                --first;
            }
        }
        remaining.remove(first, row - first + 1);
        row = first;
    }
    if (remaining.size() != m_items.size()) {
        setSuggestionViewItems(remaining);
    }
}

void SGKSuggestionList::refreshStates()
{
    for (const SGKSuggestionViewItemPtr& item : std::as_const(m_items)) {
        item->setState(m_active.contains(item->identifier()) ? SGKSuggestionViewItem::State::On
                                                             : SGKSuggestionViewItem::State::Off);
    }
    if (!m_items.isEmpty()) {
        Q_EMIT dataChanged(index(0), index(int(m_items.size()) - 1), {StateRole, StateImageNameRole});
    }
}

void SGKSuggestionList::reportPredicate()
{
    const std::optional<Predicate> combined = predicate();
    if (m_delegate) {
        m_delegate->predicateChanged(combined);
    }
    Q_EMIT predicateChanged(combined);
}

void SGKSuggestionList::emitRowChanged(int row)
{
    if (row >= 0 && row < m_items.size()) {
        Q_EMIT dataChanged(index(row), index(row), {SelectedRole});
    }
}

int SGKSuggestionList::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : int(m_items.size());
}

QVariant SGKSuggestionList::data(const QModelIndex& index, int role) const
{
    if (!index.isValid() || index.parent().isValid() || index.row() >= m_items.size()) {
        return {};
    }
    const SGKSuggestionViewItem& item = *m_items.at(index.row());
    const auto text = [](const std::optional<QString>& value) { return value ? QVariant(*value) : QVariant(); };
    switch (role) {
    case Qt::DisplayRole:
        return item.label();
    case ItemRole:
        return QVariant::fromValue(const_cast<SGKSuggestionViewItem*>(&item));
    case KindRole:
        return item.kind();
    case IdentifierRole:
        return item.identifier();
    case KeyRole:
        return item.key();
    case ValueRole:
        return text(item.value());
    case IconNameRole:
        return text(item.icon());
    case BadgeRole:
        return text(item.badge());
    case StateRole:
        return int(item.state());
    case StateImageNameRole:
        return text(item.stateImage());
    case HasStateRole:
        return item.hasState();
    case SelectableRole:
        return item.isSelectable();
    case SeparatorRole:
        return item.isSeparator();
    case GroupRole:
        return item.isGroup();
    case SelectedRole:
        return index.row() == m_selectedRow;
    default:
        return {};
    }
}

Qt::ItemFlags SGKSuggestionList::flags(const QModelIndex& index) const
{
    if (!index.isValid() || index.parent().isValid() || index.row() >= m_items.size()) {
        return Qt::NoItemFlags;
    }
    return m_items.at(index.row())->isSelectable() ? Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemNeverHasChildren
                                                   : Qt::ItemNeverHasChildren;
}

QHash<int, QByteArray> SGKSuggestionList::roleNames() const
{
    QHash<int, QByteArray> names = QAbstractListModel::roleNames();
    names.insert({{ItemRole, "item"},
                  {KindRole, "kind"},
                  {IdentifierRole, "identifier"},
                  {KeyRole, "key"},
                  {ValueRole, "value"},
                  {IconNameRole, "iconName"},
                  {BadgeRole, "badge"},
                  {StateRole, "state"},
                  {StateImageNameRole, "stateImageName"},
                  {HasStateRole, "hasState"},
                  {SelectableRole, "selectable"},
                  {SeparatorRole, "separator"},
                  {GroupRole, "group"},
                  {SelectedRole, "selected"}});
    return names;
}
