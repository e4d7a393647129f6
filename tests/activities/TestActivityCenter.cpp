#include "activities/ActivityCenter.h"
#include "activities/Notifications.h"
#include "activities/Transcript.h"

#include <QSignalSpy>
#include <QTest>
#include <QThread>
#include <QThreadPool>

class TestActivityCenter : public QObject {
    Q_OBJECT

private Q_SLOTS:
    // First, before anything else touches the process-wide instances.
    void sharedInstancesLiveOnTheGuiThread();
    void title_data();
    void title();
    void postIsQueuedEvenOnTheGuiThread();
    void postFromWorkers();
};

void TestActivityCenter::sharedInstancesLiveOnTheGuiThread()
{
    QList<QThread*> owners;
    std::unique_ptr<QThread> worker(QThread::create([&owners] {
        owners = {ActivityCenter::shared().thread(), Transcript::shared().thread(), Notifications::instance().thread()};
    }));
    worker->start();
    QVERIFY(worker->wait(60'000));
    QCOMPARE(owners, QList<QThread*>(3, thread()));
}

// "<time> — <target> (<action>)", the time with seconds and without the zone, wherever the locale puts the zone.
void TestActivityCenter::title_data()
{
    QTest::addColumn<QLocale>("locale");
    QTest::addColumn<QString>("format");
    QTest::newRow("zone last") << QLocale(QLocale::English, QLocale::UnitedStates) << "h:mm:ss AP";
    QTest::newRow("zone in parentheses") << QLocale(QLocale::Catalan, QLocale::Spain) << "H:mm:ss";
    QTest::newRow("zone first") << QLocale(QLocale::Chinese, QLocale::HongKong) << "APh:mm:ss";
    QTest::newRow("quoted literal kept") << QLocale(QLocale::French, QLocale::Canada) << "HH 'h' mm 'min' ss 's'";
}

void TestActivityCenter::title()
{
    QFETCH(QLocale, locale);
    QFETCH(QString, format);
    QCOMPARE(Activity::mediumTimeFormat(locale), format);
    const ActivityPtr activity = Activity::make("Firefox", "Install");
    const QString expected = locale.toString(activity->date().time(), format) + " — Firefox (Install)";
    QCOMPARE(activity->title(locale), expected);
    QLocale::setDefault(locale); // without a locale the title follows the user's
    QCOMPARE(activity->title(), expected);
}

// Posting never re-enters a caller that is iterating the list or reacting to an earlier notification.
void TestActivityCenter::postIsQueuedEvenOnTheGuiThread()
{
    ActivityCenter center;
    QTest::ignoreMessage(QtWarningMsg, "ActivityCenter: ignoring a null activity");
    center.post(nullptr);
    center.post(Activity::make("wget", "Uninstall"));
    QVERIFY(center.activities().isEmpty());
    QTRY_COMPARE(center.activities().size(), 1);
}

// Appended on the GUI thread in each thread's posting order, and announced once each after the list grew.
void TestActivityCenter::postFromWorkers()
{
    constexpr int threadCount = 3;
    constexpr int perThread = 100;
    ActivityCenter center;
    QList<ActivityPtr> notified;
    int faults = 0;
    QObject scope; // the hub outlives this test; the connection must not
    connect(&Notifications::instance(), &Notifications::activityCenterPostedActivity, &scope,
            [&](ActivityPtr activity) {
                notified.append(activity);
                faults += QThread::currentThread() != thread() || notified != center.activities();
            });
    QSignalSpy appended(&center, &ActivityCenter::activityAppended);

    QThreadPool workers;
    for (int t = 0; t < threadCount; ++t) {
        workers.start([&center, t] {
            for (int i = 0; i < perThread; ++i) {
                center.post(Activity::make(QString::number(i), QString::number(t)));
            }
        });
    }
    QVERIFY(workers.waitForDone(60'000));
    QTRY_COMPARE(center.activities().size(), threadCount * perThread);
    QCOMPARE(faults, 0);
    QCOMPARE(notified.size(), center.activities().size());
    QCOMPARE(appended.count(), threadCount * perThread);
    QList<int> next(threadCount, 0);
    for (const ActivityPtr& activity : center.activities()) {
        QCOMPARE(activity->target().toInt(), next[activity->action().toInt()]++);
    }
}

QTEST_GUILESS_MAIN(TestActivityCenter)
#include "TestActivityCenter.moc"
