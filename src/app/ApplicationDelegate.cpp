#include "app/ApplicationDelegate.h"

#include "catalogue/SyncLaunchRule.h"
#include "catalogue/Synchronisation.h"
#include "foundation/Bundle.h"
#include "foundation/DefaultSettings.h"
#include "foundation/Defaults.h"
#include "foundation/Logging.h"
#include "foundation/PreferenceKeys.h"
#include "ui/Appearance.h"
#include "ui/CrashReportDialog.h"
#include "ui/MainWindow.h"

#include <QApplication>

ApplicationDelegate::ApplicationDelegate(Bundle& bundle, Defaults& defaults, QObject* parent)
    : QObject(parent)
    , m_bundle(bundle)
    , m_defaults(defaults)
    , m_state(defaults)
    , m_quitConfirmation(m_state, m_alerter)
    , m_askpass(m_passwordDialog)
    , m_crashReporter(m_crashCaptureEngine, bundle, defaults, [] { return std::make_unique<CrashReportDialog>(); })
{
    connect(qApp, &QCoreApplication::aboutToQuit, this, &ApplicationDelegate::applicationWillTerminate);
}

ApplicationDelegate::~ApplicationDelegate() = default;

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

    // Without the relay only commands that need the administrator password fail, so the application goes on.
    if (const Result<void> registered = m_askpass.registerPort(); !registered) {
        qCWarning(lcCorvel).noquote() << "Unable to register askpass message port:" << registered.error().description();
    }

    m_mainWindow = std::make_unique<MainWindow>();
    m_alerter.setParentWidget(m_mainWindow.get());
    m_passwordDialog.setParentWidget(m_mainWindow.get());
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

    // The shared synchronisation reads and writes the standard preferences, which are these in the application.
    if (const std::optional<Synchronisation::Form> form =
            SyncLaunchRule::formAtLaunch(m_defaults, QDateTime::currentDateTime())) {
        Synchronisation::shared().start(*form);
    }

    m_crashReporter.checkPendingReport();
}

void ApplicationDelegate::requestTermination(std::function<void(bool terminate)> reply)
{
    m_quitConfirmation.requestTermination([reply = std::move(reply)](bool terminate) {
        if (reply) {
            reply(terminate);
        }
        if (terminate) {
            QCoreApplication::quit();
        }
    });
}

void ApplicationDelegate::applicationWillTerminate()
{
    qCInfo(lcCorvel) << "Terminating Corvel X...";
}
