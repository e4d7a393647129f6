// brew-simulator: a stateful stand-in for Homebrew's brew, for tests and the demo mode. Installed as
// <prefix>/bin/brew (a symbolic link), it finds its prefix from the path it was called by, keeps its state in
// <prefix>/.brew-simulator/state.json and logs every invocation to <prefix>/.brew-simulator/invocations.jsonl.

#include "SimulatorCommands.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>

int main(int argc, char* argv[])
{
    // The prefix comes from the link's own path: resolving it would lead to the build tree instead.
    const QString calledAs = QFile::decodeName(argv[0]);
    QStringList arguments;
    for (int i = 1; i < argc; ++i) {
        arguments.append(QString::fromLocal8Bit(argv[i]));
    }

    QCoreApplication application(argc, argv);
    const QString prefix = QFileInfo(QFileInfo(calledAs).absolutePath()).absolutePath();
    // The sample catalogue sits beside the real executable, wherever the link points from.
    const QString dataFolder =
        QDir(QCoreApplication::applicationDirPath() + QStringLiteral("/../share/brew-simulator")).absolutePath();

    SimulatorCommands commands(prefix, dataFolder, arguments);
    return commands.run();
}
