#include "foundation/PropertyList.h"

#include <QDataStream>
#include <QDateTime>
#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>
#include <limits>

namespace {

const QString resourcesDir = QStringLiteral(CORVEL_RESOURCES_SOURCE_DIR);

QByteArray document(const QByteArray& body)
{
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
           "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n<plist version=\"1.0\">\n" +
           body + "\n</plist>\n";
}

// QVariant's own comparison converts between types; the streamed form keeps them, so an int read where a qint64
// belongs, or an integer where a real belongs, does not pass.
QByteArray typed(const QVariant& value)
{
    QByteArray bytes;
    QDataStream stream(&bytes, QIODevice::WriteOnly);
    stream << value;
    return bytes;
}

QByteArray nestedArrays(int depth)
{
    return document(QByteArray("<array>").repeated(depth) + QByteArray("</array>").repeated(depth));
}

QByteArray failure(const Result<QVariant>& result)
{
    return result.ok() ? QByteArray() : result.error().description().toUtf8();
}

} // namespace

class TestPropertyList : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void values_data();
    void values();
    void malformed_data();
    void malformed();
    // Missing and empty files, and the shipped resources.
    void files();
};

// Rows made from a value check that it survives serialize and parse; rows from text check what the reader accepts.
void TestPropertyList::values_data()
{
    QTest::addColumn<QByteArray>("xml");
    QTest::addColumn<QVariant>("expected");
    const auto parses = [](const char* name, const QByteArray& xml, const QVariant& value) {
        QTest::newRow(name) << xml << value;
    };
    const auto roundTrip = [&](const char* name, const QVariant& value) {
        parses(name, PropertyList::serialize(value), value);
    };
    const QDateTime noon(QDate(2024, 1, 31), QTime(12, 0), Qt::UTC);

    roundTrip("strings", QVariantList{"a < b && \"d\" ]]> Grüße 🍺", "  two leading, one trailing ", QString()});
    roundTrip("integer limits", QVariantList{std::numeric_limits<qint64>::max(), std::numeric_limits<qint64>::min()});
    roundTrip("reals", QVariantList{0.1, 200.0, -std::numeric_limits<double>::infinity()});
    roundTrip("booleans", QVariantList{true, false});
    roundTrip("date", noon);
    roundTrip("data", QVariantList{QByteArray("\x00\x01\xfe\xff binary", 11), QByteArray("")});
    roundTrip("nested", QVariantMap{{"<&>", QVariantList{QVariantMap{{"x", qint64(1)}}}}, {QString(), QVariantMap()}});
    QVariant deepest = QVariantList();
    for (int depth = 1; depth < PropertyList::maximumDepth; ++depth) {
        deepest = QVariantList{deepest};
    }
    roundTrip("deepest allowed", deepest);
    parses("null left out", PropertyList::serialize(QVariantMap{{"gone", QVariant()}, {"kept", qint64(1)}}),
           QVariantMap{{"kept", qint64(1)}});
    parses("integer forms", document("<array><integer> 42\n</integer><integer>0x1F</integer></array>"),
           QVariantList{qint64(42), qint64(31)});
    parses("date with offset", document("<date>2024-01-31T13:30:00+01:30</date>"), noon);
    parses("wrapped base64", document("<data>\n\taGVs\n\tbG8g\r\n d29y bGQ=\n</data>"), QByteArray("hello world"));
    parses("cdata and entities", document("<string><![CDATA[a <b>]]>&amp;&#x1F37A;</string>"), "a <b>&🍺");
    parses("comments", document("<dict><!-- c --><key>a</key><?pi x?><false/></dict>"), QVariantMap{{"a", false}});
}

void TestPropertyList::values()
{
    QFETCH(QByteArray, xml);
    QFETCH(QVariant, expected);
    const auto parsed = PropertyList::parse(xml);
    QVERIFY2(parsed.ok(), failure(parsed).constData());
    QVERIFY2(typed(parsed.value()) == typed(expected), xml.left(2000).constData());
}

