#include "HomebrewFixture.h"
#include "activities/ActivityCenter.h"
#include "activities/Transcript.h"
#include "catalogue/HomebrewSources.h"
#include "foundation/Bundle.h"
#include "foundation/HttpClient.h"
#include "foundation/Threading.h"
#include "homebrew/HomebrewCommands.h"
#include "homebrew/HomebrewInstallation.h"
#include "homebrew/SimulatedHomebrew.h"

#include <QFile>
#include <QHttpServer>
#include <QJsonArray>
#include <QJsonObject>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QTest>
#include <optional>

using namespace Qt::StringLiterals;

namespace {

// Child processes and loopback requests; generous, because a loaded machine is not a failure.
constexpr int finishTimeout = 60000;

// Runs work on the shared pool, as the synchronisation does, while this thread's event loop carries the requests.
template <class F>
auto inBackground(F work)
{
    using T = std::invoke_result_t<F>;
    std::optional<T> result;
    QObject context;
    Threading::runAsync<T>(std::move(work), &context, [&](T value) { result.emplace(std::move(value)); });
    return QTest::qWaitFor([&] { return result.has_value(); }, finishTimeout) ? std::move(result) : std::nullopt;
}

// "domain: description" of a failure; what describeValue makes of a success.
template <class T, class F>
QString outcome(const Result<T>& result, F describeValue)
{
    return result ? describeValue(result.value()) : result.error().domain() + u": "_s + result.error().description();
}

template <class T>
QString tokens(const std::vector<T>& records)
{
    QStringList list;
    std::ranges::transform(records, std::back_inserter(list), &T::token);
    return list.join(u',');
}

QByteArray testData(const QString& name)
{
    QFile file(QStringLiteral(CORVEL_TEST_DATA_DIR "/") + name);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// A simulated Homebrew with two formulae and two casks installed, one of each outdated, and a non-core tap.
struct BrewFixture : HomebrewFixture {
    HttpClient httpClient;
    Homebrew::Sources sources{commands, QUrl(), httpClient};

    bool simulate(const QJsonObject& faults)
    {
        const QJsonObject state{
            {"taps", QJsonArray{"homebrew/cask", "homebrew/core", "localtest/tools", "tesselworks/corvel-cmd"}},
            {"formulae", QJsonObject{{"git", "2.40.0"},
                                     {"curl", QJsonObject{{"version", "8.0.0"}, {"installedOnRequest", false}}}}},
            {"casks", QJsonObject{{"dropbox", "180.0"}, {"flameshot", "12.0"}}},
            {"outdated",
             QJsonObject{{"formulae", QJsonObject{{"git", "2.45.0"}}}, {"casks", QJsonObject{{"dropbox", "200.0"}}}}},
            {"faults", faults}};
        return HomebrewFixture::simulate(state);
    }
};

QString tapSummary(const Homebrew::Tap& t)
{
    return t.token + (t.installed ? u"+"_s : u"-"_s) + (t.hasCommands() ? u"x"_s : QString());
}

// Each source by name, described: tokens for lists of records, the fields that matter for single ones.
QString query(const Homebrew::Sources& s, const QString& source)
{
    const auto list = [](const auto& records) { return tokens(records); };
    const auto join = [](const QStringList& list) { return list.join(u','); };
    if (source == u"installedFormulae") {
        return outcome(s.installedFormulae(), list);
    } else if (source == u"installedCasks") {
        return outcome(s.installedCasks(), list);
    } else if (source == u"cask") {
        return outcome(s.cask(u"dropbox"_s),
                       [](const Homebrew::Cask& c) { return c.token + u' ' + c.version.value_or(u"-"_s); });
    } else if (source == u"tapFormulae") {
        return outcome(s.tapFormulae(), list);
    } else if (source == u"tapCasks") {
        return outcome(s.tapCasks(), list);
    } else if (source == u"installedTaps") {
        return outcome(s.installedTaps(), [](const std::vector<Homebrew::Tap>& taps) {
            QStringList list;
            std::ranges::transform(taps, std::back_inserter(list), tapSummary);
            return list.join(u',');
        });
    } else if (source == u"tap") {
        return outcome(s.tap(u"acme/unknown"_s), tapSummary);
    } else if (source == u"outdatedFormulae") {
        return outcome(s.outdatedFormulae(), join);
    } else if (source == u"outdatedCasks") {
        return outcome(s.outdatedCasks(), join);
    }
    return outcome(s.leaves(), join);
}

} // namespace

class TestHomebrewSources : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void commandSources_data();
    void commandSources();
    void tokenList_data();
    void tokenList();
    void initTestCase();
    void catalogue_data();
    void catalogue();
    void getRefusedOnTheClientsThread();

private:
    QHttpServer m_server; // serves the sample catalogues
    QTcpServer m_silent;  // accepts connections and never answers
    quint16 m_closedPort = 0;
    QTemporaryDir m_folder; // the sample catalogues as files
};

