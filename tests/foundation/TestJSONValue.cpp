#include "foundation/JSON.h"
#include "foundation/RailsJSONDecoder.h"
#include "foundation/RailsJSONEncoder.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>
#include <limits>

Q_DECLARE_METATYPE(JSON)

namespace {

QByteArray nested(int depth)
{
    return QByteArray(depth, '[') + QByteArray(depth, ']');
}

} // namespace

class TestJSONValue : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void decodeOrder_data();
    void decodeOrder();
    void numbersBeyondTheFastPath_data();
    void numbersBeyondTheFastPath();
    void objectKeys();
    void nestingLimit_data();
    void nestingLimit();
    void accessors();
    void encodeRoundTrip();
};

void TestJSONValue::decodeOrder_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<JSON>("expected");

    QTest::newRow("integer") << QByteArray("1") << JSON(1);
    QTest::newRow("negative integer") << QByteArray(" -42 ") << JSON(-42);
    QTest::newRow("double") << QByteArray("1.5") << JSON(1.5);
    QTest::newRow("integral double") << QByteArray("1.0") << JSON(1.0);
    QTest::newRow("exponent") << QByteArray("1e2") << JSON(100.0);
    QTest::newRow("string of digits") << QByteArray(R"("1")") << JSON("1");
    QTest::newRow("escaped string") << QByteArray(R"("\u00e9\ud83d\ude00\n")") << JSON("é😀\n");
    QTest::newRow("true") << QByteArray("true") << JSON(true);
    QTest::newRow("false") << QByteArray("false") << JSON(false);
    QTest::newRow("null") << QByteArray("null") << JSON();
    QTest::newRow("empty array") << QByteArray("[]") << JSON(JSON::Array{});
    QTest::newRow("empty object") << QByteArray("{}") << JSON(JSON::Object{});
    QTest::newRow("mixed array") << QByteArray(R"([1, 1.5, "1", true, null, [2]])")
                                 << JSON(JSON::Array{1, 1.5, "1", true, nullptr, JSON::Array{2}});
    QTest::newRow("nested object")
        << QByteArray(R"({"app": ["A.app", {"target": "/Applications/A.app"}], "n": {"deep": [null]}})")
        << JSON(JSON::Object{{"app", JSON::Array{"A.app", JSON::Object{{"target", "/Applications/A.app"}}}},
                             {"n", JSON::Object{{"deep", JSON::Array{nullptr}}}}});
}

void TestJSONValue::decodeOrder()
{
    QFETCH(QByteArray, json);
    QFETCH(JSON, expected);

    const Result<JSON> decoded = RailsJSONDecoder().decode<JSON>(json);
    QVERIFY2(decoded, qPrintable(decoded ? QString() : decoded.error().description()));
    QCOMPARE(decoded.value().type(), expected.type());
    QVERIFY(decoded.value() == expected);
}

void TestJSONValue::numbersBeyondTheFastPath_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<JSON>("expected");

    const double infinity = std::numeric_limits<double>::infinity();
    QTest::newRow("int64 max") << QByteArray("9223372036854775807") << JSON(std::numeric_limits<qint64>::max());
    QTest::newRow("int64 min") << QByteArray("-9223372036854775808") << JSON(std::numeric_limits<qint64>::min());
    QTest::newRow("beyond int64") << QByteArray("9223372036854775808") << JSON(9223372036854775808.0);
    QTest::newRow("beyond uint64") << QByteArray("123456789012345678901234") << JSON(1.23456789012345678901234e23);
    QTest::newRow("overflow") << QByteArray("1e400") << JSON(infinity);
    QTest::newRow("negative overflow") << QByteArray("-1e400") << JSON(-infinity);
    QTest::newRow("underflow") << QByteArray("1e-400") << JSON(0.0);
}

void TestJSONValue::numbersBeyondTheFastPath()
{
    QFETCH(QByteArray, json);
    QFETCH(JSON, expected);

    // Both as the whole document and inside an array, where the number is followed by more.
    for (const QByteArray& document : {json, '[' + json + ", 0]"}) {
        const Result<JSON> decoded = RailsJSONDecoder().decode<JSON>(document);
        QVERIFY2(decoded, qPrintable(decoded ? QString() : decoded.error().description()));
        const JSON& number = decoded.value().isArray() ? decoded.value().toArray().front() : decoded.value();
        QCOMPARE(number.type(), expected.type());
        QVERIFY(number == expected);
    }
}

