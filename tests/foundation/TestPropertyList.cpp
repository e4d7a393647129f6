#include "foundation/PreferenceKeys.h"
#include "foundation/PropertyList.h"

#include <QDateTime>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>
#include <cmath>
#include <limits>

namespace {

const QString resourcesDir = QStringLiteral(CORVEL_RESOURCES_SOURCE_DIR);

QByteArray document(const QByteArray& body)
{
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
           "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
           "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
           "<plist version=\"1.0\">\n" +
           body + "\n</plist>\n";
}

// QVariant's own comparison converts between numeric types; a reader that returned int instead of qint64 or an
// integer instead of a real must not pass.
bool sameTree(const QVariant& a, const QVariant& b)
{
    if (a.typeId() != b.typeId()) {
        return false;
    }
    if (a.typeId() == QMetaType::QVariantMap) {
        const QVariantMap left = a.toMap();
        const QVariantMap right = b.toMap();
        if (left.keys() != right.keys()) {
            return false;
        }
        for (auto it = left.cbegin(); it != left.cend(); ++it) {
            if (!sameTree(it.value(), right.value(it.key()))) {
                return false;
            }
        }
        return true;
    }
    if (a.typeId() == QMetaType::QVariantList) {
        const QVariantList left = a.toList();
        const QVariantList right = b.toList();
        if (left.size() != right.size()) {
            return false;
        }
        for (qsizetype i = 0; i < left.size(); ++i) {
            if (!sameTree(left.at(i), right.at(i))) {
                return false;
            }
        }
        return true;
    }
    return a == b;
}

// Evaluated even when the check passes, so it must not touch the error of a success.
QByteArray failure(const Result<QVariant>& result)
{
    return result.ok() ? QByteArray() : result.error().description().toUtf8();
}

QByteArray nestedArrays(int depth)
{
    return document(QByteArray("<array>").repeated(depth) + QByteArray("</array>").repeated(depth));
}

} // namespace

class TestPropertyList : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void roundTrip_data();
    void roundTrip();
    void nonFiniteReals();
    void parsesValues_data();
    void parsesValues();
    void nullValuesAreLeftOut();
    void malformed_data();
    void malformed();
    void errorNamesTheLine();
    void depthLimit();
    void readFailures();
    void shippedInfo();
    void shippedDefaultSettings_data();
    void shippedDefaultSettings();
};

void TestPropertyList::roundTrip_data()
{
    QTest::addColumn<QVariant>("value");

    QTest::newRow("string") << QVariant(QStringLiteral("Corvel X"));
    QTest::newRow("string with markup") << QVariant(QStringLiteral("a < b && c > \"d\" 'e' ]]>"));
    QTest::newRow("unicode string") << QVariant(QStringLiteral("Grüße — 日本語 🍺"));
    QTest::newRow("empty string") << QVariant(QString());
    QTest::newRow("string of spaces") << QVariant(QStringLiteral("  two leading, one trailing "));
    QTest::newRow("zero") << QVariant(qint64(0));
    QTest::newRow("negative") << QVariant(qint64(-42));
    QTest::newRow("largest integer") << QVariant(std::numeric_limits<qint64>::max());
    QTest::newRow("smallest integer") << QVariant(std::numeric_limits<qint64>::min());
    QTest::newRow("real") << QVariant(0.1);
    QTest::newRow("whole real") << QVariant(200.0);
    QTest::newRow("tiny real") << QVariant(-4.9e-324);
    QTest::newRow("huge real") << QVariant(1.7976931348623157e308);
    QTest::newRow("true") << QVariant(true);
    QTest::newRow("false") << QVariant(false);
    QTest::newRow("date") << QVariant(QDateTime(QDate(2024, 1, 31), QTime(12, 0), Qt::UTC));
    QTest::newRow("data") << QVariant(QByteArray("\x00\x01\xfe\xff binary", 11));
    QTest::newRow("empty data") << QVariant(QByteArray());
    QTest::newRow("empty dict") << QVariant(QVariantMap());
    QTest::newRow("empty array") << QVariant(QVariantList());
    QTest::newRow("nested") << QVariant(QVariantMap{
        {QStringLiteral("list"), QVariantList{qint64(1), QStringLiteral("two"), 3.5, false,
                                              QVariantList{QVariantMap{{QStringLiteral("deep"), true}}}}},
        {QStringLiteral("when"), QDateTime(QDate(1999, 12, 31), QTime(23, 59, 59), Qt::UTC)},
        {QStringLiteral("key with <markup> & spaces"), QByteArray("bytes")},
        {QString(), QStringLiteral("empty key")},
    });
}

void TestPropertyList::roundTrip()
{
    QFETCH(QVariant, value);
    const QByteArray xml = PropertyList::serialize(value);
    const auto parsed = PropertyList::parse(xml);
    QVERIFY2(parsed.ok(), failure(parsed).constData());
    QVERIFY2(sameTree(parsed.value(), value), xml.constData());
}

