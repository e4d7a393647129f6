#include "ui/PackageTableViewController.h"

#include "catalogue/Cask.h"
#include "catalogue/ManagedObjectContext.h"
#include "catalogue/Package.h"
#include "foundation/Defaults.h"
#include "foundation/Logging.h"
#include "foundation/PreferenceKeys.h"
#include "homebrew/HomebrewInstallation.h"
#include "search/SearchController.h"
#include "search/SearchPredicates.h"
#include "ui/PackageStatusDelegate.h"
#include "ui/PackageTableModel.h"
#include "ui/TableAppearance.h"
#include "ui/TableHeaderMenu.h"
#include "ui/TableRowDelegate.h"

#include <QApplication>
#include <QClipboard>
#include <QContextMenuEvent>
#include <QDesktopServices>
#include <QDir>
#include <QFileInfo>
#include <QHeaderView>
#include <QMap>
#include <QMenu>
#include <QScrollBar>
#include <QTableView>
#include <QUrl>
#include <QVBoxLayout>

namespace {

using Kind = PackageOperation::Kind;
using Persona = PackageOperation::Persona;
using Column = PackageTableModel::Column;
using MenuAction = PackageTableViewController::MenuAction;

// The row menu's texts, listed in both string tables so that the translation tools find each where it is read.
[[maybe_unused]] const char* const menuTexts[] = {
    QT_TRANSLATE_NOOP("AppsTableViewController", "Install"),
    QT_TRANSLATE_NOOP("AppsTableViewController", "Install in Folder..."),
    QT_TRANSLATE_NOOP("AppsTableViewController", "Uninstall"),
    QT_TRANSLATE_NOOP("AppsTableViewController", "Upgrade"),
    QT_TRANSLATE_NOOP("AppsTableViewController", "Reinstall"),
    QT_TRANSLATE_NOOP("AppsTableViewController", "Move To..."),
    QT_TRANSLATE_NOOP("AppsTableViewController", "Copy"),
    QT_TRANSLATE_NOOP("AppsTableViewController", "Go to Website"),
    QT_TRANSLATE_NOOP("AppsTableViewController", "Show in File Manager"),
    QT_TRANSLATE_NOOP("ScriptsTableViewController", "Install"),
    QT_TRANSLATE_NOOP("ScriptsTableViewController", "Uninstall"),
    QT_TRANSLATE_NOOP("ScriptsTableViewController", "Upgrade"),
    QT_TRANSLATE_NOOP("ScriptsTableViewController", "Reinstall"),
    QT_TRANSLATE_NOOP("ScriptsTableViewController", "Copy"),
    QT_TRANSLATE_NOOP("ScriptsTableViewController", "Go to Website"),
};

struct MenuEntry {
    MenuAction action;
    const char* text;
    const char* objectName;
    bool appsOnly;
    bool separatorBefore;
};

const MenuEntry menuEntries[] = {
    {MenuAction::install, "Install", "installAction", false, false},
    {MenuAction::installInFolder, "Install in Folder...", "installInFolderAction", true, false},
    {MenuAction::uninstall, "Uninstall", "uninstallAction", false, false},
    {MenuAction::upgrade, "Upgrade", "upgradeAction", false, false},
    {MenuAction::reinstall, "Reinstall", "reinstallAction", false, false},
    {MenuAction::move, "Move To...", "moveAction", true, false},
    {MenuAction::copy, "Copy", "copyAction", false, true},
    {MenuAction::goToWebsite, "Go to Website", "goToWebsiteAction", false, false},
    {MenuAction::showInFileManager, "Show in File Manager", "showInFileManagerAction", true, false},
};

std::optional<Kind> operationOf(MenuAction action)
{
    switch (action) {
    case MenuAction::install:
        return Kind::install;
    case MenuAction::installInFolder:
        return Kind::installInFolder;
    case MenuAction::uninstall:
        return Kind::uninstall;
    case MenuAction::upgrade:
        return Kind::upgrade;
    case MenuAction::reinstall:
        return Kind::reinstall;
    case MenuAction::move:
        return Kind::move;
    default:
        return std::nullopt;
    }
}

// Installing into a chosen folder and moving ask for one folder, so they act on exactly one record.
bool actsOnOneRecord(Kind kind)
{
    return kind == Kind::installInFolder || kind == Kind::move;
}

QUrl websiteOf(const Package& record)
{
    const QUrl url(record.value(u"website").toString());
    return url.isValid() && !url.isRelative() ? url : QUrl();
}

} // namespace

