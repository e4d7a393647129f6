#include "operations/CompanionCommands.h"

#include "homebrew/HomebrewCommands.h"
#include "homebrew/HomebrewInstallation.h"

#include <QFileInfo>

CompanionCommands::CompanionCommands(const Homebrew::Installation& installation, const Homebrew::Commands& commands)
    : m_installation(installation)
    , m_commands(commands)
{}

bool CompanionCommands::installed() const
{
    const std::optional<QString> prefix = m_installation.prefix();
    return prefix && QFileInfo::exists(*prefix + clonePath);
}

std::optional<QString> CompanionCommands::version() const
{
    return m_installation.homebrewCommandsVersion();
}

Result<void> CompanionCommands::install() const
{
    return m_commands.runSilently({QStringLiteral("tap"), tapName});
}

QUrl CompanionCommands::repositoryPage(const QUrl& githubBase)
{
    QUrl page = githubBase;
    QString path = page.path();
    while (path.endsWith(QLatin1Char('/'))) {
        path.chop(1);
    }
    page.setPath(path + QStringLiteral("/tesselworks/homebrew-corvel-cmd"));
    return page;
}
