// The brew simulator's whole memory: what is installed, outdated and tapped, where its package records come from and
// which faults to stage. It lives in <prefix>/.brew-simulator/state.json; every key is optional.
//
//     {
//       "homebrewVersion": "4.3.0",            also written as <prefix>/.git/refs/tags/<version>
//       "commandsVersion": "1.0.0",            tag of the companion tap's clone once "tesselworks/corvel-cmd" is tapped
//       "taps": ["homebrew/cask", "homebrew/core"],
//       "formulae": {                          installed formulae; a bare version string is short for on-request
//         "wget": {"version": "1.21.1", "tap": "homebrew/core", "dependencies": ["openssl@3"],
//                  "installedOnRequest": true, "installedTime": 1704067200, "oldVersions": ["1.20"]}
//       },
//       "casks": {                             installed casks; a bare version string works here too
//         "opera": {"version": "134.0", "tap": "homebrew/cask", "appdir": "/Apps", "fontdir": "/Fonts",
//                   "installedTime": 1704067200}
//       },
//       "outdated": {"formulae": {"wget": "1.24.5"}, "casks": {"opera": "135.0"}},   token -> newer version
//       "pendingUpdates": {"formulae": {...}, "casks": {...}},  what the next "update" finds; merged into "outdated"
//       "lastUpdate": "2024-01-01T12:00:00Z",  the last successful "update", absent before the first
//       "downloads": ["wget--1.21.1"],         the download cache that "cleanup" empties
//       "catalogue": {"formulae": "/path/formula.json", "casks": "/path/cask.json"},  Homebrew's /api/ format
//       "tapRecords": {"localtest/tools": {"formulae": [...], "casks": [...]}},  records of non-core taps
//       "faults": {"failTokens": [...], "failCommands": [...], "exitAfterOutput": 1, "stderrOnly": true,
//                  "invalidUtf8": true, "delayMs": 50, "sudo": ["install"]}
//     }
//
// Leaves are not stored: they are the formulae installed on request that no other installed formula depends on.
#pragma once

#include <QDateTime>
#include <QJsonObject>
#include <QMap>
#include <QString>
#include <QStringList>
#include <functional>
#include <optional>

struct SimulatorFaults {
    QStringList failTokens;
    QStringList failCommands;
    std::optional<int> exitAfterOutput;
    bool stderrOnly = false;
    bool invalidUtf8 = false;
    int delayMs = 0;
    QStringList sudo;
};

struct SimulatorState {
    struct Formula {
        QString version;
        QString tap;
        QStringList dependencies;
        bool installedOnRequest = true;
        qint64 installedTime = 0;
        QStringList oldVersions;
    };
    struct Cask {
        QString version;
        QString tap;
        QString appdir;
        QString fontdir;
        qint64 installedTime = 0;
    };

    QString homebrewVersion = QStringLiteral("4.3.0");
    QString commandsVersion = QStringLiteral("1.0.0");
    QStringList taps{QStringLiteral("homebrew/cask"), QStringLiteral("homebrew/core")};
    QMap<QString, Formula> formulae;
    QMap<QString, Cask> casks;
    QMap<QString, QString> outdatedFormulae;
    QMap<QString, QString> outdatedCasks;
    QMap<QString, QString> pendingFormulae;
    QMap<QString, QString> pendingCasks;
    std::optional<QDateTime> lastUpdate;
    QStringList downloads;
    QString formulaCatalogue;
    QString caskCatalogue;
    QJsonObject tapRecords;
    QJsonObject faultsObject;
    // Keys this version does not know, kept so that a rewrite loses nothing.
    QJsonObject otherKeys;

    // Keeps the downloaded archive of token at version in the cache that "cleanup" empties.
    void rememberDownload(const QString& token, const QString& version)
    {
        const QString download = token + QStringLiteral("--") + version;
        if (!downloads.contains(download)) {
            downloads.append(download);
        }
    }

    static SimulatorState fromJson(const QJsonObject& object);
    QJsonObject toJson() const;

    SimulatorFaults faults() const;
    bool isTapped(const QString& tap) const { return taps.contains(tap); }
    // Installed on request and needed by no other installed formula.
    QStringList leaves() const;
    // The installed formulae that depend on token.
    QStringList dependents(const QString& token) const;
    // Formulae installed as dependencies that nothing installed needs any more, repeatedly, in removal order.
    QStringList unneededFormulae() const;

    // Reads the file; a missing file gives the initial state, a damaged one an error text.
    static std::optional<SimulatorState> load(const QString& path, QString* error);
    bool save(const QString& path, QString* error) const;
    // Applies change to the state as it is on disk at this moment, under the state's lock, and writes it back, so that
    // concurrent invocations never lose each other's changes.
    static bool update(const QString& path, const std::function<void(SimulatorState&)>& change, QString* error);
    // Makes the folders that Homebrew's users read agree with the state: the version tag, one clone folder per tap,
    // the companion tap's tag.
    void writeFolders(const QString& prefix) const;
};
