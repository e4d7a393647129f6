// The agent checkbox of a maintenance settings tab without its widget: checked exactly when the system reports the
// agent enabled, toggled by registering or unregistering it, with the reason of the last refusal kept for display.
#pragma once

#include "foundation/Error.h"
#include "operations/AgentService.h"

#include <QObject>
#include <memory>
#include <optional>

class MaintenanceAgent : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool checked READ isChecked NOTIFY checkedChanged)

public:
    // Reads the agent's status at once, as a tab does when it opens.
    explicit MaintenanceAgent(std::unique_ptr<AgentService> agent, QObject* parent = nullptr);

    AgentService& agent() const { return *m_agent; }

    // The status last read from the system: at construction, at refresh() and after every toggle.
    AgentService::Status status() const { return m_status; }
    bool isChecked() const { return m_status == AgentService::Status::Enabled; }
    // Why the last toggle failed; cleared by a toggle that succeeds.
    std::optional<Error> lastError() const { return m_lastError; }

    void refresh();
    // The checkbox is now on (register) or off (unregister). Whatever happens, the box then shows the system's
    // status again, so a refused registration leaves it off.
    void toggleAgent(bool on);

Q_SIGNALS:
    void checkedChanged(bool checked);
    void lastErrorChanged();

private:
    std::unique_ptr<AgentService> m_agent;
    AgentService::Status m_status = AgentService::Status::NotRegistered;
    std::optional<Error> m_lastError;
};
