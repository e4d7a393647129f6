#include "catalogue/HomebrewCask.h"
#include "catalogue/HomebrewDecodableWrapper.h"
#include "catalogue/HomebrewFormula.h"
#include "catalogue/HomebrewGithubRepository.h"
#include "catalogue/HomebrewTap.h"
#include "foundation/RailsJSONDecoder.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

const QString absent = QStringLiteral("-");

QString text(const FailableCodable<QUrl>& value)
{
    return value ? value->toString() : absent;
}

QString text(const std::optional<QStringList>& value)
{
    return value ? u'[' + value->join(u',') + u']' : absent;
}

// The fields of a record in one line, each absent field as "-".
QString summary(const Homebrew::Formula& f)
{
    return QStringList{
        f.token, f.name, f.tap.value_or(absent), f.desc.value_or(absent), text(f.website), f.license.value_or(absent)}
        .join(u" | ");
}

QString summary(const Homebrew::Cask& c)
{
    return QStringList{c.token,
                       c.displayName(),
                       c.version.value_or(absent),
                       text(c.website),
                       c.internalSha256.value_or(absent),
                       text(c.artifactTypes())}
        .join(u" | ");
}

QString summary(const Homebrew::Tap& t)
{
    const auto flag = [](bool value, char letter) { return value ? QString(QLatin1Char(letter)) : absent; };
    return QStringList{t.token, t.user + u'/' + t.repo, t.remote.value_or(absent),
                       t.local ? flag(*t.local, 'l') : u"?"_s,
                       flag(t.official, 'o') + flag(t.installed, 'i') + flag(t.hasFormulas(), 'F') +
                           flag(t.hasCasks(), 'C') + flag(t.hasCommands(), 'X')}
        .join(u" | ");
}

QString summary(const Homebrew::GithubRepository& r)
{
    return r.description.value_or(absent);
}

template <class T>
QString summary(const Homebrew::DecodableWrapper<T>& w)
{
    QStringList tokens;
    std::ranges::transform(w.items, std::back_inserter(tokens), &T::token);
    return tokens.join(u',');
}

// The record's summary, or "error <code>: <description>".
template <class T>
QString decoded(const QByteArray& json)
{
    const auto result = RailsJSONDecoder().decode<T>(json);
    return result ? summary(result.value())
                  : u"error %1: %2"_s.arg(result.error().code()).arg(result.error().description());
}

// How many records decoded (or why none did), beside how many an independent parser finds: all of a bare array,
// or those under key.
template <class T>
std::pair<QString, QString> counts(const QByteArray& json, const QString& key = {})
{
    const auto result = RailsJSONDecoder().decode<T>(json);
    QString count = result ? QString() : result.error().description();
    if constexpr (requires { result.value().items; }) {
        count += result ? QString::number(result.value().items.size()) : QString();
    } else {
        count += result ? QString::number(result.value().size()) : QString();
    }
    const QJsonDocument document = QJsonDocument::fromJson(json);
    return {count, QString::number(document.isArray() ? document.array().size()
                                                      : document.object().value(key).toArray().size())};
}

} // namespace

class TestHomebrewRecords : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void everyRecordDecodes_data();
    void everyRecordDecodes();
    void fields_data();
    void fields();
};

void TestHomebrewRecords::everyRecordDecodes_data()
{
    QTest::addColumn<QString>("path");

    for (const QString& folder : {u"catalogue"_s, u"real-brew"_s}) {
        const QDir dir(QStringLiteral(CORVEL_TEST_DATA_DIR "/") + folder);
        const QStringList files = dir.entryList(QDir::Files, QDir::Name);
        QVERIFY(!files.isEmpty());
        for (const QString& file : files) {
            QTest::newRow(qPrintable(folder + u'/' + file)) << dir.filePath(file);
        }
    }
}

void TestHomebrewRecords::everyRecordDecodes()
{
    QFETCH(QString, path);

    const auto read = RailsJSONDecoder::readFile(path);
    QVERIFY(read);
    const QByteArray& json = read.value();
    if (json.trimmed().startsWith('[')) { // a catalogue endpoint's bare array
        const auto [decoded, expected] = path.contains(u"cask") ? counts<std::vector<Homebrew::Cask>>(json)
                                                                : counts<std::vector<Homebrew::Formula>>(json);
        QCOMPARE(decoded, expected);
        QVERIFY(expected.toInt() > 0);
        return;
    }
    const auto [formulae, expectedFormulae] =
        counts<Homebrew::DecodableWrapper<Homebrew::Formula>>(json, u"formulae"_s);
    QCOMPARE(formulae, expectedFormulae);
    const auto [casks, expectedCasks] = counts<Homebrew::DecodableWrapper<Homebrew::Cask>>(json, u"casks"_s);
    QCOMPARE(casks, expectedCasks);
}

