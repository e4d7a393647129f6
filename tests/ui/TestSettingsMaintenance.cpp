// The maintenance settings tabs as a person uses them: the agent checkbox talks to a stand-in systemctl on PATH
// without holding up the window, and the run-now buttons follow the jobs of the simulated Homebrew.
#include "FakeAgentTools.h"
#include "HomebrewFixture.h"
#include "LogCapture.h"
#include "ScriptedAlerter.h"
#include "foundation/Bundle.h"
#include "foundation/Defaults.h"
#include "foundation/PropertyList.h"
#include "operations/Maintenance.h"
#include "operations/MaintenanceJob.h"
#include "ui/SettingsMaintenanceJobViewController.h"
#include "ui/SettingsMaintenanceViewController.h"

#include <QCheckBox>
#include <QDir>
#include <QFile>
#include <QLabel>
#include <QLocale>
#include <QPushButton>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTabWidget>
#include <QTemporaryDir>
#include <QTest>

namespace {

// Agent questions start system tools and jobs start brew; a loaded machine is not a failure.
constexpr int finishTimeout = 60000;

QStringList textsOf(const LogCapture& log, QtMsgType type)
{
    QStringList texts;
    for (const LogCapture::Line& line : log.lines()) {
        if (line.type == type) {
            texts.append(line.text);
        }
    }
    return texts;
}

} // namespace

class TestSettingsMaintenance : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void agentCheckBox_data();
    void agentCheckBox();
    void runNow_data();
    void runNow();

private:
    QString tools() const { return m_root->filePath("tools"); }
    QString timerOf(MaintenanceJob::Kind kind) const
    {
        return MaintenanceJob::agentPlistName(kind).chopped(QStringLiteral(".plist").size()) + ".timer";
    }
    // The agent as the system has it, set up behind the application's back.
    bool registerBehindTheBack(MaintenanceJob::Kind kind)
    {
        const QString timer = timerOf(kind);
        return FakeAgentTools::writeFile(m_root->filePath("config/systemd/user/" + timer), "[Timer]\n") &&
               FakeAgentTools::writeFile(tools() + "/enabled-" + timer, "");
    }
    bool waitForAgent(SettingsMaintenanceJobViewController& tab)
    {
        return QTest::qWaitFor([&] { return !tab.isAgentBusy(); }, finishTimeout);
    }

    std::unique_ptr<QTemporaryDir> m_root;
    std::unique_ptr<Bundle> m_bundle;
    QByteArray m_path;
    QByteArray m_configHome;
};

void TestSettingsMaintenance::init()
{
    m_root = std::make_unique<QTemporaryDir>();
    QVERIFY(m_root->isValid());
    const QString bundleFolder = m_root->filePath("bundle");
    for (MaintenanceJob::Kind kind : {MaintenanceJob::Update, MaintenanceJob::Cleanup, MaintenanceJob::Autoremove}) {
        const QString name = MaintenanceJob::agentPlistName(kind);
        QVERIFY(QDir().mkpath(bundleFolder + "/LaunchAgents"));
        QVERIFY(QFile::copy(QStringLiteral(CORVEL_RESOURCES_SOURCE_DIR "/LaunchAgents/") + name,
                            bundleFolder + "/LaunchAgents/" + name));
    }
    QVERIFY(
        FakeAgentTools::writeFile(bundleFolder + "/Info.plist",
                                  PropertyList::serialize(QVariantMap{{"CFBundleIdentifier", "works.tessel.corvel"}})));
    m_bundle = std::make_unique<Bundle>(bundleFolder);

    QVERIFY(FakeAgentTools::writeFile(tools() + "/systemctl", FakeAgentTools::systemctl(), true));
    m_path = qgetenv("PATH");
    m_configHome = qgetenv("XDG_CONFIG_HOME");
    qputenv("PATH", QFile::encodeName(tools()) + ':' + m_path);
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(m_root->filePath("config")));
    // Never the real user's service manager.
    QCOMPARE(QStandardPaths::findExecutable("systemctl"), tools() + "/systemctl");
}

