#include "app/ApplicationDelegate.h"

#include "activities/ActivityCenter.h"
#include "activities/Transcript.h"
#include "catalogue/CoreDataManager.h"
#include "catalogue/HomebrewSources.h"
#include "catalogue/SyncLaunchRule.h"
#include "catalogue/Synchronisation.h"
#include "diagnostics/Analytics.h"
#include "foundation/Bundle.h"
#include "foundation/DefaultSettings.h"
#include "foundation/Defaults.h"
#include "foundation/HttpClient.h"
#include "foundation/Logging.h"
#include "foundation/PreferenceKeys.h"
#include "homebrew/HomebrewCommands.h"
#include "homebrew/HomebrewInstallation.h"
#include "operations/AppOperations.h"
#include "operations/CompanionCommands.h"
#include "operations/HomebrewInstaller.h"
#include "operations/Maintenance.h"
#include "operations/Repositories.h"
#include "operations/ScriptOperations.h"
#include "ui/Appearance.h"
#include "ui/CrashReportDialog.h"
#include "ui/HomebrewInstallWizardViewController.h"
#include "ui/MainWindow.h"
#include "ui/OnboardingWindowController.h"
#include "ui/SettingsWindowController.h"
#include "ui/ViewOptionsWindowController.h"

#include <QApplication>
#include <QUrl>

ApplicationDelegate::ApplicationDelegate(Bundle& bundle, Defaults& defaults, CoreDataManager& store, QObject* parent)
    : QObject(parent)
    , m_bundle(bundle)
    , m_defaults(defaults)
    , m_store(store)
    , m_state(defaults)
    , m_quitConfirmation(m_state, m_alerter)
    , m_askpass(m_passwordDialog)
    , m_crashReporter(m_crashCaptureEngine, bundle, defaults, [] { return std::make_unique<CrashReportDialog>(); })
{
    connect(qApp, &QCoreApplication::aboutToQuit, this, &ApplicationDelegate::applicationWillTerminate);
}

ApplicationDelegate::~ApplicationDelegate()
{
    // The windows observe the operations and the synchronisation: they go first.
    m_settingsWindow.reset();
    m_viewOptionsWindow.reset();
    m_onboardingWindow.reset();
    m_mainWindow.reset();
}

void ApplicationDelegate::applicationDidFinishLaunching()
{
    qCInfo(lcCorvel) << "Launching Corvel X...";
    // Before anything else, so that a crash in the rest of the start-up is reported next time.
    if (const Result<void> enabled = m_crashReporter.enableCapture(QStringLiteral("corvel-x")); !enabled) {
        qCWarning(lcCorvel).noquote() << enabled.error().description();
    }
    DefaultSettings::registerFromBundle(m_bundle, m_defaults);
    m_state.restore();

    qCInfo(lcCorvel) << "Restoring custom appearance";
    Appearance::apply(Appearance::fromValue(m_defaults.integerValue(PreferenceKeys::Appearance)));

    // A preview of the interface has no use for the relay, and must not take the one socket from the real thing.
    if (qEnvironmentVariable("XCODE_RUNNING_FOR_PREVIEWS") != QLatin1String("1")) {
        // Without the relay only commands that need the administrator password fail, so the application goes on.
        if (const Result<void> registered = m_askpass.registerPort(); !registered) {
            qCWarning(lcCorvel).noquote()
                << "Unable to register askpass message port:" << registered.error().description();
        }
    }

    makeServices();
    if (m_defaults.boolValue(PreferenceKeys::IsFirstRun)) {
        // The assistant runs the first synchronisation itself; the launch rule has nothing to add to it.
        openOnboarding();
    } else {
        openMainWindow();
        if (const std::optional<Synchronisation::Form> form =
                SyncLaunchRule::formAtLaunch(m_defaults, QDateTime::currentDateTime())) {
            m_synchronisation->start(*form);
        }
    }

    m_crashReporter.checkPendingReport();
}

void ApplicationDelegate::makeServices()
{
    m_sources = std::make_unique<Homebrew::Sources>(
        Homebrew::Commands::shared(),
        QUrl(m_bundle.infoString(QStringLiteral("TW_HOMEBREW_API_URL")).value_or(QString())), HttpClient::shared());
    m_synchronisation = std::make_unique<Synchronisation>(m_store, *m_sources, m_defaults, ActivityCenter::shared());
    const PackageOperations::Services services{m_store,   Homebrew::Commands::shared(), m_state, m_defaults,
                                               m_alerter, Analytics::shared()};
    m_appOperations = std::make_unique<AppOperations>(services, *m_sources, m_folderChooser);
    m_scriptOperations = std::make_unique<ScriptOperations>(services);
    m_repositories = std::make_unique<Repositories>(
        m_store, Homebrew::Commands::shared(), *m_sources, HttpClient::shared(),
        QUrl(m_bundle.infoString(QStringLiteral("TW_GITHUB_API_URL")).value_or(QString())), m_state, m_alerter,
        Analytics::shared());
    m_maintenance = std::make_unique<Maintenance>(Homebrew::Commands::shared(), m_defaults, m_alerter);
    m_companion = std::make_unique<CompanionCommands>(Homebrew::Installation::shared(), Homebrew::Commands::shared());
}

