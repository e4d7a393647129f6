#include "SimulatorRecords.h"

#include <QCryptographicHash>
#include <QDir>
#include <QJsonArray>
#include <QSet>
#include <algorithm>
#include <cmath>
#include <functional>

SimulatorRecords::SimulatorRecords(const QString& prefix, const SimulatorState& state,
                                   const SimulatorCatalogue& catalogue)
    : m_prefix(prefix)
    , m_state(state)
    , m_catalogue(catalogue)
{}

QString SimulatorRecords::formulaVersion(const QJsonObject& record)
{
    return record.value(QStringLiteral("versions")).toObject().value(QStringLiteral("stable")).toString();
}

QJsonObject SimulatorRecords::formulaInfo(const QJsonObject& record) const
{
    QJsonObject info = record;
    const QString token = record.value(QStringLiteral("name")).toString();
    const QString tap = record.value(QStringLiteral("tap")).toString();
    if (!info.contains(QStringLiteral("full_name"))) {
        info.insert(QStringLiteral("full_name"), SimulatorCatalogue::isCoreTap(tap) ? token : tap + '/' + token);
    }
    const auto installed = m_state.formulae.constFind(token);
    if (installed == m_state.formulae.constEnd()) {
        info.insert(QStringLiteral("installed"), QJsonArray());
        info.insert(QStringLiteral("linked_keg"), QJsonValue::Null);
        info.insert(QStringLiteral("outdated"), false);
        return info;
    }

    QJsonArray runtimeDependencies;
    for (const QString& dependency : std::as_const(installed->dependencies)) {
        const QString version = m_state.formulae.value(dependency).version;
        runtimeDependencies.append(QJsonObject{{QStringLiteral("full_name"), formulaName(dependency)},
                                               {QStringLiteral("version"), version},
                                               {QStringLiteral("revision"), 0},
                                               {QStringLiteral("pkg_version"), version},
                                               {QStringLiteral("declared_directly"), true}});
    }
    info.insert(QStringLiteral("installed"),
                QJsonArray{QJsonObject{{QStringLiteral("version"), installed->version},
                                       {QStringLiteral("used_options"), QJsonArray()},
                                       {QStringLiteral("built_as_bottle"), false},
                                       {QStringLiteral("poured_from_bottle"), false},
                                       {QStringLiteral("time"), installed->installedTime},
                                       {QStringLiteral("runtime_dependencies"), runtimeDependencies},
                                       {QStringLiteral("installed_as_dependency"), !installed->installedOnRequest},
                                       {QStringLiteral("installed_on_request"), installed->installedOnRequest}}});
    info.insert(QStringLiteral("linked_keg"), installed->version);
    info.insert(QStringLiteral("pinned"), false);
    const auto newer = m_state.outdatedFormulae.constFind(token);
    info.insert(QStringLiteral("outdated"), newer != m_state.outdatedFormulae.constEnd());
    if (newer != m_state.outdatedFormulae.constEnd()) {
        QJsonObject versions = info.value(QStringLiteral("versions")).toObject();
        versions.insert(QStringLiteral("stable"), *newer);
        info.insert(QStringLiteral("versions"), versions);
    }
    return info;
}

QJsonObject SimulatorRecords::caskInfo(const QJsonObject& record) const
{
    QJsonObject info = record;
    const QString token = record.value(QStringLiteral("token")).toString();
    const QString tap = record.value(QStringLiteral("tap")).toString();
    if (!info.contains(QStringLiteral("full_token"))) {
        info.insert(QStringLiteral("full_token"), SimulatorCatalogue::isCoreTap(tap) ? token : tap + '/' + token);
    }
    const auto installed = m_state.casks.constFind(token);
    const auto newer = m_state.outdatedCasks.constFind(token);
    const bool isInstalled = installed != m_state.casks.constEnd();
    const bool isOutdated = isInstalled && newer != m_state.outdatedCasks.constEnd();
    info.insert(QStringLiteral("installed"), isInstalled ? QJsonValue(installed->version) : QJsonValue());
    info.insert(QStringLiteral("installed_time"), isInstalled ? QJsonValue(installed->installedTime) : QJsonValue());
    info.insert(QStringLiteral("outdated"), isOutdated);
    if (isOutdated) {
        info.insert(QStringLiteral("version"), *newer);
    }
    return info;
}

