#include "ui/MainWindow.h"

#include "activities/ApplicationState.h"
#include "activities/Notifications.h"
#include "catalogue/ArrayController.h"
#include "catalogue/Cask.h"
#include "catalogue/CoreDataManager.h"
#include "catalogue/Formula.h"
#include "catalogue/Synchronisation.h"
#include "foundation/Defaults.h"
#include "foundation/PreferenceKeys.h"
#include "operations/AppOperations.h"
#include "operations/ScriptOperations.h"
#include "search/SGKSuggestionList.h"
#include "search/SearchController.h"
#include "ui/AppsTableViewController.h"
#include "ui/AssetIcons.h"
#include "ui/SGKSuggestionPopup.h"
#include "ui/SGKSuggestionSearchField.h"
#include "ui/ScriptsTableViewController.h"
#include "ui/TranscriptPane.h"

#include <QAction>
#include <QActionGroup>
#include <QApplication>
#include <QCloseEvent>
#include <QLabel>
#include <QMenuBar>
#include <QMessageBox>
#include <QPointer>
#include <QProgressBar>
#include <QSplitter>
#include <QStackedWidget>
#include <QStatusBar>
#include <QTableView>
#include <QTimer>
#include <QToolBar>
#include <QVBoxLayout>

namespace {

using Kind = PackageOperation::Kind;

template <class Record>
QList<Record*> recordsOf(const QList<Package*>& records)
{
    QList<Record*> result;
    for (Package* record : records) {
        if (auto* typed = qobject_cast<Record*>(record)) {
            result.append(typed);
        }
    }
    return result;
}

// A pane thinner than this is as good as hidden; restoring it would show a sliver.
constexpr int minimumPaneHeight = 60;

} // namespace

MainWindow::MainWindow(const Services& services, QWidget* parent)
    : QMainWindow(parent)
    , m_services(services)
{
    setObjectName(QStringLiteral("mainWindow"));
    resize(1180, 760);
    setUnifiedTitleAndToolBarOnMac(true);

    m_suggestionList = new SGKSuggestionList(this);
    m_searchController = new SearchController(m_services.defaults, m_suggestionList, this);

    // Each persona's table fills its page when first needed: building one fetches its whole catalogue, and a start
    // shows only one of them.
    m_tables = new QStackedWidget;
    for (int page = appsPersona; page <= scriptsPersona; ++page) {
        auto* holder = new QWidget;
        auto* layout = new QVBoxLayout(holder);
        layout->setContentsMargins(0, 0, 0, 0);
        m_tables->addWidget(holder);
    }
    const qint64 storedPersona = m_services.defaults.integerValue(PreferenceKeys::PersonasSelectedIndex);
    m_tables->setCurrentIndex(storedPersona == scriptsPersona ? scriptsPersona : appsPersona);

    m_transcriptPane =
        new TranscriptPane(m_services.transcript, m_services.activityCenter, m_services.defaults, m_services.alerter);
    m_splitter = new QSplitter(Qt::Vertical);
    m_splitter->setObjectName(QStringLiteral("mainSplitter"));
    m_splitter->setChildrenCollapsible(false);
    m_splitter->addWidget(m_tables);
    m_splitter->addWidget(m_transcriptPane);
    m_splitter->setStretchFactor(0, 1);
    m_splitter->setStretchFactor(1, 0);
    setCentralWidget(m_splitter);

    buildActions();
    buildToolbar();
    buildMenus();
    buildStatusBar();

    currentTable();

    connect(m_searchField, &SGKSuggestionSearchField::textDidChange, m_searchController,
            &SearchController::searchTextDidChange);
    connect(m_searchField, &SGKSuggestionSearchField::searchActionTriggered, m_searchController,
            &SearchController::searchAction);
    connect(m_searchController, &SearchController::searchTextChangeRequested, m_searchField, &QLineEdit::setText);

    connect(&m_services.state, &ApplicationState::isBusyChanged, this, &MainWindow::updateActions);
    connect(&m_services.apps, &PackageOperations::requestSettled, this, &MainWindow::updateActions);
    connect(&m_services.apps, &PackageOperations::operationFinished, this, &MainWindow::updateActions);
    connect(&m_services.scripts, &PackageOperations::requestSettled, this, &MainWindow::updateActions);
    connect(&m_services.scripts, &PackageOperations::operationFinished, this, &MainWindow::updateActions);

    connect(&m_services.state, &ApplicationState::transcriptPaneVisibleChanged, this,
            &MainWindow::applyTranscriptPaneState);
    connect(m_splitter, &QSplitter::splitterMoved, this, [this] {
        const int height = m_splitter->sizes().value(1);
        if (m_transcriptPane->isVisible() && height >= minimumPaneHeight) {
            m_services.state.setTranscriptPaneThickness(height);
        }
    });

    connect(&m_services.synchronisation, &Synchronisation::stepChanged, this, &MainWindow::showSynchronisationProgress);
    connect(&m_services.synchronisation, &Synchronisation::finished, this, &MainWindow::showSynchronisationProgress);

    changePersona(storedPersona == scriptsPersona ? scriptsPersona : appsPersona);
    applyTranscriptPaneState();
    showSynchronisationProgress();
}