void TestJSONValue::objectKeys()
{
    const QByteArray json = R"({"zap": 1, "screen_saver": 2, "app": 3, "_private_key": 4, "inputMethod": 5,
                                "x86_64_linux": {"sha_256": null}, "app": 6})";
    const Result<JSON> decoded = RailsJSONDecoder().decode<JSON>(json);
    QVERIFY(decoded);
    const JSON& object = decoded.value();
    // Document order, snake case converted, a repeated key kept where it stands.
    QCOMPARE(object.keys(),
             (QStringList{"zap", "screenSaver", "app", "_privateKey", "inputMethod", "x8664Linux", "app"}));
    QCOMPARE(object.value(u"screenSaver"), JSON(2));
    QCOMPARE(object.value(u"app"), JSON(6)); // the later one wins, as it would in a dictionary
    QVERIFY(object.value(u"x8664Linux").contains(u"sha256"));
    QVERIFY(!object.contains(u"screen_saver"));
}

void TestJSONValue::nestingLimit_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<bool>("decodes");

    QTest::newRow("at the limit") << nested(JsonReader::maximumDepth) << true;
    QTest::newRow("one deeper") << nested(JsonReader::maximumDepth + 1) << false;
    QTest::newRow("very deep") << nested(200000) << false;
    QTest::newRow("very deep objects") << QByteArray(100000, '{').replace("{", R"({"a":)") + "1" +
                                              QByteArray(100000, '}')
                                       << false;
    QTest::newRow("very deep, truncated") << QByteArray(200000, '[') << false;
}

void TestJSONValue::nestingLimit()
{
    QFETCH(QByteArray, json);
    QFETCH(bool, decodes);

    const Result<JSON> decoded = RailsJSONDecoder().decode<JSON>(json);
    QCOMPARE(decoded.ok(), decodes);
    if (!decodes) {
        QVERIFY(decoded.error().is(DecodingError::domain, DecodingError::dataCorrupted));
        QVERIFY(decoded.error().description().size() < 300);
    }
}

void TestJSONValue::accessors()
{
    const JSON value(JSON::Object{{"n", 3}, {"d", 2.5}, {"s", "text"}, {"b", true}, {"a", JSON::Array{1}}});
    QCOMPARE(value.type(), JSON::Type::object);
    QCOMPARE(value.value(u"n").toInteger(), qint64(3));
    QCOMPARE(value.value(u"n").toDouble(), 3.0);         // integers read as doubles
    QCOMPARE(value.value(u"d").toInteger(7), qint64(7)); // but not the other way round
    QCOMPARE(value.value(u"s").toString(), QStringLiteral("text"));
    QCOMPARE(value.value(u"s").toBool(true), true);
    QCOMPARE(value.value(u"b").toBool(), true);
    QCOMPARE(value.value(u"a").toArray().size(), std::size_t(1));
    QVERIFY(value.value(u"missing").isNull());
    QVERIFY(value.value(u"s").toArray().empty());
    QVERIFY(JSON("x").keys().isEmpty());
    QVERIFY(JSON(1) != JSON(1.0));
    QVERIFY(JSON(JSON::Object{{"a", 1}, {"b", 2}}) != JSON(JSON::Object{{"b", 2}, {"a", 1}}));
}

void TestJSONValue::encodeRoundTrip()
{
    const JSON original(JSON::Object{
        {"screenSaver", JSON::Array{"Clock.saver", JSON::Object{{"targetPath", "/Library/Screen Savers"}}}},
        {"count", 3},
        {"ratio", 0.25},
        {"flag", false},
        {"nothing", nullptr},
    });
    const QByteArray encoded = RailsJSONEncoder().encode(original);
    const QJsonObject object = QJsonDocument::fromJson(encoded).object();
    QVERIFY(object.contains(u"screen_saver"));
    QCOMPARE(object.value(u"screen_saver")[1].toObject().keys(), QStringList{QStringLiteral("target_path")});
    QVERIFY(object.value(u"nothing").isNull());

    // The encoder's object is sorted; the decoder keeps that order, so compare member by member.
    const Result<JSON> decoded = RailsJSONDecoder().decode<JSON>(encoded);
    QVERIFY(decoded);
    QCOMPARE(decoded.value().keys().size(), original.keys().size());
    for (const QString& key : original.keys()) {
        QCOMPARE(decoded.value().value(key), original.value(key));
    }

    QCOMPARE(original.toQJsonValue(false).toObject().keys(),
             (QStringList{"count", "flag", "nothing", "ratio", "screenSaver"}));
    QCOMPARE(RailsJSONEncoder().encode(JSON(1.5)), QByteArray("1.5"));
    QCOMPARE(RailsJSONEncoder().encode(JSON()), QByteArray("null"));
}

QTEST_GUILESS_MAIN(TestJSONValue)
#include "TestJSONValue.moc"
