#include "operations/SystemPackageOpener.h"

#include "homebrew/HomebrewCommands.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <memory>

namespace {

const QString errorDomain = QStringLiteral("PackageOpener");

enum ErrorCode {
    NoOpener = 1,
    NoFile = 2,
    Refused = 3,
};

// Long enough for any opener that only dispatches the file; one that is still busy runs the handler itself.
constexpr int verdictTimeoutMs = 15000;

} // namespace

SystemPackageOpener::SystemPackageOpener(QString program)
    : m_program(std::move(program))
{}

QString SystemPackageOpener::defaultProgram()
{
#ifdef Q_OS_MACOS
    return QStringLiteral("/usr/bin/open");
#else
    return QStandardPaths::findExecutable(QStringLiteral("xdg-open"));
#endif
}

Result<void> SystemPackageOpener::open(const QString& path)
{
    if (m_program.isEmpty()) {
        return Error(errorDomain, NoOpener, tr("No program to open files with was found"));
    }
    if (!QFileInfo(path).isFile()) {
        return Error(errorDomain, NoFile, tr("The file %1 does not exist").arg(path));
    }
    auto process = std::make_unique<QProcess>();
    process->setProgram(m_program);
    process->setArguments({path});
    process->setStandardInputFile(QProcess::nullDevice());
    process->setStandardOutputFile(QProcess::nullDevice());
    process->setStandardErrorFile(QProcess::nullDevice());
    process->start();
    if (!process->waitForStarted(-1)) {
        return Error(Homebrew::Commands::launchErrorDomain(), int(process->error()), process->errorString());
    }
    if (!process->waitForFinished(verdictTimeoutMs)) {
        // Destroying the QProcess would kill the handler: it goes to the application's thread, which lets it go once
        // it ends.
        QProcess* running = process.release();
        if (auto* app = QCoreApplication::instance()) {
            running->moveToThread(app->thread());
            QObject::connect(running, &QProcess::finished, running, &QObject::deleteLater);
        }
        return {};
    }
    if (process->exitStatus() != QProcess::NormalExit || process->exitCode() != 0) {
        return Error(errorDomain, Refused, tr("No application accepted the file %1").arg(QFileInfo(path).fileName()));
    }
    return {};
}
