// Runs the maintenance jobs on request, off the GUI thread, one at a time per settings tab: updating, cleaningUp
// (cleanup and prune all) and autoremoving say which are running, and a failure is logged and shown in an alert.
#pragma once

#include "operations/MaintenanceJob.h"

#include <QObject>

class Alerter;
class Defaults;

namespace Homebrew {
class Commands;
}

class Maintenance : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool updating READ isUpdating NOTIFY updatingChanged)
    Q_PROPERTY(bool cleaningUp READ isCleaningUp NOTIFY cleaningUpChanged)
    Q_PROPERTY(bool autoremoving READ isAutoremoving NOTIFY autoremovingChanged)

public:
    // Lives on the GUI thread, where its flags, signals and alerts are.
    Maintenance(const Homebrew::Commands& commands, Defaults& defaults, Alerter& alerter, QObject* parent = nullptr);

    bool isUpdating() const { return m_updating; }
    bool isCleaningUp() const { return m_cleaningUp; }
    bool isAutoremoving() const { return m_autoremoving; }
    // The flag that guards the job: cleanup and prune all share one.
    bool isRunning(MaintenanceJob::Kind kind) const;

    // Starts the job in the background and returns true, or returns false without doing anything while the job's
    // flag is set. jobFinished follows on the GUI thread.
    bool perform(MaintenanceJob::Kind kind);

Q_SIGNALS:
    void updatingChanged(bool updating);
    void cleaningUpChanged(bool cleaningUp);
    void autoremovingChanged(bool autoremoving);
    // After the flag went back to false. On failure the alert has been presented already.
    void jobFinished(MaintenanceJob::Kind kind, bool succeeded, const Error& error);

private:
    void setRunning(MaintenanceJob::Kind kind, bool running);
    void finish(MaintenanceJob::Kind kind, const Result<void>& outcome);

    const Homebrew::Commands& m_commands;
    Defaults& m_defaults;
    Alerter& m_alerter;
    bool m_updating = false;
    bool m_cleaningUp = false;
    bool m_autoremoving = false;
};
