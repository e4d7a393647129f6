// Background agents as launchd user agents: the bundle's definition is installed in the user's LaunchAgents folder
// and loaded into the user's GUI domain with "launchctl bootstrap"; "launchctl print" tells whether it is loaded.
#pragma once

#include "operations/AgentService.h"

#include <QByteArray>

class LaunchdAgentService : public AgentService {
public:
    // agentsFolder empty: ~/Library/LaunchAgents.
    LaunchdAgentService(const QString& plistName, const Bundle& bundle, const QString& agentsFolder = {});

    static QString defaultAgentsFolder();
    QString installedPath() const;
    // "gui/<uid>" and "gui/<uid>/<label>"
    static QString domainTarget();
    QString serviceTarget() const;

    Status status() const override;
    Result<void> registerAgent() override;
    Result<void> unregisterAgent() override;

    // The installed property list: the definition as it is, associated with the application so that the system
    // names the application beside the agent.
    static QByteArray agentPropertyList(const AgentDefinition& definition, const Bundle& bundle);

private:
    QString m_agentsFolder;
};