PackageTableViewController::PackageTableViewController(PackageOperation::Persona persona,
                                                       ManagedObjectContext* viewContext, Defaults& defaults,
                                                       QWidget* parent)
    : QWidget(parent)
    , m_persona(persona)
    , m_context(viewContext)
    , m_defaults(defaults)
    , m_arrayController(viewContext, persona == Persona::apps ? QStringLiteral("Cask") : QStringLiteral("Formula"))
    , m_installation(&Homebrew::Installation::shared())
{
    m_model = new PackageTableModel(m_arrayController, persona, this);
    m_tableView = new QTableView(this);
    m_tableView->setObjectName(persona == Persona::apps ? QStringLiteral("AppsTableView")
                                                        : QStringLiteral("ScriptsTableView"));
    m_tableView->setModel(m_model);
    m_tableView->setSelectionMode(QAbstractItemView::ExtendedSelection);
    m_tableView->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_tableView->setEditTriggers(QAbstractItemView::NoEditTriggers);
    // Tab leaves the table for the next control instead of walking its cells.
    m_tableView->setTabKeyNavigation(false);
    m_tableView->setWordWrap(false);
    m_tableView->setMouseTracking(true);
    m_tableView->verticalHeader()->hide();
    m_tableView->verticalHeader()->setDefaultSectionSize(m_tableView->fontMetrics().height() + 12);
    m_tableView->setItemDelegate(new TableRowDelegate(m_tableView));
    m_statusDelegate = new PackageStatusDelegate(m_tableView);
    m_tableView->setItemDelegateForColumn(m_model->columnOf(Column::status), m_statusDelegate);
    connect(m_statusDelegate, &PackageStatusDelegate::buttonClicked, this,
            &PackageTableViewController::inlineButtonClicked);

    QHeaderView* header = m_tableView->horizontalHeader();
    header->setSectionsMovable(true);
    header->setSectionsClickable(true);
    header->setSortIndicatorShown(true);
    header->setHighlightSections(false);
    const int em = m_tableView->fontMetrics().horizontalAdvance(QLatin1Char('M'));
    const QMap<Column, int> widths{
        {Column::name, 14 * em},      {Column::token, 12 * em},      {Column::kind, 8 * em},
        {Column::version, 7 * em},    {Column::repository, 11 * em}, {Column::description, 24 * em},
        {Column::hierarchy, 12 * em}, {Column::license, 8 * em},     {Column::status, 8 * em},
    };
    for (int section = 0; section < m_model->columnCount(); ++section) {
        const Column column = m_model->columnAt(section);
        if (column == Column::icon) {
            header->setSectionResizeMode(section, QHeaderView::Fixed);
            header->resizeSection(section,
                                  m_tableView->iconSize().isValid() ? m_tableView->iconSize().width() + 12 : 28);
        } else {
            header->resizeSection(section, widths.value(column, 10 * em));
        }
    }
    const QString name = localized("Name");
    m_headerMenu = new TableHeaderMenu(headerIdentifier(), {name}, header, defaults, this);
    connect(m_headerMenu, &TableHeaderMenu::columnVisibilityChanged, this, [this] {
        // Which column is first or last may have changed.
        TableAppearance::apply(
            m_tableView, TableAppearance::columnSizing(m_defaults.integerValue(PreferenceKeys::TableColumnSizing)));
    });

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_tableView);

    connect(m_model, &QAbstractItemModel::modelAboutToBeReset, this, &PackageTableViewController::saveViewState);
    connect(m_model, &QAbstractItemModel::modelReset, this, &PackageTableViewController::restoreViewState);
    connect(m_tableView->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            &PackageTableViewController::selectionChanged);
    connect(header, &QHeaderView::sortIndicatorChanged, this, &PackageTableViewController::applySortDescriptors);

    if (m_context) {
        connect(m_context, &ManagedObjectContext::objectsDidChange, this,
                &PackageTableViewController::scheduleInstalledCountChanged);
        connect(m_context, &ManagedObjectContext::didSave, this,
                &PackageTableViewController::scheduleInstalledCountChanged);
    }
    connect(&m_arrayController, &ArrayController::arrangedObjectValueChanged, this,
            [this](ManagedObject*, const QString& key) {
                if (key == u"installed") {
                    scheduleInstalledCountChanged();
                }
            });

    m_tableView->installEventFilter(this);
    m_tableView->viewport()->installEventFilter(this);
    buildContextMenu();

    // Installed records, by name; the header shows the order it stands for.
    m_arrayController.setFilterPredicate(SearchController::filterPredicate(std::nullopt));
    header->setSortIndicator(m_model->columnOf(Column::name), Qt::AscendingOrder);
    applySortDescriptors();
    if (const Result<void> fetched = m_arrayController.fetch(); !fetched) {
        qCWarning(lcCorvel).noquote() << fetched.error().description();
    }
}

