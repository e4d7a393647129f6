#include "SimulatorState.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QLockFile>
#include <QSaveFile>

namespace {

const QString companionTap = QStringLiteral("tesselworks/corvel-cmd");

QStringList stringList(const QJsonValue& value)
{
    QStringList list;
    const QJsonArray array = value.toArray();
    for (const QJsonValue& item : array) {
        if (item.isString()) {
            list.append(item.toString());
        }
    }
    return list;
}

QMap<QString, QString> stringMap(const QJsonValue& value)
{
    QMap<QString, QString> map;
    const QJsonObject object = value.toObject();
    for (auto it = object.begin(); it != object.end(); ++it) {
        map.insert(it.key(), it.value().toString());
    }
    return map;
}

QJsonObject toObject(const QMap<QString, QString>& map)
{
    QJsonObject object;
    for (auto it = map.begin(); it != map.end(); ++it) {
        object.insert(it.key(), it.value());
    }
    return object;
}

QJsonObject kinds(const QMap<QString, QString>& formulae, const QMap<QString, QString>& casks)
{
    return QJsonObject{{QStringLiteral("formulae"), toObject(formulae)}, {QStringLiteral("casks"), toObject(casks)}};
}

const QStringList knownKeys{
    QStringLiteral("homebrewVersion"), QStringLiteral("commandsVersion"), QStringLiteral("taps"),
    QStringLiteral("formulae"),        QStringLiteral("casks"),           QStringLiteral("outdated"),
    QStringLiteral("pendingUpdates"),  QStringLiteral("lastUpdate"),      QStringLiteral("downloads"),
    QStringLiteral("catalogue"),       QStringLiteral("tapRecords"),      QStringLiteral("faults"),
};

// <prefix>/Library/Taps/<owner>/homebrew-<repository>, the folder Homebrew clones a tap into.
QString tapFolder(const QString& prefix, const QString& tap)
{
    const QStringList parts = tap.split(QLatin1Char('/'));
    return prefix + QStringLiteral("/Library/Taps/") + parts.value(0) + QStringLiteral("/homebrew-") + parts.value(1);
}

void touch(const QString& path)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    if (!file.exists()) {
        file.open(QIODevice::WriteOnly);
    }
}

} // namespace

SimulatorState SimulatorState::fromJson(const QJsonObject& object)
{
    SimulatorState state;
    if (object.contains(QStringLiteral("homebrewVersion"))) {
        state.homebrewVersion = object.value(QStringLiteral("homebrewVersion")).toString();
    }
    if (object.contains(QStringLiteral("commandsVersion"))) {
        state.commandsVersion = object.value(QStringLiteral("commandsVersion")).toString();
    }
    if (object.contains(QStringLiteral("taps"))) {
        state.taps = stringList(object.value(QStringLiteral("taps")));
    }

    const QJsonObject formulae = object.value(QStringLiteral("formulae")).toObject();
    for (auto it = formulae.begin(); it != formulae.end(); ++it) {
        Formula formula;
        if (it.value().isString()) {
            formula.version = it.value().toString();
        } else {
            const QJsonObject entry = it.value().toObject();
            formula.version = entry.value(QStringLiteral("version")).toString();
            formula.tap = entry.value(QStringLiteral("tap")).toString();
            formula.dependencies = stringList(entry.value(QStringLiteral("dependencies")));
            formula.installedOnRequest = entry.value(QStringLiteral("installedOnRequest")).toBool(true);
            formula.installedTime = entry.value(QStringLiteral("installedTime")).toInteger();
            formula.oldVersions = stringList(entry.value(QStringLiteral("oldVersions")));
        }
        state.formulae.insert(it.key(), formula);
    }

    const QJsonObject casks = object.value(QStringLiteral("casks")).toObject();
    for (auto it = casks.begin(); it != casks.end(); ++it) {
        Cask cask;
        if (it.value().isString()) {
            cask.version = it.value().toString();
        } else {
            const QJsonObject entry = it.value().toObject();
            cask.version = entry.value(QStringLiteral("version")).toString();
            cask.tap = entry.value(QStringLiteral("tap")).toString();
            cask.appdir = entry.value(QStringLiteral("appdir")).toString();
            cask.fontdir = entry.value(QStringLiteral("fontdir")).toString();
            cask.installedTime = entry.value(QStringLiteral("installedTime")).toInteger();
        }
        state.casks.insert(it.key(), cask);
    }

    const QJsonObject outdated = object.value(QStringLiteral("outdated")).toObject();
    state.outdatedFormulae = stringMap(outdated.value(QStringLiteral("formulae")));
    state.outdatedCasks = stringMap(outdated.value(QStringLiteral("casks")));
    const QJsonObject pending = object.value(QStringLiteral("pendingUpdates")).toObject();
    state.pendingFormulae = stringMap(pending.value(QStringLiteral("formulae")));
    state.pendingCasks = stringMap(pending.value(QStringLiteral("casks")));

    const QDateTime lastUpdate =
        QDateTime::fromString(object.value(QStringLiteral("lastUpdate")).toString(), Qt::ISODate);
    if (lastUpdate.isValid()) {
        state.lastUpdate = lastUpdate;
    }
    state.downloads = stringList(object.value(QStringLiteral("downloads")));

    const QJsonObject catalogue = object.value(QStringLiteral("catalogue")).toObject();
    state.formulaCatalogue = catalogue.value(QStringLiteral("formulae")).toString();
    state.caskCatalogue = catalogue.value(QStringLiteral("casks")).toString();
    state.tapRecords = object.value(QStringLiteral("tapRecords")).toObject();
    state.faultsObject = object.value(QStringLiteral("faults")).toObject();

    for (auto it = object.begin(); it != object.end(); ++it) {
        if (!knownKeys.contains(it.key())) {
            state.otherKeys.insert(it.key(), it.value());
        }
    }
    return state;
}

