#include "operations/SystemdAgentService.h"

#include <QFile>
#include <QStandardPaths>

namespace {

const QString systemctl = QStringLiteral("systemctl");

QString header(const QString& source)
{
    return QStringLiteral("# Made by Corvel X from %1; removed again when its agent is switched off.\n").arg(source);
}

// Unit files expand "%" specifiers everywhere.
QString withoutSpecifiers(QString text)
{
    return text.replace(u'%', QStringLiteral("%%"));
}

QString field(const std::optional<int>& value)
{
    return value ? QStringLiteral("%1").arg(*value, 2, 10, QChar(u'0')) : QStringLiteral("*");
}

} // namespace

SystemdAgentService::SystemdAgentService(const QString& plistName, const Bundle& bundle, const QString& unitFolder)
    : AgentService(plistName, bundle)
    , m_unitFolder(unitFolder)
{}

QString SystemdAgentService::defaultUnitFolder()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + QStringLiteral("/systemd/user");
}

QString SystemdAgentService::unitFolder() const
{
    return m_unitFolder.isEmpty() ? defaultUnitFolder() : m_unitFolder;
}

QString SystemdAgentService::serviceName() const
{
    return label() + QStringLiteral(".service");
}

QString SystemdAgentService::timerName() const
{
    return label() + QStringLiteral(".timer");
}

AgentService::Status SystemdAgentService::status() const
{
    if (!hasDefinition()) {
        return Status::NotFound;
    }
    const auto run = runTool(systemctl, {QStringLiteral("--user"), QStringLiteral("is-enabled"), timerName()});
    // "disabled", "not-found", "masked", no systemd at all: none of them runs the agent.
    const bool enabled = run && run.value().exitCode == 0 && run.value().output.trimmed() == QStringLiteral("enabled");
    return enabled ? Status::Enabled : Status::NotRegistered;
}

Result<void> SystemdAgentService::registerAgent()
{
    const auto defined = definition();
    if (!defined) {
        return defined.error();
    }
    const QString folder = unitFolder();
    if (auto written = writeFile(folder + u'/' + serviceName(), serviceUnit(defined.value(), plistName()).toUtf8());
        !written) {
        return written;
    }
    if (auto written = writeFile(folder + u'/' + timerName(), timerUnit(defined.value(), plistName()).toUtf8());
        !written) {
        removeUnits();
        return written;
    }
    Result<void> enabled = runToolChecked(systemctl, {QStringLiteral("--user"), QStringLiteral("daemon-reload")});
    if (enabled) {
        enabled = runToolChecked(
            systemctl, {QStringLiteral("--user"), QStringLiteral("enable"), QStringLiteral("--now"), timerName()});
    }
    if (!enabled) {
        // Units that systemd would not take must not linger to be found by a later reload.
        removeUnits();
        runTool(systemctl, {QStringLiteral("--user"), QStringLiteral("daemon-reload")});
    }
    return enabled;
}

Result<void> SystemdAgentService::unregisterAgent()
{
    if (auto disabled = runToolChecked(
            systemctl, {QStringLiteral("--user"), QStringLiteral("disable"), QStringLiteral("--now"), timerName()});
        !disabled) {
        return disabled;
    }
    removeUnits();
    // The timer is stopped and disabled already; a failed reload only delays systemd's forgetting the files.
    runTool(systemctl, {QStringLiteral("--user"), QStringLiteral("daemon-reload")});
    return {};
}

void SystemdAgentService::removeUnits() const
{
    const QString folder = unitFolder();
    QFile::remove(folder + u'/' + timerName());
    QFile::remove(folder + u'/' + serviceName());
}

QString SystemdAgentService::serviceUnit(const AgentDefinition& definition, const QString& source)
{
    QStringList words;
    for (const QString& argument : definition.programArguments()) {
        words.append(execWord(argument));
    }
    QString unit = header(source);
    unit += QStringLiteral("[Unit]\nDescription=Corvel X agent %1\n\n").arg(withoutSpecifiers(definition.label()));
    unit += QStringLiteral("[Service]\nType=oneshot\nExecStart=%1\n").arg(words.join(u' '));
    if (const auto nice = definition.nice()) {
        unit += QStringLiteral("Nice=%1\n").arg(*nice);
    }
    if (definition.lowPriorityIO()) {
        unit += QStringLiteral("IOSchedulingClass=idle\n");
    }
    return unit;
}

QString SystemdAgentService::timerUnit(const AgentDefinition& definition, const QString& source)
{
    QString unit = header(source);
    unit += QStringLiteral("[Unit]\nDescription=Schedule of the Corvel X agent %1\n\n")
                .arg(withoutSpecifiers(definition.label()));
    unit += QStringLiteral("[Timer]\n");
    for (const auto& interval : definition.calendarIntervals()) {
        unit += QStringLiteral("OnCalendar=%1\n").arg(onCalendar(interval));
    }
    // Like launchd, which runs a calendar job missed while the machine slept once it wakes.
    unit += QStringLiteral("Persistent=true\n\n");
    unit += QStringLiteral("[Install]\nWantedBy=timers.target\n");
    return unit;
}

QString SystemdAgentService::execWord(const QString& argument)
{
    QString word = QStringLiteral("\"");
    for (const QChar c : argument) {
        switch (c.unicode()) {
        case u'\\':
            word += QStringLiteral("\\\\");
            break;
        case u'"':
            word += QStringLiteral("\\\"");
            break;
        case u'\n':
            word += QStringLiteral("\\n");
            break;
        case u'\t':
            word += QStringLiteral("\\t");
            break;
        case u'%':
            word += QStringLiteral("%%");
            break;
        case u'$':
            // Environment variables are expanded in every word; "$$" is a plain dollar.
            word += QStringLiteral("$$");
            break;
        default:
            if (c.unicode() < 0x20 || c.unicode() == 0x7f) {
                word += QStringLiteral("\\x%1").arg(c.unicode(), 2, 16, QChar(u'0'));
            } else {
                word += c;
            }
        }
    }
    return word + u'"';
}

QString SystemdAgentService::onCalendar(const AgentDefinition::CalendarInterval& interval)
{
    static const char* const weekdays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat", "Sun"};
    QString expression;
    if (interval.weekday) {
        expression = QLatin1StringView(weekdays[*interval.weekday]) + u' ';
    }
    expression += QStringLiteral("*-%1-%2 %3:%4:00")
                      .arg(field(interval.month), field(interval.day), field(interval.hour), field(interval.minute));
    return expression;
}