PackageTableViewController::~PackageTableViewController()
{
    // The view goes before the model and the controller it reads.
    delete m_tableView;
    m_tableView = nullptr;
}

QString PackageTableViewController::headerIdentifier() const
{
    return m_persona == Persona::apps ? QStringLiteral("Apps Table Header") : QStringLiteral("Scripts Table Header");
}

QString PackageTableViewController::localized(const char* text) const
{
    return QCoreApplication::translate(m_model->translationContext(), text);
}

void PackageTableViewController::filter(const std::optional<Predicate>& searchPredicate)
{
    m_arrayController.setFilterPredicate(SearchController::filterPredicate(searchPredicate));
}

QList<Package*> PackageTableViewController::selectedRecords() const
{
    QList<int> rows;
    for (const QModelIndex& index : m_tableView->selectionModel()->selectedRows()) {
        rows.append(index.row());
    }
    std::sort(rows.begin(), rows.end());
    QList<Package*> records;
    records.reserve(rows.size());
    for (const int row : std::as_const(rows)) {
        if (Package* record = m_model->recordAt(row)) {
            records.append(record);
        }
    }
    return records;
}

QList<Package*> PackageTableViewController::designatedRecords() const
{
    if (!m_clickedRecord) {
        return selectedRecords();
    }
    const int row = m_model->rowOf(m_clickedRecord);
    if (row >= 0 && m_tableView->selectionModel()->isRowSelected(row, QModelIndex())) {
        return selectedRecords();
    }
    return {m_clickedRecord.data()};
}

int PackageTableViewController::installedCount() const
{
    if (!m_context) {
        return 0;
    }
    const Result<QList<ManagedObject*>> installed =
        m_context->fetch(m_arrayController.entityName(), SearchPredicates::installed());
    if (!installed) {
        qCWarning(lcCorvel).noquote() << installed.error().description();
        return 0;
    }
    return int(installed.value().size());
}

void PackageTableViewController::setInstallation(const Homebrew::Installation* installation)
{
    m_installation = installation;
}

std::optional<QString> PackageTableViewController::installedFolder(const Package& record) const
{
    if (!qobject_cast<const Cask*>(&record) || !record.installed() || !m_installation) {
        return std::nullopt;
    }
    const std::optional<QString> prefix = m_installation->prefix();
    if (!prefix || record.token().isEmpty() || record.token().contains(u'/')) {
        return std::nullopt;
    }
    const QString folder = QDir(*prefix).filePath(QStringLiteral("Caskroom/") + record.token());
    return QFileInfo(folder).isDir() ? std::optional(folder) : std::nullopt;
}

// ---- Row menu ------------------------------------------------------------------------------------------------

void PackageTableViewController::buildContextMenu()
{
    m_contextMenu = new QMenu(this);
    m_contextMenu->setObjectName(QStringLiteral("TableContextMenu"));
    for (const MenuEntry& entry : menuEntries) {
        if (entry.appsOnly && m_persona != Persona::apps) {
            continue;
        }
        if (entry.separatorBefore) {
            m_contextMenu->addSeparator();
        }
        QAction* action = m_contextMenu->addAction(localized(entry.text));
        action->setObjectName(QString::fromLatin1(entry.objectName));
        m_menuActions.insert(entry.action, action);
        const MenuAction which = entry.action;
        connect(action, &QAction::triggered, this, [this, which] {
            if (const std::optional<Kind> kind = operationOf(which)) {
                requestOperation(*kind);
            } else if (which == MenuAction::copy) {
                copyRecords();
            } else if (which == MenuAction::goToWebsite) {
                goToWebsites();
            } else if (which == MenuAction::showInFileManager) {
                showInFileManager();
            }
        });
    }
    connect(m_contextMenu, &QMenu::aboutToShow, this, &PackageTableViewController::updateMenuActions);
    connect(m_contextMenu, &QMenu::aboutToHide, this, [this] {
        // The chosen entry runs after the menu hid, and must still see the row it was opened on.
        QMetaObject::invokeMethod(
            this, [this] { m_clickedRecord.clear(); }, Qt::QueuedConnection);
    });
}

void PackageTableViewController::showContextMenu(int row, const QPoint& globalPosition)
{
    m_clickedRecord = row >= 0 ? m_model->recordAt(row) : nullptr;
    updateMenuActions();
    m_contextMenu->popup(globalPosition);
}

