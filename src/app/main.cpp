#include "app/ApplicationDelegate.h"
#include "app/TerminationSignals.h"
#include "foundation/Bundle.h"
#include "foundation/Defaults.h"
#include "homebrew/HomebrewInstallation.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QFileInfo>
#include <QTextStream>

int main(int argc, char* argv[])
{
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Corvel X"));
    QApplication::setApplicationDisplayName(QStringLiteral("Corvel X"));
    QApplication::setOrganizationDomain(QStringLiteral("tessel.works"));
    QApplication::setQuitOnLastWindowClosed(false);

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
    parser.process(app);

    if (parser.isSet(configOption)) {
        const auto overlay = Bundle::readInfoOverlay(parser.value(configOption));
        if (!overlay) {
            QTextStream(stderr) << "corvel-x: " << overlay.error().description() << '\n';
            return 2;
        }
        bundle.overlayInfo(overlay.value());
    }
    if (parser.isSet(rootOption)) {
        const QString root = parser.value(rootOption);
        // A mistyped root would silently look like a machine without Homebrew.
        if (!QFileInfo(root).isDir()) {
            QTextStream(stderr) << "corvel-x: --root: " << root << " is not a directory" << '\n';
            return 2;
        }
        Homebrew::Installation::shared().setRoot(root);
    }
    // A build without a usable configuration must stop here, before anything else runs.
    bundle.serviceURL();

    Defaults& defaults = Defaults::standard();
    ApplicationDelegate delegate(bundle, defaults);
    TerminationSignals terminationSignals;
    QObject::connect(&terminationSignals, &TerminationSignals::terminationRequested, &delegate,
                     [&delegate] { delegate.requestTermination({}); });

    delegate.applicationDidFinishLaunching();
    return QApplication::exec();
}