QJsonObject SimulatorRecords::installedFormulaInfo(const QString& token) const
{
    if (const std::optional<QJsonObject> record = m_catalogue.formula(token)) {
        return formulaInfo(*record);
    }
    // Installed from a source the catalogue no longer lists: brew still knows what its keg holds.
    const SimulatorState::Formula entry = m_state.formulae.value(token);
    const QString tap = formulaTap(token);
    return formulaInfo(QJsonObject{
        {QStringLiteral("name"), token},
        {QStringLiteral("full_name"), formulaName(token)},
        {QStringLiteral("tap"), tap},
        {QStringLiteral("desc"), QJsonValue::Null},
        {QStringLiteral("homepage"), QJsonValue::Null},
        {QStringLiteral("versions"), QJsonObject{{QStringLiteral("stable"), entry.version},
                                                 {QStringLiteral("head"), QJsonValue::Null},
                                                 {QStringLiteral("bottle"), false}}},
        {QStringLiteral("dependencies"), QJsonArray::fromStringList(entry.dependencies)},
    });
}

QJsonObject SimulatorRecords::installedCaskInfo(const QString& token) const
{
    if (const std::optional<QJsonObject> record = m_catalogue.cask(token)) {
        return caskInfo(*record);
    }
    const SimulatorState::Cask entry = m_state.casks.value(token);
    return caskInfo(QJsonObject{
        {QStringLiteral("token"), token},
        {QStringLiteral("full_token"), caskName(token)},
        {QStringLiteral("tap"), caskTap(token)},
        {QStringLiteral("name"), QJsonArray{token}},
        {QStringLiteral("desc"), QJsonValue::Null},
        {QStringLiteral("homepage"), QJsonValue::Null},
        {QStringLiteral("version"), entry.version},
        {QStringLiteral("sha256"), QStringLiteral("no_check")},
        {QStringLiteral("artifacts"), QJsonArray()},
    });
}

QJsonObject SimulatorRecords::tapInfoRecord(const QString& tap) const
{
    const QString owner = tap.section(QLatin1Char('/'), 0, 0);
    const QString repository = tap.section(QLatin1Char('/'), 1, 1);
    const bool official = owner == QStringLiteral("homebrew");
    const bool installed = m_state.isTapped(tap);
    const QString path = tapPath(tap);
    const QString remoteOwner = official ? QStringLiteral("Homebrew") : owner;

    QJsonArray formulaNames;
    QJsonArray caskTokens;
    QJsonArray formulaFiles;
    QJsonArray caskFiles;
    QJsonArray commandFiles;
    if (installed) {
        const bool core = SimulatorCatalogue::isCoreTap(tap);
        const QList<QJsonObject> formulae = m_catalogue.formulaeOfTap(tap);
        for (const QJsonObject& record : formulae) {
            const QString token = record.value(QStringLiteral("name")).toString();
            formulaNames.append(core ? token : tap + '/' + token);
            formulaFiles.append(path + QStringLiteral("/Formula/") + token + QStringLiteral(".rb"));
        }
        const QList<QJsonObject> casks = m_catalogue.casksOfTap(tap);
        for (const QJsonObject& record : casks) {
            const QString token = record.value(QStringLiteral("token")).toString();
            caskTokens.append(core ? token : tap + '/' + token);
            caskFiles.append(path + QStringLiteral("/Casks/") + token + QStringLiteral(".rb"));
        }
        if (tap == companionTap) {
            commandFiles.append(path + QStringLiteral("/cmd/") + companionCommand + QStringLiteral(".rb"));
        }
    }
    return QJsonObject{
        {QStringLiteral("name"), tap},
        {QStringLiteral("user"), official ? QStringLiteral("Homebrew") : owner},
        {QStringLiteral("repo"), repository},
        {QStringLiteral("path"), path},
        {QStringLiteral("installed"), installed},
        {QStringLiteral("official"), official},
        {QStringLiteral("formula_names"), formulaNames},
        {QStringLiteral("cask_tokens"), caskTokens},
        {QStringLiteral("formula_files"), formulaFiles},
        {QStringLiteral("cask_files"), caskFiles},
        {QStringLiteral("command_files"), commandFiles},
        {QStringLiteral("remote"),
         installed ? QJsonValue(QStringLiteral("https://github.com/%1/homebrew-%2").arg(remoteOwner, repository))
                   : QJsonValue()},
        {QStringLiteral("custom_remote"), false},
        {QStringLiteral("private"), false},
    };
}

