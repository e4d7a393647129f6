#include "foundation/FailableCodable.h"
#include "foundation/JSON.h"
#include "foundation/RailsJSONDecoder.h"
#include "foundation/RailsJSONEncoder.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>
#include <cmath>
#include <thread>

namespace {

// Shaped like the catalogue's formula and cask records.
struct FormulaRecord {
    QString token;
    QString name;
    std::optional<QString> tap;
    std::optional<QString> desc;
    FailableCodable<QUrl> website;
    // Real records hold a string, null, an array or an object here: anything but a string must not cost the formula.
    FailableCodable<QString> license;

    static constexpr auto codingKeys()
    {
        return std::make_tuple(CodingKey("name", &FormulaRecord::token), CodingKey("fullName", &FormulaRecord::name),
                               CodingKey("tap", &FormulaRecord::tap), CodingKey("desc", &FormulaRecord::desc),
                               CodingKey("homepage", &FormulaRecord::website),
                               CodingKey("license", &FormulaRecord::license));
    }
};

struct StrictLicenseFormula {
    std::optional<QString> license;
    static constexpr auto codingKeys() { return std::make_tuple(CodingKey("license", &StrictLicenseFormula::license)); }
};

struct CaskRecord {
    QString token;
    QStringList nameParts;
    std::optional<QString> desc;
    FailableCodable<QUrl> website;
    std::optional<QString> version;
    QString internalSha256;
    FailableCodable<std::vector<JSON>> artifacts;

    static constexpr auto codingKeys()
    {
        return std::make_tuple(CodingKey("token", &CaskRecord::token), CodingKey("name", &CaskRecord::nameParts),
                               CodingKey("desc", &CaskRecord::desc), CodingKey("homepage", &CaskRecord::website),
                               CodingKey("installed", &CaskRecord::version),
                               CodingKey("sha256", &CaskRecord::internalSha256),
                               CodingKey("artifacts", &CaskRecord::artifacts));
    }
};

struct InfoEnvelope {
    std::vector<FormulaRecord> formulae;
    std::vector<CaskRecord> casks;
    static constexpr auto codingKeys()
    {
        return std::make_tuple(CodingKey("formulae", &InfoEnvelope::formulae),
                               CodingKey("casks", &InfoEnvelope::casks));
    }
};

struct NestedProbe {
    std::optional<int> someCount;
    static constexpr auto codingKeys() { return std::make_tuple(CodingKey("someCount", &NestedProbe::someCount)); }
};

// One field of each kind, for the tables of bad input.
struct Probe {
    QString name;
    std::optional<int> count;
    std::optional<double> ratio;
    std::optional<bool> flag;
    std::optional<QDateTime> when;
    std::optional<QUrl> link;
    FailableCodable<JSON> extra;
    std::optional<NestedProbe> nestedValue;

    static constexpr auto codingKeys()
    {
        return std::make_tuple(CodingKey("name", &Probe::name), CodingKey("count", &Probe::count),
                               CodingKey("ratio", &Probe::ratio), CodingKey("flag", &Probe::flag),
                               CodingKey("when", &Probe::when), CodingKey("link", &Probe::link),
                               CodingKey("extra", &Probe::extra), CodingKey("nestedValue", &Probe::nestedValue));
    }
};

struct Inner {
    int id = 0;
    static constexpr auto codingKeys() { return std::make_tuple(CodingKey("id", &Inner::id)); }
};

struct Tolerant {
    FailableCodable<QStringList> list;
    FailableCodable<QString> text;
    FailableCodable<std::vector<Inner>> inner;
    QString after;
    JSON tail;