MainWindow::~MainWindow() = default;

void MainWindow::buildActions()
{
    m_personaGroup = new QActionGroup(this);
    m_personaGroup->setExclusive(true);
    m_appsAction = new QAction(AssetIcons::icon(QStringLiteral("Icons/Toolbar/app")), tr("Apps"), m_personaGroup);
    m_appsAction->setObjectName(QStringLiteral("appsPersonaAction"));
    m_appsAction->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_1));
    m_scriptsAction =
        new QAction(AssetIcons::icon(QStringLiteral("Icons/Toolbar/script")), tr("Scripts"), m_personaGroup);
    m_scriptsAction->setObjectName(QStringLiteral("scriptsPersonaAction"));
    m_scriptsAction->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_2));
    for (QAction* action : {m_appsAction, m_scriptsAction}) {
        action->setCheckable(true);
        action->setToolTip(action->text() + QStringLiteral(" (") +
                           action->shortcut().toString(QKeySequence::NativeText) + u')');
    }
    connect(m_appsAction, &QAction::triggered, this, [this] { changePersona(appsPersona); });
    connect(m_scriptsAction, &QAction::triggered, this, [this] { changePersona(scriptsPersona); });

    m_primaryActions = new QActionGroup(this);
    m_primaryActions->setObjectName(QStringLiteral("PrimaryActionsGroup"));
    m_primaryActions->setExclusive(false);
    const auto addOperation = [this](Kind kind, const QString& icon, const QString& title, const QKeySequence& key,
                                     bool primary) {
        auto* action = new QAction(AssetIcons::icon(icon), title, primary ? m_primaryActions : nullptr);
        if (!primary) {
            action->setParent(this);
        }
        action->setObjectName(PackageOperation::activityKind(kind).toLower() + QStringLiteral("Action"));
        action->setShortcut(key);
        connect(action, &QAction::triggered, this, [this, kind] { perform(kind); });
        m_operationActions.append({kind, action});
    };
    addOperation(Kind::install, QStringLiteral("Icons/Toolbar/install"), tr("Install"),
                 QKeySequence(Qt::CTRL | Qt::Key_I), true);
    addOperation(Kind::uninstall, QStringLiteral("Icons/Toolbar/uninstall"), tr("Uninstall"),
                 QKeySequence(Qt::CTRL | Qt::Key_Backspace), true);
    addOperation(Kind::upgrade, QStringLiteral("Icons/Toolbar/upgrade"), tr("Upgrade"),
                 QKeySequence(Qt::CTRL | Qt::Key_U), true);
    m_upgradeAllAction =
        new QAction(AssetIcons::icon(QStringLiteral("Icons/Toolbar/upgradeAll")), tr("Upgrade All"), m_primaryActions);
    m_upgradeAllAction->setObjectName(QStringLiteral("upgradeAllAction"));
    m_upgradeAllAction->setShortcut(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_U));
    connect(m_upgradeAllAction, &QAction::triggered, this, &MainWindow::upgradeAll);
    addOperation(Kind::installInFolder, QString(), tr("Install in Folder..."), {}, false);
    addOperation(Kind::reinstall, QString(), tr("Reinstall"), {}, false);
    addOperation(Kind::move, QString(), tr("Move To..."), {}, false);
    for (QAction* action : m_primaryActions->actions()) {
        action->setToolTip(action->shortcut().isEmpty()
                               ? action->text()
                               : action->text() + QStringLiteral(" (") +
                                     action->shortcut().toString(QKeySequence::NativeText) + u')');
    }

    m_transcriptAction = new QAction(tr("Show Transcript"), this);
    m_transcriptAction->setObjectName(QStringLiteral("transcriptAction"));
    m_transcriptAction->setCheckable(true);
    m_transcriptAction->setShortcut(QKeySequence(Qt::CTRL | Qt::ALT | Qt::Key_T));
    connect(m_transcriptAction, &QAction::toggled, this,
            [this](bool visible) { m_services.state.setTranscriptPaneVisible(visible); });

    m_syncAction = new QAction(tr("Synchronise Now"), this);
    m_syncAction->setObjectName(QStringLiteral("syncAction"));
    m_syncAction->setShortcut(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_R));
    connect(m_syncAction, &QAction::triggered, this,
            [this] { m_services.synchronisation.start(Synchronisation::Form::full); });
    m_fastSyncAction = new QAction(tr("Fast Synchronise"), this);
    m_fastSyncAction->setObjectName(QStringLiteral("fastSyncAction"));
    m_fastSyncAction->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_R));
    connect(m_fastSyncAction, &QAction::triggered, this,
            [this] { m_services.synchronisation.start(Synchronisation::Form::fast); });

    m_findAction = new QAction(tr("Find"), this);
    m_findAction->setObjectName(QStringLiteral("findAction"));
    m_findAction->setShortcut(QKeySequence::Find);
    connect(m_findAction, &QAction::triggered, this, &MainWindow::performFind);
    addAction(m_findAction);
}