void TestPropertyList::nonFiniteReals()
{
    const QVariantList values{std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity(),
                              -std::numeric_limits<double>::infinity()};
    const auto parsed = PropertyList::parse(PropertyList::serialize(values));
    QVERIFY2(parsed.ok(), failure(parsed).constData());
    const QVariantList back = parsed.value().toList();
    QCOMPARE(back.size(), 3);
    QVERIFY(std::isnan(back.at(0).toDouble()));
    QCOMPARE(back.at(1).toDouble(), std::numeric_limits<double>::infinity());
    QCOMPARE(back.at(2).toDouble(), -std::numeric_limits<double>::infinity());
}

void TestPropertyList::parsesValues_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QVariant>("expected");

    QTest::newRow("integer with spaces") << QByteArray("<integer>\n  42 </integer>") << QVariant(qint64(42));
    QTest::newRow("explicit plus") << QByteArray("<integer>+7</integer>") << QVariant(qint64(7));
    QTest::newRow("hexadecimal") << QByteArray("<integer>0x1F</integer>") << QVariant(qint64(31));
    QTest::newRow("real without fraction") << QByteArray("<real>2</real>") << QVariant(2.0);
    QTest::newRow("real with exponent") << QByteArray("<real>-1.5e3</real>") << QVariant(-1500.0);
    QTest::newRow("date with offset") << QByteArray("<date>2024-01-31T13:30:00+01:30</date>")
                                      << QVariant(QDateTime(QDate(2024, 1, 31), QTime(12, 0), Qt::UTC));
    QTest::newRow("wrapped base64") << QByteArray("<data>\n\taGVs\n\tbG8g\r\n d29y bGQ=\n</data>")
                                    << QVariant(QByteArray("hello world"));
    QTest::newRow("cdata") << QByteArray("<string><![CDATA[a <b> & c]]></string>")
                           << QVariant(QStringLiteral("a <b> & c"));
    QTest::newRow("entities") << QByteArray("<string>&lt;&amp;&gt;&#x1F37A;</string>")
                              << QVariant(QStringLiteral("<&>🍺"));
    QTest::newRow("self-closing string") << QByteArray("<string/>") << QVariant(QString());
    QTest::newRow("comments between entries")
        << QByteArray("<dict><!-- a --><key>a</key><!-- b --><integer>1</integer><?pi x?></dict>")
        << QVariant(QVariantMap{{QStringLiteral("a"), qint64(1)}});
    QTest::newRow("later duplicate key wins") << QByteArray("<dict><key>a</key><true/><key>a</key><false/></dict>")
                                              << QVariant(QVariantMap{{QStringLiteral("a"), false}});
}

void TestPropertyList::parsesValues()
{
    QFETCH(QByteArray, body);
    QFETCH(QVariant, expected);
    const auto parsed = PropertyList::parse(document(body));
    QVERIFY2(parsed.ok(), failure(parsed).constData());
    QVERIFY2(sameTree(parsed.value(), expected), qPrintable(parsed.value().toString()));
}

void TestPropertyList::nullValuesAreLeftOut()
{
    const QVariantMap map{{QStringLiteral("gone"), QVariant()}, {QStringLiteral("kept"), qint64(1)}};
    const auto parsed = PropertyList::parse(PropertyList::serialize(map));
    QVERIFY(parsed.ok());
    QVERIFY(sameTree(parsed.value(), QVariantMap{{QStringLiteral("kept"), qint64(1)}}));
}

