#include "FakeAgentTools.h"
#include "LogCapture.h"
#include "foundation/Bundle.h"
#include "foundation/PropertyList.h"
#include "operations/AgentDefinition.h"
#include "operations/AgentError.h"
#include "operations/LaunchdAgentService.h"
#include "operations/MaintenanceAgent.h"
#include "operations/MaintenanceJob.h"
#include "operations/SystemdAgentService.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <unistd.h>

namespace {

const QString updatePlist = "works.tessel.corvel.update.agent.plist";
const QString updateLabel = "works.tessel.corvel.update.agent";
const QString updateTimer = updateLabel + ".timer";

// What systemd must receive to run the bundle's update definition: every '$' doubled, every '"' escaped.
const QString updateExecStart = "ExecStart=\"/bin/sh\" \"-c\" \"for prefix in /opt/homebrew /usr/local/homebrew; do if "
                                "[ -d \\\"$$prefix\\\" ]; then "
                                "exec \\\"$$prefix/bin/brew\\\" \\\"$$@\\\"; fi; done; echo \\\"Homebrew not found\\\" "
                                ">&2; exit 1\" \"brew\" \"update\"";

QString readFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

QStringList loggedTexts(const LogCapture& log, QtMsgType type)
{
    QStringList result;
    for (const auto& line : log.lines()) {
        if (line.type == type) {
            result.append(line.text);
        }
    }
    return result;
}

QStringList orNone(const QString& error)
{
    return error.isEmpty() ? QStringList() : QStringList{error};
}

QString resourceDefinition(const QString& plistName)
{
    return QStringLiteral(CORVEL_RESOURCES_SOURCE_DIR) + "/LaunchAgents/" + plistName;
}

} // namespace

class TestAgents : public QObject {
    Q_OBJECT

    QString unitFolder() const { return m_root->filePath("config/systemd/user"); }
    QString tools() const { return m_root->filePath("tools"); }
    QString agentsFolder() const { return m_root->filePath("LaunchAgents"); }
    QStringList calls(const QString& tool) const
    {
        return readFile(m_root->filePath("tools/" + tool + ".log")).split(u'\n', Qt::SkipEmptyParts);
    }
    // From now on every call of that verb fails with this complaint on standard error.
    bool failVerb(const QString& verb, const QByteArray& complaint)
    {
        return FakeAgentTools::writeFile(m_root->filePath("tools/fail-" + verb), complaint);
    }
    void clearCalls()
    {
        QFile::remove(m_root->filePath("tools/systemctl.log"));
        QFile::remove(m_root->filePath("tools/launchctl.log"));
    }
    std::unique_ptr<MaintenanceAgent> systemdAgent(const QString& plistName = updatePlist)
    {
        return std::make_unique<MaintenanceAgent>(std::make_unique<SystemdAgentService>(plistName, *m_bundle));
    }

    std::unique_ptr<QTemporaryDir> m_root;
    std::unique_ptr<Bundle> m_bundle;
    QByteArray m_path;
    QByteArray m_configHome;
    QByteArray m_runtimeDir;

private Q_SLOTS:
    void init()
    {
        m_root = std::make_unique<QTemporaryDir>();
        QVERIFY(m_root->isValid());
        // A bundle with the application's own update definition.
        const QString bundleFolder = m_root->filePath("bundle");
        QVERIFY(QDir().mkpath(bundleFolder + "/LaunchAgents"));
        QVERIFY(QFile::copy(resourceDefinition(updatePlist), bundleFolder + "/LaunchAgents/" + updatePlist));
        QVERIFY(FakeAgentTools::writeFile(
            bundleFolder + "/Info.plist",
            PropertyList::serialize(QVariantMap{{"CFBundleIdentifier", "works.tessel.corvel"}})));
        m_bundle = std::make_unique<Bundle>(bundleFolder);

        QVERIFY(FakeAgentTools::writeFile(tools() + "/systemctl", FakeAgentTools::systemctl(), true));
        QVERIFY(FakeAgentTools::writeFile(tools() + "/launchctl", FakeAgentTools::launchctl(), true));
        m_path = qgetenv("PATH");
        m_configHome = qgetenv("XDG_CONFIG_HOME");
        m_runtimeDir = qgetenv("XDG_RUNTIME_DIR");
        qputenv("PATH", QFile::encodeName(tools()) + ':' + m_path);
        qputenv("XDG_CONFIG_HOME", QFile::encodeName(m_root->filePath("config")));
        // Never the real user's service manager.
        QCOMPARE(QStandardPaths::findExecutable("systemctl"), tools() + "/systemctl");
        QCOMPARE(QStandardPaths::findExecutable("launchctl"), tools() + "/launchctl");
        QCOMPARE(SystemdAgentService::defaultUnitFolder(), unitFolder());
    }

