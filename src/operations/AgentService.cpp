#include "operations/AgentService.h"

#include "foundation/Bundle.h"
#include "operations/AgentError.h"
#include "operations/LaunchdAgentService.h"
#include "operations/SystemdAgentService.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QSaveFile>
#include <QStandardPaths>

namespace {

// Registering runs on the GUI thread: a service manager that does not answer must not hang the application.
constexpr int toolTimeoutMs = 30000;

} // namespace

AgentService::AgentService(const QString& plistName, const Bundle& bundle)
    : m_plistName(plistName)
    , m_bundle(bundle)
{}

std::unique_ptr<AgentService> AgentService::agentServiceWithPlistName(const QString& plistName, const Bundle& bundle)
{
#ifdef Q_OS_MACOS
    return std::make_unique<LaunchdAgentService>(plistName, bundle);
#else
    return std::make_unique<SystemdAgentService>(plistName, bundle);
#endif
}

QString AgentService::label() const
{
    const QString suffix = QStringLiteral(".plist");
    return m_plistName.endsWith(suffix) ? m_plistName.chopped(suffix.size()) : m_plistName;
}

bool AgentService::hasDefinition() const
{
    return m_bundle.pathForResource(definitionsFolder + u'/' + m_plistName).has_value();
}

Result<AgentDefinition> AgentService::definition() const
{
    const auto path = m_bundle.pathForResource(definitionsFolder + u'/' + m_plistName);
    if (!path) {
        return AgentError::make(AgentError::definitionNotFound, m_plistName);
    }
    auto read = AgentDefinition::read(*path);
    if (read && read.value().label() != label()) {
        // The system knows the agent by its label and the application finds it by its file name: they must agree.
        return AgentError::make(AgentError::invalidDefinition,
                                QStringLiteral("the Label of %1 is %2").arg(m_plistName, read.value().label()));
    }
    return read;
}

Result<AgentService::ToolRun> AgentService::runTool(const QString& tool, const QStringList& arguments)
{
    const QString program = QStandardPaths::findExecutable(tool);
    if (program.isEmpty()) {
        return AgentError::make(AgentError::toolNotFound, tool);
    }
    const QString command = (QStringList{tool} + arguments).join(u' ');
    QProcess process;
    process.setProgram(program);
    process.setArguments(arguments);
    process.start();
    if (!process.waitForStarted(toolTimeoutMs)) {
        return AgentError::make(AgentError::commandFailed,
                                QStringLiteral("%1: %2").arg(command, process.errorString()));
    }
    if (!process.waitForFinished(toolTimeoutMs)) {
        process.kill();
        process.waitForFinished();
        return AgentError::make(AgentError::commandFailed, QStringLiteral("%1 did not finish").arg(command));
    }
    if (process.exitStatus() != QProcess::NormalExit) {
        return AgentError::make(AgentError::commandFailed, QStringLiteral("%1 crashed").arg(command));
    }
    return ToolRun{process.exitCode(), QString::fromUtf8(process.readAllStandardOutput()),
                   QString::fromUtf8(process.readAllStandardError())};
}

Result<void> AgentService::runToolChecked(const QString& tool, const QStringList& arguments)
{
    const auto run = runTool(tool, arguments);
    if (!run) {
        return run.error();
    }
    if (run.value().exitCode != 0) {
        const QString command = (QStringList{tool} + arguments).join(u' ');
        const QString complaint = run.value().errorOutput.trimmed();
        return AgentError::make(AgentError::commandFailed,
                                complaint.isEmpty()
                                    ? QStringLiteral("%1 failed with status %2").arg(command).arg(run.value().exitCode)
                                    : QStringLiteral("%1 failed: %2").arg(command, complaint));
    }
    return {};
}

Result<void> AgentService::writeFile(const QString& path, const QByteArray& content)
{
    const QString shown = QDir::toNativeSeparators(path);
    if (!QDir().mkpath(QFileInfo(path).absolutePath())) {
        return AgentError::make(AgentError::unableToWrite, QStringLiteral("%1: the folder cannot be made").arg(shown));
    }
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size() || !file.commit()) {
        return AgentError::make(AgentError::unableToWrite, QStringLiteral("%1: %2").arg(shown, file.errorString()));
    }
    return {};
}
