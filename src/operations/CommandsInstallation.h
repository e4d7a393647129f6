// The requirements step that makes sure the companion commands are there (onboarding and the commands wizard):
// checks for Homebrew, looks for the commands and installs them when missing, saying at each moment what it does.
#pragma once

#include <QObject>
#include <QString>

class Alerter;
class CompanionCommands;

namespace Homebrew {
class Installation;
}

class CommandsInstallation : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString statusText READ statusText NOTIFY statusTextChanged)
    Q_PROPERTY(bool running READ isRunning NOTIFY runningChanged)

public:
    enum class Outcome {
        completed,       // the commands are installed, found or freshly tapped
        homebrewMissing, // nothing to install them with; Homebrew's own installation comes first
        failed,          // the tap command failed; the person was told so
    };
    Q_ENUM(Outcome)

    // Everything passed in must outlive this object.
    CommandsInstallation(const Homebrew::Installation& installation, const CompanionCommands& companion,
                         Alerter& alerter, QObject* parent = nullptr);

    // GUI thread. Runs the step; false, and nothing starts, while it runs already. The tap command runs on a worker;
    // finished() tells the outcome.
    bool start();

    bool isRunning() const { return m_running; }
    // What the step is doing, e.g. "Installing commands..."; empty before the first start.
    QString statusText() const { return m_statusText; }

Q_SIGNALS:
    void statusTextChanged(const QString& text);
    void runningChanged(bool running);
    void finished(CommandsInstallation::Outcome outcome);

private:
    void setStatusText(const QString& text);
    void finish(Outcome outcome);

    const Homebrew::Installation& m_installation;
    const CompanionCommands& m_companion;
    Alerter& m_alerter;
    QString m_statusText;
    bool m_running = false;
};