    void cleanup()
    {
        qputenv("PATH", m_path);
        m_configHome.isNull() ? qunsetenv("XDG_CONFIG_HOME") : qputenv("XDG_CONFIG_HOME", m_configHome);
        m_runtimeDir.isNull() ? qunsetenv("XDG_RUNTIME_DIR") : qputenv("XDG_RUNTIME_DIR", m_runtimeDir);
        m_bundle.reset();
        m_root.reset();
    }

    void bundleDefinitions_data()
    {
        QTest::addColumn<MaintenanceJob::Kind>("kind");
        QTest::addColumn<QString>("plistName");

        QTest::newRow("update") << MaintenanceJob::Update << "works.tessel.corvel.update.agent.plist";
        QTest::newRow("cleanup") << MaintenanceJob::Cleanup << "works.tessel.corvel.cleanup.agent.plist";
        QTest::newRow("autoremove") << MaintenanceJob::Autoremove << "works.tessel.corvel.autoremove.agent.plist";
    }

    void bundleDefinitions()
    {
        QFETCH(MaintenanceJob::Kind, kind);
        QFETCH(QString, plistName);

        QCOMPARE(MaintenanceJob::agentPlistName(kind), plistName);
        const auto definition = AgentDefinition::read(resourceDefinition(plistName));
        QVERIFY2(definition, qPrintable(definition ? QString() : definition.error().description()));
        QCOMPARE(definition.value().label() + ".plist", plistName);
        // The job's own brew vector, once a day.
        const QStringList arguments = definition.value().programArguments();
        QCOMPARE(arguments.mid(arguments.size() - MaintenanceJob::arguments(kind).size()),
                 MaintenanceJob::arguments(kind));
        QCOMPARE(definition.value().calendarIntervals().size(), 1);
        const auto interval = definition.value().calendarIntervals().constFirst();
        QVERIFY(interval.hour && interval.minute && !interval.day && !interval.weekday && !interval.month);

        // Both Homebrew prefixes, in their order, and nothing else: the shell's candidates are the application's.
        QVERIFY(arguments.join(u' ').contains("for prefix in /opt/homebrew /usr/local/homebrew;"));
        QProcess shell;
        shell.start("/bin/sh", {"-n", "-c", arguments.at(2)});
        QVERIFY(shell.waitForFinished());
        QCOMPARE(shell.exitCode(), 0);

        // The units generated from it must pass systemd's own verification, where systemd is at hand.
        const QString analyzer = QStandardPaths::findExecutable("systemd-analyze");
        if (analyzer.isEmpty()) {
            return;
        }
        const QString base = m_root->filePath("verify/") + definition.value().label();
        QVERIFY(FakeAgentTools::writeFile(base + ".service",
                                          SystemdAgentService::serviceUnit(definition.value(), plistName).toUtf8()));
        QVERIFY(FakeAgentTools::writeFile(base + ".timer",
                                          SystemdAgentService::timerUnit(definition.value(), plistName).toUtf8()));
        qputenv("XDG_RUNTIME_DIR", QFile::encodeName(m_root->path()));
        QProcess verify;
        verify.start(analyzer, {"verify", "--user", "--man=no", base + ".timer", base + ".service"});
        QVERIFY(verify.waitForFinished());
        const QString complaints = QString::fromUtf8(verify.readAllStandardError());
        QVERIFY2(verify.exitCode() == 0 && complaints.isEmpty(), qPrintable(complaints));
    }