void PackageTableViewController::updateMenuActions()
{
    const QList<Package*> records = designatedRecords();
    for (auto it = m_menuActions.cbegin(); it != m_menuActions.cend(); ++it) {
        bool enabled = false;
        if (const std::optional<Kind> kind = operationOf(it.key())) {
            if (actsOnOneRecord(*kind)) {
                enabled = records.size() == 1 && PackageOperation::isOfferedBy(*kind, *records.first());
            } else {
                enabled = std::any_of(records.cbegin(), records.cend(), [&](const Package* record) {
                    return PackageOperation::isOfferedBy(*kind, *record);
                });
            }
        } else if (it.key() == MenuAction::copy) {
            enabled = !records.isEmpty();
        } else if (it.key() == MenuAction::goToWebsite) {
            enabled = std::any_of(records.cbegin(), records.cend(),
                                  [](const Package* record) { return !websiteOf(*record).isEmpty(); });
        } else if (it.key() == MenuAction::showInFileManager) {
            enabled = std::any_of(records.cbegin(), records.cend(),
                                  [this](const Package* record) { return installedFolder(*record).has_value(); });
        }
        it.value()->setEnabled(enabled);
    }
}

void PackageTableViewController::requestOperation(PackageOperation::Kind kind)
{
    QList<Package*> records = designatedRecords();
    records.removeIf([kind](const Package* record) { return !PackageOperation::isOfferedBy(kind, *record); });
    if (records.isEmpty() || (actsOnOneRecord(kind) && records.size() != 1)) {
        return;
    }
    Q_EMIT operationRequested(kind, records);
}

void PackageTableViewController::copyRecords()
{
    const QString type = Package::writableTypes().constFirst();
    QStringList tokens;
    for (const Package* record : designatedRecords()) {
        tokens.append(record->pasteboardPropertyList(type).toString());
    }
    if (!tokens.isEmpty()) {
        QApplication::clipboard()->setText(tokens.join(u'\n'));
    }
}

void PackageTableViewController::goToWebsites()
{
    QList<QUrl> opened;
    for (const Package* record : designatedRecords()) {
        const QUrl url = websiteOf(*record);
        if (!url.isEmpty() && !opened.contains(url)) {
            opened.append(url);
            QDesktopServices::openUrl(url);
        }
    }
}

void PackageTableViewController::showInFileManager()
{
    for (const Package* record : designatedRecords()) {
        if (const std::optional<QString> folder = installedFolder(*record)) {
            QDesktopServices::openUrl(QUrl::fromLocalFile(*folder));
        }
    }
}

void PackageTableViewController::inlineButtonClicked(const QModelIndex& index, const QString& identifier)
{
    Package* record = m_model->recordAt(index.row());
    if (!record) {
        return;
    }
    Kind kind;
    if (identifier == PackageTableModel::buttonIdentifier(PackageTableModel::Status::install)) {
        kind = Kind::install;
    } else if (identifier == PackageTableModel::buttonIdentifier(PackageTableModel::Status::upgrade)) {
        kind = Kind::upgrade;
    } else {
        return;
    }
    // The row may have become busy between its painting and the click.
    if (PackageOperation::isOfferedBy(kind, *record)) {
        Q_EMIT operationRequested(kind, {record});
    }
}

bool PackageTableViewController::eventFilter(QObject* watched, QEvent* event)
{
    if (event->type() == QEvent::ContextMenu && (watched == m_tableView || watched == m_tableView->viewport())) {
        const auto* menuEvent = static_cast<QContextMenuEvent*>(event);
        int row = -1;
        if (menuEvent->reason() == QContextMenuEvent::Mouse && watched == m_tableView->viewport()) {
            row = m_tableView->indexAt(menuEvent->pos()).row();
        }
        showContextMenu(row, menuEvent->globalPos());
        return true;
    }
    return QWidget::eventFilter(watched, event);
}

// ---- Order and appearance --------------------------------------------------------------------------------------

void PackageTableViewController::applySortDescriptors()
{
    const QHeaderView* header = m_tableView->horizontalHeader();
    QList<SortDescriptor> descriptors;
    if (m_defaults.boolValue(PreferenceKeys::TableShowUpgradesAbove)) {
        descriptors.append(SortDescriptor{QStringLiteral("outdated"), false});
    }
    const int section = header->sortIndicatorSection();
    const QString key = section >= 0 && section < m_model->columnCount()
                            ? PackageTableModel::sortKey(m_model->columnAt(section))
                            : QStringLiteral("name");
    descriptors.append(SortDescriptor{key, header->sortIndicatorOrder() == Qt::AscendingOrder});
    m_arrayController.setSortDescriptors(descriptors);
}

