// One maintenance settings tab (update, cleanup with prune all, or autoremove): its background agent's checkbox, the
// job run at once on request (not while it runs), and when the job last succeeded.
#pragma once

#include "foundation/Error.h"
#include "operations/AgentService.h"
#include "operations/MaintenanceJob.h"

#include <QList>
#include <QWidget>
#include <functional>
#include <memory>
#include <optional>

class Defaults;
class Maintenance;
class QCheckBox;
class QLabel;
class QPushButton;

// The agent's service may take half a minute to answer, so it is only ever asked on a worker.
class SettingsMaintenanceJobViewController : public QWidget {
    Q_OBJECT

public:
    // kind: Update, Cleanup (which also offers prune all) or Autoremove. The agent is shared with the workers that
    // talk to it, so closing the tab never waits for them.
    SettingsMaintenanceJobViewController(MaintenanceJob::Kind kind, Maintenance& maintenance, Defaults& defaults,
                                         std::shared_ptr<AgentService> agent, QWidget* parent = nullptr);

    MaintenanceJob::Kind kind() const { return m_kind; }
    // The tab's label: "Update", "Cleanup", "Autoremove".
    static QString title(MaintenanceJob::Kind kind);

    QCheckBox* agentCheckBox() const { return m_agentCheckBox; }
    // Why the agent could not be changed, or that the bundle lacks it; hidden when there is nothing to say.
    QLabel* agentMessageLabel() const { return m_agentMessage; }
    // The job's own button, then (cleanup only) prune all.
    const QList<QPushButton*>& performButtons() const { return m_performButtons; }
    QLabel* lastRunLabel() const { return m_lastRunLabel; }
    // True while the agent's status is being read or its registration changed.
    bool isAgentBusy() const { return m_agentBusy; }

public Q_SLOTS:
    // Re-reads the agent's status from the system.
    void refreshAgent();
    // The checkbox now says on (register) or off (unregister); afterwards it shows the system's status again.
    void toggleAgent(bool on);
    void perform(MaintenanceJob::Kind kind);

Q_SIGNALS:
    // After the agent's status was read (at opening, refresh or toggle) and shown.
    void agentStatusShown(AgentService::Status status);

private:
    struct AgentOutcome {
        AgentService::Status status = AgentService::Status::NotRegistered;
        std::optional<Error> error;
    };
    void askAgent(std::function<AgentOutcome(AgentService&)> question);
    void showAgent(const AgentOutcome& outcome);
    void updatePerformButtons();
    void showLastRun();

    MaintenanceJob::Kind m_kind;
    Maintenance& m_maintenance;
    Defaults& m_defaults;
    std::shared_ptr<AgentService> m_agent;
    bool m_agentBusy = false;
    QCheckBox* m_agentCheckBox;
    QLabel* m_agentMessage;
    QList<QPushButton*> m_performButtons;
    QLabel* m_lastRunLabel;
};
