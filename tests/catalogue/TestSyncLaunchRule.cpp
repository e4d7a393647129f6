#include "catalogue/SyncLaunchRule.h"
#include "foundation/Defaults.h"
#include "foundation/PreferenceKeys.h"

#include <QTemporaryDir>
#include <QTest>
#include <ctime>

using namespace Qt::StringLiterals;

class TestSyncLaunchRule : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void formAtLaunch_data();
    void formAtLaunch();
};

void TestSyncLaunchRule::initTestCase()
{
    // Daylight saving time starts on 31 March 2024 here: that day has 23 hours.
    qputenv("TZ", "Europe/Berlin");
    tzset();
    QCOMPARE(QDateTime(QDate(2024, 3, 30), QTime(12, 0)).secsTo(QDateTime(QDate(2024, 3, 31), QTime(12, 0))),
             23 * 3600);
}

void TestSyncLaunchRule::formAtLaunch_data()
{
    QTest::addColumn<QVariant>("syncOnLaunch"); // written when valid; the registered default is true
    QTest::addColumn<QVariant>("lastSync");     // written when valid
    QTest::addColumn<QVariant>("lastFastSync"); // written when valid
    QTest::addColumn<QDateTime>("now");
    QTest::addColumn<QString>("expected"); // "full", "fast", or empty for nothing

    const QDateTime now(QDate(2024, 6, 15), QTime(12, 0));
    const auto ago = [&](int days, int minutes = 0) { return QVariant(now.addDays(-days).addSecs(-60 * minutes)); };
    const QVariant unset;
    const auto row = [&](const char* name, const QVariant& allowed, const QVariant& full, const QVariant& fast,
                         const char* expected) { QTest::newRow(name) << allowed << full << fast << now << expected; };

    row("never synchronised", unset, unset, unset, "");
    row("full pass due by default", unset, ago(4), ago(4), "full");
    row("full pass due, no fast date", true, ago(4), unset, "full");
    row("full pass due but not allowed", false, ago(4), ago(4), "fast");
    row("not allowed, no full date", false, unset, ago(4), "fast");
    row("both two days old", true, ago(2), ago(2), "fast");
    row("full pass exactly three days old", true, ago(3), ago(0, 720), "");
    row("full pass a minute older", true, ago(3, 1), ago(0, 720), "full");
    row("fast pass exactly a day old", true, ago(2), ago(1), "");
    row("fast pass a minute older", true, ago(2), ago(1, 1), "fast");
    row("dates in the future", true, ago(-5), ago(-5), "");
    row("not dates", true, u"last week"_s, u"yesterday"_s, "");

    // Calendar days, not periods of 24 hours: across the change to summer time a day is 23 hours long.
    const QDateTime before(QDate(2024, 3, 30), QTime(12, 0));
    QTest::newRow("a calendar day across daylight saving time")
        << QVariant(true) << QVariant(before) << QVariant(before) << QDateTime(QDate(2024, 3, 31), QTime(12, 0, 30))
        << "fast";
    QTest::newRow("less than a calendar day across daylight saving time")
        << QVariant(true) << QVariant(before) << QVariant(before) << QDateTime(QDate(2024, 3, 31), QTime(11, 59)) << "";
}

void TestSyncLaunchRule::formAtLaunch()
{
    QFETCH(QVariant, syncOnLaunch);
    QFETCH(QVariant, lastSync);
    QFETCH(QVariant, lastFastSync);
    QFETCH(QDateTime, now);
    QFETCH(QString, expected);

    QTemporaryDir folder;
    QVERIFY(folder.isValid());
    Defaults defaults(folder.filePath(u"settings.ini"_s));
    const QList<std::pair<QString, QVariant>> written{{PreferenceKeys::SyncOnAppLaunch, syncOnLaunch},
                                                      {PreferenceKeys::LastSyncTime, lastSync},
                                                      {PreferenceKeys::LastFastSyncTime, lastFastSync}};
    for (const auto& [key, value] : written) {
        if (value.isValid()) {
            defaults.setValue(key, value);
        }
    }
    // Read back as the next launch reads them, from the file, over the shipped default settings.
    defaults.sync();
    Defaults reread(folder.filePath(u"settings.ini"_s));
    reread.registerDefaults({{PreferenceKeys::SyncOnAppLaunch, true}});

    const std::optional<Synchronisation::Form> form = SyncLaunchRule::formAtLaunch(reread, now);
    const QString answer = !form ? QString() : *form == Synchronisation::Form::full ? u"full"_s : u"fast"_s;
    QCOMPARE(answer, expected);
}

QTEST_GUILESS_MAIN(TestSyncLaunchRule)
#include "TestSyncLaunchRule.moc"
