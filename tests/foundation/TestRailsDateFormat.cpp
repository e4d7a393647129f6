#include "foundation/RailsDateFormat.h"

#include <QTest>

class TestRailsDateFormat : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void parse_data();
    void parse();
    void format();
};

void TestRailsDateFormat::parse_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QDateTime>("expected"); // invalid: the text must be refused

    const QDateTime utc(QDate(2024, 3, 5), QTime(13, 7, 9, 123), Qt::UTC);
    QTest::newRow("offset") << "2024-03-05T14:07:09.123+0100" << utc;
    QTest::newRow("negative offset") << "2024-03-05T08:37:09.123-0430" << utc;
    QTest::newRow("zulu") << "2024-03-05T13:07:09.123Z" << utc;
    QTest::newRow("colon offset") << "2024-03-05T14:07:09.123+01:00" << utc;
    QTest::newRow("hours offset") << "2024-03-05T14:07:09.123+01" << utc;
    QTest::newRow("more fraction digits") << "2024-03-05T13:07:09.123456Z" << utc;
    QTest::newRow("one fraction digit") << "2024-03-05T13:07:09.5Z"
                                        << QDateTime(QDate(2024, 3, 5), QTime(13, 7, 9, 500), Qt::UTC);
    QTest::newRow("across midnight") << "2024-01-01T00:30:00.000+0100"
                                     << QDateTime(QDate(2023, 12, 31), QTime(23, 30), Qt::UTC);

    QTest::newRow("empty") << "" << QDateTime();
    QTest::newRow("date only") << "2024-03-05" << QDateTime();
    QTest::newRow("no fraction") << "2024-03-05T13:07:09Z" << QDateTime();
    QTest::newRow("no zone") << "2024-03-05T13:07:09.123" << QDateTime();
    QTest::newRow("month 13") << "2024-13-05T13:07:09.123Z" << QDateTime();
    QTest::newRow("30 February") << "2024-02-30T13:07:09.123Z" << QDateTime();
    QTest::newRow("trailing text") << "2024-03-05T13:07:09.123Z and more" << QDateTime();
    QTest::newRow("offset out of range") << "2024-03-05T13:07:09.123+2500" << QDateTime();
}

void TestRailsDateFormat::parse()
{
    QFETCH(QString, text);
    QFETCH(QDateTime, expected);

    const std::optional<QDateTime> parsed = RailsDateFormat::parse(text);
    const QByteArray utf8 = text.toUtf8();
    const std::optional<QDateTime> parsedUtf8 =
        RailsDateFormat::parse(std::string_view(utf8.constData(), std::size_t(utf8.size())));
    if (!expected.isValid()) {
        QVERIFY(!parsed);
        QVERIFY(!parsedUtf8);
        return;
    }
    QVERIFY(parsed);
    QVERIFY(parsedUtf8);
    QCOMPARE(parsed->toMSecsSinceEpoch(), expected.toMSecsSinceEpoch());
    QCOMPARE(parsedUtf8->toMSecsSinceEpoch(), expected.toMSecsSinceEpoch());
}

void TestRailsDateFormat::format()
{
    const QDateTime withOffset(QDate(2024, 3, 5), QTime(14, 7, 9, 3), Qt::OffsetFromUTC, 3600);
    QCOMPARE(RailsDateFormat::format(withOffset), QStringLiteral("2024-03-05T13:07:09.003+0000"));
    QCOMPARE(RailsDateFormat::parse(RailsDateFormat::format(withOffset)).value_or(QDateTime()), withOffset);
    QCOMPARE(RailsDateFormat::format(QDateTime()), QString());
}

QTEST_APPLESS_MAIN(TestRailsDateFormat)
#include "TestRailsDateFormat.moc"