    static constexpr auto codingKeys()
    {
        return std::make_tuple(CodingKey("list", &Tolerant::list), CodingKey("text", &Tolerant::text),
                               CodingKey("inner", &Tolerant::inner), CodingKey("after", &Tolerant::after),
                               CodingKey("tail", &Tolerant::tail));
    }
};

// A JSON document carried in a string, decoded by a second decoder while the first is still reading.
struct Embedded {
    JSON document;
};

struct Carrier {
    Embedded payload;
    QString after;
    static constexpr auto codingKeys()
    {
        return std::make_tuple(CodingKey("payload", &Carrier::payload), CodingKey("after", &Carrier::after));
    }
};

QByteArray testData(const char* relativePath)
{
    const auto data =
        RailsJSONDecoder::readFile(QStringLiteral(CORVEL_TEST_DATA_DIR "/") + QLatin1String(relativePath));
    return data ? data.value() : QByteArray();
}

template <class T>
Result<T> decode(const QByteArray& json)
{
    return RailsJSONDecoder().decode<T>(json);
}

QString describe(const Error& error)
{
    return error.description().left(300);
}

QStringList artifactKeys(const CaskRecord& cask)
{
    QStringList keys;
    for (const JSON& artifact : cask.artifacts.value_or(std::vector<JSON>())) {
        keys += artifact.keys();
    }
    return keys;
}

} // namespace

template <>
struct JsonCoding<Embedded> {
    static bool decode(JsonReader& reader, Embedded& out)
    {
        QString text;
        if (!reader.readString(text)) {
            return false;
        }
        Result<JSON> inner = RailsJSONDecoder().decode<JSON>(text.toUtf8());
        out.document = inner ? inner.value() : JSON();
        return inner ? true : reader.fail(DecodingError::dataCorrupted, inner.error().description());
    }
    static QJsonValue encode(const Embedded&) { return {}; }
};

class TestRailsJSON : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void formulaCatalogues_data();
    void formulaCatalogues();
    void caskCatalogue_data();
    void caskCatalogue();
    void brewInfoOutput_data();
    void brewInfoOutput();
    void tolerantFields_data();
    void tolerantFields();
    void tolerantFieldFailingPartWay_data();
    void tolerantFieldFailingPartWay();
    void badInput_data();
    void badInput();
    void typedValues();
    void largeAndDeepDocuments();
    void unpaddedInput();
    void decodingInsideDecoding();
    void concurrentDecoding();
    void encoder();
};

void TestRailsJSON::formulaCatalogues_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<int>("count");
    QTest::addColumn<int>("index");
    QTest::addColumn<QString>("fullName");
    QTest::addColumn<QString>("license"); // empty: absent

    QTest::newRow("no license key") << QByteArray("catalogue/formula-sample.json") << 63 << 0 << "awscli"
                                    << "";
    QTest::newRow("string license") << QByteArray("catalogue/formula-sample.json") << 63 << 3 << "cairo"
                                    << "LGPL-2.1-only or MPL-1.1";
    QTest::newRow("array license") << QByteArray("catalogue/formula-sample.json") << 63 << 34 << "neovim"
                                   << "";
    QTest::newRow("null license") << QByteArray("catalogue/bio-formula.json") << 318 << 0 << "brewsci/bio/abacas"
                                  << "";
}

void TestRailsJSON::formulaCatalogues()
{
    QFETCH(QByteArray, file);
    QFETCH(int, count);
    QFETCH(int, index);
    QFETCH(QString, fullName);
    QFETCH(QString, license);

    const QByteArray json = testData(file.constData());
    const auto formulae = decode<std::vector<FormulaRecord>>(json);
    QVERIFY2(formulae, qPrintable(formulae ? QString() : describe(formulae.error())));
    QCOMPARE(int(formulae.value().size()), count);
    QCOMPARE(formulae.value()[std::size_t(index)].name, fullName);
    QCOMPARE(formulae.value()[std::size_t(index)].license.value_or(QString()), license);
    for (const FormulaRecord& formula : formulae.value()) {
        QVERIFY2(formula.website && formula.website->scheme().startsWith(u"http"), qPrintable(formula.token));
        if (file.contains("bio")) {
            QCOMPARE(formula.name, QStringLiteral("brewsci/bio/") + formula.token);
        }
    }

    // Typed as a plain optional string, the license fails the whole catalogue at its first array.
    const auto strict = decode<std::vector<StrictLicenseFormula>>(json);
    if (file.contains("bio")) {
        QVERIFY(strict);
    } else {
        QVERIFY(strict.error().is(DecodingError::domain, DecodingError::typeMismatch));
        QCOMPARE(strict.error().description(), QStringLiteral("Expected a string at [34].license"));
    }
}

