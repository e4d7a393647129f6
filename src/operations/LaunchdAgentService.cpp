#include "operations/LaunchdAgentService.h"

#include "foundation/Bundle.h"
#include "foundation/PropertyList.h"

#include <QDir>
#include <QFile>
#include <unistd.h>

namespace {

const QString launchctl = QStringLiteral("launchctl");

} // namespace

LaunchdAgentService::LaunchdAgentService(const QString& plistName, const Bundle& bundle, const QString& agentsFolder)
    : AgentService(plistName, bundle)
    , m_agentsFolder(agentsFolder)
{}

QString LaunchdAgentService::defaultAgentsFolder()
{
    return QDir::homePath() + QStringLiteral("/Library/LaunchAgents");
}

QString LaunchdAgentService::installedPath() const
{
    return (m_agentsFolder.isEmpty() ? defaultAgentsFolder() : m_agentsFolder) + u'/' + plistName();
}

QString LaunchdAgentService::domainTarget()
{
    return QStringLiteral("gui/%1").arg(getuid());
}

QString LaunchdAgentService::serviceTarget() const
{
    return domainTarget() + u'/' + label();
}

AgentService::Status LaunchdAgentService::status() const
{
    if (!hasDefinition()) {
        return Status::NotFound;
    }
    // launchd loads the user's agents at every login, so a loaded agent is a registered one.
    const auto run = runTool(launchctl, {QStringLiteral("print"), serviceTarget()});
    return run && run.value().exitCode == 0 ? Status::Enabled : Status::NotRegistered;
}

Result<void> LaunchdAgentService::registerAgent()
{
    const auto defined = definition();
    if (!defined) {
        return defined.error();
    }
    const QString path = installedPath();
    if (auto written = writeFile(path, agentPropertyList(defined.value(), bundle())); !written) {
        return written;
    }
    auto loaded = runToolChecked(launchctl, {QStringLiteral("bootstrap"), domainTarget(), path});
    if (!loaded) {
        // Left in LaunchAgents, launchd would load it at the next login after all.
        QFile::remove(path);
    }
    return loaded;
}

Result<void> LaunchdAgentService::unregisterAgent()
{
    const auto unloaded = runToolChecked(launchctl, {QStringLiteral("bootout"), serviceTarget()});
    // Even when launchd no longer knows the agent: left in LaunchAgents, it would be loaded at the next login.
    QFile::remove(installedPath());
    return unloaded;
}

QByteArray LaunchdAgentService::agentPropertyList(const AgentDefinition& definition, const Bundle& bundle)
{
    QVariantMap plist = definition.dictionary();
    if (const auto identifier = bundle.infoString(QStringLiteral("CFBundleIdentifier")); identifier) {
        plist.insert(QStringLiteral("AssociatedBundleIdentifiers"), QVariantList{*identifier});
    }
    return PropertyList::serialize(plist);
}