void TestHomebrewSources::commandSources_data()
{
    QTest::addColumn<QString>("source");
    QTest::addColumn<QJsonObject>("faults");    // staged in the simulator
    QTest::addColumn<QStringList>("arguments"); // as brew received them
    QTest::addColumn<QString>("expected");

    const auto row = [](const char* name, const char* source, const QJsonObject& faults, const QStringList& arguments,
                        const char* expected) { QTest::newRow(name) << source << faults << arguments << expected; };
    const QStringList installedFormulae{"info", "--installed", "--formulae", "--json=v2"};
    const QStringList installedTaps{"tap-info", "--installed", "--json"};
    const QStringList tapCasks{"corvel-tap-content-info", "--casks", " "};
    const QStringList outdatedFormulae{"outdated", "--formulae", "--greedy", "--quiet"};
    const QJsonObject none;
    // A status other than 0 after complete, valid output must not be taken for an answer.
    const QJsonObject exitAfterOutput{{"exitAfterOutput", 1}};
    const char* failed = "RuntimeError: Process terminated with an error";

    row("installed formulae", "installedFormulae", none, installedFormulae, "curl,git");
    row("installed casks", "installedCasks", none, {"info", "--installed", "--casks", "--json=v2"},
        "dropbox,flameshot");
    row("one cask", "cask", none, {"info", "--cask", "--json=v2", "dropbox"}, "dropbox 180.0");
    row("formulae of non-core taps", "tapFormulae", none, {"corvel-tap-content-info", "--formulae", "--json=v2"},
        "hello-app,hello-lib,hello-local");
    row("casks of non-core taps", "tapCasks", none, tapCasks, "hello-cask");
    row("installed taps", "installedTaps", none, installedTaps,
        "homebrew/cask+,homebrew/core+,localtest/tools+,tesselworks/corvel-cmd+x");
    row("one tap", "tap", none, {"tap-info", "acme/unknown", "--json"}, "acme/unknown-");
    row("outdated formulae", "outdatedFormulae", none, outdatedFormulae, "git");
    row("outdated casks", "outdatedCasks", none, {"outdated", "--casks", "--greedy", "--quiet"}, "dropbox");
    row("leaves", "leaves", none, {"leaves"}, "git");

    row("installed formulae, refused", "installedFormulae", {{"failCommands", QJsonArray{"info"}}}, installedFormulae,
        failed);
    row("taps, exit after output", "installedTaps", exitAfterOutput, installedTaps, failed);
    row("outdated, exit after output", "outdatedFormulae", exitAfterOutput, outdatedFormulae, failed);
}

void TestHomebrewSources::commandSources()
{
    QFETCH(QString, source);
    QFETCH(QJsonObject, faults);
    QFETCH(QStringList, arguments);
    QFETCH(QString, expected);

    BrewFixture f;
    QVERIFY(f.simulate(faults));
    const auto answer = inBackground([&] { return query(f.sources, source); });
    QVERIFY(answer);
    QCOMPARE(*answer, expected);
    const auto invocations = f.brew->invocations();
    QCOMPARE(invocations.size(), 1);
    QCOMPARE(invocations.front().arguments, arguments);
}

void TestHomebrewSources::tokenList_data()
{
    QTest::addColumn<QByteArray>("output");
    QTest::addColumn<QStringList>("expected");

    QTest::newRow("blank lines and padding")
        << QByteArray("\n  git \r\n\n\tacme/tools/wget\t\n \n") << QStringList{"git", "acme/tools/wget"};
    QTest::newRow("only blanks") << QByteArray(" \n\t\n") << QStringList();
    QTest::newRow("beyond ASCII") << QByteArray("caf\xc3\xa9\n") << QStringList{u"café"_s};
}

void TestHomebrewSources::tokenList()
{
    QFETCH(QByteArray, output);
    QFETCH(QStringList, expected);

    QCOMPARE(Homebrew::Sources::tokenList(output), expected);
}