void TestSettingsMaintenance::cleanup()
{
    qputenv("PATH", m_path);
    m_configHome.isNull() ? qunsetenv("XDG_CONFIG_HOME") : qputenv("XDG_CONFIG_HOME", m_configHome);
    m_bundle.reset();
    m_root.reset();
}

void TestSettingsMaintenance::agentCheckBox_data()
{
    QTest::addColumn<MaintenanceJob::Kind>("kind");
    QTest::addColumn<bool>("registeredBefore");
    QTest::addColumn<QString>("failingVerb");
    QTest::addColumn<bool>("checkedAfter");
    QTest::addColumn<QStringList>("logged");
    QTest::addColumn<QString>("complaint"); // in the warning and the tab's message; empty when none

    const QStringList registering{"Registering agent"};
    const QStringList unregistering{"Unregistering agent"};
    QTest::newRow("update registered") << MaintenanceJob::Update << false << "" << true
                                       << QStringList{"Registering agent", "Agent registered"} << "";
    QTest::newRow("update refused") << MaintenanceJob::Update << false << "enable" << false << registering
                                    << "Failed to connect to bus: No medium found";
    QTest::newRow("cleanup unregistered") << MaintenanceJob::Cleanup << true << "" << false
                                          << QStringList{"Unregistering agent", "Agent unregistered"} << "";
    QTest::newRow("unregistering refused")
        << MaintenanceJob::Update << true << "disable" << true << unregistering << "Access denied";
}

void TestSettingsMaintenance::agentCheckBox()
{
    QFETCH(MaintenanceJob::Kind, kind);
    QFETCH(bool, registeredBefore);
    QFETCH(QString, failingVerb);
    QFETCH(bool, checkedAfter);
    QFETCH(QStringList, logged);
    QFETCH(QString, complaint);

    HomebrewFixture homebrew;
    QTemporaryDir settings;
    Defaults defaults(settings.filePath("settings.ini"));
    ScriptedAlerter alerter;
    Maintenance maintenance(homebrew.commands, defaults, alerter);
    if (registeredBefore) {
        QVERIFY(registerBehindTheBack(kind));
    }
    SettingsMaintenanceViewController view(maintenance, defaults, *m_bundle);
    view.show();
    QVERIFY(QTest::qWaitForWindowExposed(&view));
    SettingsMaintenanceJobViewController* tab = view.jobViewController(kind);
    view.tabWidget()->setCurrentWidget(tab);
    QVERIFY(waitForAgent(*tab));
    QCOMPARE(tab->agentCheckBox()->isChecked(), registeredBefore);

    if (!failingVerb.isEmpty()) {
        QVERIFY(FakeAgentTools::writeFile(tools() + "/fail-" + failingVerb, complaint.toUtf8() + '\n'));
    }
    LogCapture log;
    QSignalSpy shown(tab, &SettingsMaintenanceJobViewController::agentStatusShown);

    QTest::mouseClick(tab->agentCheckBox(), Qt::LeftButton, {}, QPoint(4, tab->agentCheckBox()->height() / 2));

    // The system is asked on a worker: the window is answered at once and the box waits, disabled.
    QVERIFY(tab->isAgentBusy());
    QVERIFY(!tab->agentCheckBox()->isEnabled());
    QVERIFY(shown.wait(finishTimeout));
    QVERIFY(!tab->isAgentBusy());

    QCOMPARE(tab->agentCheckBox()->isChecked(), checkedAfter);
    QCOMPARE(textsOf(log, QtInfoMsg), logged);
    const QStringList warnings = textsOf(log, QtWarningMsg);
    if (complaint.isEmpty()) {
        QCOMPARE(warnings, QStringList());
        QVERIFY(tab->agentMessageLabel()->isHidden());
    } else {
        QCOMPARE(warnings.size(), 1);
        QVERIFY2(warnings.first().startsWith(registeredBefore ? "Unable to unregister agent: "
                                                              : "Unable to register agent: "),
                 qPrintable(warnings.first()));
        QVERIFY2(warnings.first().contains(complaint), qPrintable(warnings.first()));
        // The tab says why, in the window.
        QVERIFY(tab->agentMessageLabel()->isVisible());
        QVERIFY2(tab->agentMessageLabel()->text().contains(complaint), qPrintable(tab->agentMessageLabel()->text()));
    }
    // Usable again, and showing what the system has.
    QVERIFY(tab->agentCheckBox()->isEnabled());
    QCOMPARE(QFile::exists(tools() + "/enabled-" + timerOf(kind)), checkedAfter);
}