void TestRailsJSON::caskCatalogue_data()
{
    QTest::addColumn<QString>("token");
    QTest::addColumn<QStringList>("nameParts");
    QTest::addColumn<QStringList>("artifactKeys");
    QTest::addColumn<QString>("desc");
    QTest::addColumn<QString>("sha256");

    QTest::newRow("app") << "0-ad" << QStringList{"0 A.D."} << QStringList{"app", "target", "zap"}
                         << "Real-time strategy game"
                         << "8c53566123fed9a79766c";
    QTest::newRow("screen saver, null desc")
        << "grid-clock" << QStringList{"Grid Clock Screensaver"} << QStringList{"screenSaver", "target"} << ""
        << "eb9f5b4803";
    QTest::newRow("chinese name") << "qqmusic" << QStringList{"QQ音乐"}
                                  << QStringList{"uninstall", "app", "target", "zap"}
                                  << "Chinese music streaming application"
                                  << "63856887ba";
    QTest::newRow("no checksum") << "rode-unify" << QStringList{"RØDE Unify"} << QStringList{"uninstall", "pkg", "zap"}
                                 << "Virtual mixing software"
                                 << "no_check";
}

void TestRailsJSON::caskCatalogue()
{
    QFETCH(QString, token);
    QFETCH(QStringList, nameParts);
    QFETCH(QStringList, artifactKeys);
    QFETCH(QString, desc);
    QFETCH(QString, sha256);

    const auto casks = decode<std::vector<CaskRecord>>(testData("catalogue/cask-sample.json"));
    QVERIFY2(casks, qPrintable(casks ? QString() : describe(casks.error())));
    const auto& all = casks.value();
    QCOMPARE(all.size(), std::size_t(211));
    QCOMPARE(std::count_if(all.begin(), all.end(), [](const CaskRecord& c) { return !c.desc; }), 61);
    QVERIFY(std::all_of(all.begin(), all.end(), [](const CaskRecord& c) { return c.artifacts && !c.version; }));

    const auto cask = std::find_if(all.begin(), all.end(), [&](const CaskRecord& c) { return c.token == token; });
    QVERIFY(cask != all.end());
    QCOMPARE(cask->nameParts, nameParts);
    QCOMPARE(::artifactKeys(*cask), artifactKeys);
    QCOMPARE(cask->desc.value_or(QString()), desc);
    QVERIFY(cask->internalSha256.startsWith(sha256));
}

void TestRailsJSON::brewInfoOutput_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<int>("formulaCount");
    QTest::addColumn<int>("caskCount");

    QTest::newRow("nothing installed") << QByteArray("real-brew/03-info_--installed_--formulae_--json_v2.out") << 0
                                       << 0;
    QTest::newRow("installed casks") << QByteArray("real-brew/12-info_--installed_--casks_--json_v2.out") << 0 << 1;
    QTest::newRow("installed formulae") << QByteArray("real-brew/17-info_--installed_--formulae_--json_v2.out") << 3
                                        << 0;
    QTest::newRow("one cask") << QByteArray("real-brew/populated-info-cask-hello-cask.json") << 0 << 1;
    QTest::newRow("both kinds") << QByteArray("real-brew/populated-info-installed-casks.json") << 3 << 1;
}

