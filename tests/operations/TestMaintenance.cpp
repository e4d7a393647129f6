#include "HomebrewFixture.h"
#include "LogCapture.h"
#include "ScriptedAlerter.h"
#include "foundation/Defaults.h"
#include "foundation/PreferenceKeys.h"
#include "operations/Maintenance.h"

#include <QJsonArray>
#include <QSignalSpy>
#include <QTest>

namespace {

// Every job starts a real process; generous, because a loaded machine is not a failure.
constexpr int finishTimeout = 60000;

const QStringList lastRunKeys{PreferenceKeys::UpdateLastRun, PreferenceKeys::CleanupLastRun,
                              PreferenceKeys::AutoremoveLastRun};
const QDateTime earlier = QDateTime(QDate(2024, 1, 2), QTime(3, 4, 5), Qt::UTC);

// The simulated Homebrew with the maintenance jobs over it, their preferences and their alerts.
struct World {
    HomebrewFixture homebrew;
    QTemporaryDir settings;
    Defaults defaults{settings.filePath("settings.ini")};
    ScriptedAlerter alerter;
    Maintenance maintenance{homebrew.commands, defaults, alerter};

    // Waits until count jobs more have finished; false when they did not.
    bool waitForJobs(int count = 1)
    {
        QSignalSpy finished(&maintenance, &Maintenance::jobFinished);
        return QTest::qWaitFor([&] { return finished.size() >= count; }, finishTimeout);
    }

    QList<QStringList> invocations() const
    {
        QList<QStringList> result;
        if (homebrew.brew) {
            for (const auto& invocation : homebrew.brew->invocations()) {
                result.append(invocation.arguments);
            }
        }
        return result;
    }
};

QStringList linesOf(const LogCapture& log, QtMsgType type)
{
    QStringList result;
    for (const auto& line : log.lines()) {
        if (line.type == type) {
            result.append(line.text);
        }
    }
    return result;
}

} // namespace

class TestMaintenance : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void successfulJobs_data();
    void successfulJobs();
    void failedJobs_data();
    void failedJobs();
    void secondStartWhileRunning_data();
    void secondStartWhileRunning();
};

void TestMaintenance::successfulJobs_data()
{
    QTest::addColumn<MaintenanceJob::Kind>("kind");
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("flag");
    QTest::addColumn<QStringList>("logged");

    QTest::newRow("update") << MaintenanceJob::Update << QStringList{"update"} << "UpdateLastRun"
                            << "updating" << QStringList{"Asking to perform update", "Update performed successfully"};
    QTest::newRow("cleanup") << MaintenanceJob::Cleanup << QStringList{"cleanup"} << "CleanupLastRun"
                             << "cleaningUp"
                             << QStringList{"Asking to perform cleanup", "Cleanup performed successfully"};
    QTest::newRow("prune all") << MaintenanceJob::PruneAll << QStringList{"cleanup", "--prune=all"} << "CleanupLastRun"
                               << "cleaningUp"
                               << QStringList{"Asking to perform prune all", "Prune all performed successfully"};
    QTest::newRow("autoremove") << MaintenanceJob::Autoremove << QStringList{"autoremove"} << "AutoremoveLastRun"
                                << "autoremoving"
                                << QStringList{"Asking to perform autoremove", "Autoremove performed successfully"};
}

void TestMaintenance::successfulJobs()
{
    QFETCH(MaintenanceJob::Kind, kind);
    QFETCH(QStringList, arguments);
    QFETCH(QString, key);
    QFETCH(QString, flag);
    QFETCH(QStringList, logged);

    World world;
    QVERIFY(world.homebrew.simulate());
    LogCapture log;
    const QMetaProperty property =
        world.maintenance.metaObject()->property(world.maintenance.metaObject()->indexOfProperty(qPrintable(flag)));
    QVERIFY(property.isValid());
    QSignalSpy flagChanges(&world.maintenance, property.notifySignal());

    const QDateTime before = QDateTime::currentDateTimeUtc().addSecs(-1);
    QVERIFY(world.maintenance.perform(kind));
    QVERIFY(property.read(&world.maintenance).toBool());
    QVERIFY(world.waitForJobs());
    const QDateTime after = QDateTime::currentDateTimeUtc().addSecs(1);

    QCOMPARE(world.invocations(), QList<QStringList>{arguments});
    QVERIFY(!property.read(&world.maintenance).toBool());
    QCOMPARE(flagChanges.size(), 2);
    QCOMPARE(flagChanges.at(0).at(0).toBool(), true);
    QCOMPARE(flagChanges.at(1).at(0).toBool(), false);

    // Only the job's own date is written.
    for (const QString& each : lastRunKeys) {
        const auto date = world.defaults.dateValue(each);
        if (each == key) {
            QVERIFY2(date && *date >= before && *date <= after, qPrintable(each));
        } else {
            QVERIFY2(!date, qPrintable(each));
        }
    }
    QCOMPARE(linesOf(log, QtInfoMsg), logged);
    QVERIFY(linesOf(log, QtWarningMsg).isEmpty());
    QVERIFY(world.alerter.shown().isEmpty());
    // Silent: no activity, nothing in the transcript.
    QVERIFY(world.homebrew.activityCenter.activities().isEmpty());
    QVERIFY(world.homebrew.transcript.messages().isEmpty());
}

