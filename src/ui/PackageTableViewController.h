// What the Apps and Scripts tables share: a table of one entity's records (installed ones until a search says
// otherwise), sorted by the header with upgrades optionally first, styled from the preferences while on screen,
// with inline Install/Upgrade buttons, a context menu of operations and the records those operations act on.
#pragma once

#include "catalogue/ArrayController.h"
#include "catalogue/Package.h"
#include "catalogue/Predicate.h"
#include "operations/PackageOperation.h"

#include <QList>
#include <QMap>
#include <QPointer>
#include <QSet>
#include <QWidget>
#include <optional>

class Defaults;
class ManagedObjectContext;
class PackageStatusDelegate;
class PackageTableModel;
class QAction;
class QMenu;
class QTableView;
class TableHeaderMenu;

namespace Homebrew {
class Installation;
}

class PackageTableViewController : public QWidget {
    Q_OBJECT

public:
    // The entries of the row menu; the apps-only ones are absent from the Scripts table.
    enum class MenuAction {
        install,
        installInFolder,
        uninstall,
        upgrade,
        reinstall,
        move,
        copy,
        goToWebsite,
        showInFileManager,
    };

    ~PackageTableViewController() override;

    PackageOperation::Persona persona() const { return m_persona; }
    ArrayController& arrayController() { return m_arrayController; }
    const ArrayController& arrayController() const { return m_arrayController; }
    PackageTableModel* model() const { return m_model; }
    QTableView* tableView() const { return m_tableView; }
    TableHeaderMenu* headerMenu() const { return m_headerMenu; }
    // "Apps Table Header" or "Scripts Table Header".
    QString headerIdentifier() const;

    // A search's predicate narrows the table; none brings back the installed records.
    void filter(const std::optional<Predicate>& searchPredicate);

    // What an action that is not tied to one row acts on: the row the menu was opened on, or the whole selection
    // when that row is selected too; without such a row, the selection. In table order.
    QList<Package*> designatedRecords() const;
    QList<Package*> selectedRecords() const;

    // Records of this table's entity with installed == YES in the view context; 0 when there are none or the store
    // cannot be read.
    int installedCount() const;

    // The row menu (one, reused) and its entries; nullptr for an entry this persona does not have.
    QMenu* contextMenu() const { return m_contextMenu; }
    QAction* menuAction(MenuAction action) const { return m_menuActions.value(action); }
    // Opens the row menu as a right click on row would (-1: as from the keyboard, with no row under it).
    void showContextMenu(int row, const QPoint& globalPosition);

    // Where "Show in file manager" looks for an installed app's folder (the process-wide installation unless set).
    void setInstallation(const Homebrew::Installation* installation);
    // The folder Homebrew keeps an installed app in, when it exists.
    std::optional<QString> installedFolder(const Package& record) const;

Q_SIGNALS:
    // The person asked for kind on records (from an inline button, exactly the row's record).
    void operationRequested(PackageOperation::Kind kind, const QList<Package*>& records);
    void selectionChanged();
    // The number of installed records may have changed; coalesced, emitted from the event loop.
    void installedCountChanged();

protected:
    PackageTableViewController(PackageOperation::Persona persona, ManagedObjectContext* viewContext, Defaults& defaults,
                               QWidget* parent);

    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    QString localized(const char* text) const;
    void buildContextMenu();
    void updateMenuActions();
    void requestOperation(PackageOperation::Kind kind);
    void copyRecords();
    void goToWebsites();
    void showInFileManager();
    void inlineButtonClicked(const QModelIndex& index, const QString& identifier);

    void applySortDescriptors();
    void applyPreferences();
    void preferenceChanged(const QString& key);

    void saveViewState();
    void restoreViewState();
    void scheduleInstalledCountChanged();

    PackageOperation::Persona m_persona;
    QPointer<ManagedObjectContext> m_context;
    Defaults& m_defaults;
    ArrayController m_arrayController;
    PackageTableModel* m_model = nullptr;
    QTableView* m_tableView = nullptr;
    PackageStatusDelegate* m_statusDelegate = nullptr;
    TableHeaderMenu* m_headerMenu = nullptr;
    QMenu* m_contextMenu = nullptr;
    QMap<MenuAction, QAction*> m_menuActions;
    QPointer<Package> m_clickedRecord;
    const Homebrew::Installation* m_installation = nullptr;
    QMetaObject::Connection m_preferencesConnection;
    bool m_installedCountPending = false;

    // What a model reset must not lose: the selection by token, the current row, the row at the top.
    struct ViewState {
        QSet<QString> selectedTokens;
        QString currentToken;
        int currentColumn = -1;
        QString topToken;
        int topOffset = 0;
        int horizontalScroll = 0;
    };
    ViewState m_viewState;
};