void MainWindow::buildToolbar()
{
    QToolBar* toolbar = addToolBar(tr("Toolbar"));
    toolbar->setObjectName(QStringLiteral("mainToolbar"));
    toolbar->setMovable(false);
    toolbar->setFloatable(false);
    toolbar->setToolButtonStyle(Qt::ToolButtonTextUnderIcon);
    toolbar->setIconSize(QSize(24, 24));
    toolbar->addActions(m_personaGroup->actions());
    toolbar->addSeparator();
    toolbar->addActions(m_primaryActions->actions());

    auto* spacer = new QWidget(toolbar);
    spacer->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
    toolbar->addWidget(spacer);

    m_searchField = new SGKSuggestionSearchField(toolbar);
    m_searchField->setObjectName(QStringLiteral("searchField"));
    m_searchField->setPlaceholderText(tr("Search"));
    m_searchField->setClearButtonEnabled(true);
    m_searchField->setMinimumWidth(300);
    m_searchField->setMaximumWidth(420);
    m_searchField->setSuggestionList(m_suggestionList);
    toolbar->addWidget(m_searchField);
}

void MainWindow::buildMenus()
{
    QMenu* fileMenu = menuBar()->addMenu(tr("&File"));
    fileMenu->addAction(m_syncAction);
    fileMenu->addAction(m_fastSyncAction);
    fileMenu->addSeparator();
    if (QAction* save = m_transcriptPane->saveAction()) {
        fileMenu->addAction(save);
    }
    fileMenu->addSeparator();
    QAction* settings = fileMenu->addAction(tr("Settings..."), this, &MainWindow::settingsRequested);
    // Most Linux desktops define no standard key for preferences; Ctrl+, is what people try.
    const QList<QKeySequence> preferences = QKeySequence::keyBindings(QKeySequence::Preferences);
    settings->setShortcut(preferences.isEmpty() ? QKeySequence(Qt::CTRL | Qt::Key_Comma) : preferences.constFirst());
    settings->setMenuRole(QAction::PreferencesRole);
    QAction* quit = fileMenu->addAction(tr("&Quit Corvel X"), this, &QWidget::close);
    quit->setShortcut(QKeySequence::Quit);
    quit->setMenuRole(QAction::QuitRole);

    QMenu* editMenu = menuBar()->addMenu(tr("&Edit"));
    editMenu->addAction(m_findAction);

    QMenu* viewMenu = menuBar()->addMenu(tr("&View"));
    viewMenu->addActions(m_personaGroup->actions());
    viewMenu->addSeparator();
    viewMenu->addAction(m_transcriptAction);
    if (QAction* clear = m_transcriptPane->clearAction()) {
        viewMenu->addAction(clear);
    }
    viewMenu->addSeparator();
    viewMenu->addAction(tr("View Options..."), this, &MainWindow::viewOptionsRequested);

    QMenu* packageMenu = menuBar()->addMenu(tr("&Package"));
    for (const Kind kind : {Kind::install, Kind::installInFolder, Kind::uninstall, Kind::upgrade}) {
        packageMenu->addAction(action(kind));
    }
    packageMenu->addAction(m_upgradeAllAction);
    packageMenu->addSeparator();
    packageMenu->addAction(action(Kind::reinstall));
    packageMenu->addAction(action(Kind::move));

    QMenu* helpMenu = menuBar()->addMenu(tr("&Help"));
    helpMenu->addAction(tr("Install Homebrew..."), this, &MainWindow::homebrewInstallationRequested);
    helpMenu->addSeparator();
    QAction* about = helpMenu->addAction(tr("About Corvel X"), this, [this] {
        QMessageBox::about(this, tr("About Corvel X"),
                           tr("<b>Corvel X</b> %1<br>A desktop front-end for the Homebrew package manager.")
                               .arg(QCoreApplication::applicationVersion().toHtmlEscaped()));
    });
    about->setMenuRole(QAction::AboutRole);
}

