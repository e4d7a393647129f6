// A throw-away Homebrew answered by the brew simulator, with a runner that has its own activity centre, transcript
// and (empty) bundle. Tests that need the Askpass resource add it to `resources`.
#pragma once

#include "activities/ActivityCenter.h"
#include "activities/Transcript.h"
#include "foundation/Bundle.h"
#include "homebrew/HomebrewCommands.h"
#include "homebrew/HomebrewInstallation.h"
#include "homebrew/SimulatedHomebrew.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonObject>
#include <QTemporaryDir>
#include <optional>

struct HomebrewFixture {
    QTemporaryDir root;
    QTemporaryDir resources;
    Homebrew::Installation installation{root.path()};
    Bundle bundle{resources.path()};
    ActivityCenter activityCenter;
    Transcript transcript;
    Homebrew::Commands commands{installation, bundle, activityCenter, transcript};
    std::optional<SimulatedHomebrew> brew;

    // Creates the simulated installation under root with this state; false when it could not be made.
    bool simulate(const QJsonObject& state = {})
    {
        auto created = SimulatedHomebrew::create(root.path(), state);
        brew = created ? std::optional(std::move(created.value())) : std::nullopt;
        return brew.has_value();
    }

    // Copies the simulator's own catalogue files into api ("formula.json", "cask.json"), so that a synchronisation
    // reading the public catalogue from there finds the records the simulated brew knows.
    static bool publishSimulatorCatalogue(const QString& api)
    {
        const QString data = QFileInfo(SimulatedHomebrew::defaultSimulatorPath()).absolutePath() +
                             QStringLiteral("/../share/brew-simulator/");
        return QDir().mkpath(api) &&
               QFile::copy(data + QStringLiteral("formula.json"), api + QStringLiteral("/formula.json")) &&
               QFile::copy(data + QStringLiteral("cask.json"), api + QStringLiteral("/cask.json"));
    }
};
