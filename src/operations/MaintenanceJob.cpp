#include "operations/MaintenanceJob.h"

#include "foundation/Defaults.h"
#include "foundation/PreferenceKeys.h"
#include "homebrew/HomebrewCommands.h"

#include <QDateTime>

QStringList MaintenanceJob::arguments(Kind kind)
{
    switch (kind) {
    case Update:
        return {QStringLiteral("update")};
    case Cleanup:
        return {QStringLiteral("cleanup")};
    case PruneAll:
        return {QStringLiteral("cleanup"), QStringLiteral("--prune=all")};
    case Autoremove:
        return {QStringLiteral("autoremove")};
    }
    return {};
}

QString MaintenanceJob::lastRunKey(Kind kind)
{
    switch (kind) {
    case Update:
        return PreferenceKeys::UpdateLastRun;
    case Cleanup:
    case PruneAll:
        // Pruning everything is a cleanup too; the cleanup tab shows one date for both.
        return PreferenceKeys::CleanupLastRun;
    case Autoremove:
        return PreferenceKeys::AutoremoveLastRun;
    }
    return {};
}

QString MaintenanceJob::agentPlistName(Kind kind)
{
    switch (kind) {
    case Update:
        return QStringLiteral("works.tessel.corvel.update.agent.plist");
    case Cleanup:
    case PruneAll:
        return QStringLiteral("works.tessel.corvel.cleanup.agent.plist");
    case Autoremove:
        return QStringLiteral("works.tessel.corvel.autoremove.agent.plist");
    }
    return {};
}

QString MaintenanceJob::askingLogLine(Kind kind)
{
    switch (kind) {
    case Update:
        return QStringLiteral("Asking to perform update");
    case Cleanup:
        return QStringLiteral("Asking to perform cleanup");
    case PruneAll:
        return QStringLiteral("Asking to perform prune all");
    case Autoremove:
        return QStringLiteral("Asking to perform autoremove");
    }
    return {};
}

QString MaintenanceJob::successLogLine(Kind kind)
{
    switch (kind) {
    case Update:
        return QStringLiteral("Update performed successfully");
    case Cleanup:
        return QStringLiteral("Cleanup performed successfully");
    case PruneAll:
        return QStringLiteral("Prune all performed successfully");
    case Autoremove:
        return QStringLiteral("Autoremove performed successfully");
    }
    return {};
}

QString MaintenanceJob::failureLogLine(Kind kind, const Error& error)
{
    switch (kind) {
    case Update:
        return QStringLiteral("Unable to update: ") + error.description();
    case Cleanup:
        return QStringLiteral("Unable to perform cleanup: ") + error.description();
    case PruneAll:
        return QStringLiteral("Unable to perform prune all: ") + error.description();
    case Autoremove:
        return QStringLiteral("Unable to perform autoremove: ") + error.description();
    }
    return {};
}

QString MaintenanceJob::failureAlertMessage(Kind kind)
{
    switch (kind) {
    case Update:
        return tr("Unable to update");
    case Cleanup:
        return tr("Unable to perform 'cleanup'");
    case PruneAll:
        return tr("Unable to perform 'prune all'");
    case Autoremove:
        return tr("Unable to perform 'autoremove'");
    }
    return {};
}

Result<void> MaintenanceJob::perform(Kind kind, const Homebrew::Commands& commands, Defaults& defaults)
{
    // "update" keeps its output so that a failure carries Homebrew's own explanation.
    const Result<void> outcome = kind == Update ? commands.update() : commands.runSilently(arguments(kind));
    if (outcome) {
        defaults.setValue(lastRunKey(kind), QDateTime::currentDateTimeUtc());
    }
    return outcome;
}