void TestPropertyList::malformed_data()
{
    QTest::addColumn<QByteArray>("xml");
    QTest::addColumn<int>("code");

    QTest::newRow("empty") << QByteArray() << int(PropertyList::Empty);
    QTest::newRow("whitespace") << QByteArray(" \n\t ") << int(PropertyList::Empty);
    QTest::newRow("not xml") << QByteArray("name = value") << int(PropertyList::MalformedXml);
    QTest::newRow("declaration only") << QByteArray("<?xml version=\"1.0\"?>") << int(PropertyList::MalformedXml);
    QTest::newRow("unclosed") << QByteArray("<plist><dict><key>a</key><true/>") << int(PropertyList::MalformedXml);
    QTest::newRow("mismatched tags") << QByteArray("<plist><array></dict></plist>") << int(PropertyList::MalformedXml);
    QTest::newRow("undeclared entity") << document("<string>&bogus;</string>") << int(PropertyList::MalformedXml);
    QTest::newRow("content after root") << QByteArray("<plist><true/></plist><plist/>")
                                        << int(PropertyList::MalformedXml);
    QTest::newRow("missing plist root") << QByteArray("<dict><key>a</key><true/></dict>")
                                        << int(PropertyList::InvalidStructure);
    QTest::newRow("empty plist") << document("") << int(PropertyList::InvalidStructure);
    QTest::newRow("two values") << document("<true/><false/>") << int(PropertyList::InvalidStructure);
    QTest::newRow("unknown element") << document("<dictionary/>") << int(PropertyList::InvalidStructure);
    QTest::newRow("unknown element in array")
        << document("<array><true/><nil/></array>") << int(PropertyList::InvalidStructure);
    QTest::newRow("key without value") << document("<dict><key>a</key></dict>") << int(PropertyList::InvalidStructure);
    QTest::newRow("key after key") << document("<dict><key>a</key><key>b</key><true/></dict>")
                                   << int(PropertyList::InvalidStructure);
    QTest::newRow("value without key") << document("<dict><string>x</string></dict>")
                                       << int(PropertyList::InvalidStructure);
    QTest::newRow("key outside dict") << document("<array><key>a</key></array>") << int(PropertyList::InvalidStructure);
    QTest::newRow("element inside string")
        << document("<string>a<b/>c</string>") << int(PropertyList::InvalidStructure);
    QTest::newRow("element inside key") << document("<dict><key><string>a</string></key><true/></dict>")
                                        << int(PropertyList::InvalidStructure);
    QTest::newRow("text in dict") << document("<dict>loose</dict>") << int(PropertyList::InvalidStructure);
    QTest::newRow("text in plist") << document("loose") << int(PropertyList::InvalidStructure);
    QTest::newRow("word integer") << document("<integer>twelve</integer>") << int(PropertyList::InvalidValue);
    QTest::newRow("fraction integer") << document("<integer>1.5</integer>") << int(PropertyList::InvalidValue);
    QTest::newRow("empty integer") << document("<integer/>") << int(PropertyList::InvalidValue);
    QTest::newRow("suffixed integer") << document("<integer>12abc</integer>") << int(PropertyList::InvalidValue);
    QTest::newRow("double sign") << document("<integer>--5</integer>") << int(PropertyList::InvalidValue);
    QTest::newRow("integer too large") << document("<integer>9223372036854775808</integer>")
                                       << int(PropertyList::InvalidValue);
    QTest::newRow("integer too small") << document("<integer>-9223372036854775809</integer>")
                                       << int(PropertyList::InvalidValue);
    QTest::newRow("word real") << document("<real>half</real>") << int(PropertyList::InvalidValue);
    QTest::newRow("empty real") << document("<real></real>") << int(PropertyList::InvalidValue);
    QTest::newRow("word date") << document("<date>yesterday</date>") << int(PropertyList::InvalidValue);
    QTest::newRow("month 13") << document("<date>2024-13-01T00:00:00Z</date>") << int(PropertyList::InvalidValue);
    QTest::newRow("date without zone") << document("<date>2024-01-31T12:00:00</date>")
                                       << int(PropertyList::InvalidValue);
    QTest::newRow("bad base64") << document("<data>!!!!</data>") << int(PropertyList::InvalidValue);
    QTest::newRow("base64 with too much padding")
        << document("<data>aGVsbG8==</data>") << int(PropertyList::InvalidValue);
    QTest::newRow("true with text") << document("<true>no</true>") << int(PropertyList::InvalidValue);
    QTest::newRow("too deep") << nestedArrays(PropertyList::maximumDepth + 1) << int(PropertyList::TooDeep);
}

void TestPropertyList::malformed()
{
    QFETCH(QByteArray, xml);
    QFETCH(int, code);
    const auto parsed = PropertyList::parse(xml);
    QVERIFY(!parsed.ok());
    QCOMPARE(parsed.error().domain(), QStringLiteral("PropertyListError"));
    QVERIFY2(!parsed.error().description().isEmpty(), "an error must say what is wrong");
    QVERIFY2(parsed.error().code() == code, failure(parsed).constData());
}

void TestPropertyList::errorNamesTheLine()
{
    const auto parsed = PropertyList::parse(document("<dict>\n<key>a</key>\n<integer>x</integer>\n</dict>"));
    QVERIFY(!parsed.ok());
    QVERIFY2(parsed.error().description().contains(QStringLiteral("line 6")), failure(parsed).constData());
    QVERIFY(parsed.error().description().contains(QStringLiteral("\"x\"")));
}

void TestPropertyList::depthLimit()
{
    const auto deepest = PropertyList::parse(nestedArrays(PropertyList::maximumDepth));
    QVERIFY2(deepest.ok(), failure(deepest).constData());

    // Far beyond the limit: refused early instead of recursing through the whole document.
    const auto hostile = PropertyList::parse(nestedArrays(200000));
    QVERIFY(!hostile.ok());
    QCOMPARE(hostile.error().code(), int(PropertyList::TooDeep));
}