    void invalidDefinitions_data()
    {
        QTest::addColumn<QVariant>("plist");
        QTest::addColumn<QString>("complaint");

        const QVariantMap valid{{"Label", "works.example.agent"},
                                {"ProgramArguments", QVariantList{"/usr/bin/true"}},
                                {"StartCalendarInterval", QVariantMap{{"Hour", 3}}}};
        const auto with = [&valid](const QString& key, const QVariant& value) {
            QVariantMap changed = valid;
            value.isValid() ? void(changed.insert(key, value)) : void(changed.remove(key));
            return QVariant(changed);
        };
        const QString calendar = "StartCalendarInterval";

        QTest::newRow("not a dictionary") << QVariant(QVariantList{}) << "not a dictionary";
        QTest::newRow("no label") << with("Label", {}) << "Label";
        QTest::newRow("no program") << with("ProgramArguments", {}) << "ProgramArguments";
        QTest::newRow("program not a text") << with("ProgramArguments", QVariantList{qint64(1)}) << "texts only";
        QTest::newRow("relative program") << with("ProgramArguments", QVariantList{"brew"}) << "not an absolute path";
        QTest::newRow("no schedule") << with(calendar, {}) << "StartCalendarInterval is missing";
        QTest::newRow("hour 24") << with(calendar, QVariantMap{{"Hour", qint64(24)}})
                                 << "Hour must be an integer from 0 to 23";
        QTest::newRow("minute as text") << with(calendar, QVariantMap{{"Minute", "5"}}) << "Minute must be an integer";
        QTest::newRow("unknown calendar key")
            << with(calendar, QVariantMap{{"Second", qint64(5)}}) << "unknown key Second";
        QTest::newRow("nice out of range") << with("Nice", qint64(40)) << "Nice";
    }

    void invalidDefinitions()
    {
        QFETCH(QVariant, plist);
        QFETCH(QString, complaint);

        const QString path = m_root->filePath("definition.plist");
        QVERIFY(FakeAgentTools::writeFile(path, PropertyList::serialize(plist)));
        const auto definition = AgentDefinition::read(path);
        QVERIFY(!definition);
        QVERIFY(definition.error().is(AgentError::domain(), AgentError::invalidDefinition));
        QVERIFY2(definition.error().description().contains(complaint), qPrintable(definition.error().description()));
    }

    void execWords_data()
    {
        QTest::addColumn<QString>("argument");
        QTest::addColumn<QString>("word");
        const auto row = [](const char* name, const QString& argument, const QString& word) {
            QTest::newRow(name) << argument << word;
        };

        row("plain", "/bin/sh", "\"/bin/sh\"");
        row("dollar", "$HOME/${X}", "\"$$HOME/$${X}\"");
        row("percent specifier", "100%h", "\"100%%h\"");
        row("quotes and backslash", "say \"a\\b\"", "\"say \\\"a\\\\b\\\"\"");
        row("newline and tab", "a\nb\tc", "\"a\\nb\\tc\"");
        row("control character", QString("bell") + QChar(7), "\"bell\\x07\"");
        row("lone semicolon", ";", "\";\"");
    }

    void execWords()
    {
        QFETCH(QString, argument);
        QFETCH(QString, word);
        QCOMPARE(SystemdAgentService::execWord(argument), word);
    }

