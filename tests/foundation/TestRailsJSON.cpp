#include "catalogue/HomebrewCask.h"
#include "catalogue/HomebrewFormula.h"
#include "foundation/FailableCodable.h"
#include "foundation/JSON.h"
#include "foundation/RailsJSONDecoder.h"
#include "foundation/RailsJSONEncoder.h"

#include <QTest>
#include <cmath>
#include <thread>

using namespace Qt::StringLiterals;

namespace {

// A brew info document with both arrays, as `brew info --json=v2` without --formulae or --casks gives.
struct InfoEnvelope {
    std::vector<Homebrew::Formula> formulae;
    std::vector<Homebrew::Cask> casks;
    static constexpr auto codingKeys()
    {
        return std::make_tuple(CodingKey("formulae", &InfoEnvelope::formulae),
                               CodingKey("casks", &InfoEnvelope::casks));
    }
};

struct NestedProbe {
    int someCount = 0;
    bool operator==(const NestedProbe&) const = default;
    static constexpr auto codingKeys() { return std::make_tuple(CodingKey("someCount", &NestedProbe::someCount)); }
};

// One field of each kind: plain, optional and tolerant.
struct Probe {
    QString name;
    std::optional<int> count;
    std::optional<double> ratio;
    std::optional<bool> flag;
    std::optional<QDateTime> when;
    std::optional<QUrl> link;
    std::optional<NestedProbe> nestedValue;
    FailableCodable<JSON> extra;
    FailableCodable<QUrl> website;
    FailableCodable<QString> license;
    FailableCodable<QStringList> names;
    FailableCodable<std::vector<NestedProbe>> inner;
    bool operator==(const Probe&) const = default;

    static constexpr auto codingKeys()
    {
        return std::make_tuple(CodingKey("name", &Probe::name), CodingKey("count", &Probe::count),
                               CodingKey("ratio", &Probe::ratio), CodingKey("flag", &Probe::flag),
                               CodingKey("when", &Probe::when), CodingKey("link", &Probe::link),
                               CodingKey("nestedValue", &Probe::nestedValue), CodingKey("extra", &Probe::extra),
                               CodingKey("homepage", &Probe::website), CodingKey("license", &Probe::license),
                               CodingKey("names", &Probe::names), CodingKey("inner", &Probe::inner));
    }
};

QByteArray testData(const QString& relativePath)
{
    const auto data = RailsJSONDecoder::readFile(QStringLiteral(CORVEL_TEST_DATA_DIR "/") + relativePath);
    return data ? data.value() : QByteArray();
}

template <class T>
Result<T> decode(const QByteArray& json)
{
    return RailsJSONDecoder().decode<T>(json);
}

template <class T>
QByteArray failure(const Result<T>& result)
{
    return result ? QByteArray() : result.error().description().left(300).toUtf8();
}

// The fields in which the sample records differ; "-" when absent.
QString summary(const Homebrew::Formula& f)
{
    const QString absent = QStringLiteral("-");
    return QStringList{f.name, f.tap.value_or(absent), f.website ? f.website->host() : absent,
                       f.license.value_or(absent)}
        .join(u" | ");
}

QString summary(const Homebrew::Cask& c)
{
    const QStringList artifactKeys = c.artifacts ? c.artifacts->keys() : QStringList();
    const QString absent = QStringLiteral("-");
    return QStringList{c.nameParts.join(u','), c.desc.value_or(absent), c.version.value_or(absent),
                       artifactKeys.join(u',')}
        .join(u" | ");
}

// Every record of a brew info document, or why it failed.
QStringList summaries(const Result<InfoEnvelope>& info)
{
    if (!info) {
        return {info.error().description()};
    }
    QStringList summaries;
    for (const Homebrew::Formula& formula : info.value().formulae) {
        summaries += formula.token + ": " + summary(formula);
    }
    for (const Homebrew::Cask& cask : info.value().casks) {
        summaries += cask.token + ": " + summary(cask);
    }
    return summaries;
}

} // namespace

class TestRailsJSON : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void homebrewRecords_data();
    void homebrewRecords();
    void tolerantFields_data();
    void tolerantFields();
    void badInput_data();
    void badInput();
    void typedValuesAndEncoding();
    void missingFile();
    void decodingInsideDecoding();
};

