// What one operation on one app or script is made of: what it asks of the record, the brew command it runs, the
// verb its activity and usage event carry, and the log lines and alert texts that report it.
#pragma once

#include "foundation/Error.h"
#include "homebrew/HomebrewLocations.h"

#include <QCoreApplication>
#include <QMetaType>
#include <QString>
#include <QStringList>
#include <optional>

class Package;

class PackageOperation {
    Q_DECLARE_TR_FUNCTIONS(PackageOperation)

public:
    enum class Kind {
        install,
        installInFolder, // an app's install with a folder the person chose
        uninstall,
        upgrade,
        reinstall,
        move, // an app's reinstall into a folder the person chose
    };

    // Apps are Homebrew's casks, scripts its formulae.
    enum class Persona { apps, scripts };

    // Where an app goes when the person chooses its place: an application into an applications folder, a font into
    // a fonts folder.
    enum class Folder { applications, fonts };

    // Whether record offers the operation right now; a busy record offers none. An app moves or installs into a
    // folder only when it is an application or a font, and move is only offered for an installed app.
    static bool isOfferedBy(Kind kind, const Package& record);
    // None for scripts and for apps of any other kind, which cannot be placed in a folder of the person's choosing.
    static std::optional<Folder> folderFor(const Package& record);

    // The brew command, e.g. "install", "--cask", token; the folder options of apps go after it, in order.
    static QStringList arguments(Kind kind, Persona persona, const QString& token);
    // Only apps take folder options, and only when they install or reinstall.
    static QStringList extraArguments(Kind kind, Persona persona, const Homebrew::Locations& locations);

    // The action of the operation's activity: "Install", "Uninstall", "Upgrade" or "Reinstall".
    static QString activityKind(Kind kind);
    // The name of the usage event after success; a move is reported as such although it runs a reinstall.
    static QString eventName(Kind kind);

    // "Installing <token>" and the like, logged when the operation starts.
    static QString startLine(Kind kind, const QString& token);
    // "<token> app installed" and the like.
    static QString successLine(Kind kind, Persona persona, const QString& token);
    // "Unable to install <token>: <error>" and the like.
    static QString failureLine(Kind kind, const QString& token, const Error& error);
    // "Unable to install '<token>'" and the like: the message of the alert that reports a failure.
    static QString failureMessage(Kind kind, const QString& token);
};

Q_DECLARE_METATYPE(PackageOperation::Kind)
