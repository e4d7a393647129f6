// The program's own companion repository, tesselworks/corvel-cmd, which adds the brew command that lists the
// packages of non-core repositories: whether it is tapped, which version it has, and its installation.
#pragma once

#include "foundation/Result.h"

#include <QString>
#include <QUrl>
#include <optional>

namespace Homebrew {
class Commands;
class Installation;
} // namespace Homebrew

class CompanionCommands {
public:
    // The name given to brew tap.
    static inline const QString tapName = QStringLiteral("tesselworks/corvel-cmd");
    // The clone inside Homebrew's folder.
    static inline const QString clonePath = QStringLiteral("/Library/Taps/tesselworks/homebrew-corvel-cmd");
    // The command it adds to brew.
    static inline const QString command = QStringLiteral("corvel-tap-content-info");

    // The repository's page on GitHub below githubBase (the bundle's TW_GITHUB_URL), for people to look at.
    static QUrl repositoryPage(const QUrl& githubBase);

    // Both must outlive this object.
    CompanionCommands(const Homebrew::Installation& installation, const Homebrew::Commands& commands);

    // Whether the clone exists; false when Homebrew's location is unknown. Runs no command, only looks at files.
    bool installed() const;

    // The clone's greatest tag name in plain character order (of 1.9 and 1.10 it is 1.9); none without readable
    // tags.
    std::optional<QString> version() const;

    // Runs "tap" "tesselworks/corvel-cmd" silently. Blocks until brew exits, so never on the GUI thread; a launch
    // failure or a non-zero exit is the error.
    Result<void> install() const;

private:
    const Homebrew::Installation& m_installation;
    const Homebrew::Commands& m_commands;
};