void TestRailsJSON::homebrewRecords_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<int>("formulae");
    QTest::addColumn<int>("casks");
    QTest::addColumn<QString>("token"); // the record summarised, empty for none
    QTest::addColumn<QString>("summary");

    const auto row = [](const char* name, const char* file, int formulae, int casks, const char* token,
                        const char* summary) { QTest::newRow(name) << file << formulae << casks << token << summary; };
    const char* formula = "catalogue/formula-sample.json";
    const char* cask = "catalogue/cask-sample.json";
    row("no license", formula, 63, 0, "awscli", "awscli | - | aws.amazon.com | -");
    row("string license", formula, 63, 0, "cairo",
        "cairo | homebrew/core | cairographics.org | LGPL-2.1-only or MPL-1.1");
    row("array license", formula, 63, 0, "neovim", "neovim | - | neovim.io | -");
    row("bio tap", "catalogue/bio-formula.json", 318, 0, "abacas",
        "brewsci/bio/abacas | brewsci/bio | abacas.sourceforge.io | -");
    row("app", cask, 0, 211, "0-ad", "0 A.D. | Real-time strategy game | - | app,target,zap");
    row("screen saver, no desc", cask, 0, 211, "grid-clock", "Grid Clock Screensaver | - | - | screenSaver,target");
    row("Chinese name", cask, 0, 211, "qqmusic",
        "QQ音乐 | Chinese music streaming application | - | uninstall,app,target,zap");
    row("letter beyond ASCII", cask, 0, 211, "rode-unify",
        "RØDE Unify | Virtual mixing software | - | uninstall,pkg,zap");
    row("nothing installed", "real-brew/03-info_--installed_--formulae_--json_v2.out", 0, 0, "", "");
    row("installed cask", "real-brew/12-info_--installed_--casks_--json_v2.out", 0, 1, "hello-cask",
        "Hello Cask | Offline test cask | 0.9 | binary");
    row("installed formula", "real-brew/populated-info-installed-casks.json", 3, 1, "hello-app",
        "localtest/tools/hello-app | localtest/tools | example.invalid | MIT");
}

void TestRailsJSON::homebrewRecords()
{
    QFETCH(QString, file);
    QFETCH(int, formulae);
    QFETCH(int, casks);
    QFETCH(QString, token);
    QFETCH(QString, summary);

    QByteArray json = testData(file);
    QVERIFY(json.capacity() - json.size() >= RailsJSONDecoder::padding()); // read to be parsed in place
    if (file.startsWith(u"catalogue/")) { // a bare array of records: wrap it like brew info's output
        json = (file.contains(u"cask") ? R"({"formulae":[],"casks":)" : R"({"casks":[],"formulae":)") + json + '}';
    }
    const auto info = decode<InfoEnvelope>(json);
    QVERIFY2(info, failure(info));
    QCOMPARE(int(info.value().formulae.size()), formulae);
    QCOMPARE(int(info.value().casks.size()), casks);
    for (const Homebrew::Formula& f : info.value().formulae) {
        QVERIFY2(f.website && (f.tap != u"brewsci/bio" || f.name == "brewsci/bio/" + f.token), qPrintable(f.token));
    }
    for (const Homebrew::Cask& c : info.value().casks) {
        QVERIFY2(c.website && c.artifacts, qPrintable(c.token));
    }
    const QStringList all = summaries(info);
    QVERIFY2(all.contains(token + ": " + summary) == !token.isEmpty(), qPrintable(all.filter(token).join(u'\n')));

    // The same bytes with no spare room (raw data) and with it in front rather than behind, decoded at once on
    // threads of their own: each keeps its own parser.
    QByteArray shifted = "      " + json;
    const std::vector<QByteArray> inputs = {json, QByteArray::fromRawData(json.constData(), json.size()),
                                            shifted.remove(0, 6)};
    std::vector<QStringList> decoded(inputs.size());
    std::vector<std::jthread> threads;
    for (std::size_t i = 0; i < inputs.size(); ++i) {
        threads.emplace_back([&inputs, &decoded, i] { decoded[i] = summaries(decode<InfoEnvelope>(inputs[i])); });
    }
    threads.clear(); // joins them
    QCOMPARE(decoded, std::vector<QStringList>(inputs.size(), all));
}

