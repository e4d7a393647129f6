// A per-user background agent defined by a property list of the application bundle, registered with the platform's
// service manager. Its status is always asked of the system, never remembered by the application.
#pragma once

#include "foundation/Result.h"
#include "operations/AgentDefinition.h"

#include <QString>
#include <QStringList>
#include <memory>

class Bundle;

class AgentService {
public:
    enum class Status {
        // The system does not run the agent.
        NotRegistered,
        // Registered: the system runs it on its schedule, also while the application is not running.
        Enabled,
        // The bundle has no definition of that name.
        NotFound,
    };

    // The bundle folder that holds the agent definitions.
    static inline const QString definitionsFolder = QStringLiteral("LaunchAgents");

    virtual ~AgentService() = default;
    AgentService(const AgentService&) = delete;
    AgentService& operator=(const AgentService&) = delete;

    // The service of this platform (launchd on macOS, systemd user units elsewhere) for the bundle's definition.
    static std::unique_ptr<AgentService> agentServiceWithPlistName(const QString& plistName, const Bundle& bundle);

    QString plistName() const { return m_plistName; }
    // The plist name without ".plist": the definition's Label and the name the system knows the agent by.
    QString label() const;

    // Asks the system each time; blocks for as long as the system tool takes.
    virtual Status status() const = 0;
    // Installs what the system runs and has the system enable it; a refusal leaves nothing installed.
    virtual Result<void> registerAgent() = 0;
    // Has the system stop running the agent and removes what registering installed.
    virtual Result<void> unregisterAgent() = 0;

protected:
    AgentService(const QString& plistName, const Bundle& bundle);

    const Bundle& bundle() const { return m_bundle; }
    // The bundle's definition; its Label must be label().
    Result<AgentDefinition> definition() const;
    bool hasDefinition() const;

    struct ToolRun {
        int exitCode = -1;
        QString output;
        QString errorOutput;
    };
    // Runs the system tool found on PATH to its end (at most half a minute) and gives what it printed. Fails only
    // when it cannot be found, started or finished.
    static Result<ToolRun> runTool(const QString& tool, const QStringList& arguments);
    // The same, but a non-zero exit is an AgentError::commandFailed quoting the command and what it complained.
    static Result<void> runToolChecked(const QString& tool, const QStringList& arguments);
    // Writes the file whole or not at all.
    static Result<void> writeFile(const QString& path, const QByteArray& content);

private:
    QString m_plistName;
    const Bundle& m_bundle;
};