    void calendars_data()
    {
        QTest::addColumn<QVariantMap>("interval");
        QTest::addColumn<QString>("expression");

        QTest::newRow("daily") << QVariantMap{{"Hour", 11}, {"Minute", 0}} << "*-*-* 11:00:00";
        QTest::newRow("hourly") << QVariantMap{{"Minute", 30}} << "*-*-* *:30:00";
        QTest::newRow("weekly on Sunday as 0")
            << QVariantMap{{"Weekday", 0}, {"Hour", 9}, {"Minute", 5}} << "Sun *-*-* 09:05:00";
        QTest::newRow("monthly") << QVariantMap{{"Day", 1}, {"Hour", 4}, {"Minute", 15}} << "*-*-01 04:15:00";
        QTest::newRow("yearly") << QVariantMap{{"Month", 12}, {"Day", 31}, {"Hour", 23}, {"Minute", 59}}
                                << "*-12-31 23:59:00";
    }

    void calendars()
    {
        QFETCH(QVariantMap, interval);
        QFETCH(QString, expression);

        const auto definition = AgentDefinition::fromPropertyList(QVariantMap{
            {"Label", "a"}, {"ProgramArguments", QVariantList{"/bin/true"}}, {"StartCalendarInterval", interval}});
        QVERIFY(definition);
        QCOMPARE(definition.value().calendarIntervals().size(), 1);
        QCOMPARE(SystemdAgentService::onCalendar(definition.value().calendarIntervals().constFirst()), expression);

        // systemd itself must read the expression.
        if (const QString analyzer = QStandardPaths::findExecutable("systemd-analyze"); !analyzer.isEmpty()) {
            QProcess check;
            check.start(analyzer, {"calendar", expression});
            QVERIFY(check.waitForFinished());
            QVERIFY2(check.exitCode() == 0, qPrintable(QString::fromUtf8(check.readAllStandardError())));
        }
    }

    void systemdRegistration_data()
    {
        QTest::addColumn<QString>("failingVerb"); // "-" for no systemctl at all
        QTest::addColumn<QStringList>("calls");
        QTest::addColumn<QString>("error"); // empty when accepted

        const QString reload = "--user daemon-reload";
        const QString enable = "--user enable --now " + updateTimer;
        const QString isEnabled = "--user is-enabled " + updateTimer;
        const QString refused = " failed: Failed to connect to bus: No medium found";
        QTest::newRow("accepted") << "" << QStringList{reload, enable, isEnabled} << "";
        QTest::newRow("enable refused") << "enable" << QStringList{reload, enable, reload, isEnabled}
                                        << "Unable to register agent: systemctl " + enable + refused;
        QTest::newRow("reload refused") << "daemon-reload" << QStringList{reload, reload, isEnabled}
                                        << "Unable to register agent: systemctl " + reload + refused;
        QTest::newRow("no systemctl") << "-" << QStringList{}
                                      << "Unable to register agent: The system tool systemctl was not found";
    }

    void systemdRegistration()
    {
        QFETCH(QString, failingVerb);
        QFETCH(QStringList, calls);
        QFETCH(QString, error);

        auto agent = systemdAgent();
        QVERIFY(!agent->isChecked());
        clearCalls();
        if (failingVerb == "-") {
            QVERIFY(QFile::remove(tools() + "/systemctl"));
            qputenv("PATH", QFile::encodeName(tools()));
        } else if (!failingVerb.isEmpty()) {
            QVERIFY(failVerb(failingVerb, "Failed to connect to bus: No medium found\n"));
        }
        LogCapture log;
        QSignalSpy checkedChanges(agent.get(), &MaintenanceAgent::checkedChanged);

        agent->toggleAgent(true);

        const bool checked = error.isEmpty();
        QCOMPARE(agent->isChecked(), checked);
        QCOMPARE(checkedChanges.size(), 1);
        QCOMPARE(checkedChanges.constFirst().constFirst().toBool(), checked);
        QCOMPARE(this->calls("systemctl"), calls);
        QCOMPARE(loggedTexts(log, QtInfoMsg),
                 checked ? QStringList({"Registering agent", "Agent registered"}) : QStringList{"Registering agent"});
        QCOMPARE(loggedTexts(log, QtWarningMsg), orNone(error));
        QCOMPARE(agent->lastError().has_value(), !checked);

        // Accepted: both units are in the user's systemd folder; refused: neither is left behind.
        const QString servicePath = unitFolder() + "/" + updateLabel + ".service";
        const QString timerPath = unitFolder() + "/" + updateTimer;
        QCOMPARE(QFile::exists(servicePath), checked);
        QCOMPARE(QFile::exists(timerPath), checked);
        if (!checked) {
            return;
        }
        const QStringList serviceLines = readFile(servicePath).split(u'\n');
        for (const QString& line :
             QStringList{"[Service]", "Type=oneshot", updateExecStart, "Nice=10", "IOSchedulingClass=idle"}) {
            QVERIFY2(serviceLines.contains(line), qPrintable(line));
        }
        const QStringList timerLines = readFile(timerPath).split(u'\n');
        QCOMPARE(timerLines.filter("OnCalendar=").join(u'|'), "OnCalendar=*-*-* 11:00:00");
        for (const QString& line : QStringList{"[Timer]", "Persistent=true", "WantedBy=timers.target"}) {
            QVERIFY2(timerLines.contains(line), qPrintable(line));
        }
    }