void MainWindow::buildStatusBar()
{
    m_syncLabel = new QLabel(statusBar());
    m_syncLabel->setObjectName(QStringLiteral("syncLabel"));
    m_syncProgress = new QProgressBar(statusBar());
    m_syncProgress->setObjectName(QStringLiteral("syncProgress"));
    m_syncProgress->setRange(0, 100);
    m_syncProgress->setMaximumWidth(180);
    m_syncProgress->setTextVisible(false);
    statusBar()->addWidget(m_syncLabel, 1);
    statusBar()->addPermanentWidget(m_syncProgress);
}

void MainWindow::connectTable(PackageTableViewController* table)
{
    connect(&Notifications::instance(), &Notifications::searchPerformed, table, &PackageTableViewController::filter);
    connect(table, &PackageTableViewController::operationRequested, this, &MainWindow::run);
    connect(table, &PackageTableViewController::selectionChanged, this, &MainWindow::updateActions);
    connect(&table->arrayController(), &ArrayController::arrangedObjectsChanged, this, &MainWindow::updateActions);
    connect(&table->arrayController(), &ArrayController::arrangedObjectValueChanged, this, &MainWindow::updateActions);
    connect(table, &PackageTableViewController::installedCountChanged, this, &MainWindow::updateSubtitle);
}

AppsTableViewController* MainWindow::appsTable()
{
    if (!m_appsTable) {
        m_appsTable = new AppsTableViewController(m_services.store.viewContext(), m_services.defaults);
        placeTable(appsPersona, m_appsTable);
    }
    return m_appsTable;
}

ScriptsTableViewController* MainWindow::scriptsTable()
{
    if (!m_scriptsTable) {
        m_scriptsTable = new ScriptsTableViewController(m_services.store.viewContext(), m_services.defaults);
        placeTable(scriptsPersona, m_scriptsTable);
    }
    return m_scriptsTable;
}

