// A throw-away Homebrew installation answered by the brew simulator: a prefix under a file-system root whose
// bin/brew is the simulator, its state file, and the log of every invocation. Used by tests and the demo mode.
#pragma once

#include "foundation/Result.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QString>
#include <QStringList>
#include <optional>

class SimulatedHomebrew {
public:
    struct Invocation {
        QStringList arguments;
        QMap<QString, QString> environment;
        // The password the simulator received from $SUDO_ASKPASS, for commands staged to need sudo.
        std::optional<QString> sudoPassword;
    };

    // Creates <root>/opt/homebrew (or <root>/usr/local/homebrew when useSecondCandidate) with bin/brew linked to
    // the simulator executable, and writes the initial state. simulatorPath defaults to the brew-simulator
    // program beside the running executable.
    static Result<SimulatedHomebrew> create(const QString& root, const QJsonObject& initialState = {},
                                            bool useSecondCandidate = false, QString simulatorPath = {});

    // The simulator program beside the running executable (every executable of the build is in one bin/).
    static QString defaultSimulatorPath();

    QString root() const { return m_root; }
    QString prefix() const { return m_prefix; }
    QString brewPath() const { return m_prefix + QStringLiteral("/bin/brew"); }
    QString stateFilePath() const { return m_prefix + QStringLiteral("/.brew-simulator/state.json"); }
    QString logFilePath() const { return m_prefix + QStringLiteral("/.brew-simulator/invocations.jsonl"); }

    // The whole state document; the simulator rewrites it after every changing command.
    QJsonObject state() const;
    Result<void> setState(const QJsonObject& state);
    // Sets one top-level key of the state (e.g. "faults"), keeping the rest.
    Result<void> setStateValue(const QString& key, const QJsonValue& value);

    // Every invocation so far, oldest first.
    QList<Invocation> invocations() const;

private:
    SimulatedHomebrew(QString root, QString prefix);

    QString m_root;
    QString m_prefix;
};