void TestRailsJSON::brewInfoOutput()
{
    QFETCH(QByteArray, file);
    QFETCH(int, formulaCount);
    QFETCH(int, caskCount);

    const auto info = decode<InfoEnvelope>(testData(file.constData()));
    QVERIFY2(info, qPrintable(info ? QString() : describe(info.error())));
    QCOMPARE(int(info.value().formulae.size()), formulaCount);
    QCOMPARE(int(info.value().casks.size()), caskCount);
    if (formulaCount > 0) {
        const FormulaRecord& app = info.value().formulae.front();
        QCOMPARE(app.name, QStringLiteral("localtest/tools/hello-app"));
        QCOMPARE(app.tap, QStringLiteral("localtest/tools"));
        QCOMPARE(app.license, QStringLiteral("MIT"));
    }
    if (caskCount > 0) {
        const CaskRecord& cask = info.value().casks.front();
        QCOMPARE(cask.nameParts, QStringList{QStringLiteral("Hello Cask")});
        QCOMPARE(cask.version, QStringLiteral("0.9"));
        QCOMPARE(artifactKeys(cask), QStringList{QStringLiteral("binary")});
        QCOMPARE(cask.artifacts->front().value(u"binary").toArray()[1].value(u"target"), JSON("hello-cask"));
    }
}

