#include "operations/Maintenance.h"

#include "foundation/Alerter.h"
#include "foundation/Logging.h"
#include "foundation/Threading.h"

Maintenance::Maintenance(const Homebrew::Commands& commands, Defaults& defaults, Alerter& alerter, QObject* parent)
    : QObject(parent)
    , m_commands(commands)
    , m_defaults(defaults)
    , m_alerter(alerter)
{}

bool Maintenance::isRunning(MaintenanceJob::Kind kind) const
{
    switch (kind) {
    case MaintenanceJob::Update:
        return m_updating;
    case MaintenanceJob::Cleanup:
    case MaintenanceJob::PruneAll:
        return m_cleaningUp;
    case MaintenanceJob::Autoremove:
        return m_autoremoving;
    }
    return false;
}

void Maintenance::setRunning(MaintenanceJob::Kind kind, bool running)
{
    switch (kind) {
    case MaintenanceJob::Update:
        m_updating = running;
        Q_EMIT updatingChanged(running);
        break;
    case MaintenanceJob::Cleanup:
    case MaintenanceJob::PruneAll:
        m_cleaningUp = running;
        Q_EMIT cleaningUpChanged(running);
        break;
    case MaintenanceJob::Autoremove:
        m_autoremoving = running;
        Q_EMIT autoremovingChanged(running);
        break;
    }
}

bool Maintenance::perform(MaintenanceJob::Kind kind)
{
    if (isRunning(kind)) {
        return false;
    }
    qCInfo(lcCorvel).noquote() << MaintenanceJob::askingLogLine(kind);
    setRunning(kind, true);

    const Homebrew::Commands* commands = &m_commands;
    Defaults* defaults = &m_defaults;
    Threading::runAsync<Result<void>>(
        [kind, commands, defaults] { return MaintenanceJob::perform(kind, *commands, *defaults); }, this,
        [this, kind](Result<void> outcome) { finish(kind, outcome); });
    return true;
}

void Maintenance::finish(MaintenanceJob::Kind kind, const Result<void>& outcome)
{
    if (outcome) {
        qCInfo(lcCorvel).noquote() << MaintenanceJob::successLogLine(kind);
    } else {
        qCWarning(lcCorvel).noquote() << MaintenanceJob::failureLogLine(kind, outcome.error());
        Alert alert;
        alert.style = Alert::Style::Warning;
        alert.message = MaintenanceJob::failureAlertMessage(kind);
        alert.informativeText = outcome.error().description();
        alert.buttons = {tr("OK")};
        m_alerter.present(alert, [](AlertResponse) {});
    }
    setRunning(kind, false);
    Q_EMIT jobFinished(kind, outcome.ok(), outcome ? Error() : outcome.error());
}
