// The package records the simulator knows: the core formula and cask catalogues (files in the format of Homebrew's
// public /api/formula.json and /api/cask.json, so that the app that fetches the same files agrees) and the records of
// the non-core taps that are tapped. Commands that answer without records never call load(), so they stay cheap.
#pragma once

#include "SimulatorState.h"

#include <QHash>
#include <QJsonObject>
#include <QList>
#include <QString>
#include <optional>

class SimulatorCatalogue {
public:
    static inline const QString coreFormulaTap = QStringLiteral("homebrew/core");
    static inline const QString coreCaskTap = QStringLiteral("homebrew/cask");

    // dataFolder holds formula.json and cask.json, used when the state names no catalogue.
    SimulatorCatalogue(const SimulatorState& state, const QString& dataFolder);

    // Reads the catalogue files; false with an error text when one is missing or not a JSON array.
    bool load(QString* error);

    // By bare token or by "owner/tap/token"; each record carries its "tap".
    std::optional<QJsonObject> formula(const QString& name) const;
    std::optional<QJsonObject> cask(const QString& name) const;

    QList<QJsonObject> formulaeOfTap(const QString& tap) const;
    QList<QJsonObject> casksOfTap(const QString& tap) const;

    static bool isCoreTap(const QString& tap) { return tap == coreFormulaTap || tap == coreCaskTap; }

private:
    struct Index {
        QList<QJsonObject> records;
        QHash<QString, qsizetype> byName;
    };

    static std::optional<QJsonObject> find(const Index& index, const QString& name);
    static void add(Index& index, QJsonObject record, const QString& key, const QString& tap);

    const SimulatorState& m_state;
    QString m_dataFolder;
    Index m_formulae;
    Index m_casks;
};
