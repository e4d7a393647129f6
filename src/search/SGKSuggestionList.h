// The model behind a search field's suggestion popup: the current rows, which of them are active (remembered by
// identifier across rebuilds), the keyboard selection, what choosing a row does, and the AND of the active
// filters. Widgets show it through the item-model interface and drive it with the operations below.
#pragma once

#include "catalogue/Predicate.h"
#include "search/SGKSuggestionViewItem.h"

#include <QAbstractListModel>
#include <QHash>
#include <QSet>
#include <optional>

class SGKSuggestionListDataSource;
class SGKSuggestionListDelegate;

class SGKSuggestionList : public QAbstractListModel {
    Q_OBJECT

public:
    // Qt::DisplayRole is the plain label. Icon values are names (see SGKSuggestionViewItem), never images.
    enum Role {
        ItemRole = Qt::UserRole + 1, // QVariant::fromValue(SGKSuggestionViewItem*)
        KindRole,
        IdentifierRole,
        KeyRole,
        ValueRole,          // QString, null when there is none
        IconNameRole,       // QString, null when there is none
        BadgeRole,          // QString, null when there is none
        StateRole,          // int: SGKSuggestionViewItem::State
        StateImageNameRole, // QString, null when there is none
        HasStateRole,
        SelectableRole,
        SeparatorRole,
        GroupRole,
        SelectedRole,
    };

    // The keyboard commands that the search field hands to the list while it is edited.
    enum class Command {
        MoveUp,
        MoveDown,
        InsertNewline,
        Other,
    };

    explicit SGKSuggestionList(QObject* parent = nullptr);
    ~SGKSuggestionList() override;

    // Neither is owned; both must outlive the list or be unset first.
    SGKSuggestionListDataSource* dataSource() const { return m_dataSource; }
    void setDataSource(SGKSuggestionListDataSource* dataSource) { m_dataSource = dataSource; }
    SGKSuggestionListDelegate* delegate() const { return m_delegate; }
    void setDelegate(SGKSuggestionListDelegate* delegate) { m_delegate = delegate; }

    // Asks the data source for the rows for text and shows them; active identifiers keep their state.
    void suggest(const QString& text);
    // Replaces the rows directly (what suggest does with the data source's answer).
    void setSuggestionViewItems(const SGKSuggestionViewItems& items);
    const SGKSuggestionViewItems& suggestionViewItems() const { return m_items; }
    SGKSuggestionViewItemPtr itemAt(int row) const;

    const QSet<QString>& activeSuggestionIdentifiers() const { return m_activeIdentifiers; }
    // The active items, each as last seen in a list, in list order; these are the filter tokens.
    SGKSuggestionViewItems activeSuggestionViewItems() const;
    // The AND of the active "predicate" items' predicates in list order; none when there is no such item.
    std::optional<Predicate> predicate() const;

    // -1 when no row is selected. A new list starts without a selection.
    int selectedRow() const { return m_selectedRow; }
    SGKSuggestionViewItemPtr selectedItem() const { return itemAt(m_selectedRow); }
    // Selects row if its item is selectable and the delegate agrees (pointer hover); -1 clears the selection.
    bool selectRow(int row);
    // Step to the next / previous selectable row, stopping at the ends; from no selection, Down takes the first
    // selectable row and Up the last.
    bool selectNextSuggestionViewItem();
    bool selectPreviousSuggestionViewItem();

    // Chooses the selected row; false when none is selected or the delegate refused.
    bool toggleSelectedSuggestion();
    // Chooses row as Return or a click would.
    bool chooseRow(int row);

    // Up, Down and Return act and return true; everything else is left to the field (false).
    bool handleCommand(Command command);

    // Deactivates an active item (a token's remove button) and reports the new predicate.
    bool deactivate(const QString& identifier);
    // Switches an active item to one of its alternate kinds, taken from the list the item was last seen in, so a
    // text token changes field without retyping. Reports the new predicate.
    bool switchActiveItem(const QString& identifier, const QString& alternateKind);
    // The kinds an active item may be switched to that its last list offers.
    QStringList availableAlternates(const QString& identifier) const;

    // Drops every row of kind, and with it the rows that only made sense beside it (those before a separator that
    // directly precedes a dropped row), so clearing the recent searches empties their section.
    void removeSuggestionViewItems(const QString& kind);

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;
    QHash<int, QByteArray> roleNames() const override;

Q_SIGNALS:
    void selectedRowChanged(int row);
    // Active items were added, removed or switched.
    void activeSuggestionsChanged();
    // The combined predicate after a change of the active items.
    void predicateChanged(std::optional<Predicate> predicate);
    // A "completion" item was chosen, after the delegate heard of it.
    void completionChosen(const QString& completion);

private:
    struct ActiveEntry {
        SGKSuggestionViewItemPtr item;
        // The list the item was last seen in, for its alternates, and its position there for the order.
        SGKSuggestionViewItems list;
        int position = 0;
        qint64 generation = 0;
    };

    bool moveSelection(int step);
    bool choose(const SGKSuggestionViewItemPtr& item);
    void activate(const SGKSuggestionViewItemPtr& item, const SGKSuggestionViewItems& list, int position);
    void refreshStates();
    void reportPredicate();
    void emitRowChanged(int row);

    SGKSuggestionListDataSource* m_dataSource = nullptr;
    SGKSuggestionListDelegate* m_delegate = nullptr;
    SGKSuggestionViewItems m_items;
    QSet<QString> m_activeIdentifiers;
    QHash<QString, ActiveEntry> m_active;
    qint64 m_generation = 0;
    int m_selectedRow = -1;
};

Q_DECLARE_METATYPE(SGKSuggestionViewItem*)