void TestRailsJSON::tolerantFields_data()
{
    QTest::addColumn<QString>("member"); // JSON text, put first in the record
    QTest::addColumn<QString>("fields"); // homepage, license, names, inner as decoded; "-": absent

    const auto row = [](const char* name, const char* member, const char* fields) {
        QTest::newRow(name) << member << fields;
    };
    row("URL", R"("homepage": "https://brew.sh/")", "https://brew.sh/ - - -");
    row("words for URL", R"("homepage": "not a url")", "- - - -");
    row("empty URL", R"("homepage": "")", "- - - -");
    row("object for URL", R"("homepage": {"url": "https://brew.sh", "n": [1]})", "- - - -");
    row("license", R"("license": "MIT")", "- MIT - -");
    row("license list", R"("license": ["MIT", "GPL-2.0"])", "- - - -");
    row("license object", R"("license": {"any_of": ["MIT", {"all_of": []}]})", "- - - -");
    row("list", R"("names": ["a", "c"])", "- - a,c -");
    row("list with a number", R"("names": ["a", 2, "c"])", "- - - -");
    row("list of lists", R"("names": [["a", ["b"]], "c"])", "- - - -");
    row("object for a list", R"("names": {"a": ["b", {"c": 1}]})", "- - - -");
    row("records", R"("inner": [{"some_count": 1}, {"some_count": 2, "x": {}}])", "- - - 1,2");
    row("record of wrong type in the middle", R"("inner": [{"some_count": 1}, {"some_count": "x"}, {}])", "- - - -");
    row("record missing its key", R"("inner": [{"some_count": 1}, {"other": {"some_count": 2}}])", "- - - -");
    row("null record", R"("inner": [{"some_count": 1}, null, {"some_count": 3}])", "- - - -");
    row("number too big for int", R"("inner": [{"some_count": 3000000000}])", "- - - -");
    row("fraction for int", R"("inner": [{"some_count": 1.5, "after": [true]}])", "- - - -");
}

void TestRailsJSON::tolerantFields()
{
    QFETCH(QString, member);
    QFETCH(QString, fields);

    // The fields after the value under test, and the record after it, must still decode.
    const QString json = uR"([{%1, "name": "a", "nested_value": {"some_count": 1}}, {"name": "b"}])"_s.arg(member);
    const auto records = decode<std::vector<Probe>>(json.toUtf8());
    QVERIFY2(records, failure(records));
    QCOMPARE(records.value().size(), std::size_t(2));
    const Probe& p = records.value().front();
    QStringList counts;
    for (const NestedProbe& inner : p.inner.value_or(std::vector<NestedProbe>())) {
        counts += QString::number(inner.someCount);
    }
    const QString absent = QStringLiteral("-");
    QCOMPARE(QStringList({p.website ? p.website->toString() : absent, p.license.value_or(absent),
                          p.names ? p.names->join(u',') : absent, p.inner ? counts.join(u',') : absent})
                 .join(u' '),
             fields);
    QCOMPARE(p.name, u"a"_s);
    QCOMPARE(p.nestedValue, NestedProbe{1});
    QCOMPARE(records.value().back().name, u"b"_s);
}

void TestRailsJSON::badInput_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("description"); // the whole description, or its start when it ends with "..."

    const auto row = [](const char* name, const QByteArray& json, int code, const QString& description) {
        QTest::newRow(name) << json << code << description;
    };
    const auto member = [&row](const char* name, const QByteArray& json, int code, const QString& description) {
        row(name, R"([{"name": "a", )" + json + "}]", code, description);
    };
    const int corrupted = DecodingError::dataCorrupted, mismatch = DecodingError::typeMismatch;
    const int notFound = DecodingError::valueNotFound;
    const QString notJson = QStringLiteral("The given data was not valid JSON: ...");
    const QString notJsonAt = QStringLiteral("The given data was not valid JSON at [0]");
    const QByteArray deep = QByteArray(100000, '[') + QByteArray(100000, ']');

    row("empty", "", corrupted, notJson);
    row("truncated array", R"([{"name": "a"}, {"name": )", corrupted, "The given data...");
    row("trailing garbage", R"([{"name": "a"}] x)", corrupted, "The given data...");
    row("second document", R"([{"name": "a"}] [{"name": "b"}])", corrupted, notJson);
    row("missing comma", R"([{"name": "a" "count": 1}])", corrupted, notJsonAt + ": ...");
    row("invalid UTF-8", "[{\"name\": \"a\xff\"}]", corrupted, notJson);
    row("invalid UTF-8 in a tolerant field", "[{\"name\": \"a\", \"extra\": \"\xc3(\"}]", corrupted, notJson);
    row("bad escape", R"([{"name": "\u12"}])", corrupted, notJsonAt + ".name: ...");
    row("root object", R"({"name": "a"})", mismatch, "Expected an array at the top level");
    row("root null", "null", notFound, "Expected an array but found null at the top level");
    row("missing required key", R"([{"name": "a"}, {"count": 1}])", int(DecodingError::keyNotFound),
        R"(No value associated with key "name" at [1])");
    row("null required", R"([{"name": null}])", notFound, "Expected a string but found null at [0].name");
    row("number for string", R"([{"name": 5}])", mismatch, "Expected a string at [0].name");
    // The rest put one member after a good name.
    member("malformed number", R"("count": 01)", corrupted, notJsonAt + ".count: ...");
    member("malformed literal", R"("flag": tru)", corrupted, notJsonAt + ".flag: ...");
    // A tolerant field gives up on values of the wrong shape, never on malformed JSON.
    member("malformed number in a tolerant field", R"("extra": -)", corrupted, notJsonAt + ".extra: ...");
    member("malformed null in a tolerant field", R"("extra": nul)", corrupted, notJsonAt + ".extra: ...");
    member("too deep in a tolerant field", R"("extra": )" + deep, corrupted, notJsonAt + "...");
    member("fraction for integer", R"("count": 1.5)", mismatch, "Expected an integer at [0].count");
    member("huge number for integer", R"("count": 1e400)", mismatch, "Expected an integer at [0].count");
    member("integer beyond int", R"("count": 3000000000)", corrupted,
           "Parsed JSON number <3000000000> does not fit in int at [0].count");
    member("string for Boolean", R"("flag": "true")", mismatch, "Expected a Boolean value at [0].flag");
    member("under converted keys", R"("nested_value": {"some_count": "x"})", mismatch,
           "Expected an integer at [0].nestedValue.someCount");
    member("bad date", R"("when": "yesterday")", corrupted,
           "Date string does not match format expected by formatter at [0].when");
    member("bad URL", R"("link": "not a url")", corrupted, R"(Invalid URL string "not a url" at [0].link)");
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
        QVERIFY2(probes.error().description().startsWith(description.chopped(3)), failure(probes));
        QVERIFY(probes.error().description().size() < 400);
    } else {
        QCOMPARE(probes.error().description(), description);
    }
}