    void systemdUnregistration_data()
    {
        QTest::addColumn<QString>("situation");
        QTest::addColumn<QStringList>("calls");
        QTest::addColumn<QString>("error");

        const QString disable = "--user disable --now " + updateTimer;
        const QString isEnabled = "--user is-enabled " + updateTimer;
        const QString failed = "Unable to unregister agent: systemctl " + disable + " failed: ";
        QTest::newRow("registered") << "registered" << QStringList{disable, "--user daemon-reload", isEnabled} << "";
        QTest::newRow("removed by the system")
            << "removed" << QStringList{disable, isEnabled}
            << failed + "Failed to disable unit: Unit file " + updateTimer + " does not exist.";
        // The system still runs it: the box goes back on.
        QTest::newRow("disable refused") << "refused" << QStringList{disable, isEnabled} << failed + "Access denied";
    }

    void systemdUnregistration()
    {
        QFETCH(QString, situation);
        QFETCH(QStringList, calls);
        QFETCH(QString, error);

        auto agent = systemdAgent();
        agent->toggleAgent(true);
        QVERIFY(agent->isChecked());
        if (situation == "removed") {
            // Someone else took the units away behind the application's back.
            QVERIFY(QFile::remove(unitFolder() + "/" + updateTimer));
            QVERIFY(QFile::remove(unitFolder() + "/" + updateLabel + ".service"));
        } else if (situation == "refused") {
            QVERIFY(failVerb("disable", "Access denied\n"));
        }
        clearCalls();
        LogCapture log;

        agent->toggleAgent(false);

        QCOMPARE(agent->isChecked(), situation == "refused");
        QCOMPARE(this->calls("systemctl"), calls);
        QCOMPARE(loggedTexts(log, QtInfoMsg), error.isEmpty()
                                                  ? QStringList({"Unregistering agent", "Agent unregistered"})
                                                  : QStringList{"Unregistering agent"});
        QCOMPARE(loggedTexts(log, QtWarningMsg), orNone(error));
        QCOMPARE(QFile::exists(unitFolder() + "/" + updateTimer), situation == "refused");
    }

    void statusIsAskedOfTheSystem()
    {
        auto agent = systemdAgent();
        agent->toggleAgent(true);
        QVERIFY(agent->isChecked());

        // Another program disables the timer; the next look shows it, no stored state says otherwise.
        QVERIFY(QFile::remove(tools() + "/enabled-" + updateTimer));
        agent->refresh();
        QVERIFY(!agent->isChecked());
        QCOMPARE(agent->status(), AgentService::Status::NotRegistered);

        // A new tab over the same agent reads the same.
        QVERIFY(FakeAgentTools::writeFile(tools() + "/enabled-" + updateTimer, {}));
        QVERIFY(systemdAgent()->isChecked());
    }