void TestRailsJSON::tolerantFields_data()
{
    QTest::addColumn<QByteArray>("key");
    QTest::addColumn<QByteArray>("value"); // JSON text; empty: no key at all
    QTest::addColumn<QString>("expected"); // empty: absent

    QTest::newRow("url") << QByteArray("homepage") << QByteArray(R"("https://brew.sh/")") << "https://brew.sh/";
    QTest::newRow("words for url") << QByteArray("homepage") << QByteArray(R"("not a url")") << "";
    QTest::newRow("empty url") << QByteArray("homepage") << QByteArray(R"("")") << "";
    QTest::newRow("number for url") << QByteArray("homepage") << QByteArray("42") << "";
    QTest::newRow("null url") << QByteArray("homepage") << QByteArray("null") << "";
    QTest::newRow("object for url") << QByteArray("homepage") << QByteArray(R"({"url": "https://brew.sh", "n": [1]})")
                                    << "";
    QTest::newRow("no url") << QByteArray("homepage") << QByteArray() << "";
    QTest::newRow("license") << QByteArray("license") << QByteArray(R"("MIT")") << "MIT";
    QTest::newRow("license list") << QByteArray("license") << QByteArray(R"(["MIT", "GPL-2.0"])") << "";
    QTest::newRow("license object") << QByteArray("license") << QByteArray(R"({"any_of": ["MIT", {"all_of": []}]})")
                                    << "";
}

void TestRailsJSON::tolerantFields()
{
    QFETCH(QByteArray, key);
    QFETCH(QByteArray, value);
    QFETCH(QString, expected);

    const QByteArray field = value.isEmpty() ? QByteArray() : '"' + key + "\": " + value + ',';
    const auto formulae =
        decode<std::vector<FormulaRecord>>(R"([{"name": "a", )" + field + R"( "full_name": "core/a", "desc": "after"},
                                {"name": "b", "full_name": "core/b", "homepage": "https://b.example/"}])");
    QVERIFY2(formulae, qPrintable(formulae ? QString() : describe(formulae.error())));
    const FormulaRecord& first = formulae.value()[0];
    const FailableCodable<QString> actual = key == "license" ? first.license
                                            : first.website  ? first.website->toString()
                                                             : FailableCodable<QString>();
    QCOMPARE(actual.value_or(QString()), expected);
    QCOMPARE(actual.has_value(), !expected.isEmpty());
    QCOMPARE(first.name, QStringLiteral("core/a"));
    QCOMPARE(first.desc, QStringLiteral("after"));
    QCOMPARE(formulae.value()[1].website->host(), QStringLiteral("b.example"));
}

void TestRailsJSON::tolerantFieldFailingPartWay_data()
{
    QTest::addColumn<QByteArray>("field");
    QTest::addColumn<QByteArray>("value");

    QTest::newRow("list with a number") << QByteArray("list") << QByteArray(R"(["a", 2, "c"])");
    QTest::newRow("list of lists") << QByteArray("list") << QByteArray(R"([["a", ["b"]], "c"])");
    QTest::newRow("list given an object") << QByteArray("list") << QByteArray(R"({"a": ["b", {"c": 1}]})");
    QTest::newRow("text given an object") << QByteArray("text") << QByteArray(R"({"deep": [1, {"x": [2]}], "m": "y"})");
    QTest::newRow("record of wrong type in the middle")
        << QByteArray("inner") << QByteArray(R"([{"id": 1}, {"id": "x", "rest": [1, 2]}, {"id": 3}])");
    QTest::newRow("record missing its key")
        << QByteArray("inner") << QByteArray(R"([{"id": 1}, {"other": {"id": 2}}])");
    QTest::newRow("null record") << QByteArray("inner") << QByteArray(R"([{"id": 1}, null, {"id": 3}])");
    QTest::newRow("number too big for int") << QByteArray("inner") << QByteArray(R"([{"id": 3000000000}])");
    QTest::newRow("fraction for int") << QByteArray("inner") << QByteArray(R"([{"id": 1.5, "after": [true]}])");
}

void TestRailsJSON::tolerantFieldFailingPartWay()
{
    QFETCH(QByteArray, field);
    QFETCH(QByteArray, value);

    // Three records; in the first, the bad value comes first and the other fields follow it.
    const QList<std::pair<QByteArray, QByteArray>> goodFields = {
        {"list", R"(["x", "y"])"}, {"text", R"("t")"}, {"inner", R"([{"id": 7}])"}};
    QByteArray json = "[";
    for (int i = 0; i < 3; ++i) {
        json += i == 0 ? "{\"" + field + "\": " + value + ", " : QByteArray(",{");
        for (const auto& [name, good] : goodFields) {
            json += i > 0 || name != field ? '"' + name + "\": " + good + ", " : QByteArray();
        }
        json += R"("after": "a)" + QByteArray::number(i) + R"(", "tail": {"n": )" + QByteArray::number(i) + "}}";
    }
    const auto records = decode<std::vector<Tolerant>>(json + ']');
    QVERIFY2(records, qPrintable(records ? QString() : describe(records.error())));
    QCOMPARE(records.value().size(), std::size_t(3));
    for (int i = 0; i < 3; ++i) {
        const Tolerant& record = records.value()[std::size_t(i)];
        QCOMPARE(record.after, QStringLiteral("a%1").arg(i));
        QCOMPARE(record.tail.value(u"n").toInteger(-1), qint64(i));
        QCOMPARE(record.list, i > 0 || field != "list" ? FailableCodable<QStringList>({"x", "y"}) : std::nullopt);
        QCOMPARE(record.text, i > 0 || field != "text" ? FailableCodable<QString>("t") : std::nullopt);
        QCOMPARE(record.inner.has_value(), i > 0 || field != "inner");
        QCOMPARE(record.inner ? record.inner->front().id : 7, 7);
    }
}

void TestRailsJSON::badInput_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("description"); // the whole description, or its start when it ends with "..."

    const int corrupted = DecodingError::dataCorrupted;
    const int mismatch = DecodingError::typeMismatch;
    const QString notJson = QStringLiteral("The given data was not valid JSON: ...");
    const QByteArray deep = QByteArray(100000, '[') + QByteArray(100000, ']');

    QTest::newRow("empty") << QByteArray() << corrupted << notJson;
    QTest::newRow("truncated array") << QByteArray(R"([{"name": "a"}, {"name": )") << corrupted << "The given data...";
    QTest::newRow("truncated string") << QByteArray(R"([{"name": "a)") << corrupted << notJson;
    QTest::newRow("trailing garbage") << QByteArray(R"([{"name": "a"}] x)") << corrupted << "The given data...";
    QTest::newRow("second document") << QByteArray(R"([{"name": "a"}] [{"name": "b"}])") << corrupted << notJson;
    QTest::newRow("missing comma") << QByteArray(R"([{"name": "a" "count": 1}])") << corrupted
                                   << "The given data was not valid JSON at [0]: ...";
    QTest::newRow("invalid UTF-8") << QByteArray("[{\"name\": \"a\xff\"}]") << corrupted << notJson;
    QTest::newRow("invalid UTF-8 in a tolerant field")
        << QByteArray("[{\"name\": \"a\", \"extra\": \"\xc3(\"}]") << corrupted << notJson;
    QTest::newRow("invalid UTF-8 in a skipped value")
        << QByteArray("[{\"name\": \"a\", \"x\": \"\xed\xa0\x80\"}]") << corrupted << notJson;
    QTest::newRow("bad escape") << QByteArray(R"([{"name": "\u12"}])") << corrupted
                                << "The given data was not valid JSON at [0].name: ...";
    QTest::newRow("malformed number") << QByteArray(R"([{"name": "a", "count": 01}])") << corrupted
                                      << "The given data was not valid JSON at [0].count: ...";
    QTest::newRow("malformed number in a tolerant field") << QByteArray(R"([{"name": "a", "extra": -}])") << corrupted
                                                          << "The given data was not valid JSON at [0].extra: ...";
    QTest::newRow("malformed literal") << QByteArray(R"([{"name": "a", "flag": tru}])") << corrupted
                                       << "The given data was not valid JSON at [0].flag: ...";
    QTest::newRow("malformed null in a tolerant field") << QByteArray(R"([{"name": "a", "extra": nul}])") << corrupted
                                                        << "The given data was not valid JSON at [0].extra: ...";
    QTest::newRow("nesting too deep in a tolerant field") << QByteArray(R"([{"name": "a", "extra": )" + deep + "}]")
                                                          << corrupted << "The given data was not valid JSON at [0]...";
    QTest::newRow("root object") << QByteArray(R"({"name": "a"})") << mismatch << "Expected an array at the top level";
    QTest::newRow("root null") << QByteArray("null") << int(DecodingError::valueNotFound)
                               << "Expected an array but found null at the top level";
    QTest::newRow("missing required key")
        << QByteArray(R"([{"name": "a"}, {"count": 1}])") << int(DecodingError::keyNotFound)
        << R"(No value associated with key "name" at [1])";
    QTest::newRow("null required") << QByteArray(R"([{"name": null}])") << int(DecodingError::valueNotFound)
                                   << "Expected a string but found null at [0].name";
    QTest::newRow("number for string") << QByteArray(R"([{"name": 5}])") << mismatch << "Expected a string at [0].name";
    QTest::newRow("string for integer") << QByteArray(R"([{"name": "a", "count": "5"}])") << mismatch
                                        << "Expected an integer at [0].count";
    QTest::newRow("fraction for integer")
        << QByteArray(R"([{"name": "a", "count": 1.5}])") << mismatch << "Expected an integer at [0].count";
    QTest::newRow("huge number for integer")
        << QByteArray(R"([{"name": "a", "count": 1e400}])") << mismatch << "Expected an integer at [0].count";
    QTest::newRow("integer beyond int") << QByteArray(R"([{"name": "a", "count": 3000000000}])") << corrupted
                                        << "Parsed JSON number <3000000000> does not fit in int at [0].count";
    QTest::newRow("string for Boolean") << QByteArray(R"([{"name": "a", "flag": "true"}])") << mismatch
                                        << "Expected a Boolean value at [0].flag";
    QTest::newRow("object for number") << QByteArray(R"([{"name": "a", "ratio": {"v": 1}}])") << mismatch
                                       << "Expected a number at [0].ratio";
    QTest::newRow("under converted keys") << QByteArray(R"([{"name": "a", "nested_value": {"some_count": "x"}}])")
                                          << mismatch << "Expected an integer at [0].nestedValue.someCount";
    QTest::newRow("bad date") << QByteArray(R"([{"name": "a", "when": "yesterday"}])") << corrupted
                              << "Date string does not match format expected by formatter at [0].when";
    QTest::newRow("bad URL") << QByteArray(R"([{"name": "a", "link": "not a url"}])") << corrupted
                             << R"(Invalid URL string "not a url" at [0].link)";
}