void TestRailsJSON::typedValuesAndEncoding()
{
    // Values without a coding key are skipped without recursion, however deep.
    const QByteArray unknown = QByteArray(100000, '[') + QByteArray(100000, ']');
    const auto probes = decode<std::vector<Probe>>(R"([
        {"name": "caf\u00e9 \"q\" \ud83c\udf7a", "ratio": 1, "flag": false, "when": "2024-03-05T14:07:09.123+0100",
         "link": "https://brew.sh/a%20b?y=1#z", "nested_value": {"some_count": -2147483648}},
        {"name": "b", "unknown": )" + unknown + R"(, "ratio": 1e400, "when": null, "link": null, "extra": null}])");
    QVERIFY2(probes, failure(probes));
    const Probe& first = probes.value()[0];
    const Probe& second = probes.value()[1];
    QVERIFY(!second.count && !second.flag && !second.when && !second.link);
    QVERIFY(std::isinf(*second.ratio));
    QCOMPARE(second.extra, JSON()); // null is a JSON value of its own

    // The first record as read, written back: keys in snake case, dates in UTC; an absent optional is left out, an
    // absent tolerant field is written as null.
    const QByteArray encoded = RailsJSONEncoder().encode(first);
    QCOMPARE(encoded, R"({"extra":null,"flag":false,"homepage":null,"inner":null,"license":null,)"
                      R"("link":"https://brew.sh/a%20b?y=1#z","name":"café \"q\" 🍺","names":null,)"
                      R"("nested_value":{"some_count":-2147483648},"ratio":1,"when":"2024-03-05T13:07:09.123+0000"})");
    auto decoded = decode<Probe>(encoded);
    QVERIFY2(decoded, failure(decoded));
    QCOMPARE(decoded.value().extra, JSON());
    decoded.value().extra.reset();
    QVERIFY(decoded.value() == first);
}

void TestRailsJSON::missingFile()
{
    const auto missing = RailsJSONDecoder::readFile(QStringLiteral(CORVEL_TEST_DATA_DIR "/no-such.json"));
    QVERIFY(!missing && missing.error().description().contains(u"no-such.json"));
}

void TestRailsJSON::decodingInsideDecoding()
{
    // Documents carried in strings, decoded while the outer one is still being read.
    QList<JSON> documents;
    auto readElement = [&documents](JsonReader& element) {
        QString text;
        const bool read = element.readString(text);
        const auto inner = decode<JSON>(text.toUtf8());
        documents += inner ? inner.value() : JSON("failed");
        return read;
    };
    const Result<void> outer =
        JsonReader::readDocument(R"(["{\"screen_saver\": [1, {\"a_b\": true}]}", "[2]", "3"])",
                                 [&readElement](JsonReader& root) { return root.readArray(readElement); });
    QVERIFY2(outer, failure(outer));
    QCOMPARE(documents, (QList<JSON>{JSON::Object{{"screenSaver", JSON::Array{1, JSON::Object{{"aB", true}}}}},
                                     JSON::Array{2}, 3}));
}

QTEST_GUILESS_MAIN(TestRailsJSON)
#include "TestRailsJSON.moc"
