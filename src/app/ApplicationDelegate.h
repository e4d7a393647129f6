// Starts the application in its fixed order (preferences, state, appearance, password relay, the first-run assistant
// or the main window, crash reporting), owns what the windows drive (operations, synchronisation, Homebrew's
// installation), and ends the application, asking first while a background operation runs.
#pragma once

#include "activities/ApplicationState.h"
#include "activities/QuitConfirmation.h"
#include "diagnostics/CrashCaptureEngine.h"
#include "diagnostics/CrashReporter.h"
#include "homebrew/Askpass.h"
#include "operations/SystemPackageOpener.h"
#include "ui/FolderDialogChooser.h"
#include "ui/MessageBoxAlerter.h"
#include "ui/PasswordDialog.h"

#include <QNetworkAccessManager>
#include <QObject>
#include <QPointer>
#include <memory>

class AppOperations;
class Bundle;
class CompanionCommands;
class HomebrewInstallWizardViewController;
class OnboardingWindowController;
class Maintenance;
class Repositories;
class SettingsWindowController;
class ViewOptionsWindowController;
class CoreDataManager;
class Defaults;
class MainWindow;
class ScriptOperations;
class Synchronisation;

namespace Homebrew {
class Installer;
class Sources;
} // namespace Homebrew

class ApplicationDelegate : public QObject {
    Q_OBJECT

public:
    // bundle, defaults and store must outlive this object.
    ApplicationDelegate(Bundle& bundle, Defaults& defaults, CoreDataManager& store, QObject* parent = nullptr);
    ~ApplicationDelegate() override;

    ApplicationState& state() { return m_state; }
    MainWindow* mainWindow() const { return m_mainWindow.get(); }
    // The first-run assistant while it is open (none once it has finished, or when it was not needed).
    OnboardingWindowController* onboardingWindow() const;
    // The Homebrew installation sheet while it is open over the main window.
    HomebrewInstallWizardViewController* homebrewInstallSheet() const;
    CrashReporter& crashReporter() { return m_crashReporter; }
    Synchronisation* synchronisation() const { return m_synchronisation.get(); }
    AppOperations* appOperations() const { return m_appOperations.get(); }

    void applicationDidFinishLaunching();

    // The answer to a request to quit (window closed, Ctrl+Q, SIGTERM): terminates now, later, or not at all.
    void requestTermination(std::function<void(bool terminate)> reply);

public Q_SLOTS:
    // Opens the Homebrew installation sheet over the main window.
    void showHomebrewInstallation();

private:
    // What both the first-run assistant and the main window work with.
    void makeServices();
    void openOnboarding();
    void onboardingFinished();
    void openMainWindow();
    Homebrew::Installer& homebrewInstaller();
    void showSettings();
    void showViewOptions();
    void applicationWillTerminate();

    Bundle& m_bundle;
    Defaults& m_defaults;
    CoreDataManager& m_store;
    ApplicationState m_state;
    MessageBoxAlerter m_alerter;
    FolderDialogChooser m_folderChooser;
    QuitConfirmation m_quitConfirmation;
    PasswordDialog m_passwordDialog;
    Askpass m_askpass;
    CrashCaptureEngine m_crashCaptureEngine;
    CrashReporter m_crashReporter;
    std::unique_ptr<Homebrew::Sources> m_sources;
    std::unique_ptr<Synchronisation> m_synchronisation;
    std::unique_ptr<AppOperations> m_appOperations;
    std::unique_ptr<ScriptOperations> m_scriptOperations;
    std::unique_ptr<Repositories> m_repositories;
    std::unique_ptr<Maintenance> m_maintenance;
    std::unique_ptr<CompanionCommands> m_companion;
    QNetworkAccessManager m_network;
    SystemPackageOpener m_packageOpener;
    // Made on first use: only a machine without Homebrew needs it.
    std::unique_ptr<Homebrew::Installer> m_homebrewInstaller;
    std::unique_ptr<OnboardingWindowController> m_onboardingWindow;
    std::unique_ptr<MainWindow> m_mainWindow;
    QPointer<HomebrewInstallWizardViewController> m_homebrewInstallSheet;
    // Made on first use: most starts never open them.
    std::unique_ptr<SettingsWindowController> m_settingsWindow;
    std::unique_ptr<ViewOptionsWindowController> m_viewOptionsWindow;
};