QJsonObject SimulatorState::toJson() const
{
    QJsonObject object = otherKeys;
    object.insert(QStringLiteral("homebrewVersion"), homebrewVersion);
    object.insert(QStringLiteral("commandsVersion"), commandsVersion);
    object.insert(QStringLiteral("taps"), QJsonArray::fromStringList(taps));

    QJsonObject formulaObjects;
    for (auto it = formulae.begin(); it != formulae.end(); ++it) {
        formulaObjects.insert(
            it.key(), QJsonObject{{QStringLiteral("version"), it->version},
                                  {QStringLiteral("tap"), it->tap},
                                  {QStringLiteral("dependencies"), QJsonArray::fromStringList(it->dependencies)},
                                  {QStringLiteral("installedOnRequest"), it->installedOnRequest},
                                  {QStringLiteral("installedTime"), it->installedTime},
                                  {QStringLiteral("oldVersions"), QJsonArray::fromStringList(it->oldVersions)}});
    }
    object.insert(QStringLiteral("formulae"), formulaObjects);

    QJsonObject caskObjects;
    for (auto it = casks.begin(); it != casks.end(); ++it) {
        QJsonObject entry{{QStringLiteral("version"), it->version},
                          {QStringLiteral("tap"), it->tap},
                          {QStringLiteral("installedTime"), it->installedTime}};
        if (!it->appdir.isEmpty()) {
            entry.insert(QStringLiteral("appdir"), it->appdir);
        }
        if (!it->fontdir.isEmpty()) {
            entry.insert(QStringLiteral("fontdir"), it->fontdir);
        }
        caskObjects.insert(it.key(), entry);
    }
    object.insert(QStringLiteral("casks"), caskObjects);

    object.insert(QStringLiteral("outdated"), kinds(outdatedFormulae, outdatedCasks));
    object.insert(QStringLiteral("pendingUpdates"), kinds(pendingFormulae, pendingCasks));
    if (lastUpdate) {
        object.insert(QStringLiteral("lastUpdate"), lastUpdate->toUTC().toString(Qt::ISODate));
    }
    object.insert(QStringLiteral("downloads"), QJsonArray::fromStringList(downloads));
    object.insert(QStringLiteral("catalogue"), QJsonObject{{QStringLiteral("formulae"), formulaCatalogue},
                                                           {QStringLiteral("casks"), caskCatalogue}});
    object.insert(QStringLiteral("tapRecords"), tapRecords);
    object.insert(QStringLiteral("faults"), faultsObject);
    return object;
}

