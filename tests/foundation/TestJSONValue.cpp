#include "foundation/JSON.h"
#include "foundation/RailsJSONDecoder.h"
#include "foundation/RailsJSONEncoder.h"

#include <QTest>

Q_DECLARE_METATYPE(JSON)

class TestJSONValue : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void decode_data();
    void decode();
    void nestingLimit_data();
    void nestingLimit();
    void accessors();
    void encode();
};

void TestJSONValue::decode_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<JSON>("expected");

    const auto row = [](const char* json, const JSON& value) { QTest::newRow(json) << QByteArray(json) << value; };
    row("1", 1);
    row(" -42 ", -42);
    row("1.5", 1.5);
    row("1.0", 1.0);
    row("1e2", 100.0);
    row("9223372036854775808", 9223372036854775808.0);
    row("1e400", qInf());
    row("-1e400", -qInf());
    row("1e-400", 0.0);
    QTest::newRow("long number beyond the fast path") << QByteArray(100000, '9') + "e400" << JSON(qInf());
    row(R"("1")", "1");
    row(R"("\u00e9\ud83d\ude00\n")", "é😀\n");
    row("true", true);
    row("null", JSON());
    row("{}", JSON::Object{});
    row(R"([1, 1.5, "1", true, null, [2], []])",
        JSON::Array{1, 1.5, "1", true, nullptr, JSON::Array{2}, JSON::Array{}});
    // Keys converted from snake case, in document order, a repeated one kept where it stands.
    row(R"({"zap": 1, "screen_saver": {"x86_64": null}, "_key_": 2, "zap": 3})",
        JSON::Object{{"zap", 1}, {"screenSaver", JSON::Object{{"x8664", nullptr}}}, {"_key_", 2}, {"zap", 3}});
}

void TestJSONValue::decode()
{
    QFETCH(QByteArray, json);
    QFETCH(JSON, expected);

    // As the whole document, and inside an array where white space and more follow.
    for (const QByteArray& document : {json, '[' + json + "\n, 0]"}) {
        const Result<JSON> decoded = RailsJSONDecoder().decode<JSON>(document);
        QVERIFY2(decoded, qPrintable(decoded ? QString() : decoded.error().description()));
        const JSON& value = document == json ? decoded.value() : decoded.value().toArray().front();
        QCOMPARE(value.type(), expected.type());
        QVERIFY(value == expected);
    }
}

void TestJSONValue::nestingLimit_data()
{
    QTest::addColumn<QByteArray>("open"); // one level
    QTest::addColumn<QByteArray>("close");

    QTest::newRow("arrays") << QByteArray("[") << QByteArray("]");
    QTest::newRow("objects") << QByteArray(R"({"a_b":)") << QByteArray("}");
}

void TestJSONValue::nestingLimit()
{
    QFETCH(QByteArray, open);
    QFETCH(QByteArray, close);

    const auto nested = [&](int depth) { return open.repeated(depth) + "null" + close.repeated(depth); };
    QVERIFY(RailsJSONDecoder().decode<JSON>(nested(JsonReader::maximumDepth)));
    for (const QByteArray& json : {nested(JsonReader::maximumDepth + 1), nested(100000), open.repeated(200000)}) {
        const Result<JSON> decoded = RailsJSONDecoder().decode<JSON>(json);
        QVERIFY(!decoded && decoded.error().is(DecodingError::domain, DecodingError::dataCorrupted));
        QVERIFY(decoded.error().description().size() < 300);
    }
}

void TestJSONValue::accessors()
{
    const JSON value(JSON::Object{{"n", 3}, {"d", 2.5}, {"n", 4}});
    QCOMPARE(value.value(u"n").toInteger(), qint64(4));  // the later of a repeated key, as in a dictionary
    QCOMPARE(value.value(u"n").toDouble(), 4.0);         // integers read as doubles
    QCOMPARE(value.value(u"d").toInteger(7), qint64(7)); // but not the other way round
    QVERIFY(value.value(u"missing").isNull() && value.value(u"d").toArray().empty() && JSON("x").keys().isEmpty());
}

void TestJSONValue::encode()
{
    const JSON saver = JSON::Array{"C.saver", JSON::Object{{"targetPath", "/S S"}}};
    const JSON original(JSON::Object{{"screenSaver", saver}, {"count", 3}, {"ratio", 0.25}, {"no", nullptr}});
    QCOMPARE(RailsJSONEncoder().encode(original),
             QByteArray(R"({"count":3,"no":null,"ratio":0.25,"screen_saver":["C.saver",{"target_path":"/S S"}]})"));
    QCOMPARE(original.toQJsonValue(false).toObject().keys(), (QStringList{"count", "no", "ratio", "screenSaver"}));
}

QTEST_GUILESS_MAIN(TestJSONValue)
#include "TestJSONValue.moc"
