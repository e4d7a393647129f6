// The corvel-x commands that change the machine: install, uninstall, upgrade and reinstall of apps and scripts, adding
// and removing repositories, and Homebrew's maintenance jobs. They run through the window's own operations, stream
// the transcript to standard output, and report failures on standard error.
#pragma once

#include "activities/ApplicationState.h"
#include "app/CommandLineAlerter.h"
#include "operations/FolderChooser.h"
#include "operations/MaintenanceJob.h"
#include "operations/PackageOperation.h"

#include <QStringList>
#include <QTextStream>
#include <functional>
#include <memory>

class PackageOperations;
class QEventLoop;

namespace Homebrew {
class Sources;
}

class OperationCommands {
public:
    // Needs the configuration applied and the store opened. confirm is whether --yes was given.
    OperationCommands(QTextStream& out, QTextStream& err, bool confirm);
    ~OperationCommands();

    // Each returns the process's exit status (CommandLineTool::ExitStatus).
    // tokens are looked up exactly in the catalogue; all must be known before anything runs.
    int runPackages(PackageOperation::Kind kind, PackageOperation::Persona persona, const QStringList& tokens);
    // The installed apps that are outdated: what the apps table shows before any search.
    int upgradeAllApps();
    int tap(const QString& name);
    int untap(const QString& name);
    int maintain(MaintenanceJob::Kind kind);

private:
    // The folder questions are not offered here; should one come, it is dismissed.
    class NoFolder : public FolderChooser {
    public:
        std::optional<QString> chooseFolder(const QString&, const QString&, const QString&) override
        {
            return std::nullopt;
        }
    };

    // Starts request on operations and waits until every command it started has ended.
    int awaitPackages(PackageOperations& operations, const std::function<void()>& request);
    // Prints every transcript line that arrives while loop runs.
    void streamTranscript(QEventLoop& loop);
    int fail(const QString& message);

    QTextStream& m_out;
    QTextStream& m_err;
    CommandLineAlerter m_alerter;
    ApplicationState m_state;
    NoFolder m_folderChooser;
    std::unique_ptr<Homebrew::Sources> m_sources;
};
