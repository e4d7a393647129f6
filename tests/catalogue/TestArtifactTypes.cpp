#include "catalogue/ArtifactTypes.h"
#include "catalogue/HomebrewCask.h"
#include "foundation/DecodingError.h"
#include "foundation/RailsJSONDecoder.h"
#include "foundation/RailsJSONEncoder.h"

#include <QTest>

namespace {

template <class T>
QByteArray failure(const Result<T>& result)
{
    return result ? QByteArray() : result.error().description().left(300).toUtf8();
}

} // namespace

class TestArtifactTypes : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void decoding_data();
    void decoding();
    void badInput_data();
    void badInput();
    void inCask_data();
    void inCask();
    void encodingRoundTrip();
};

void TestArtifactTypes::decoding_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QStringList>("keys");

    QTest::newRow("one key per stanza") << QByteArray(R"([{"app": ["Foo.app"]}, {"zap": [{"trash": "~/Foo"}]}])")
                                        << QStringList{"app", "zap"};
    QTest::newRow("empty") << QByteArray("[]") << QStringList();
    QTest::newRow("snake case converted") << QByteArray(R"([{"screen_saver": []}, {"vst3_plugin": {}}, {"_a_b": 1}])")
                                          << QStringList{"screenSaver", "vst3Plugin", "_aB"};
    QTest::newRow("several keys in one stanza, in order")
        << QByteArray(R"([{"uninstall": {"quit": "x"}, "pkg": "Foo.pkg"}, {}, {"app": null}])")
        << QStringList{"uninstall", "pkg", "app"};
    QTest::newRow("stanzas that are not objects add nothing")
        << QByteArray(R"([["app"], "app", 1, -2.5e3, null, true, false, {"font": ["a.ttf"]}])") << QStringList{"font"};
    QTest::newRow("keys inside a stanza are not types")
        << QByteArray(R"([{"app": [{"target": "Bar.app", "nested_list": [{"deep_key": 1}]}]}])") << QStringList{"app"};
    QTest::newRow("repeated types kept") << QByteArray(R"([{"app": 1}, {"binary": 2}, {"app": 3}])")
                                         << QStringList{"app", "binary", "app"};
    QTest::newRow("escaped and non-ASCII keys")
        << QByteArray(R"([{"a\u0070p": 1}, {"caf\u00e9_x": 2}, {"ünï": 3}])") << QStringList{"app", "caféX", "ünï"};

    // More distinct keys than the shared key table holds, decoded twice: the keys past its end must still be right.
    QByteArray many = "[";
    QStringList manyKeys;
    for (int i = 0; i < 600; ++i) {
        many += (i ? ", " : "") + QByteArray(R"({"key_)") + QByteArray::number(i) + R"(": [1, {"x": "y"}]})";
        manyKeys += "key" + QString::number(i);
    }
    many += ']';
    QTest::newRow("many distinct keys") << many << manyKeys;
}

void TestArtifactTypes::decoding()
{
    QFETCH(QByteArray, json);
    QFETCH(QStringList, keys);

    for (int pass = 0; pass < 2; ++pass) {
        const auto types = RailsJSONDecoder().decode<ArtifactTypes>(json);
        QVERIFY2(types, failure(types));
        QCOMPARE(types.value().keys(), keys);
    }
}

