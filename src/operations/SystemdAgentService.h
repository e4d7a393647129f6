// Background agents as systemd user units: a oneshot service that runs the definition's program and a persistent
// timer with its schedule, generated into the user's systemd folder and enabled with "systemctl --user".
#pragma once

#include "operations/AgentService.h"

class SystemdAgentService : public AgentService {
public:
    // unitFolder empty: $XDG_CONFIG_HOME/systemd/user, looked up at each use.
    SystemdAgentService(const QString& plistName, const Bundle& bundle, const QString& unitFolder = {});

    static QString defaultUnitFolder();
    QString unitFolder() const;
    // <label>.service and <label>.timer
    QString serviceName() const;
    QString timerName() const;

    // Enabled when "systemctl --user is-enabled <timer>" answers "enabled".
    Status status() const override;
    // Writes both units, reloads the user manager and enables and starts the timer; removes the units again when
    // systemd refuses.
    Result<void> registerAgent() override;
    // Disables and stops the timer, then removes both units. A job that is running is left to finish.
    Result<void> unregisterAgent() override;

    // The generated units; source names the definition they come from.
    static QString serviceUnit(const AgentDefinition& definition, const QString& source);
    static QString timerUnit(const AgentDefinition& definition, const QString& source);
    // One ExecStart word: quoted, with systemd's escapes, so that the program receives the text unchanged.
    static QString execWord(const QString& argument);
    // An OnCalendar expression for one launchd calendar interval.
    static QString onCalendar(const AgentDefinition::CalendarInterval& interval);

private:
    void removeUnits() const;

    QString m_unitFolder;
};