QStringList SimulatorRecords::directDependencies(const QJsonObject& record) const
{
    QStringList tokens;
    const QJsonArray dependencies = record.value(QStringLiteral("dependencies")).toArray();
    for (const QJsonValue& dependency : dependencies) {
        // Dependencies outside the catalogue count as provided by the system.
        if (const std::optional<QJsonObject> found = m_catalogue.formula(dependency.toString())) {
            tokens.append(found->value(QStringLiteral("name")).toString());
        }
    }
    return tokens;
}

QList<QJsonObject> SimulatorRecords::dependencyOrder(const QJsonObject& record) const
{
    QList<QJsonObject> order;
    QSet<QString> visited{record.value(QStringLiteral("name")).toString()};
    const std::function<void(const QJsonObject&)> visit = [&](const QJsonObject& formula) {
        const QStringList tokens = directDependencies(formula);
        for (const QString& token : tokens) {
            if (visited.contains(token) || m_state.formulae.contains(token)) {
                continue;
            }
            visited.insert(token);
            const QJsonObject dependency = *m_catalogue.formula(token);
            visit(dependency);
            order.append(dependency);
        }
    };
    visit(record);
    return order;
}

QStringList SimulatorRecords::artifactLines(const QJsonObject& record, const QString& appdir, const QString& fontdir,
                                            bool removing) const
{
    const QString apps = appdir.isEmpty() ? QStringLiteral("/Applications") : appdir;
    const QString fonts = fontdir.isEmpty() ? QDir::homePath() + QStringLiteral("/Library/Fonts") : fontdir;
    QStringList lines;
    const QJsonArray artifacts = record.value(QStringLiteral("artifacts")).toArray();
    for (const QJsonValue& artifact : artifacts) {
        // Older records hold {"app": ["A.app", {"target": ...}]}, newer ones {"app": ["A.app"], "target": ...}.
        const QJsonObject stanza = artifact.toObject();
        const QStringList keys = stanza.keys();
        const auto typeKey =
            std::find_if(keys.begin(), keys.end(), [](const QString& key) { return key != QStringLiteral("target"); });
        if (typeKey == keys.end()) {
            continue;
        }
        const QString type = *typeKey;
        const QJsonArray values = stanza.value(type).toArray();
        QString source;
        QString target = stanza.value(QStringLiteral("target")).toString().section(QLatin1Char('/'), -1);
        for (const QJsonValue& value : values) {
            if (value.isString() && source.isEmpty()) {
                source = value.toString();
            } else if (value.isObject() && target.isEmpty()) {
                target = value.toObject().value(QStringLiteral("target")).toString().section(QLatin1Char('/'), -1);
            }
        }
        if (source.isEmpty()) {
            continue;
        }
        const QString name = target.isEmpty() ? source.section(QLatin1Char('/'), -1) : target;
        if (type == QStringLiteral("app") || type == QStringLiteral("suite")) {
            const QString label = type == QStringLiteral("app") ? QStringLiteral("App") : QStringLiteral("Suite");
            lines.append(removing ? QStringLiteral("==> Removing %1 '%2/%3'").arg(label, apps, name)
                                  : QStringLiteral("==> Moving %1 '%2' to '%3/%4'").arg(label, source, apps, name));
        } else if (type == QStringLiteral("font")) {
            lines.append(removing ? QStringLiteral("==> Removing Font '%1/%2'").arg(fonts, name)
                                  : QStringLiteral("==> Moving Font '%1' to '%2/%3'").arg(source, fonts, name));
        } else if (type == QStringLiteral("binary")) {
            lines.append(removing ? QStringLiteral("==> Unlinking Binary '%1/bin/%2'").arg(m_prefix, name)
                                  : QStringLiteral("==> Linking Binary '%1' to '%2/bin/%3'")
                                        .arg(source.section(QLatin1Char('/'), -1), m_prefix, name));
        } else if (type == QStringLiteral("pkg")) {
            lines.append(removing
                             ? QStringLiteral("==> Uninstalling packages with sudo; the password may be necessary:")
                             : QStringLiteral("==> Running installer for %1 with sudo; the password may be "
                                              "necessary.\ninstaller: Package name is %2\ninstaller: Installing "
                                              "at base path /\ninstaller: The install was successful.")
                                   .arg(record.value(QStringLiteral("token")).toString(), source));
        }
    }
    return lines;
}