    void missingDefinition()
    {
        auto agent = systemdAgent("works.tessel.corvel.unknown.agent.plist");
        QCOMPARE(agent->status(), AgentService::Status::NotFound);
        clearCalls();
        LogCapture log;

        agent->toggleAgent(true);

        QVERIFY(!agent->isChecked());
        QVERIFY(calls("systemctl").isEmpty());
        QVERIFY(agent->lastError());
        QCOMPARE(agent->lastError()->code(), int(AgentError::definitionNotFound));
        QCOMPARE(loggedTexts(log, QtWarningMsg),
                 QStringList{"Unable to register agent: The agent definition works.tessel.corvel.unknown.agent.plist "
                             "is missing from the application"});
        QVERIFY(QDir(unitFolder()).isEmpty());
    }

    // Registers, then (when registered) unregisters, through launchctl.
    void launchd_data()
    {
        QTest::addColumn<bool>("refuseBootstrap");
        QTest::addColumn<bool>("alreadyGone"); // launchd unloaded it before the person unticked the box
        QTest::addColumn<QString>("error");

        QTest::newRow("accepted, then removed") << false << false << "";
        QTest::newRow("bootstrap refused") << true << false
                                           << "Unable to register agent: launchctl bootstrap DOMAIN PATH failed: "
                                              "Bootstrap failed: 5: Input/output error";
        QTest::newRow("already unloaded by the system")
            << false << true
            << "Unable to unregister agent: launchctl bootout DOMAIN/LABEL failed: Boot-out failed: 3: No such process";
    }

    void launchd()
    {
        QFETCH(bool, refuseBootstrap);
        QFETCH(bool, alreadyGone);
        QFETCH(QString, error);

        const QString installed = agentsFolder() + "/" + updatePlist;
        const QString domain = QStringLiteral("gui/%1").arg(getuid());
        const QString service = domain + "/" + updateLabel;
        error.replace("DOMAIN", domain).replace("PATH", installed).replace("LABEL", updateLabel);
        MaintenanceAgent agent(std::make_unique<LaunchdAgentService>(updatePlist, *m_bundle, agentsFolder()));
        QVERIFY(!agent.isChecked());
        clearCalls();
        if (refuseBootstrap) {
            QVERIFY(failVerb("bootstrap", "Bootstrap failed: 5: Input/output error\n"));
        }
        std::optional<LogCapture> log(std::in_place);

        agent.toggleAgent(true);

        QCOMPARE(calls("launchctl"), QStringList({"bootstrap " + domain + " " + installed, "print " + service}));
        QCOMPARE(agent.isChecked(), !refuseBootstrap);
        QCOMPARE(QFile::exists(installed), !refuseBootstrap);
        if (refuseBootstrap) {
            QCOMPARE(loggedTexts(*log, QtWarningMsg), QStringList{error});
            return;
        }
        QVERIFY(loggedTexts(*log, QtWarningMsg).isEmpty());
        // The installed list is the bundle's definition, tied to the application.
        const auto written = PropertyList::read(installed);
        const auto original = PropertyList::read(resourceDefinition(updatePlist));
        QVERIFY(written && original);
        QVariantMap expected = original.value().toMap();
        expected.insert("AssociatedBundleIdentifiers", QVariantList{"works.tessel.corvel"});
        QCOMPARE(written.value().toMap(), expected);

        if (alreadyGone) {
            QVERIFY(QFile::remove(tools() + "/loaded-" + updateLabel));
        }
        clearCalls();
        log.emplace();

        agent.toggleAgent(false);

        QCOMPARE(calls("launchctl"), QStringList({"bootout " + service, "print " + service}));
        QVERIFY(!agent.isChecked());
        QCOMPARE(loggedTexts(*log, QtWarningMsg), orNone(error));
        // Left in place, launchd would load it again at the next login.
        QVERIFY(!QFile::exists(installed));
    }
};

QTEST_GUILESS_MAIN(TestAgents)
#include "TestAgents.moc"