void PackageTableViewController::applyPreferences()
{
    applySortDescriptors();
    TableAppearance::apply(m_tableView, m_defaults);
}

void PackageTableViewController::preferenceChanged(const QString& key)
{
    if (key == PreferenceKeys::TableShowUpgradesAbove) {
        applySortDescriptors();
    } else if (key == PreferenceKeys::TableColumnSizing) {
        TableAppearance::apply(
            m_tableView, TableAppearance::columnSizing(m_defaults.integerValue(PreferenceKeys::TableColumnSizing)));
    } else if (key == PreferenceKeys::TableStyle) {
        TableAppearance::apply(m_tableView,
                               TableAppearance::style(m_defaults.integerValue(PreferenceKeys::TableStyle)));
    }
}

void PackageTableViewController::showEvent(QShowEvent* event)
{
    QWidget::showEvent(event);
    if (!m_preferencesConnection) {
        m_preferencesConnection =
            connect(&m_defaults, &Defaults::valueChanged, this, &PackageTableViewController::preferenceChanged);
        applyPreferences();
    }
}

void PackageTableViewController::hideEvent(QHideEvent* event)
{
    QWidget::hideEvent(event);
    // A minimised window is still the one on screen; only a table really put away stops listening.
    if (!event->spontaneous()) {
        disconnect(m_preferencesConnection);
        m_preferencesConnection = {};
    }
}

// ---- Resets --------------------------------------------------------------------------------------------------

void PackageTableViewController::saveViewState()
{
    ViewState state;
    for (const Package* record : selectedRecords()) {
        state.selectedTokens.insert(record->token());
    }
    const QModelIndex current = m_tableView->currentIndex();
    if (const Package* record = m_model->recordAt(current.row())) {
        state.currentToken = record->token();
        state.currentColumn = current.column();
    }
    const int top = m_tableView->rowAt(0);
    if (const Package* record = m_model->recordAt(top)) {
        state.topToken = record->token();
        state.topOffset = m_tableView->rowViewportPosition(top);
    }
    state.horizontalScroll = m_tableView->horizontalScrollBar()->value();
    m_viewState = state;
}

void PackageTableViewController::restoreViewState()
{
    const ViewState state = std::exchange(m_viewState, ViewState{});
    const int rows = m_model->rowCount();
    const int lastColumn = m_model->columnCount() - 1;
    QItemSelection selection;
    int currentRow = -1;
    int topRow = -1;
    int rangeStart = -1;
    for (int row = 0; row <= rows; ++row) {
        const Package* record = row < rows ? m_model->recordAt(row) : nullptr;
        const bool selected = record && state.selectedTokens.contains(record->token());
        if (selected && rangeStart < 0) {
            rangeStart = row;
        } else if (!selected && rangeStart >= 0) {
            selection.select(m_model->index(rangeStart, 0), m_model->index(row - 1, lastColumn));
            rangeStart = -1;
        }
        if (record && record->token() == state.currentToken) {
            currentRow = row;
        }
        if (record && record->token() == state.topToken) {
            topRow = row;
        }
    }
    QItemSelectionModel* selectionModel = m_tableView->selectionModel();
    if (currentRow >= 0) {
        selectionModel->setCurrentIndex(m_model->index(currentRow, std::max(state.currentColumn, 0)),
                                        QItemSelectionModel::NoUpdate);
    }
    if (!selection.isEmpty() || selectionModel->hasSelection()) {
        selectionModel->select(selection, QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
    }
    // The scroll bars must know the new row count before a position can be set in it.
    m_tableView->doItemsLayout();
    if (topRow >= 0) {
        m_tableView->scrollTo(m_model->index(topRow, 0), QAbstractItemView::PositionAtTop);
        // Per-pixel scrolling: put the row back where it was, partly scrolled out included.
        if (m_tableView->verticalScrollMode() == QAbstractItemView::ScrollPerPixel) {
            QScrollBar* bar = m_tableView->verticalScrollBar();
            bar->setValue(bar->value() - state.topOffset);
        }
    }
    m_tableView->horizontalScrollBar()->setValue(state.horizontalScroll);
}

void PackageTableViewController::scheduleInstalledCountChanged()
{
    if (m_installedCountPending) {
        return;
    }
    m_installedCountPending = true;
    QMetaObject::invokeMethod(
        this,
        [this] {
            m_installedCountPending = false;
            Q_EMIT installedCountChanged();
        },
        Qt::QueuedConnection);
}