void MainWindow::placeTable(int persona, PackageTableViewController* table)
{
    m_tables->widget(persona)->layout()->addWidget(table);
    connectTable(table);
}

PackageTableViewController* MainWindow::currentTable()
{
    return persona() == scriptsPersona ? static_cast<PackageTableViewController*>(scriptsTable())
                                       : static_cast<PackageTableViewController*>(appsTable());
}

int MainWindow::persona() const
{
    return m_tables->currentIndex() == scriptsPersona ? scriptsPersona : appsPersona;
}

void MainWindow::changePersona(int persona)
{
    const int shown = persona == scriptsPersona ? scriptsPersona : appsPersona;
    const bool changed = shown != m_tables->currentIndex();
    m_services.defaults.setValue(PreferenceKeys::PersonasSelectedIndex, shown);
    (shown == scriptsPersona ? m_scriptsAction : m_appsAction)->setChecked(true);
    // Built before its page shows, so that the page never shows empty.
    if (shown == scriptsPersona) {
        scriptsTable();
    } else {
        appsTable();
    }
    m_tables->setCurrentIndex(shown);
    // The other persona's filters mean nothing here (apps have kinds, scripts do not): start its search afresh.
    if (changed) {
        clearSearch();
    }
    updateSubtitle();
    updateActions();
}

void MainWindow::clearSearch()
{
    const auto active = m_suggestionList->activeSuggestionIdentifiers();
    for (const QString& identifier : active) {
        m_suggestionList->deactivate(identifier);
    }
    if (!m_searchField->text().isEmpty()) {
        m_searchField->clear();
    }
    m_searchController->searchAction(QString());
    m_searchController->searchTextDidChange(QString());
}

void MainWindow::performFind()
{
    activateWindow();
    m_searchField->setFocus(Qt::ShortcutFocusReason);
    m_searchField->selectAll();
}

QAction* MainWindow::action(Kind kind) const
{
    for (const auto& [actionKind, action] : m_operationActions) {
        if (actionKind == kind) {
            return action;
        }
    }
    return nullptr;
}

void MainWindow::perform(Kind kind)
{
    run(kind, currentTable()->designatedRecords());
}

void MainWindow::run(Kind kind, const QList<Package*>& records)
{
    if (records.isEmpty()) {
        return;
    }
    if (qobject_cast<Cask*>(records.constFirst())) {
        const QList<Cask*> apps = recordsOf<Cask>(records);
        switch (kind) {
        case Kind::install:
            m_services.apps.install(apps);
            break;
        case Kind::installInFolder:
            m_services.apps.installInFolder(apps.constFirst());
            break;
        case Kind::uninstall:
            m_services.apps.uninstall(apps);
            break;
        case Kind::upgrade:
            m_services.apps.upgrade(apps);
            break;
        case Kind::reinstall:
            m_services.apps.reinstall(apps);
            break;
        case Kind::move:
            m_services.apps.moveTo(apps.constFirst());
            break;
        }
    } else {
        const QList<Formula*> scripts = recordsOf<Formula>(records);
        switch (kind) {
        case Kind::install:
            m_services.scripts.install(scripts);
            break;
        case Kind::uninstall:
            m_services.scripts.uninstall(scripts);
            break;
        case Kind::upgrade:
            m_services.scripts.upgrade(scripts);
            break;
        case Kind::reinstall:
            m_services.scripts.reinstall(scripts);
            break;
        case Kind::installInFolder:
        case Kind::move:
            // Scripts have no folder of their own.
            break;
        }
    }
    updateActions();
}

void MainWindow::upgradeAll()
{
    if (persona() == appsPersona) {
        m_services.apps.upgradeAll(appsTable()->arrayController());
    }
}