void TestArtifactTypes::badInput_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("description"); // the whole description, or its start when it ends with "..."

    const int corrupted = DecodingError::dataCorrupted;
    const QString notJsonAt = QStringLiteral("The given data was not valid JSON at ");
    const QByteArray deep = QByteArray(100000, '[') + QByteArray(100000, ']');

    QTest::newRow("object") << QByteArray(R"({"app": []})") << int(DecodingError::typeMismatch)
                            << "Expected an array at the top level";
    QTest::newRow("null") << QByteArray("null") << int(DecodingError::valueNotFound)
                          << "Expected an array but found null at the top level";
    QTest::newRow("malformed literal in a stanza")
        << QByteArray(R"([{"app": ["a", tru]}])") << corrupted << notJsonAt + "[0].app[1]: ...";
    QTest::newRow("malformed number in a stanza")
        << QByteArray(R"([{"app": 1}, {"pkg": {"size": 01}}])") << corrupted << notJsonAt + "[1].pkg.size: ...";
    QTest::newRow("malformed value where a stanza should be")
        << QByteArray(R"([{"app": 1}, nul])") << corrupted << notJsonAt + "[1]: ...";
    QTest::newRow("too deep in a stanza") << QByteArray(R"([{"app": )" + deep + "}]") << corrupted << notJsonAt + "...";
    QTest::newRow("truncated") << QByteArray(R"([{"app": [)") << corrupted << "The given data was not valid JSON...";
}

void TestArtifactTypes::badInput()
{
    QFETCH(QByteArray, json);
    QFETCH(int, code);
    QFETCH(QString, description);

    const auto types = RailsJSONDecoder().decode<ArtifactTypes>(json);
    QVERIFY(!types);
    QCOMPARE(types.error().domain(), DecodingError::domain);
    QCOMPARE(types.error().code(), code);
    if (description.endsWith(u"...")) {
        QVERIFY2(types.error().description().startsWith(description.chopped(3)), failure(types));
        QVERIFY(types.error().description().size() < 400);
    } else {
        QCOMPARE(types.error().description(), description);
    }
}

void TestArtifactTypes::inCask_data()
{
    QTest::addColumn<QByteArray>("artifacts"); // the JSON of the member; empty to leave it out
    QTest::addColumn<bool>("decodes");
    QTest::addColumn<QString>("types"); // the cask's artifact types joined by ",", or "-" when absent

    QTest::newRow("recognised only") << QByteArray(R"([{"uninstall": []}, {"app": []}, {"input_method": []}])") << true
                                     << "app,inputMethod";
    QTest::newRow("missing") << QByteArray() << true << "-";
    QTest::newRow("null") << QByteArray("null") << true << "-";
    QTest::newRow("wrong type gives up on the field") << QByteArray(R"("app")") << true << "-";
    QTest::newRow("malformed JSON fails the cask") << QByteArray(R"([{"app": nul}])") << false << "";
}

void TestArtifactTypes::inCask()
{
    QFETCH(QByteArray, artifacts);
    QFETCH(bool, decodes);
    QFETCH(QString, types);

    QByteArray json = R"({"token": "foo", "name": ["Foo"])";
    if (!artifacts.isEmpty()) {
        json += R"(, "artifacts": )" + artifacts;
    }
    json += R"(, "desc": "after the artifacts"})";
    const auto cask = RailsJSONDecoder().decode<Homebrew::Cask>(json);
    QCOMPARE(bool(cask), decodes);
    if (!decodes) {
        QCOMPARE(cask.error().code(), int(DecodingError::dataCorrupted));
        return;
    }
    QCOMPARE(cask.value().desc, QStringLiteral("after the artifacts"));
    const std::optional<QStringList> decoded = cask.value().artifactTypes();
    QCOMPARE(decoded ? decoded->join(u',') : QStringLiteral("-"), types);
}

void TestArtifactTypes::encodingRoundTrip()
{
    const ArtifactTypes types(QStringList{"screenSaver", "app", "vst3Plugin"});
    const QByteArray json = RailsJSONEncoder().encode(types);
    QCOMPARE(json, QByteArray(R"([{"screen_saver":null},{"app":null},{"vst3_plugin":null}])"));
    const auto decoded = RailsJSONDecoder().decode<ArtifactTypes>(json);
    QVERIFY2(decoded, failure(decoded));
    QCOMPARE(decoded.value(), types);
}

QTEST_GUILESS_MAIN(TestArtifactTypes)
#include "TestArtifactTypes.moc"