void TestPropertyList::malformed_data()
{
    QTest::addColumn<QByteArray>("xml");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("mentions");
    const auto bad = [](const char* name, const QByteArray& xml, PropertyList::ErrorCode code, QString mentions = {}) {
        QTest::newRow(name) << xml << int(code) << mentions;
    };
    using enum PropertyList::ErrorCode;

    bad("empty", " \n\t ", Empty);
    bad("not xml", "name = value", MalformedXml, "line 1");
    bad("unclosed", "<plist><dict><key>a</key><true/>", MalformedXml);
    bad("content after root", "<plist><true/></plist><a/>", MalformedXml);
    bad("no plist root", "<dict/>", InvalidStructure);
    bad("empty plist", document(""), InvalidStructure);
    bad("unknown element", document("<array><nil/></array>"), InvalidStructure, "nil");
    bad("key without value", document("<dict><key>a</key></dict>"), InvalidStructure);
    bad("value without key", document("<dict><true/></dict>"), InvalidStructure);
    bad("element in string", document("<string>a<b/></string>"), InvalidStructure);
    // The user is told where to look and what was wrong.
    bad("bad integer", document("<dict>\n<key>a</key>\n<integer>x</integer>\n</dict>"), InvalidValue, "line 6.*\"x\"");
    bad("integer too large", document("<integer>9223372036854775808</integer>"), InvalidValue);
    bad("date without zone", document("<date>2024-01-31T12:00:00</date>"), InvalidValue);
    bad("bad base64", document("<data>!!!!</data>"), InvalidValue);
    bad("base64 over-padded", document("<data>aGVsbG8==</data>"), InvalidValue);
    bad("too deep", nestedArrays(PropertyList::maximumDepth + 1), TooDeep);
    // Refused early rather than recursing through the whole document.
    bad("hostile depth", nestedArrays(200000), TooDeep);
}

void TestPropertyList::malformed()
{
    QFETCH(QByteArray, xml);
    QFETCH(int, code);
    QFETCH(QString, mentions);
    const auto parsed = PropertyList::parse(xml);
    QVERIFY(!parsed.ok());
    QCOMPARE(parsed.error().domain(), PropertyList::errorDomain);
    QVERIFY2(parsed.error().code() == code, failure(parsed).constData());
    QVERIFY2(parsed.error().description().contains(QRegularExpression(mentions)), failure(parsed).constData());
}

void TestPropertyList::files()
{
    QTemporaryDir dir;
    const QString missing = dir.filePath("missing.plist");
    const QString empty = dir.filePath("empty.plist");
    QVERIFY(QFile(empty).open(QIODevice::WriteOnly));
    for (const auto& [path, code] :
         {std::pair(missing, PropertyList::Unreadable), std::pair(empty, PropertyList::Empty)}) {
        const auto read = PropertyList::read(path);
        QVERIFY(!read.ok());
        QCOMPARE(read.error().code(), int(code));
        QVERIFY2(read.error().description().contains(path), failure(read).constData());
    }

    const auto info = PropertyList::read(resourcesDir + "/Info.plist");
    QVERIFY2(info.ok(), failure(info).constData());
    const QVariantMap keys = info.value().toMap();
    const QUrl services(keys.value("TW_SERVICES_URL").toString(), QUrl::StrictMode);
    QVERIFY(services.isValid() && services.scheme() == u"https" && !services.host().isEmpty());
    const auto matches = [&](const char* key, const char* pattern) {
        return QRegularExpression(pattern).match(keys.value(key).toString()).hasMatch();
    };
    QVERIFY(matches("CFBundleShortVersionString", "^\\d+\\.\\d+\\.\\d+$") && matches("CFBundleVersion", "^\\d+$"));
    const auto settings = PropertyList::read(resourcesDir + "/DefaultSettings.plist");
    QVERIFY2(settings.ok() && settings.value().typeId() == QMetaType::QVariantMap, failure(settings).constData());
}

QTEST_GUILESS_MAIN(TestPropertyList)
#include "TestPropertyList.moc"