void TestRailsJSON::badInput()
{
    QFETCH(QByteArray, json);
    QFETCH(int, code);
    QFETCH(QString, description);

    const auto probes = decode<std::vector<Probe>>(json);
    QVERIFY(!probes);
    QCOMPARE(probes.error().domain(), DecodingError::domain);
    QCOMPARE(probes.error().code(), code);
    if (description.endsWith(u"...")) {
        QVERIFY2(probes.error().description().startsWith(description.chopped(3)), qPrintable(describe(probes.error())));
        QVERIFY(probes.error().description().size() < 400);
    } else {
        QCOMPARE(probes.error().description(), description);
    }
}

void TestRailsJSON::typedValues()
{
    const auto probes = decode<std::vector<Probe>>(R"([
        {"name": "caf\u00e9 \"q\" \ud83c\udf7a", "count": -2147483648, "ratio": 1, "flag": false,
         "when": "2024-03-05T14:07:09.123+0100", "link": "https://brew.sh/x?y=1#z", "extra": [1, 2.5, "s"]},
        {"name": "b", "ratio": 1e400, "when": null, "link": null, "extra": null}])");
    QVERIFY2(probes, qPrintable(probes ? QString() : describe(probes.error())));
    const Probe& first = probes.value()[0];
    QCOMPARE(first.name, QStringLiteral("café \"q\" 🍺"));
    QCOMPARE(first.count, std::numeric_limits<int>::min());
    QCOMPARE(first.ratio, 1.0);
    QCOMPARE(first.flag, false);
    QCOMPARE(first.when, QDateTime(QDate(2024, 3, 5), QTime(13, 7, 9, 123), Qt::UTC));
    QCOMPARE(first.link, QUrl(QStringLiteral("https://brew.sh/x?y=1#z")));
    QCOMPARE(first.extra, JSON(JSON::Array{1, 2.5, "s"}));
    const Probe& second = probes.value()[1];
    QVERIFY(!second.count && !second.flag && !second.when && !second.link);
    QVERIFY(std::isinf(*second.ratio));
    QCOMPARE(second.extra, JSON()); // null is a JSON value of its own
}