SimulatorFaults SimulatorState::faults() const
{
    SimulatorFaults faults;
    faults.failTokens = stringList(faultsObject.value(QStringLiteral("failTokens")));
    faults.failCommands = stringList(faultsObject.value(QStringLiteral("failCommands")));
    const QJsonValue exitStatus = faultsObject.value(QStringLiteral("exitAfterOutput"));
    if (exitStatus.isDouble()) {
        faults.exitAfterOutput = exitStatus.toInt();
    }
    faults.stderrOnly = faultsObject.value(QStringLiteral("stderrOnly")).toBool();
    faults.invalidUtf8 = faultsObject.value(QStringLiteral("invalidUtf8")).toBool();
    faults.delayMs = qMax(0, faultsObject.value(QStringLiteral("delayMs")).toInt());
    faults.sudo = stringList(faultsObject.value(QStringLiteral("sudo")));
    return faults;
}

QStringList SimulatorState::dependents(const QString& token) const
{
    QStringList names;
    for (auto it = formulae.begin(); it != formulae.end(); ++it) {
        if (it.key() != token && it->dependencies.contains(token)) {
            names.append(it.key());
        }
    }
    return names;
}

QStringList SimulatorState::leaves() const
{
    QStringList names;
    for (auto it = formulae.begin(); it != formulae.end(); ++it) {
        if (it->installedOnRequest && dependents(it.key()).isEmpty()) {
            names.append(it.key());
        }
    }
    return names;
}

QStringList SimulatorState::unneededFormulae() const
{
    SimulatorState remaining = *this;
    QStringList removed;
    bool found = true;
    while (found) {
        found = false;
        for (auto it = remaining.formulae.begin(); it != remaining.formulae.end(); ++it) {
            if (!it->installedOnRequest && remaining.dependents(it.key()).isEmpty()) {
                removed.append(it.key());
                remaining.formulae.erase(it);
                found = true;
                break;
            }
        }
    }
    return removed;
}

std::optional<SimulatorState> SimulatorState::load(const QString& path, QString* error)
{
    QFile file(path);
    if (!file.exists()) {
        return SimulatorState();
    }
    if (!file.open(QIODevice::ReadOnly)) {
        *error = QStringLiteral("cannot read %1: %2").arg(path, file.errorString());
        return std::nullopt;
    }
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(file.readAll(), &parseError);
    if (parseError.error != QJsonParseError::NoError || !document.isObject()) {
        *error = QStringLiteral("%1 is not a JSON object: %2").arg(path, parseError.errorString());
        return std::nullopt;
    }
    return fromJson(document.object());
}

bool SimulatorState::save(const QString& path, QString* error) const
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(QJsonDocument(toJson()).toJson()) < 0 || !file.commit()) {
        *error = QStringLiteral("cannot write %1: %2").arg(path, file.errorString());
        return false;
    }
    return true;
}

bool SimulatorState::update(const QString& path, const std::function<void(SimulatorState&)>& change, QString* error)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QLockFile lock(path + QStringLiteral(".lock"));
    if (!lock.lock()) {
        *error = QStringLiteral("cannot lock %1").arg(path);
        return false;
    }
    std::optional<SimulatorState> state = load(path, error);
    if (!state) {
        return false;
    }
    change(*state);
    return state->save(path, error);
}

void SimulatorState::writeFolders(const QString& prefix) const
{
    touch(prefix + QStringLiteral("/.git/refs/tags/") + homebrewVersion);

    QDir tapsRoot(prefix + QStringLiteral("/Library/Taps"));
    const QStringList owners = tapsRoot.entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString& owner : owners) {
        const QStringList clones = QDir(tapsRoot.filePath(owner)).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
        for (const QString& clone : clones) {
            const QString tap = owner + QLatin1Char('/') + clone.mid(QStringLiteral("homebrew-").size());
            if (!clone.startsWith(QStringLiteral("homebrew-")) || !isTapped(tap)) {
                QDir(tapsRoot.filePath(owner + QLatin1Char('/') + clone)).removeRecursively();
            }
        }
    }
    for (const QString& tap : taps) {
        if (tap.count(QLatin1Char('/')) != 1) {
            continue;
        }
        QDir().mkpath(tapFolder(prefix, tap));
        if (tap == companionTap) {
            touch(tapFolder(prefix, tap) + QStringLiteral("/.git/refs/tags/") + commandsVersion);
        }
    }
}
