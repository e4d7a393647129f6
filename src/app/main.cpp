#include "app/ApplicationDelegate.h"
#include "app/CommandLineTool.h"
#include "app/DemoEnvironment.h"
#include "app/StartupProbe.h"
#include "app/TerminationSignals.h"
#include "catalogue/CoreDataManager.h"
#include "diagnostics/CrashCaptureEngine.h"
#include "foundation/Bundle.h"
#include "foundation/Defaults.h"
#include "ui/AssetIcons.h"
#include "ui/MainWindow.h"
#include "ui/PackageTableViewController.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QElapsedTimer>
#include <QLoggingCategory>
#include <QTableView>
#include <QTextStream>

namespace {

// The names that settings and the store are found by: the window and the command line must agree on them.
void setApplicationIdentity()
{
    QCoreApplication::setApplicationName(QStringLiteral("Corvel X"));
    QCoreApplication::setOrganizationDomain(QStringLiteral("tessel.works"));
}

// Commands run without a window, so they must not need a display: no QApplication on that path.
int runCommandLine(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    setApplicationIdentity();
    QCoreApplication::setApplicationVersion(Bundle::main().version());
    // Commands crash like the window does; their reports wait for the window's next start.
    CrashCaptureEngine crashCapture;
    if (const Result<void> enabled = crashCapture.enable(
            {QStringLiteral("corvel-x"), Bundle::main().version(), Bundle::main().buildNumber().value_or(QString())});
        !enabled) {
        QTextStream(stderr) << "corvel-x: " << enabled.error().description() << '\n';
    }
    // The terminal shows results and errors; the log's informational lines can be had through QT_LOGGING_RULES.
    QLoggingCategory::setFilterRules(QStringLiteral("works.tessel.corvel.debug=false\nworks.tessel.corvel.info=false"));
    QTextStream out(stdout);
    QTextStream err(stderr);
    return CommandLineTool(out, err).run(QCoreApplication::arguments());
}

} // namespace

int main(int argc, char* argv[])
{
    QElapsedTimer startupClock;
    startupClock.start();
    QStringList arguments;
    for (int i = 0; i < argc; ++i) {
        arguments.append(QString::fromLocal8Bit(argv[i]));
    }
    if (CommandLineTool::handles(arguments)) {
        return runCommandLine(argc, argv);
    }

    // The demo's folders must be in place before anything reads a setting or a standard path.
    std::unique_ptr<DemoEnvironment> demo;
    if (DemoEnvironment::requested(arguments)) {
        Result<std::unique_ptr<DemoEnvironment>> created = DemoEnvironment::create();
        if (!created) {
            QTextStream(stderr) << "corvel-x: " << created.error().description() << '\n';
            return 1;
        }
        demo = std::move(created.value());
    }

    QApplication app(argc, argv);
    setApplicationIdentity();
    QApplication::setApplicationDisplayName(QStringLiteral("Corvel X"));
    QApplication::setQuitOnLastWindowClosed(false);
    QApplication::setWindowIcon(AssetIcons::icon(QStringLiteral("AppIcon")));
    // Lets the desktop match the windows to the installed launcher and its icon (Wayland has no other way).
    QGuiApplication::setDesktopFileName(QStringLiteral("works.tessel.corvel"));

    Bundle& bundle = Bundle::main();
    QApplication::setApplicationVersion(bundle.version());

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("A desktop front-end for the Homebrew package manager."));
    parser.addHelpOption();
    parser.addVersionOption();
    const QCommandLineOption configOption(QStringLiteral("config"),
                                          QStringLiteral("Overlays the keys of another Info.plist on the bundle's."),
                                          QStringLiteral("FILE"));
    parser.addOption(configOption);
    const QCommandLineOption rootOption(
        QStringLiteral("root"),
        QStringLiteral("Looks for Homebrew under DIR (DIR/opt/homebrew, DIR/usr/local/homebrew) instead of /."),
        QStringLiteral("DIR"));
    parser.addOption(rootOption);
    const QCommandLineOption demoOption(
        QStringLiteral("demo"),
        QStringLiteral("Runs on a throw-away simulated Homebrew with a sample catalogue; nothing on this machine is "
                       "touched."));
    parser.addOption(demoOption);
    const QCommandLineOption measureOption(
        QStringLiteral("measure-startup"),
        QStringLiteral("Prints the time to the first painted table and the peak memory, then quits."));
    parser.addOption(measureOption);
    parser.process(app);

    const auto valueOf = [&parser](const QCommandLineOption& option) {
        return parser.isSet(option) ? std::optional(parser.value(option)) : std::nullopt;
    };
    if (const Result<void> applied = CommandLineTool::applyGlobalOptions(valueOf(configOption), valueOf(rootOption));
        !applied) {
        QTextStream(stderr) << "corvel-x: " << applied.error().description() << '\n';
        return 2;
    }
    if (demo) {
        if (const Result<void> installed = demo->install(bundle); !installed) {
            QTextStream(stderr) << "corvel-x: unable to prepare the demo: " << installed.error().description() << '\n';
            return 1;
        }
    }
    // A build without a usable configuration must stop here, before anything else runs.
    bundle.serviceURL();

    Defaults& defaults = Defaults::standard();
    ApplicationDelegate delegate(bundle, defaults, CoreDataManager::shared());
    TerminationSignals terminationSignals;
    QObject::connect(&terminationSignals, &TerminationSignals::terminationRequested, &delegate,
                     [&delegate] { delegate.requestTermination({}); });

    delegate.applicationDidFinishLaunching();
    QTextStream out(stdout);
    StartupProbe probe(startupClock, out);
    if (parser.isSet(measureOption) && delegate.mainWindow()) {
        probe.watch(delegate.mainWindow()->currentTable()->tableView()->viewport());
    }
    return QApplication::exec();
}