void TestHomebrewRecords::fields_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QString>("expected");

    const auto row = [](const char* name, const char* type, const QByteArray& json, const QString& expected) {
        QTest::newRow(name) << type << json << expected;
    };
    const QByteArray formula = R"({"name": "wget", "full_name": "acme/tools/wget", )";
    const QByteArray cask = R"({"token": "foo", "name": ["Foo", "Bar"], )";
    const QString missing = u"error %1: No value associated with key "_s.arg(DecodingError::keyNotFound);
    const QString mismatch = u"error %1: Expected "_s.arg(DecodingError::typeMismatch);

    row("formula", "formula",
        formula + R"("tap": "acme/tools", "desc": "Get", "homepage": "https://gnu.org", "license": "MIT"})",
        "wget | acme/tools/wget | acme/tools | Get | https://gnu.org | MIT");
    row("homepage not a URL", "formula", formula + R"("homepage": "see the README", "desc": null})",
        "wget | acme/tools/wget | - | - | - | -");
    row("license list", "formula", formula + R"("license": ["MIT", "GPL-2.0"]})",
        "wget | acme/tools/wget | - | - | - | -");
    row("no full name", "formula", R"({"name": "wget"})", missing + R"("fullName" ("full_name") at the top level)");
    row("desc of wrong type", "formula", formula + R"("desc": 3})", mismatch + "a string at desc");

    row("cask", "cask", cask + R"("homepage": "https://foo.example/", "sha256": "abc", "installed": "1.2",
                                  "artifacts": [{"app": ["Foo.app"]}, {"zap": [{"trash": "~/Foo"}]}]})",
        "foo | Foo Bar | 1.2 | https://foo.example/ | abc | [app]");
    row("unchecked download", "cask", cask + R"("sha256": "no_check", "artifacts": []})",
        "foo | Foo Bar | - | - | no_check | []");
    row("checksum null, no artifacts", "cask", cask + R"("sha256": null})", "foo | Foo Bar | - | - | - | -");
    row("name parts with blanks", "cask", R"({"token": "x", "name": ["A B", "C"]})", "x | A B C | - | - | - | -");
    row("no name parts", "cask", R"({"token": "x"})", missing + R"("name" at the top level)");
    row("name not a list", "cask", R"({"token": "x", "name": "X"})", mismatch + "an array at name");

    const QByteArray tap = R"({"name": "acme/tools", "user": "acme", "repo": "tools", "official": false, )";
    row("tap", "tap", tap + R"("installed": true, "remote": "https://a.example/t", "local": false,
                               "formula_files": ["Formula/a.rb"], "cask_files": [], "command_files": ["cmd/x.rb"]})",
        "acme/tools | acme/tools | https://a.example/t | - | -iF-X");
    row("tap without lists", "tap", tap + R"("installed": false, "remote": null})",
        "acme/tools | acme/tools | - | ? | -----");
    row("tap without its installed flag", "tap", tap + R"("remote": null})",
        missing + R"("installed" at the top level)");

    row("formulae envelope", "formulae", R"({"formulae": [{"name": "a", "full_name": "a"}], "casks": [{"x": 1}]})",
        "a");
    row("casks envelope", "casks",
        R"({"other": {}, "casks": [{"token": "c", "name": []}, {"token": "d", "name": []}]})", "c,d");
    row("envelope without its key", "casks", R"({"formulae": []})", missing + R"("casks" at the top level)");
    row("envelope with a broken record", "formulae", R"({"formulae": [{"name": "a", "full_name": "a"}, {"name": 1}]})",
        mismatch + "a string at formulae[1].name");

    row("repository", "repository", R"({"description": "Tools", "stargazers_count": 3})", "Tools");
    row("repository without description", "repository", R"({"description": null})", "-");
}

void TestHomebrewRecords::fields()
{
    QFETCH(QString, type);
    QFETCH(QByteArray, json);
    QFETCH(QString, expected);

    QString actual;
    if (type == u"formula") {
        actual = decoded<Homebrew::Formula>(json);
    } else if (type == u"cask") {
        actual = decoded<Homebrew::Cask>(json);
    } else if (type == u"tap") {
        actual = decoded<Homebrew::Tap>(json);
    } else if (type == u"formulae") {
        actual = decoded<Homebrew::DecodableWrapper<Homebrew::Formula>>(json);
    } else if (type == u"casks") {
        actual = decoded<Homebrew::DecodableWrapper<Homebrew::Cask>>(json);
    } else {
        actual = decoded<Homebrew::GithubRepository>(json);
    }
    QCOMPARE(actual, expected);
}

QTEST_GUILESS_MAIN(TestHomebrewRecords)
#include "TestHomebrewRecords.moc"