void TestPropertyList::readFailures()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());

    const QString missing = dir.filePath(QStringLiteral("missing.plist"));
    auto result = PropertyList::read(missing);
    QVERIFY(!result.ok());
    QCOMPARE(result.error().code(), int(PropertyList::Unreadable));
    QVERIFY(result.error().description().contains(missing));

    result = PropertyList::read(dir.path());
    QVERIFY(!result.ok());
    QCOMPARE(result.error().code(), int(PropertyList::Unreadable));

    const QString empty = dir.filePath(QStringLiteral("empty.plist"));
    QFile file(empty);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.close();
    result = PropertyList::read(empty);
    QVERIFY(!result.ok());
    QCOMPARE(result.error().code(), int(PropertyList::Empty));
    QVERIFY(result.error().description().contains(empty));
}

void TestPropertyList::shippedInfo()
{
    const auto read = PropertyList::read(resourcesDir + QStringLiteral("/Info.plist"));
    QVERIFY2(read.ok(), failure(read).constData());
    QCOMPARE(read.value().typeId(), QMetaType::QVariantMap);
    const QVariantMap info = read.value().toMap();
    QCOMPARE(info.value(QStringLiteral("CFBundleIdentifier")).toString(), QStringLiteral("works.tessel.corvel"));
    QCOMPARE(info.value(QStringLiteral("CFBundleName")).toString(), QStringLiteral("Corvel X"));
    QCOMPARE(info.value(QStringLiteral("CFBundleShortVersionString")).typeId(), QMetaType::QString);
    QCOMPARE(info.value(QStringLiteral("CFBundleVersion")).typeId(), QMetaType::QString);
    QCOMPARE(info.value(QStringLiteral("TW_ANALYTICS_DOMAIN")).toString(), QStringLiteral("corvel.tessel.works"));
    const QStringList urlKeys{QStringLiteral("TW_SERVICES_URL"), QStringLiteral("TW_HOMEBREW_API_URL"),
                              QStringLiteral("TW_GITHUB_API_URL"), QStringLiteral("TW_GITHUB_URL"),
                              QStringLiteral("TW_ANALYTICS_URL")};
    for (const QString& key : urlKeys) {
        const QVariant value = info.value(key);
        QVERIFY2(value.typeId() == QMetaType::QString, qPrintable(key));
        const QUrl url(value.toString(), QUrl::StrictMode);
        QVERIFY2(url.isValid() && url.scheme() == u"https" && !url.host().isEmpty(), qPrintable(key));
    }
}

void TestPropertyList::shippedDefaultSettings_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QVariant>("expected");

    QTest::newRow("personas") << PreferenceKeys::PersonasSelectedIndex << QVariant(qint64(0));
    QTest::newRow("upgrades above") << PreferenceKeys::TableShowUpgradesAbove << QVariant(false);
    QTest::newRow("table style") << PreferenceKeys::TableStyle << QVariant(qint64(0));
    QTest::newRow("column sizing") << PreferenceKeys::TableColumnSizing << QVariant(qint64(0));
    QTest::newRow("transcript font") << PreferenceKeys::TranscriptFontStyle << QVariant(qint64(0));
    QTest::newRow("transcript visible") << PreferenceKeys::TranscriptPaneVisible << QVariant(true);
    QTest::newRow("transcript thickness") << PreferenceKeys::TranscriptPaneThickness << QVariant(200.0);
    QTest::newRow("settings tab") << PreferenceKeys::SettingsSelectedTabIndex << QVariant(qint64(0));
    QTest::newRow("analytics") << PreferenceKeys::AllowDataCollection << QVariant(false);
    QTest::newRow("crash reports") << PreferenceKeys::AllowAutomaticCrashReportsCollection << QVariant(false);
    QTest::newRow("beta updates") << PreferenceKeys::ReceiveBetaUpdates << QVariant(false);
    QTest::newRow("sync on launch") << PreferenceKeys::SyncOnAppLaunch << QVariant(true);
    QTest::newRow("first run") << PreferenceKeys::IsFirstRun << QVariant(true);
}

void TestPropertyList::shippedDefaultSettings()
{
    QFETCH(QString, key);
    QFETCH(QVariant, expected);
    const auto read = PropertyList::read(resourcesDir + QStringLiteral("/DefaultSettings.plist"));
    QVERIFY2(read.ok(), failure(read).constData());
    QCOMPARE(read.value().typeId(), QMetaType::QVariantMap);
    const QVariantMap defaults = read.value().toMap();
    QVERIFY2(sameTree(defaults.value(key), expected), qPrintable(defaults.value(key).toString()));
    // Nothing else may be registered: a misspelt key would silently never apply.
    QCOMPARE(defaults.size(), 13);
}

QTEST_GUILESS_MAIN(TestPropertyList)
#include "TestPropertyList.moc"