void TestRailsJSON::largeAndDeepDocuments()
{
    QByteArray artifacts;
    for (int i = 0; i < 60000; ++i) {
        artifacts += (i > 0 ? R"(,{"font": "F)" : R"({"font": "F)") + QByteArray::number(i) + R"(.ttf"})";
    }
    const QByteArray desc(600000, 'x');
    // Values without a coding key are skipped without recursion, however deep.
    const QByteArray deep = QByteArray(100000, '[') + QByteArray(100000, ']');
    const auto casks = decode<std::vector<CaskRecord>>(
        RailsJSONDecoder::padded(R"([{"token": "font-pack", "name": ["Pack"], "unknown": )" + deep + R"(, "desc": ")" +
                                 desc + R"(", "sha256": "no_check", "artifacts": [)" + artifacts + "]}]"));
    QVERIFY2(casks, qPrintable(casks ? QString() : describe(casks.error())));
    const CaskRecord& cask = casks.value().front();
    QCOMPARE(cask.desc->size(), desc.size());
    QCOMPARE(cask.artifacts->size(), std::size_t(60000));
    QCOMPARE(cask.artifacts->back().value(u"font"), JSON("F59999.ttf"));
}

void TestRailsJSON::unpaddedInput()
{
    const QByteArray padded = testData("catalogue/cask-sample.json");
    QVERIFY(padded.capacity() - padded.size() >= RailsJSONDecoder::padding());
    // Raw data has no spare room; a removed front leaves room before the data rather than after it.
    const QByteArray raw = QByteArray::fromRawData(padded.constData(), padded.size());
    QByteArray shifted = "      " + padded;
    shifted.remove(0, 6);
    QStringList expected;
    for (const QByteArray& input : {padded, raw, shifted}) {
        const auto casks = decode<std::vector<CaskRecord>>(input);
        QVERIFY(casks);
        QStringList summary;
        for (const CaskRecord& cask : casks.value()) {
            summary += cask.token + u'/' + cask.nameParts.join(u' ') + u'/' + artifactKeys(cask).join(u',');
        }
        expected = expected.isEmpty() ? summary : expected;
        QCOMPARE(summary, expected);
    }
    QCOMPARE(expected.size(), 211);

    const auto missing = RailsJSONDecoder::readFile(QStringLiteral(CORVEL_TEST_DATA_DIR "/no-such.json"));
    QVERIFY(!missing && missing.error().description().contains(u"no-such.json"));
}

