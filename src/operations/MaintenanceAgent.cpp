#include "operations/MaintenanceAgent.h"

#include "foundation/Logging.h"

MaintenanceAgent::MaintenanceAgent(std::unique_ptr<AgentService> agent, QObject* parent)
    : QObject(parent)
    , m_agent(std::move(agent))
{
    m_status = m_agent->status();
}

void MaintenanceAgent::refresh()
{
    m_status = m_agent->status();
    // Announced even when unchanged: a clicked checkbox shows the state it asked for until told the system's.
    Q_EMIT checkedChanged(isChecked());
}

void MaintenanceAgent::toggleAgent(bool on)
{
    std::optional<Error> failure;
    if (on) {
        qCInfo(lcCorvel) << "Registering agent";
        if (auto registered = m_agent->registerAgent(); registered) {
            qCInfo(lcCorvel) << "Agent registered";
        } else {
            qCWarning(lcCorvel).noquote() << "Unable to register agent: " + registered.error().description();
            failure = registered.error();
        }
    } else {
        qCInfo(lcCorvel) << "Unregistering agent";
        if (auto unregistered = m_agent->unregisterAgent(); unregistered) {
            qCInfo(lcCorvel) << "Agent unregistered";
        } else {
            qCWarning(lcCorvel).noquote() << "Unable to unregister agent: " + unregistered.error().description();
            failure = unregistered.error();
        }
    }
    if (failure != m_lastError) {
        m_lastError = failure;
        Q_EMIT lastErrorChanged();
    }
    refresh();
}
