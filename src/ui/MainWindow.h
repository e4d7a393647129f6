// The application's main window: the persona switch, primary actions and search field in the toolbar, the persona's
// table above the transcript pane, and the running synchronisation in the status bar. It asks before quitting while
// a background operation runs.
#pragma once

#include "operations/PackageOperation.h"

#include <QList>
#include <QMainWindow>
#include <functional>
#include <memory>

class ActivityCenter;
class Alerter;
class AppOperations;
class AppsTableViewController;
class ApplicationState;
class CoreDataManager;
class Defaults;
class Package;
class PackageTableViewController;
class QAction;
class QActionGroup;
class QLabel;
class QMenu;
class QProgressBar;
class QSplitter;
class QStackedWidget;
class SGKSuggestionList;
class SGKSuggestionSearchField;
class ScriptOperations;
class ScriptsTableViewController;
class SearchController;
class Synchronisation;
class Transcript;
class TranscriptPane;

class MainWindow : public QMainWindow {
    Q_OBJECT

public:
    // Everything the window drives; all of it must outlive the window.
    struct Services {
        CoreDataManager& store;
        Defaults& defaults;
        ApplicationState& state;
        AppOperations& apps;
        ScriptOperations& scripts;
        Synchronisation& synchronisation;
        Transcript& transcript;
        ActivityCenter& activityCenter;
        Alerter& alerter;
    };

    enum Persona { appsPersona = 0, scriptsPersona = 1 };

    // closeRequest decides whether the window may close; it answers through the callback, possibly later.
    using CloseRequest = std::function<void(std::function<void(bool)>)>;

    explicit MainWindow(const Services& services, QWidget* parent = nullptr);
    ~MainWindow() override;

    void setCloseRequest(CloseRequest request);

    // Shows persona's table and suggestions and remembers the choice; an unknown index shows the apps.
    void changePersona(int persona);
    int persona() const;

    // What a person acting in the window reaches through the toolbar and menus.
    void perform(PackageOperation::Kind kind);
    void upgradeAll();
    // Puts the keyboard focus into the search field.
    void performFind();

    // "%lld installed" for the persona shown: in the title, as the platform has no window subtitles.
    QString subtitle() const { return m_subtitle; }

    // Built on first use.
    AppsTableViewController* appsTable();
    ScriptsTableViewController* scriptsTable();
    PackageTableViewController* currentTable();
    TranscriptPane* transcriptPane() const { return m_transcriptPane; }
    SGKSuggestionSearchField* searchField() const { return m_searchField; }
    SearchController* searchController() const { return m_searchController; }
    QSplitter* splitter() const { return m_splitter; }
    QAction* action(PackageOperation::Kind kind) const;
    QAction* upgradeAllAction() const { return m_upgradeAllAction; }
    QAction* transcriptAction() const { return m_transcriptAction; }

    // What the Debug menu offers developers: crash reporting tried out without a real crash.
    struct DebugActions {
        std::function<void()> showTestCrashReport;
        std::function<void()> sendTestCrashReport;
        std::function<void()> crash;
    };
    // Adds the Debug menu when debugMenuEnabled(); otherwise does nothing.
    void setDebugActions(DebugActions actions);
    // True in debug builds, and in any build started with CORVEL_DEBUG_MENU=1.
    static bool debugMenuEnabled();

Q_SIGNALS:
    // The settings window and the view options belong to the application, which opens them.
    void settingsRequested();
    void viewOptionsRequested();
    // Help > Install Homebrew...: the application opens the installation sheet over this window.
    void homebrewInstallationRequested();

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    void buildActions();
    void buildToolbar();
    void buildMenus();
    void buildStatusBar();
    void placeTable(int persona, PackageTableViewController* table);
    void connectTable(PackageTableViewController* table);
    // Hands records to the persona's operations; each operation takes only the records that offer it.
    void run(PackageOperation::Kind kind, const QList<Package*>& records);
    void updateActions();
    void updateSubtitle();
    void applyTranscriptPaneState();
    void showSynchronisationProgress();
    void clearSearch();

    Services m_services;
    CloseRequest m_closeRequest;
    bool m_closeApproved = false;

    SGKSuggestionList* m_suggestionList = nullptr;
    SearchController* m_searchController = nullptr;
    SGKSuggestionSearchField* m_searchField = nullptr;
    AppsTableViewController* m_appsTable = nullptr;
    ScriptsTableViewController* m_scriptsTable = nullptr;
    QStackedWidget* m_tables = nullptr;
    TranscriptPane* m_transcriptPane = nullptr;
    QSplitter* m_splitter = nullptr;
    QLabel* m_syncLabel = nullptr;
    QProgressBar* m_syncProgress = nullptr;

    QActionGroup* m_personaGroup = nullptr;
    QAction* m_appsAction = nullptr;
    QAction* m_scriptsAction = nullptr;
    QActionGroup* m_primaryActions = nullptr;
    QList<std::pair<PackageOperation::Kind, QAction*>> m_operationActions;
    QAction* m_upgradeAllAction = nullptr;
    QAction* m_transcriptAction = nullptr;
    QAction* m_syncAction = nullptr;
    QAction* m_fastSyncAction = nullptr;
    QAction* m_findAction = nullptr;
    QMenu* m_debugMenu = nullptr;
    QString m_subtitle;
};