void TestRailsJSON::decodingInsideDecoding()
{
    const auto carrier = decode<Carrier>(R"({"payload": "{\"screen_saver\": [1, {\"a_b\": true}]}", "after": "done"})");
    QVERIFY2(carrier, qPrintable(carrier ? QString() : describe(carrier.error())));
    QCOMPARE(carrier.value().after, QStringLiteral("done"));
    QCOMPARE(carrier.value().payload.document.value(u"screenSaver").toArray()[1].value(u"aB"), JSON(true));
}

void TestRailsJSON::concurrentDecoding()
{
    const QByteArray casks = testData("catalogue/cask-sample.json");
    const QByteArray formulae = testData("catalogue/bio-formula.json");
    const auto expected = decode<std::vector<CaskRecord>>(casks);
    QVERIFY(expected);

    std::vector<int> mismatches(4, 0);
    std::vector<std::thread> threads;
    for (int& threadMismatches : mismatches) {
        threads.emplace_back([&] {
            for (int round = 0; round < 3; ++round) {
                const auto decodedCasks = decode<std::vector<CaskRecord>>(casks);
                const auto decodedFormulae = decode<std::vector<FormulaRecord>>(formulae);
                const bool same =
                    decodedCasks && decodedFormulae && decodedFormulae.value().size() == 318 &&
                    std::equal(decodedCasks.value().begin(), decodedCasks.value().end(), expected.value().begin(),
                               expected.value().end(), [](const CaskRecord& a, const CaskRecord& b) {
                                   return a.token == b.token && a.desc == b.desc && a.artifacts == b.artifacts;
                               });
                threadMismatches += same ? 0 : 1;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    QCOMPARE(mismatches, std::vector<int>(4, 0));
}

void TestRailsJSON::encoder()
{
    FormulaRecord formula{"a", "core/a", std::nullopt, "Ünïcode", {}, QStringLiteral("MIT")};
    const QByteArray encoded = RailsJSONEncoder().encode(formula);
    QVERIFY(!encoded.contains('\n'));
    const QJsonObject object = QJsonDocument::fromJson(encoded).object();
    QCOMPARE(object.keys(), (QStringList{"desc", "full_name", "homepage", "license", "name"}));
    QVERIFY(
        object.value(u"homepage").isNull()); // an absent tolerant field is written as null, an absent optional left out
    const auto decoded = decode<FormulaRecord>(encoded);
    QVERIFY(decoded);
    QCOMPARE(decoded.value().name, formula.name);
    QCOMPARE(decoded.value().desc, formula.desc);
    QCOMPARE(decoded.value().license, formula.license);

    Probe probe{"p",
                {},
                {},
                {},
                QDateTime(QDate(2024, 3, 5), QTime(14, 7, 9, 123), Qt::OffsetFromUTC, 3600),
                QUrl(QStringLiteral("https://brew.sh/a b")),
                JSON(JSON::Object{{"screenSaver", JSON::Array{1, nullptr}}}),
                NestedProbe{4}};
    const QByteArray probeJson = RailsJSONEncoder().encode(std::vector<Probe>{probe});
    const QByteArray expectedText =
        R"([{"extra":{"screen_saver":[1,null]},"link":"https://brew.sh/a%20b",)"
        R"("name":"p","nested_value":{"some_count":4},"when":"2024-03-05T13:07:09.123+0000"}])";
    QCOMPARE(probeJson, expectedText);
    const auto probes = decode<std::vector<Probe>>(probeJson);
    QVERIFY(probes);
    QCOMPARE(probes.value().front().when, probe.when);
    QCOMPARE(probes.value().front().link, probe.link);
    QCOMPARE(probes.value().front().extra, probe.extra);
    QCOMPARE(probes.value().front().nestedValue->someCount, 4);
}

QTEST_GUILESS_MAIN(TestRailsJSON)
#include "TestRailsJSON.moc"
