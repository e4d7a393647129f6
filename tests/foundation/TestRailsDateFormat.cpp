#include "foundation/RailsDateFormat.h"

#include <QTest>

class TestRailsDateFormat : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void parseAndFormat_data();
    void parseAndFormat();
    void format();
};

void TestRailsDateFormat::parseAndFormat_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("formatted"); // the parsed date written back; empty: the text must be refused

    const auto row = [](const char* text, const char* formatted) { QTest::newRow(text) << text << formatted; };
    row("2024-03-05T14:07:09.123+0100", "2024-03-05T13:07:09.123+0000");
    row("2024-03-05T08:37:09.123-0430", "2024-03-05T13:07:09.123+0000");
    row("2024-03-05T13:07:09.123Z", "2024-03-05T13:07:09.123+0000");
    row("2024-03-05T14:07:09.123+01:00", "2024-03-05T13:07:09.123+0000");
    row("2024-03-05T14:07:09.123+01", "2024-03-05T13:07:09.123+0000");
    row("2024-03-05T13:07:09.123456Z", "2024-03-05T13:07:09.123+0000");
    row("2024-03-05T13:07:09.5Z", "2024-03-05T13:07:09.500+0000");
    row("2024-01-01T00:30:00.000+0100", "2023-12-31T23:30:00.000+0000");
    for (const char* invalid :
         {"2024-03-05", "2024-03-05T13:07:09Z", "2024-03-05T13:07:09.123", "2024-02-30T13:07:09.123Z",
          "2024-03-05T13:07:09.123Z and more", "2024-03-05T13:07:09.123+2500"}) {
        row(invalid, "");
    }
    QTest::newRow("empty") << QString() << QString();
}

void TestRailsDateFormat::parseAndFormat()
{
    QFETCH(QString, text);
    QFETCH(QString, formatted);

    // The QString and the UTF-8 entry points must agree.
    for (const auto& parsed : {RailsDateFormat::parse(text), RailsDateFormat::parse(text.toStdString())}) {
        QCOMPARE(parsed ? RailsDateFormat::format(*parsed) : QString(), formatted);
        // Read back, the written date is the same; refused text gives no date at all rather than an invalid one.
        QCOMPARE(RailsDateFormat::parse(formatted), parsed);
    }
}

void TestRailsDateFormat::format()
{
    const QDateTime withOffset(QDate(2024, 3, 5), QTime(14, 7, 9, 3), Qt::OffsetFromUTC, 3600);
    QCOMPARE(RailsDateFormat::format(withOffset), QStringLiteral("2024-03-05T13:07:09.003+0000"));
    QCOMPARE(RailsDateFormat::format(QDateTime()), QString());
}

QTEST_APPLESS_MAIN(TestRailsDateFormat)
#include "TestRailsDateFormat.moc"