void TestMaintenance::failedJobs_data()
{
    QTest::addColumn<MaintenanceJob::Kind>("kind");
    QTest::addColumn<bool>("homebrewPresent");
    QTest::addColumn<QString>("logPrefix");
    QTest::addColumn<QString>("description");
    QTest::addColumn<QString>("alertMessage");

    const QString terminated = "Process terminated with an error";
    const QString missing = "Homebrew executable not found";
    // A failed update is explained in Homebrew's own words; PREFIX stands for the simulated prefix.
    QTest::newRow("update fails") << MaintenanceJob::Update << true << "Unable to update: "
                                  << "==> Updating Homebrew...\n"
                                     "fatal: unable to access 'https://github.com/Homebrew/brew/': Could not resolve "
                                     "host: github.com\nError: Fetching PREFIX failed!\n"
                                  << "Unable to update";
    QTest::newRow("cleanup fails") << MaintenanceJob::Cleanup << true << "Unable to perform cleanup: " << terminated
                                   << "Unable to perform 'cleanup'";
    QTest::newRow("prune all fails") << MaintenanceJob::PruneAll << true
                                     << "Unable to perform prune all: " << terminated
                                     << "Unable to perform 'prune all'";
    QTest::newRow("autoremove fails") << MaintenanceJob::Autoremove << true
                                      << "Unable to perform autoremove: " << terminated
                                      << "Unable to perform 'autoremove'";
    QTest::newRow("update without Homebrew")
        << MaintenanceJob::Update << false << "Unable to update: " << missing << "Unable to update";
}

void TestMaintenance::failedJobs()
{
    QFETCH(MaintenanceJob::Kind, kind);
    QFETCH(bool, homebrewPresent);
    QFETCH(QString, logPrefix);
    QFETCH(QString, description);
    QFETCH(QString, alertMessage);

    World world;
    if (homebrewPresent) {
        const QJsonObject faults{{"failCommands", QJsonArray{MaintenanceJob::arguments(kind).constFirst()}}};
        QVERIFY(world.homebrew.simulate({{"faults", faults}}));
        description.replace("PREFIX", world.homebrew.brew->prefix());
    }
    for (const QString& each : lastRunKeys) {
        world.defaults.setValue(each, earlier);
    }
    LogCapture log;
    world.alerter.answerNext("OK");

    QVERIFY(world.maintenance.perform(kind));
    QVERIFY(world.waitForJobs());

    QCOMPARE(world.invocations().size(), homebrewPresent ? 1 : 0);
    for (const QString& each : lastRunKeys) {
        QCOMPARE(world.defaults.dateValue(each), std::optional(earlier));
    }
    QCOMPARE(linesOf(log, QtWarningMsg), QStringList{logPrefix + description});
    QCOMPARE(linesOf(log, QtInfoMsg), QStringList{MaintenanceJob::askingLogLine(kind)});
    QCOMPARE(world.alerter.shown().size(), 1);
    QCOMPARE(world.alerter.shown().constFirst().message, alertMessage);
    QCOMPARE(world.alerter.shown().constFirst().informativeText, description);
    QVERIFY(!world.maintenance.isRunning(kind));
    QVERIFY(world.homebrew.transcript.messages().isEmpty());
}

void TestMaintenance::secondStartWhileRunning_data()
{
    QTest::addColumn<MaintenanceJob::Kind>("first");
    QTest::addColumn<MaintenanceJob::Kind>("second");
    QTest::addColumn<bool>("accepted");

    QTest::newRow("update twice") << MaintenanceJob::Update << MaintenanceJob::Update << false;
    QTest::newRow("autoremove twice") << MaintenanceJob::Autoremove << MaintenanceJob::Autoremove << false;
    // Cleanup and prune all share their tab's flag.
    QTest::newRow("prune all during cleanup") << MaintenanceJob::Cleanup << MaintenanceJob::PruneAll << false;
    QTest::newRow("cleanup during prune all") << MaintenanceJob::PruneAll << MaintenanceJob::Cleanup << false;
    QTest::newRow("cleanup during update") << MaintenanceJob::Update << MaintenanceJob::Cleanup << true;
}

void TestMaintenance::secondStartWhileRunning()
{
    QFETCH(MaintenanceJob::Kind, first);
    QFETCH(MaintenanceJob::Kind, second);
    QFETCH(bool, accepted);

    World world;
    QVERIFY(world.homebrew.simulate());
    LogCapture log;

    QVERIFY(world.maintenance.perform(first));
    // The flag is up until the job's end comes back to this thread's event loop, which has not run yet.
    QCOMPARE(world.maintenance.perform(second), accepted);
    QVERIFY(world.waitForJobs(accepted ? 2 : 1));

    QList<QStringList> expected{MaintenanceJob::arguments(first)};
    if (accepted) {
        expected.append(MaintenanceJob::arguments(second));
    }
    QList<QStringList> invoked = world.invocations();
    std::ranges::sort(invoked);
    std::ranges::sort(expected);
    QCOMPARE(invoked, expected);
    QCOMPARE(linesOf(log, QtInfoMsg).count(MaintenanceJob::askingLogLine(second)), first == second || accepted ? 1 : 0);

    // Once finished, the job can run again.
    QVERIFY(!world.maintenance.isRunning(second));
    QVERIFY(world.maintenance.perform(second));
    QVERIFY(world.waitForJobs());
}

QTEST_GUILESS_MAIN(TestMaintenance)
#include "TestMaintenance.moc"
