#include "CorvelProcess.h"

#include <QCoreApplication>
#include <QDir>
#include <QTest>

namespace CorvelProcess {

QProcessEnvironment environment(const QString& home, const QString& dataHome)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    // No display of any kind: the command line must not need one.
    for (const char* name : {"QT_QPA_PLATFORM", "DISPLAY", "WAYLAND_DISPLAY", "QT_LOGGING_RULES"}) {
        environment.remove(QString::fromLatin1(name));
    }
    const QDir folder(home);
    environment.insert(QStringLiteral("HOME"), folder.filePath(QStringLiteral("home")));
    environment.insert(QStringLiteral("XDG_CONFIG_HOME"), folder.filePath(QStringLiteral("config")));
    environment.insert(QStringLiteral("XDG_DATA_HOME"),
                       dataHome.isEmpty() ? folder.filePath(QStringLiteral("data")) : dataHome);
    environment.insert(QStringLiteral("XDG_CACHE_HOME"), folder.filePath(QStringLiteral("cache")));
    return environment;
}

bool run(const QStringList& arguments, const QProcessEnvironment& environment, Outcome& outcome, int timeout)
{
    QProcess process;
    process.setProcessEnvironment(environment);
    process.start(QCoreApplication::applicationDirPath() + QStringLiteral("/corvel-x"), arguments);
    if (!process.waitForStarted()) {
        outcome.err = process.errorString();
        return false;
    }
    // waitForFinished() would block the event loop the test's servers answer on.
    if (!QTest::qWaitFor([&process] { return process.state() == QProcess::NotRunning; }, timeout)) {
        process.kill();
        process.waitForFinished();
        outcome.err = QStringLiteral("corvel-x did not end in time");
        return false;
    }
    outcome.exitCode = process.exitCode();
    outcome.exitStatus = process.exitStatus();
    outcome.out = QString::fromUtf8(process.readAllStandardOutput());
    outcome.err = QString::fromUtf8(process.readAllStandardError());
    return true;
}

} // namespace CorvelProcess
