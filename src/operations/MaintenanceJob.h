// Homebrew's maintenance commands (update, cleanup, prune all, autoremove): what each runs, the preference that
// remembers its last successful run, and the texts its runs are logged and reported with.
#pragma once

#include "foundation/Result.h"

#include <QCoreApplication>
#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>

class Defaults;

namespace Homebrew {
class Commands;
}

class MaintenanceJob {
    Q_GADGET
    Q_DECLARE_TR_FUNCTIONS(MaintenanceJob)

public:
    enum Kind { Update, Cleanup, PruneAll, Autoremove };
    Q_ENUM(Kind)

    static QList<Kind> all() { return {Update, Cleanup, PruneAll, Autoremove}; }

    // The brew argument vector: "update", "cleanup", "cleanup" "--prune=all", "autoremove".
    static QStringList arguments(Kind kind);
    // UpdateLastRun, CleanupLastRun (also for prune all), AutoremoveLastRun.
    static QString lastRunKey(Kind kind);
    // The bundle's definition of the agent that runs the job periodically (cleanup's for prune all as well).
    static QString agentPlistName(Kind kind);

    static QString askingLogLine(Kind kind);
    static QString successLogLine(Kind kind);
    static QString failureLogLine(Kind kind, const Error& error);
    // The message of the alert that reports a failed run.
    static QString failureAlertMessage(Kind kind);

    // Runs the job's command silently to its end (blocking, so never on the GUI thread) and stores the current
    // date under its last-run key, only on success. Nothing reaches the activities or the transcript.
    static Result<void> perform(Kind kind, const Homebrew::Commands& commands, Defaults& defaults);
};