QString SimulatorRecords::formulaTap(const QString& token) const
{
    const QString tap = m_state.formulae.value(token).tap;
    if (!tap.isEmpty()) {
        return tap;
    }
    const std::optional<QJsonObject> record = m_catalogue.formula(token);
    return record ? record->value(QStringLiteral("tap")).toString() : SimulatorCatalogue::coreFormulaTap;
}

QString SimulatorRecords::caskTap(const QString& token) const
{
    const QString tap = m_state.casks.value(token).tap;
    if (!tap.isEmpty()) {
        return tap;
    }
    const std::optional<QJsonObject> record = m_catalogue.cask(token);
    return record ? record->value(QStringLiteral("tap")).toString() : SimulatorCatalogue::coreCaskTap;
}

QString SimulatorRecords::formulaName(const QString& token) const
{
    const QString tap = formulaTap(token);
    return SimulatorCatalogue::isCoreTap(tap) ? token : tap + QLatin1Char('/') + token;
}

QString SimulatorRecords::caskName(const QString& token) const
{
    const QString tap = caskTap(token);
    return SimulatorCatalogue::isCoreTap(tap) ? token : tap + QLatin1Char('/') + token;
}

QString SimulatorRecords::formulaUrl(const QJsonObject& record, const QString& version) const
{
    const QString token = record.value(QStringLiteral("name")).toString();
    QString url = record.value(QStringLiteral("urls"))
                      .toObject()
                      .value(QStringLiteral("stable"))
                      .toObject()
                      .value(QStringLiteral("url"))
                      .toString();
    if (url.isEmpty()) {
        return QStringLiteral("https://ghcr.io/v2/homebrew/core/%1/manifests/%2").arg(token, version);
    }
    const QString recordVersion = formulaVersion(record);
    if (!recordVersion.isEmpty()) {
        url.replace(recordVersion, version);
    }
    return url;
}

QString SimulatorRecords::caskUrl(const QJsonObject& record, const QString& version) const
{
    QString url = record.value(QStringLiteral("url")).toString();
    const QString recordVersion = record.value(QStringLiteral("version")).toString();
    if (!recordVersion.isEmpty() && recordVersion != QStringLiteral("latest")) {
        url.replace(recordVersion, version);
    }
    return url;
}

QString SimulatorRecords::cellar(const QString& token, const QString& version) const
{
    return m_prefix + QStringLiteral("/Cellar/") + token + QLatin1Char('/') + version;
}