void ApplicationDelegate::openOnboarding()
{
    const QUrl github(
        m_bundle.infoString(QStringLiteral("TW_GITHUB_URL")).value_or(QStringLiteral("https://github.com")));
    m_onboardingWindow = std::make_unique<OnboardingWindowController>(OnboardingWindowController::Context{
        m_defaults, Homebrew::Installation::shared(), *m_companion, m_alerter, *m_synchronisation, homebrewInstaller(),
        CompanionCommands::repositoryPage(github)});
    m_alerter.setParentWidget(m_onboardingWindow.get());
    m_folderChooser.setParentWidget(m_onboardingWindow.get());
    m_passwordDialog.setParentWidget(m_onboardingWindow.get());
    connect(m_onboardingWindow.get(), &OnboardingWindowController::finished, this,
            &ApplicationDelegate::onboardingFinished);
    connect(m_onboardingWindow.get(), &OnboardingWindowController::quitRequested, this,
            [this] { requestTermination({}); });
    m_onboardingWindow->show();
}

void ApplicationDelegate::onboardingFinished()
{
    openMainWindow();
    // Called from the assistant's own signal: it goes once that has returned.
    QMetaObject::invokeMethod(
        this, [this] { m_onboardingWindow.reset(); }, Qt::QueuedConnection);
}

OnboardingWindowController* ApplicationDelegate::onboardingWindow() const
{
    return m_onboardingWindow && !m_onboardingWindow->isFinished() ? m_onboardingWindow.get() : nullptr;
}

HomebrewInstallWizardViewController* ApplicationDelegate::homebrewInstallSheet() const
{
    return m_homebrewInstallSheet;
}

Homebrew::Installer& ApplicationDelegate::homebrewInstaller()
{
    if (!m_homebrewInstaller) {
        m_homebrewInstaller = std::make_unique<Homebrew::Installer>(m_bundle, m_network, m_packageOpener);
    }
    return *m_homebrewInstaller;
}

void ApplicationDelegate::showHomebrewInstallation()
{
    if (!m_mainWindow) {
        return;
    }
    if (m_homebrewInstallSheet) {
        m_homebrewInstallSheet->raise();
        return;
    }
    m_homebrewInstallSheet = new HomebrewInstallWizardViewController(homebrewInstaller(), m_mainWindow.get());
    m_homebrewInstallSheet->setAttribute(Qt::WA_DeleteOnClose);
    m_homebrewInstallSheet->open();
}

void ApplicationDelegate::openMainWindow()
{
    m_mainWindow = std::make_unique<MainWindow>(
        MainWindow::Services{m_store, m_defaults, m_state, *m_appOperations, *m_scriptOperations, *m_synchronisation,
                             Transcript::shared(), ActivityCenter::shared(), m_alerter});
    m_alerter.setParentWidget(m_mainWindow.get());
    m_folderChooser.setParentWidget(m_mainWindow.get());
    m_passwordDialog.setParentWidget(m_mainWindow.get());
    connect(m_mainWindow.get(), &MainWindow::settingsRequested, this, &ApplicationDelegate::showSettings);
    connect(m_mainWindow.get(), &MainWindow::viewOptionsRequested, this, &ApplicationDelegate::showViewOptions);
    connect(m_mainWindow.get(), &MainWindow::homebrewInstallationRequested, this,
            &ApplicationDelegate::showHomebrewInstallation);
    m_mainWindow->setCloseRequest([this](std::function<void(bool)> reply) { requestTermination(std::move(reply)); });
    m_mainWindow->setDebugActions({
        [this] { m_crashReporter.showWindow(QStringLiteral("This is a test crash log.")); },
        [this] {
            m_crashReporter.send(QStringLiteral("This is a test crash log."), [](const Result<void>& sent) {
                if (!sent) {
                    qCWarning(lcCorvel).noquote()
                        << QStringLiteral("Unable to send crash report: %1").arg(sent.error().description());
                }
            });
        },
        [] { qFatal("This is a deliberate crash."); },
    });
    m_mainWindow->show();
}

void ApplicationDelegate::showSettings()
{
    if (!m_settingsWindow) {
        m_settingsWindow = std::make_unique<SettingsWindowController>(
            SettingsWindowController::Context{m_defaults, *m_synchronisation, *m_repositories, m_store.viewContext(),
                                              *m_maintenance, m_bundle, Homebrew::Installation::shared()});
        m_settingsWindow->setCompanionCommands(*m_companion, m_alerter);
    }
    m_settingsWindow->show();
    m_settingsWindow->raise();
    m_settingsWindow->activateWindow();
}

void ApplicationDelegate::showViewOptions()
{
    if (!m_viewOptionsWindow) {
        m_viewOptionsWindow = std::make_unique<ViewOptionsWindowController>(m_defaults);
    }
    m_viewOptionsWindow->show();
    m_viewOptionsWindow->raise();
    m_viewOptionsWindow->activateWindow();
}

void ApplicationDelegate::requestTermination(std::function<void(bool terminate)> reply)
{
    m_quitConfirmation.requestTermination([this, reply = std::move(reply)](bool terminate) {
        if (reply) {
            reply(terminate);
        }
        if (terminate) {
            if (m_onboardingWindow) {
                m_onboardingWindow->allowClosing();
            }
            QCoreApplication::quit();
        }
    });
}

void ApplicationDelegate::applicationWillTerminate()
{
    qCInfo(lcCorvel) << "Terminating Corvel X...";
}
