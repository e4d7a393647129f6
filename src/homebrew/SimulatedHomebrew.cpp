#include "homebrew/SimulatedHomebrew.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QLockFile>
#include <QSaveFile>

namespace {

const QString errorDomain = QStringLiteral("SimulatedHomebrew");
enum ErrorCode { simulatorMissing = 1, unableToCreate, unableToWriteState, unableToReadData };

const QString companionTap = QStringLiteral("tesselworks/corvel-cmd");

// The same defaults the simulator assumes for a missing key, written out so that the state file tells the whole story.
const QString defaultHomebrewVersion = QStringLiteral("4.3.0");
const QString defaultCommandsVersion = QStringLiteral("1.0.0");

Error failure(ErrorCode code, const QString& description)
{
    return Error(errorDomain, code, description);
}

QString stateFile(const QString& prefix)
{
    return prefix + QStringLiteral("/.brew-simulator/state.json");
}

QJsonObject readState(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return {};
    }
    return QJsonDocument::fromJson(file.readAll()).object();
}

Result<void> writeState(const QString& path, const QJsonObject& state)
{
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(QJsonDocument(state).toJson()) < 0 || !file.commit()) {
        return failure(unableToWriteState, QStringLiteral("Unable to write %1: %2").arg(path, file.errorString()));
    }
    return {};
}

void touch(const QString& path)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    if (!file.exists()) {
        file.open(QIODevice::WriteOnly);
    }
}

// The files a Homebrew user reads straight from the prefix: the version tag and the tap clones. The simulator keeps
// them in step after each command; doing it here too lets tests that only set the state see them at once.
void writeFolders(const QString& prefix, const QJsonObject& state)
{
    touch(prefix + QStringLiteral("/.git/refs/tags/") +
          state.value(QStringLiteral("homebrewVersion")).toString(defaultHomebrewVersion));
    const QString companionFolder = prefix + QStringLiteral("/Library/Taps/tesselworks/homebrew-corvel-cmd");
    const QJsonArray taps = state.value(QStringLiteral("taps")).toArray();
    bool companionTapped = false;
    for (const QJsonValue& value : taps) {
        const QStringList parts = value.toString().split(QLatin1Char('/'));
        if (parts.size() != 2) {
            continue;
        }
        QDir().mkpath(prefix + QStringLiteral("/Library/Taps/") + parts.at(0) + QStringLiteral("/homebrew-") +
                      parts.at(1));
        companionTapped = companionTapped || value.toString() == companionTap;
    }
    if (companionTapped) {
        touch(companionFolder + QStringLiteral("/.git/refs/tags/") +
              state.value(QStringLiteral("commandsVersion")).toString(defaultCommandsVersion));
    } else {
        QDir(companionFolder).removeRecursively();
    }
}

} // namespace

SimulatedHomebrew::SimulatedHomebrew(QString root, QString prefix)
    : m_root(std::move(root))
    , m_prefix(std::move(prefix))
{}

QString SimulatedHomebrew::defaultSimulatorPath()
{
    const QString folder =
        QCoreApplication::instance()
            ? QCoreApplication::applicationDirPath()
            : QFileInfo(QStringLiteral("/proc/self/exe")).canonicalFilePath().section(QLatin1Char('/'), 0, -2);
    return folder + QStringLiteral("/brew-simulator");
}

