// One invocation of the simulated brew: parses the argument vector, logs the invocation, stages the faults, answers
// the command in Homebrew's own output shapes and commits the change it makes to the state.
#pragma once

#include "SimulatorCatalogue.h"
#include "SimulatorOutput.h"
#include "SimulatorRecords.h"
#include "SimulatorState.h"

#include <QJsonObject>
#include <QList>
#include <QMap>
#include <QSet>
#include <QString>
#include <QStringList>
#include <functional>
#include <memory>
#include <optional>

class SimulatorCommands {
public:
    // prefix: the simulated Homebrew prefix; dataFolder: the sample catalogue used when the state names none.
    SimulatorCommands(QString prefix, QString dataFolder, QStringList arguments);

    // Runs the invocation to its end and returns the exit status.
    int run();

private:
    struct Options {
        QString command;
        QStringList names;
        QSet<QString> flags;
        QMap<QString, QString> values;
        bool has(const QString& flag) const { return flags.contains(flag); }
    };
    enum class Kind { Formula, Cask };

    QString stateDirectory() const { return m_prefix + QStringLiteral("/.brew-simulator"); }
    QString statePath() const { return stateDirectory() + QStringLiteral("/state.json"); }

    int execute();
    std::optional<QString> parse(const QStringList& arguments, Options* options) const;
    void logInvocation(const std::optional<QString>& sudoPassword = std::nullopt);
    bool catalogueReady();
    void change(const std::function<void(SimulatorState&)>& apply);
    bool commit();
    int fail(const QString& message);

    int failStaged(const QString& subject);
    bool runSudo();
    int dispatch();

    int version();
    int config();
    int install(Kind kind);
    int uninstall(Kind kind);
    int upgrade(Kind kind);
    int reinstall(Kind kind);
    int info();
    int tapInfo();
    int outdated();
    int leaves();
    int tapContentInfo();
    int tap();
    int untap();
    int update();
    int cleanup();
    int autoremove();

    int installFormula(const QJsonObject& record);
    int installCask(const QJsonObject& record);
    void uninstallFormulaLines(const QString& token);
    QStringList autoremoveLines(const QStringList& tokens);

    QString m_prefix;
    QString m_dataFolder;
    QStringList m_arguments;
    Options m_options;
    SimulatorState m_state;
    SimulatorCatalogue m_catalogue;
    SimulatorRecords m_records;
    bool m_catalogueLoaded = false;
    std::unique_ptr<SimulatorOutput> m_output;
    QList<std::function<void(SimulatorState&)>> m_changes;
    bool m_logged = false;
};
