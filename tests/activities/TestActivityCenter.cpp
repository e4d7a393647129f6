#include "activities/ActivityCenter.h"
#include "activities/Notifications.h"
#include "activities/Transcript.h"

#include <QRegularExpression>
#include <QSignalSpy>
#include <QTest>
#include <QThread>

class TestActivityCenter : public QObject {
    Q_OBJECT

private Q_SLOTS:
    // First, before anything else touches the process-wide instances.
    void sharedInstancesLiveOnTheGuiThread();
    void mediumTimeFormat_data();
    void mediumTimeFormat();
    void titleFormat();
    void postFromWorkersAppendsOnTheGuiThreadAndNotifiesOnce();
    void postIsScheduledEvenOnTheGuiThread();
    void activityCrossesThreadsInQueuedSignals();
};

void TestActivityCenter::mediumTimeFormat_data()
{
    QTest::addColumn<QLocale>("locale");
    QTest::addColumn<QString>("format");
    QTest::newRow("zone last") << QLocale(QLocale::English, QLocale::UnitedStates) << "h:mm:ss AP";
    QTest::newRow("24-hour") << QLocale(QLocale::German, QLocale::Germany) << "HH:mm:ss";
    QTest::newRow("zone in parentheses") << QLocale(QLocale::Catalan, QLocale::Spain) << "H:mm:ss";
    QTest::newRow("zone after a comma") << QLocale(QLocale::Belarusian, QLocale::Belarus) << "HH:mm:ss";
    QTest::newRow("zone first") << QLocale(QLocale::Chinese, QLocale::HongKong) << "APh:mm:ss";
    QTest::newRow("quoted literal kept") << QLocale(QLocale::French, QLocale::Canada) << "HH 'h' mm 'min' ss 's'";
}

void TestActivityCenter::mediumTimeFormat()
{
    QFETCH(QLocale, locale);
    QFETCH(QString, format);
    QCOMPARE(Activity::mediumTimeFormat(locale), format);
}

void TestActivityCenter::titleFormat()
{
    const ActivityPtr activity = Activity::make("Firefox", "Install");
    const QString title = activity->title(QLocale(QLocale::English, QLocale::UnitedStates));
    static const QRegularExpression pattern(
        u"^(1[0-2]|[1-9]):([0-5]\\d):([0-5]\\d) (AM|PM) \u2014 Firefox \\(Install\\)$"_qs);
    const QRegularExpressionMatch match = pattern.match(title);
    QVERIFY2(match.hasMatch(), qPrintable(title));
    const QTime time = activity->date().time();
    QCOMPARE(match.captured(1).toInt(), time.hour() % 12 == 0 ? 12 : time.hour() % 12);
    QCOMPARE(match.captured(4), time.hour() < 12 ? "AM" : "PM");
    QCOMPARE(match.captured(3).toInt(), time.second());

    // Without a locale the title follows the user's.
    const QLocale previous;
    QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
    QCOMPARE(activity->title(), time.toString("HH:mm:ss") + u" \u2014 Firefox (Install)"_qs);
    QLocale::setDefault(previous);
}

void TestActivityCenter::postFromWorkersAppendsOnTheGuiThreadAndNotifiesOnce()
{
    constexpr int threadCount = 3;
    constexpr int perThread = 100;
    ActivityCenter center;
    QList<ActivityPtr> notified;
    QStringList faults;
    // The hub outlives this test; the connection must not.
    QObject connectionScope;
    connect(&Notifications::instance(), &Notifications::activityCenterPostedActivity, &connectionScope,
            [&](ActivityPtr activity) {
                if (QThread::currentThread() != thread()) {
                    faults << "notified off the GUI thread";
                }
                if (center.activities().isEmpty() || center.activities().last() != activity) {
                    faults << "notified before the list grew";
                }
                notified.append(activity);
            });
    QSignalSpy appended(&center, &ActivityCenter::activityAppended);

    std::vector<std::unique_ptr<QThread>> threads;
    for (int t = 0; t < threadCount; ++t) {
        threads.emplace_back(QThread::create([&center, t] {
            for (int i = 0; i < perThread; ++i) {
                center.post(Activity::make(QString::number(i), QString::number(t)));
            }
        }));
        threads.back()->start();
    }
    for (auto& thread : threads) {
        QVERIFY(thread->wait(60'000));
    }

    QTRY_COMPARE(center.activities().size(), threadCount * perThread);
    QCOMPARE(faults, QStringList());
    QCOMPARE(notified, center.activities());
    QCOMPARE(appended.count(), threadCount * perThread);
    // Each thread's activities keep their posting order.
    QList<int> next(threadCount, 0);
    for (const ActivityPtr& activity : center.activities()) {
        QCOMPARE(activity->target().toInt(), next[activity->action().toInt()]++);
    }
}

void TestActivityCenter::postIsScheduledEvenOnTheGuiThread()
{
    ActivityCenter center;
    QTest::ignoreMessage(QtWarningMsg, "ActivityCenter: ignoring a null activity");
    center.post(nullptr);
    const ActivityPtr activity = Activity::make("wget", "Uninstall");
    center.post(activity);
    QVERIFY(center.activities().isEmpty());
    QTRY_COMPARE(center.activities(), QList<ActivityPtr>{activity});
}

void TestActivityCenter::sharedInstancesLiveOnTheGuiThread()
{
    QThread* gui = thread();
    QThread* owner[3] = {};
    std::unique_ptr<QThread> worker(QThread::create([&owner] {
        owner[0] = ActivityCenter::shared().thread();
        owner[1] = Transcript::shared().thread();
        owner[2] = Notifications::instance().thread();
    }));
    worker->start();
    QVERIFY(worker->wait(60'000));
    QCOMPARE(owner[0], gui);
    QCOMPARE(owner[1], gui);
    QCOMPARE(owner[2], gui);

    ActivityCenter::shared().post(Activity::make("git", "Install"));
    QTRY_COMPARE(ActivityCenter::shared().activities().size(), 1);
}

void TestActivityCenter::activityCrossesThreadsInQueuedSignals()
{
    QThread receiverThread;
    QObject receiver;
    receiver.moveToThread(&receiverThread);
    receiverThread.start();
    ActivityPtr received;
    QThread* receivedOn = nullptr;
    connect(&Notifications::instance(), &Notifications::activityCenterPostedActivity, &receiver,
            [&](ActivityPtr activity) {
                // Hand the observation back to the test's thread rather than share variables across threads.
                QMetaObject::invokeMethod(this, [&, on = QThread::currentThread(), activity] {
                    receivedOn = on;
                    received = activity;
                });
            });

    ActivityCenter center;
    const ActivityPtr activity = Activity::make("Visual Studio Code", "Reinstall");
    center.post(activity);
    QTRY_COMPARE(received, activity);
    QCOMPARE(receivedOn, &receiverThread);
    receiverThread.quit();
    QVERIFY(receiverThread.wait(60'000));
}

QTEST_GUILESS_MAIN(TestActivityCenter)
#include "TestActivityCenter.moc"