void TestHomebrewSources::initTestCase()
{
    const QByteArray formulae = testData(u"catalogue/formula-sample.json"_s);
    const QByteArray casks = testData(u"catalogue/cask-sample.json"_s);
    for (const QString& prefix : {QString(), u"/mirror"_s}) {
        m_server.route(prefix + u"/api/formula.json"_s,
                       [formulae] { return QHttpServerResponse("text/json", formulae); });
        m_server.route(prefix + u"/api/cask.json"_s, [casks] { return QHttpServerResponse("text/json", casks); });
    }
    m_server.route(u"/broken/api/<arg>"_s, [](const QString&) { return QHttpServerResponse("text/json", "[{\"name"); });
    QVERIFY(m_server.listen(QHostAddress::LocalHost) != 0);
    QVERIFY(m_silent.listen(QHostAddress::LocalHost));
    QTcpServer closed;
    QVERIFY(closed.listen(QHostAddress::LocalHost));
    m_closedPort = closed.serverPort();

    QVERIFY(QDir(m_folder.path()).mkpath(u"api"_s));
    QVERIFY(QFile::copy(QStringLiteral(CORVEL_TEST_DATA_DIR "/catalogue/formula-sample.json"),
                        m_folder.filePath(u"api/formula.json"_s)));
    QVERIFY(QFile::copy(QStringLiteral(CORVEL_TEST_DATA_DIR "/catalogue/cask-sample.json"),
                        m_folder.filePath(u"api/cask.json"_s)));
}

void TestHomebrewSources::catalogue_data()
{
    QTest::addColumn<QString>("base");     // %1: the server's port, %2: one that refuses, %3: one that never answers
    QTest::addColumn<QString>("expected"); // formula and cask counts, or the start of the error
    QTest::addColumn<QString>("part");     // of the error's description

    QTest::newRow("trailing slash") << "http://127.0.0.1:%1/"
                                    << "63 211"
                                    << "";
    QTest::newRow("below a path") << "http://127.0.0.1:%1/mirror"
                                  << "63 211"
                                  << "";
    QTest::newRow("folder") << "file"
                            << "63 211"
                            << "";
    QTest::newRow("not JSON") << "http://127.0.0.1:%1/broken"
                              << "DecodingError: "
                              << "not valid JSON";
    QTest::newRow("not found") << "http://127.0.0.1:%1/nowhere"
                               << "TFNetworkError: "
                               << "Not Found";
    QTest::newRow("connection refused") << "http://127.0.0.1:%2"
                                        << "TFNetworkError: "
                                        << "refused";
    QTest::newRow("no answer") << "http://127.0.0.1:%3"
                               << "TFNetworkError: "
                               << "timed out";
    QTest::newRow("missing file") << "file:///no/such/folder"
                                  << "TFNetworkError: "
                                  << "/no/such/folder/api/formula.json";
    QTest::newRow("relative URL") << "mirror"
                                  << "TFNetworkError: "
                                  << R"(Not an absolute URL: "mirror/api/formula.json")";
}

void TestHomebrewSources::catalogue()
{
    QFETCH(QString, base);
    QFETCH(QString, expected);
    QFETCH(QString, part);

    base.replace(u"%1"_s, QString::number(m_server.servers().value(0)->serverPort()))
        .replace(u"%2"_s, QString::number(m_closedPort))
        .replace(u"%3"_s, QString::number(m_silent.serverPort()));
    const QUrl url = base == u"file" ? QUrl::fromLocalFile(m_folder.path()) : QUrl(base);
    BrewFixture f;
    f.httpClient.setTimeout(std::chrono::seconds(1));
    const Homebrew::Sources sources(f.commands, url, f.httpClient);
    const auto answer = inBackground([&] {
        const auto all = sources.allFormulae();
        return outcome(all, [&sources](const std::vector<Homebrew::Formula>& formulae) {
            return outcome(sources.allCasks(), [&formulae](const std::vector<Homebrew::Cask>& casks) {
                return u"%1 %2"_s.arg(formulae.size()).arg(casks.size());
            });
        });
    });
    QVERIFY(answer);
    QVERIFY2(answer->startsWith(expected) && answer->contains(part), qPrintable(*answer));
}

void TestHomebrewSources::getRefusedOnTheClientsThread()
{
    HttpClient client;
    const auto answer = client.get(QUrl::fromLocalFile(m_folder.filePath(u"api/cask.json"_s)));
    QVERIFY(!answer);
    QCOMPARE(answer.error().domain(), HttpClient::errorDomain);
    QVERIFY2(answer.error().description().contains(u"cannot run on the thread"),
             qPrintable(answer.error().description()));
}

QTEST_GUILESS_MAIN(TestHomebrewSources)
#include "TestHomebrewSources.moc"