Result<SimulatedHomebrew> SimulatedHomebrew::create(const QString& root, const QJsonObject& initialState,
                                                    bool useSecondCandidate, QString simulatorPath)
{
    if (simulatorPath.isEmpty()) {
        simulatorPath = defaultSimulatorPath();
    }
    const QFileInfo simulator(simulatorPath);
    if (!simulator.isFile() || !simulator.isExecutable()) {
        return failure(simulatorMissing, QStringLiteral("The brew simulator is missing: %1").arg(simulatorPath));
    }

    const QString prefix = QDir(root).absolutePath() + (useSecondCandidate ? QStringLiteral("/usr/local/homebrew")
                                                                           : QStringLiteral("/opt/homebrew"));
    const QString brew = prefix + QStringLiteral("/bin/brew");
    if (!QDir().mkpath(prefix + QStringLiteral("/bin")) ||
        !QDir().mkpath(prefix + QStringLiteral("/.brew-simulator"))) {
        return failure(unableToCreate, QStringLiteral("Unable to create the prefix %1").arg(prefix));
    }
    QFile::remove(brew);
    if (!QFile::link(simulator.absoluteFilePath(), brew)) {
        return failure(unableToCreate,
                       QStringLiteral("Unable to link %1 to %2").arg(brew, simulator.absoluteFilePath()));
    }

    QJsonObject state = initialState;
    if (!state.contains(QStringLiteral("homebrewVersion"))) {
        state.insert(QStringLiteral("homebrewVersion"), defaultHomebrewVersion);
    }
    if (!state.contains(QStringLiteral("taps"))) {
        state.insert(QStringLiteral("taps"),
                     QJsonArray{QStringLiteral("homebrew/cask"), QStringLiteral("homebrew/core")});
    }
    // The sample data lives beside the simulator's real location, as the build and the installation lay it out.
    const QString data =
        QFileInfo(simulator.canonicalFilePath()).absolutePath() + QStringLiteral("/../share/brew-simulator");
    if (!state.contains(QStringLiteral("catalogue"))) {
        state.insert(QStringLiteral("catalogue"),
                     QJsonObject{{QStringLiteral("formulae"), QDir::cleanPath(data + QStringLiteral("/formula.json"))},
                                 {QStringLiteral("casks"), QDir::cleanPath(data + QStringLiteral("/cask.json"))}});
    }
    if (!state.contains(QStringLiteral("tapRecords"))) {
        const QString path = QDir::cleanPath(data + QStringLiteral("/tap-records.json"));
        QFile records(path);
        if (!records.open(QIODevice::ReadOnly)) {
            return failure(unableToReadData, QStringLiteral("Unable to read %1: %2").arg(path, records.errorString()));
        }
        state.insert(QStringLiteral("tapRecords"), QJsonDocument::fromJson(records.readAll()).object());
    }

    const Result<void> written = writeState(stateFile(prefix), state);
    if (!written) {
        return written.error();
    }
    writeFolders(prefix, state);
    return SimulatedHomebrew(QDir(root).absolutePath(), prefix);
}

QJsonObject SimulatedHomebrew::state() const
{
    return readState(stateFilePath());
}

Result<void> SimulatedHomebrew::setState(const QJsonObject& state)
{
    // The simulator changes the state under this lock; taking it too keeps a test's change from being overwritten.
    QLockFile lock(stateFilePath() + QStringLiteral(".lock"));
    if (!lock.lock()) {
        return failure(unableToWriteState, QStringLiteral("Unable to lock %1").arg(stateFilePath()));
    }
    const Result<void> written = writeState(stateFilePath(), state);
    if (written) {
        writeFolders(m_prefix, state);
    }
    return written;
}

Result<void> SimulatedHomebrew::setStateValue(const QString& key, const QJsonValue& value)
{
    QLockFile lock(stateFilePath() + QStringLiteral(".lock"));
    if (!lock.lock()) {
        return failure(unableToWriteState, QStringLiteral("Unable to lock %1").arg(stateFilePath()));
    }
    QJsonObject state = readState(stateFilePath());
    state.insert(key, value);
    const Result<void> written = writeState(stateFilePath(), state);
    if (written) {
        writeFolders(m_prefix, state);
    }
    return written;
}

QList<SimulatedHomebrew::Invocation> SimulatedHomebrew::invocations() const
{
    QList<Invocation> invocations;
    QFile log(logFilePath());
    if (!log.open(QIODevice::ReadOnly)) {
        return invocations;
    }
    while (!log.atEnd()) {
        const QJsonObject entry = QJsonDocument::fromJson(log.readLine()).object();
        if (entry.isEmpty()) {
            continue;
        }
        Invocation invocation;
        const QJsonArray arguments = entry.value(QStringLiteral("arguments")).toArray();
        for (const QJsonValue& argument : arguments) {
            invocation.arguments.append(argument.toString());
        }
        const QJsonObject environment = entry.value(QStringLiteral("environment")).toObject();
        for (auto it = environment.begin(); it != environment.end(); ++it) {
            invocation.environment.insert(it.key(), it.value().toString());
        }
        if (entry.contains(QStringLiteral("sudoPassword"))) {
            invocation.sudoPassword = entry.value(QStringLiteral("sudoPassword")).toString();
        }
        invocations.append(invocation);
    }
    return invocations;
}
