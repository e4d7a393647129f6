#include "SimulatorCatalogue.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>

namespace {

std::optional<QJsonArray> readArray(const QString& path, QString* error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        *error = QStringLiteral("cannot read the catalogue %1: %2").arg(path, file.errorString());
        return std::nullopt;
    }
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(file.readAll(), &parseError);
    if (parseError.error != QJsonParseError::NoError || !document.isArray()) {
        *error = QStringLiteral("the catalogue %1 is not a JSON array: %2").arg(path, parseError.errorString());
        return std::nullopt;
    }
    return document.array();
}

} // namespace

SimulatorCatalogue::SimulatorCatalogue(const SimulatorState& state, const QString& dataFolder)
    : m_state(state)
    , m_dataFolder(dataFolder)
{}

bool SimulatorCatalogue::load(QString* error)
{
    const QString formulaPath =
        m_state.formulaCatalogue.isEmpty() ? m_dataFolder + QStringLiteral("/formula.json") : m_state.formulaCatalogue;
    const QString caskPath =
        m_state.caskCatalogue.isEmpty() ? m_dataFolder + QStringLiteral("/cask.json") : m_state.caskCatalogue;
    const std::optional<QJsonArray> formulae = readArray(formulaPath, error);
    if (!formulae) {
        return false;
    }
    const std::optional<QJsonArray> casks = readArray(caskPath, error);
    if (!casks) {
        return false;
    }

    for (const QJsonValue& record : *formulae) {
        add(m_formulae, record.toObject(), QStringLiteral("name"), coreFormulaTap);
    }
    for (const QJsonValue& record : *casks) {
        add(m_casks, record.toObject(), QStringLiteral("token"), coreCaskTap);
    }
    for (auto it = m_state.tapRecords.begin(); it != m_state.tapRecords.end(); ++it) {
        if (!m_state.isTapped(it.key())) {
            continue;
        }
        const QJsonObject tap = it.value().toObject();
        const QJsonArray tapFormulae = tap.value(QStringLiteral("formulae")).toArray();
        for (const QJsonValue& record : tapFormulae) {
            add(m_formulae, record.toObject(), QStringLiteral("name"), it.key());
        }
        const QJsonArray tapCasks = tap.value(QStringLiteral("casks")).toArray();
        for (const QJsonValue& record : tapCasks) {
            add(m_casks, record.toObject(), QStringLiteral("token"), it.key());
        }
    }
    return true;
}

void SimulatorCatalogue::add(Index& index, QJsonObject record, const QString& key, const QString& tap)
{
    const QString token = record.value(key).toString();
    if (token.isEmpty()) {
        return;
    }
    // Records of the public catalogue may predate the "tap" key; brew always answers with it.
    if (record.value(QStringLiteral("tap")).toString().isEmpty()) {
        record.insert(QStringLiteral("tap"), tap);
    }
    const QString recordTap = record.value(QStringLiteral("tap")).toString();
    index.records.append(record);
    // The first record of a token wins, so a core package hides a tap's namesake as it does in brew.
    index.byName.insert(recordTap + QLatin1Char('/') + token, index.records.size() - 1);
    if (!index.byName.contains(token)) {
        index.byName.insert(token, index.records.size() - 1);
    }
}

std::optional<QJsonObject> SimulatorCatalogue::find(const Index& index, const QString& name)
{
    const auto it = index.byName.constFind(name);
    if (it == index.byName.constEnd()) {
        return std::nullopt;
    }
    return index.records.at(*it);
}

std::optional<QJsonObject> SimulatorCatalogue::formula(const QString& name) const
{
    return find(m_formulae, name);
}

std::optional<QJsonObject> SimulatorCatalogue::cask(const QString& name) const
{
    return find(m_casks, name);
}

QList<QJsonObject> SimulatorCatalogue::formulaeOfTap(const QString& tap) const
{
    QList<QJsonObject> records;
    for (const QJsonObject& record : m_formulae.records) {
        if (record.value(QStringLiteral("tap")).toString() == tap) {
            records.append(record);
        }
    }
    return records;
}

QList<QJsonObject> SimulatorCatalogue::casksOfTap(const QString& tap) const
{
    QList<QJsonObject> records;
    for (const QJsonObject& record : m_casks.records) {
        if (record.value(QStringLiteral("tap")).toString() == tap) {
            records.append(record);
        }
    }
    return records;
}
