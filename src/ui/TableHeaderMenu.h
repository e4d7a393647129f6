// The column-selection menu of a table's header: one checkable entry per column to show or hide it (some columns
// always stay), with the columns' visibility, widths and order kept in the preferences under the table's name.
#pragma once

#include <QList>
#include <QMenu>
#include <QPointer>
#include <QStringList>

class Defaults;
class QHeaderView;

class TableHeaderMenu : public QMenu {
    Q_OBJECT

public:
    // identifier names the table ("Apps Table Header"); unhideableTitles are header titles that cannot be hidden.
    // Restores the header's saved state at once, so create it once the header has its model and default widths.
    TableHeaderMenu(const QString& identifier, const QStringList& unhideableTitles, QHeaderView* header,
                    Defaults& defaults, QWidget* parent = nullptr);

    const QString& identifier() const { return m_identifier; }
    // The preference holding the header's state: the identifier followed by " State".
    static QString stateKey(const QString& identifier);

    // One per column in logical order, refreshed each time the menu opens.
    const QList<QAction*>& columnActions() const { return m_columnActions; }
    void refreshActions();

    // False (the header unchanged) when nothing was saved or the saved state does not fit the header.
    bool restoreState();
    void saveState();

Q_SIGNALS:
    // A column was shown or hidden from the menu.
    void columnVisibilityChanged(int section, bool visible);

private:
    QString sectionTitle(int section) const;
    bool isUnhideable(int section) const;
    void keepUnhideableVisible();

    QString m_identifier;
    QStringList m_unhideableTitles;
    QPointer<QHeaderView> m_header;
    Defaults& m_defaults;
    QList<QAction*> m_columnActions;
    bool m_restoring = false;
};