void TestSettingsMaintenance::runNow_data()
{
    QTest::addColumn<MaintenanceJob::Kind>("kind");
    QTest::addColumn<bool>("homebrewPresent");
    QTest::addColumn<QString>("alert"); // empty when the job succeeds

    QTest::newRow("update") << MaintenanceJob::Update << true << "";
    QTest::newRow("prune all") << MaintenanceJob::PruneAll << true << "";
    QTest::newRow("prune all without Homebrew") << MaintenanceJob::PruneAll << false << "Unable to perform 'prune all'";
}

void TestSettingsMaintenance::runNow()
{
    QFETCH(MaintenanceJob::Kind, kind);
    QFETCH(bool, homebrewPresent);
    QFETCH(QString, alert);

    HomebrewFixture homebrew;
    if (homebrewPresent) {
        QVERIFY(homebrew.simulate());
    }
    QTemporaryDir settings;
    Defaults defaults(settings.filePath("settings.ini"));
    ScriptedAlerter alerter;
    if (!alert.isEmpty()) {
        alerter.answerNext("OK");
    }
    Maintenance maintenance(homebrew.commands, defaults, alerter);
    SettingsMaintenanceViewController view(maintenance, defaults, *m_bundle);
    view.show();
    QVERIFY(QTest::qWaitForWindowExposed(&view));
    SettingsMaintenanceJobViewController* tab = view.jobViewController(kind);
    view.tabWidget()->setCurrentWidget(tab);
    QCOMPARE(tab->lastRunLabel()->text(), "Never");
    QPushButton* button = tab->performButtons().at(kind == MaintenanceJob::PruneAll ? 1 : 0);
    QVERIFY(button->isEnabled());
    QSignalSpy finished(&maintenance, &Maintenance::jobFinished);

    QTest::mouseClick(button, Qt::LeftButton);

    // While the job runs no button of its tab starts it again; the other tabs' jobs stay available.
    QVERIFY(maintenance.isRunning(kind));
    for (QPushButton* perform : tab->performButtons()) {
        QVERIFY(!perform->isEnabled());
    }
    for (MaintenanceJob::Kind other : {MaintenanceJob::Update, MaintenanceJob::Cleanup, MaintenanceJob::Autoremove}) {
        if (view.jobViewController(other) != tab) {
            QVERIFY(view.jobViewController(other)->performButtons().first()->isEnabled());
        }
    }
    QVERIFY(finished.wait(finishTimeout));
    for (QPushButton* perform : tab->performButtons()) {
        QVERIFY(perform->isEnabled());
    }

    QCOMPARE(finished.first().at(1).toBool(), alert.isEmpty());
    QCOMPARE(alerter.shown().size(), alert.isEmpty() ? 0 : 1);
    if (!alert.isEmpty()) {
        QCOMPARE(alerter.shown().first().message, alert);
        QCOMPARE(tab->lastRunLabel()->text(), "Never");
        return;
    }
    // The date stored by the job shows once it reached the GUI thread.
    QTRY_VERIFY_WITH_TIMEOUT(tab->lastRunLabel()->text() != "Never", finishTimeout);
    const std::optional<QDateTime> stored = defaults.dateValue(MaintenanceJob::lastRunKey(kind));
    QVERIFY(stored);
    QCOMPARE(tab->lastRunLabel()->text(), QLocale().toString(stored->toLocalTime(), QLocale::ShortFormat));
}

QTEST_MAIN(TestSettingsMaintenance)
#include "TestSettingsMaintenance.moc"