void MainWindow::updateActions()
{
    const QList<Package*> designated = currentTable()->designatedRecords();
    const bool apps = persona() == appsPersona;
    for (const auto& [kind, action] : m_operationActions) {
        const bool folderKind = kind == Kind::installInFolder || kind == Kind::move;
        const bool offered = std::any_of(designated.cbegin(), designated.cend(), [kind](const Package* record) {
            return PackageOperation::isOfferedBy(kind, *record);
        });
        action->setVisible(apps || !folderKind);
        // A folder is asked for one app at a time.
        action->setEnabled(offered && (!folderKind || designated.size() == 1));
    }
    m_upgradeAllAction->setEnabled(apps);
}

void MainWindow::updateSubtitle()
{
    const bool apps = persona() == appsPersona;
    const qlonglong count = currentTable()->installedCount();
    const QString pattern =
        apps ? QCoreApplication::translate("AppsTableViewController", "%lld installed",
                                           "Window subtitle showing the number of installed apps")
             : QCoreApplication::translate("ScriptsTableViewController", "%lld installed",
                                           "Window subtitle showing the number of installed Scripts");
    m_subtitle = QString::asprintf(pattern.toUtf8().constData(), count);
    // The application's display name follows the title on desktops that show both.
    setWindowTitle(m_subtitle);
}

void MainWindow::applyTranscriptPaneState()
{
    const bool visible = m_services.state.transcriptPaneVisible();
    {
        const QSignalBlocker blocker(m_transcriptAction);
        m_transcriptAction->setChecked(visible);
    }
    m_transcriptPane->setVisible(visible);
    if (visible) {
        const int height = std::max(minimumPaneHeight, int(m_services.state.transcriptPaneThickness()));
        const int total = std::max(m_splitter->height(), height + 200);
        m_splitter->setSizes({total - height, height});
    }
}

void MainWindow::showSynchronisationProgress()
{
    const Synchronisation& sync = m_services.synchronisation;
    m_syncLabel->setText(sync.progressLabel());
    m_syncProgress->setValue(int(sync.progress() * 100.0 + 0.5));
    m_syncProgress->setVisible(sync.isRunning());
    m_syncAction->setEnabled(!sync.isRunning());
    m_fastSyncAction->setEnabled(!sync.isRunning());
}

void MainWindow::setCloseRequest(CloseRequest request)
{
    m_closeRequest = std::move(request);
}

bool MainWindow::debugMenuEnabled()
{
#ifndef NDEBUG
    return true;
#else
    return qEnvironmentVariable("CORVEL_DEBUG_MENU") == QLatin1String("1");
#endif
}

void MainWindow::setDebugActions(DebugActions actions)
{
    if (!debugMenuEnabled()) {
        return;
    }
    if (!m_debugMenu) {
        m_debugMenu = menuBar()->addMenu(tr("&Debug"));
        m_debugMenu->setObjectName(QStringLiteral("debugMenu"));
    }
    m_debugMenu->clear();
    m_debugMenu->addAction(tr("Show Crash Reporter Window"), this, std::move(actions.showTestCrashReport));
    m_debugMenu->addAction(tr("Send Test Crash Report"), this, std::move(actions.sendTestCrashReport));
    m_debugMenu->addSeparator();
    m_debugMenu->addAction(tr("Crash Deliberately"), this, std::move(actions.crash));
}

void MainWindow::closeEvent(QCloseEvent* event)
{
    if (m_closeApproved || !m_closeRequest) {
        event->accept();
        return;
    }
    // The answer may come at once or later (after an alert). A later approval closes the window again.
    QPointer<MainWindow> self(this);
    auto pending = std::make_shared<bool>(true);
    auto approvedNow = std::make_shared<bool>(false);
    m_closeRequest([self, pending, approvedNow](bool approved) {
        if (*pending) {
            *approvedNow = approved;
            return;
        }
        if (!self || !approved) {
            return;
        }
        self->m_closeApproved = true;
        self->close();
    });
    *pending = false;
    if (*approvedNow) {
        m_closeApproved = true;
        event->accept();
    } else {
        event->ignore();
    }
}