QString SimulatorRecords::tapPath(const QString& tap) const
{
    return m_prefix + QStringLiteral("/Library/Taps/") + tap.section(QLatin1Char('/'), 0, 0) +
           QStringLiteral("/homebrew-") + tap.section(QLatin1Char('/'), 1, 1);
}

QString SimulatorRecords::cachePath() const
{
    return QDir::homePath() + QStringLiteral("/.cache/Homebrew");
}

QString SimulatorRecords::beer(const QString& token, const QString& version) const
{
    const Footprint size = footprint(token + version);
    return QStringLiteral("🍺  %1: %2 files, %3, built in 0 seconds")
        .arg(cellar(token, version), QString::number(size.files), readableSize(size.bytes));
}

QString SimulatorRecords::uninstalling(const QString& token, const QString& version) const
{
    const Footprint size = footprint(token + version);
    return QStringLiteral("Uninstalling %1... (%2 files, %3)")
        .arg(cellar(token, version), QString::number(size.files), readableSize(size.bytes));
}

// Sizes are made up, but the same package always has the same size.
SimulatorRecords::Footprint SimulatorRecords::footprint(const QString& seed)
{
    const QByteArray digest = QCryptographicHash::hash(seed.toUtf8(), QCryptographicHash::Md5);
    const quint32 value = (static_cast<quint8>(digest.at(0)) << 16) | (static_cast<quint8>(digest.at(1)) << 8) |
                          static_cast<quint8>(digest.at(2));
    return Footprint{4 + static_cast<int>(value % 120), 4096 + static_cast<qint64>(value % 2000000)};
}

QString SimulatorRecords::readableSize(qint64 bytes)
{
    static const char* const units[] = {"B", "KB", "MB", "GB"};
    double value = static_cast<double>(bytes);
    int unit = 0;
    while (value >= 1000.0 && unit < 3) {
        value /= 1024.0;
        ++unit;
    }
    const double rounded = std::round(value * 10.0) / 10.0;
    const QString number = rounded == std::trunc(rounded) ? QString::number(static_cast<qint64>(rounded))
                                                          : QString::number(rounded, 'f', 1);
    return number + QLatin1String(units[unit]);
}

// "a", "a and b", "a, b and c", as brew joins lists in its sentences.
QString SimulatorRecords::sentence(const QStringList& items)
{
    if (items.size() <= 1) {
        return items.value(0);
    }
    return items.mid(0, items.size() - 1).join(QStringLiteral(", ")) + QStringLiteral(" and ") + items.last();
}

QString SimulatorRecords::counted(qsizetype count, const QString& singular, const QString& plural)
{
    return QString::number(count) + QLatin1Char(' ') + (count == 1 ? singular : plural);
}

bool SimulatorRecords::validTapName(const QString& name)
{
    const QStringList parts = name.split(QLatin1Char('/'));
    return parts.size() == 2 && !parts.at(0).isEmpty() && !parts.at(1).isEmpty() &&
           std::none_of(parts.begin(), parts.end(),
                        [](const QString& part) { return part.contains(QLatin1Char(' ')); });
}

QString SimulatorRecords::tapSummary(const QString& name, qsizetype commands, qsizetype casks, qsizetype formulae)
{
    QStringList contents;
    if (commands > 0) {
        contents.append(counted(commands, QStringLiteral("command"), QStringLiteral("commands")));
    }
    if (casks > 0) {
        contents.append(counted(casks, QStringLiteral("cask"), QStringLiteral("casks")));
    }
    if (formulae > 0) {
        contents.append(counted(formulae, QStringLiteral("formula"), QStringLiteral("formulae")));
    }
    const Footprint size = footprint(name + QString::number(formulae + casks));
    const QString files =
        QStringLiteral("(%1 files, %2)").arg(QString::number(size.files + formulae + casks), readableSize(size.bytes));
    return contents.isEmpty() ? files : sentence(contents) + QLatin1Char(' ') + files;
}
