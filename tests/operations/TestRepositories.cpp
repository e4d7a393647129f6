#include "HomebrewFixture.h"
#include "LogCapture.h"
#include "ScriptedAlerter.h"
#include "activities/ApplicationState.h"
#include "catalogue/CoreDataManager.h"
#include "catalogue/HomebrewSources.h"
#include "catalogue/Tap.h"
#include "diagnostics/Analytics.h"
#include "foundation/Defaults.h"
#include "foundation/HttpClient.h"
#include "foundation/PreferenceKeys.h"
#include "foundation/Threading.h"
#include "operations/DefaultTaps.h"
#include "operations/Repositories.h"

#include <QHttpServer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <memory>
#include <optional>

using namespace Qt::StringLiterals;

namespace {

// brew children and loopback requests; generous, because a loaded machine is not a failure.
constexpr int finishTimeout = 60000;

const QString toolsTap = u"localtest/tools"_s;
const QString processError = u"Process terminated with an error"_s;

// Runs work on the shared pool while this thread's event loop carries the requests it makes.
template <class F>
auto inBackground(F work)
{
    using T = std::invoke_result_t<F>;
    std::optional<T> result;
    QObject context;
    Threading::runAsync<T>(std::move(work), &context, [&](T value) { result.emplace(std::move(value)); });
    (void)QTest::qWaitFor([&] { return result.has_value(); }, finishTimeout);
    return result;
}

// One stored record of entity, with the given values.
bool seed(CoreDataManager& store, const QString& entity, const QVariantHash& values)
{
    auto context = store.newBackgroundContext();
    if (!context) {
        return false;
    }
    ManagedObject* record = context.value()->insertNewObject(entity);
    for (auto it = values.begin(); it != values.end(); ++it) {
        record->setValue(it.key(), it.value());
    }
    return context.value()->save().ok();
}

QVariantHash tapValues(const QString& name)
{
    return {{"token", name},
            {"user", name.section(u'/', 0, 0)},
            {"repo", name.section(u'/', 1, 1)},
            {"installed", true},
            {"remote", u"https://example.test/stale"_s}};
}

// The analytics events and GitHub requests the loopback server received.
struct Server {
    QHttpServer http;
    QList<QJsonObject> events;
    QStringList githubPaths;
    quint16 port = 0;

    QUrl url(const QString& path = {}) const { return QUrl(u"http://127.0.0.1:%1%2"_s.arg(port).arg(path)); }
};

// A store, preferences with data collection allowed, the simulated brew, the analytics client and the operations,
// all real and all throw-away.
struct World : HomebrewFixture {
    QTemporaryDir folder;
    CoreDataManager store{folder.filePath(u"Corvel X.sqlite"_s)};
    Defaults defaults{folder.filePath(u"settings.ini"_s)};
    ApplicationState state{defaults};
    HttpClient httpClient;
    Homebrew::Sources sources{commands, QUrl(), httpClient};
    ScriptedAlerter alerter;
    QNetworkAccessManager network;
    Bundle analyticsBundle{folder.path()};
    std::unique_ptr<Analytics> analytics;
    std::unique_ptr<Repositories> repositories;

    explicit World(const Server& server, const QString& githubApiPath = u"/github"_s)
    {
        analyticsBundle.overlayInfo(
            {{"TW_ANALYTICS_URL", server.url().toString()}, {"TW_ANALYTICS_DOMAIN", u"corvel.example.test"_s}});
        defaults.setValue(PreferenceKeys::AllowDataCollection, true);
        analytics = std::make_unique<Analytics>(defaults, analyticsBundle, network);
        repositories = std::make_unique<Repositories>(store, commands, sources, httpClient, server.url(githubApiPath),
                                                      state, alerter, *analytics);
    }

    QList<QStringList> vectors() const
    {
        QList<QStringList> list;
        if (brew) {
            for (const SimulatedHomebrew::Invocation& invocation : brew->invocations()) {
                list.append(invocation.arguments);
            }
        }
        return list;
    }

    Tap* tap(const QString& name)
    {
        auto found = store.viewContext()->fetch(u"Tap"_s, u"token == %@"_s, {name});
        return found && !found.value().isEmpty() ? qobject_cast<Tap*>(found.value().first()) : nullptr;
    }

    QStringList tokens(const QString& entity)
    {
        QStringList list;
        if (auto found = store.viewContext()->fetch(entity, Predicate())) {
            for (ManagedObject* record : found.value()) {
                list.append(record->token());
            }
        }
        list.sort();
        return list;
    }

    // Waits for the operation's end: {succeeded, error description}.
    std::optional<std::pair<bool, QString>> waitForFinish(QSignalSpy& spy)
    {
        if (!QTest::qWaitFor([&] { return !spy.isEmpty(); }, finishTimeout)) {
            return std::nullopt;
        }
        return std::pair(spy.first().at(2).toBool(), spy.first().at(3).toString());
    }

    // The activities' "target action" pairs.
    QStringList activities() const
    {
        QStringList list;
        for (const ActivityPtr& activity : activityCenter.activities()) {
            list.append(activity->target() + u' ' + activity->action());
        }
        return list;
    }
};

// Analytics requests are never awaited by their sender: a marker event sent last shows that the earlier ones (if
// any) had their chance to arrive. Each as "name url props".
QStringList eventsBefore(World& world, Server& server)
{
    world.analytics->trackEvent(u"Marker"_s, u"/marker"_s);
    (void)QTest::qWaitFor(
        [&] {
            return std::ranges::any_of(server.events,
                                       [](const QJsonObject& e) { return e["name"].toString() == u"Marker"; });
        },
        finishTimeout);
    QStringList events;
    for (const QJsonObject& event : std::as_const(server.events)) {
        if (event["name"].toString() != u"Marker") {
            events.append(event["name"].toString() + u' ' + event["url"].toString() + u' ' +
                          QString::fromUtf8(QJsonDocument(event["props"].toObject()).toJson(QJsonDocument::Compact)));
        }
    }
    return events;
}

// The usage event a successful operation sends.
QStringList eventOf(const QString& action, const QString& name)
{
    return {u"%1 https://corvel.example.test/settings/repositories {\"Repository\":\"%2\"}"_s.arg(action, name)};
}

} // namespace

class TestRepositories : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void install_data();
    void install();
    void uninstall_data();
    void uninstall();
    void uninstallOnlyWhatCanBeRemoved();
    void get_data();
    void get();
    void githubRepository_data();
    void githubRepository();
    void defaultTaps_data();
    void defaultTaps();

private:
    Server m_server;
};

void TestRepositories::initTestCase()
{
    m_server.http.route(u"/api/event"_s, [this](const QHttpServerRequest& request) {
        m_server.events.append(QJsonDocument::fromJson(request.body()).object());
        return QHttpServerResponse(QHttpServerResponse::StatusCode::Accepted);
    });
    const auto github = [this](const QString& owner, const QString& repository, const QHttpServerRequest& request) {
        m_server.githubPaths.append(request.url().path());
        if (owner == u"localtest" && repository == u"homebrew-tools") {
            return QHttpServerResponse("application/json",
                                       R"({"id": 1, "name": "homebrew-tools", "owner": {"login": "localtest"},
                                          "description": "Tools for tests", "stargazers_count": 3})");
        }
        if (owner == u"acme" && repository == u"homebrew-things") {
            return QHttpServerResponse("application/json", R"({"name": "homebrew-things", "description": null})");
        }
        if (owner == u"broken") {
            return QHttpServerResponse("application/json", R"({"description": 12})");
        }
        return QHttpServerResponse("application/json", R"({"message": "Not Found"})",
                                   QHttpServerResponse::StatusCode::NotFound);
    };
    m_server.http.route(u"/github/repos/<arg>/<arg>"_s, github);
    m_server.http.route(u"/enterprise/api/v3/repos/<arg>/<arg>"_s, github);
    m_server.port = m_server.http.listen(QHostAddress::LocalHost);
    QVERIFY(m_server.port != 0);
}

void TestRepositories::init()
{
    m_server.events.clear();
    m_server.githubPaths.clear();
}

void TestRepositories::install_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QJsonObject>("faults");
    QTest::addColumn<bool>("storedBefore");
    QTest::addColumn<QList<QStringList>>("expectedVectors");
    QTest::addColumn<QString>("expectedError"); // empty on success
    QTest::addColumn<QString>("expectedAlert"); // empty when none

    const QList<QStringList> tapAndRefresh{{"tap", toolsTap}, {"tap-info", toolsTap, "--json"}};
    QTest::newRow("new repository") << toolsTap << QJsonObject() << false << tapAndRefresh << QString() << QString();
    QTest::newRow("stored repository is updated")
        << toolsTap << QJsonObject() << true << tapAndRefresh << QString() << QString();
    QTest::newRow("brew cannot tap it") << u"acme/unknown"_s << QJsonObject() << false
                                        << QList<QStringList>{{"tap", "acme/unknown"}} << processError
                                        << u"Unable to install 'acme/unknown'"_s;
    QTest::newRow("record cannot be read") << toolsTap << QJsonObject{{"failCommands", QJsonArray{"tap-info"}}} << false
                                           << tapAndRefresh << processError << u"Unable to install 'localtest/tools'"_s;

    const QStringList malformed{u"tools"_s,       u"a/b/c"_s,         u"owner/"_s, u"/name"_s,
                                u" owner/name"_s, u"owner/name;rm"_s, QString()};
    for (const QString& name : malformed) {
        QTest::addRow("malformed \"%s\"", qPrintable(name))
            << name << QJsonObject() << false << QList<QStringList>()
            << u"\"%1\" is not a repository name: it must have the form owner/name"_s.arg(name)
            << u"Unable to install '%1'"_s.arg(name);
    }
}

void TestRepositories::install()
{
    QFETCH(QString, name);
    QFETCH(QJsonObject, faults);
    QFETCH(bool, storedBefore);
    QFETCH(QList<QStringList>, expectedVectors);
    QFETCH(QString, expectedError);
    QFETCH(QString, expectedAlert);

    World world(m_server);
    QVERIFY(world.simulate(QJsonObject{{"faults", faults}}));
    if (storedBefore) {
        QVariantHash stale = tapValues(toolsTap);
        stale.insert("installed", false);
        QVERIFY(seed(world.store, u"Tap"_s, stale));
    }
    QPointer<Tap> before = world.tap(toolsTap);
    LogCapture log;
    QSignalSpy started(world.repositories.get(), &Repositories::started);
    QSignalSpy finished(world.repositories.get(), &Repositories::finished);
    if (!expectedAlert.isEmpty()) {
        world.alerter.answerNext(u"OK"_s);
    }

    world.repositories->install(name);
    const bool valid = expectedVectors.size() > 0;
    QCOMPARE(world.state.isBusy(), valid);
    if (before) {
        QVERIFY(before->isBusy());
        QVERIFY(!before->uninstallable());
    }

    const auto outcome = world.waitForFinish(finished);
    QVERIFY(outcome);
    QCOMPARE(finished.size(), 1);
    QCOMPARE(finished.first().at(0).value<Repositories::Operation>(), Repositories::Operation::install);
    QCOMPARE(finished.first().at(1).toString(), name);
    QCOMPARE(outcome->second, expectedError);
    QCOMPARE(outcome->first, expectedError.isEmpty());
    QCOMPARE(world.vectors(), expectedVectors);
    QVERIFY(!world.state.isBusy());
    if (before) {
        QVERIFY(!before->isBusy());
    }

    // Only a command that ran has an activity, and its output is in the transcript.
    QCOMPARE(started.size(), valid ? 1 : 0);
    QCOMPARE(world.activities(), valid ? QStringList{name + u" Install"_s} : QStringList());
    if (valid) {
        QTRY_VERIFY_WITH_TIMEOUT(!world.transcript.messages().isEmpty(), finishTimeout);
    }

    const QString last = expectedError.isEmpty() ? name + u" repository installed"_s
                                                 : u"Unable to install %1: %2"_s.arg(name, expectedError);
    QCOMPARE(log.texts(), (valid ? QStringList{u"Installing "_s + name, last} : QStringList{last}));
    QCOMPARE(log.lines().last().type, expectedError.isEmpty() ? QtInfoMsg : QtWarningMsg);

    QCOMPARE(world.alerter.shown().size(), expectedAlert.isEmpty() ? 0 : 1);
    if (!expectedAlert.isEmpty()) {
        QCOMPARE(world.alerter.shown().first().message, expectedAlert);
        QCOMPARE(world.alerter.shown().first().informativeText, expectedError);
    }

    QCOMPARE(eventsBefore(world, m_server), expectedError.isEmpty() ? eventOf(u"Install"_s, name) : QStringList());
    if (expectedError.isEmpty()) {
        // One record, with what brew says of the repository now.
        QTRY_COMPARE_WITH_TIMEOUT(world.tokens(u"Tap"_s), QStringList{toolsTap}, finishTimeout);
        Tap* tap = world.tap(toolsTap);
        QVERIFY(tap);
        QTRY_VERIFY_WITH_TIMEOUT(tap->installed(), finishTimeout);
        QVERIFY(tap->hasFormulas() && tap->uninstallable());
        QVERIFY(tap->remote() != u"https://example.test/stale");
    } else {
        QCOMPARE(world.tokens(u"Tap"_s), storedBefore ? QStringList{toolsTap} : QStringList());
    }
}

void TestRepositories::uninstall_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("answer");
    QTest::addColumn<QJsonObject>("machine");   // simulator state
    QTest::addColumn<QString>("expectedError"); // empty on success; "cancelled" when declined
    QTest::addColumn<QStringList>("expectedTaps");
    QTest::addColumn<QStringList>("expectedFormulae");
    QTest::addColumn<QStringList>("expectedCasks");

    const QJsonObject tapped{{"taps", QJsonArray{"homebrew/cask", "homebrew/core", toolsTap}}};
    QJsonObject inUse = tapped;
    inUse["formulae"] = QJsonObject{{"hello-app", QJsonObject{{"version", "1.0"}, {"tap", toolsTap}}}};
    const QStringList allTaps{"homebrew/cask", toolsTap};
    const QStringList allFormulae{"git", "hello-app"};
    const QStringList allCasks{"dropbox", "hello-cask"};

    QTest::newRow("confirmed: the repository and its packages go")
        << toolsTap << u"Uninstall"_s << tapped << QString() << QStringList{"homebrew/cask"} << QStringList{"git"}
        << QStringList{"dropbox"};
    QTest::newRow("primary library: its packages stay") << u"homebrew/cask"_s << u"Uninstall"_s << tapped << QString()
                                                        << QStringList{toolsTap} << allFormulae << allCasks;
    QTest::newRow("declined") << toolsTap << u"Cancel"_s << tapped << u"cancelled"_s << allTaps << allFormulae
                              << allCasks;
    QTest::newRow("brew refuses: packages still installed")
        << toolsTap << u"Uninstall"_s << inUse << processError << allTaps << allFormulae << allCasks;
}

void TestRepositories::uninstall()
{
    QFETCH(QString, name);
    QFETCH(QString, answer);
    QFETCH(QJsonObject, machine);
    QFETCH(QString, expectedError);
    QFETCH(QStringList, expectedTaps);
    QFETCH(QStringList, expectedFormulae);
    QFETCH(QStringList, expectedCasks);

    World world(m_server);
    QVERIFY(world.simulate(machine));
    QVERIFY(seed(world.store, u"Tap"_s, tapValues(u"homebrew/cask"_s)));
    QVERIFY(seed(world.store, u"Tap"_s, tapValues(toolsTap)));
    QVERIFY(seed(world.store, u"Formula"_s, {{"token", "git"}, {"name", "git"}, {"tap", "homebrew/core"}}));
    QVERIFY(seed(world.store, u"Formula"_s,
                 {{"token", "hello-app"}, {"name", "localtest/tools/hello-app"}, {"tap", toolsTap}}));
    QVERIFY(seed(world.store, u"Cask"_s, {{"token", "dropbox"}, {"name", "Dropbox"}, {"tap", "homebrew/cask"}}));
    QVERIFY(seed(world.store, u"Cask"_s, {{"token", "hello-cask"}, {"name", "Hello"}, {"tap", toolsTap}}));
    const QList<QStringList> vectorsBefore = world.vectors();
    QPointer<Tap> tap = world.tap(name);
    QVERIFY(tap);

    LogCapture log;
    QSignalSpy finished(world.repositories.get(), &Repositories::finished);
    QSignalSpy cancelled(world.repositories.get(), &Repositories::cancelled);
    world.alerter.answerNext(answer);
    if (!expectedError.isEmpty() && answer != u"Cancel") {
        world.alerter.answerNext(u"OK"_s);
    }
    QVERIFY(world.repositories->uninstall(tap));

    // Always asked, never suppressible.
    QTRY_COMPARE_WITH_TIMEOUT(world.alerter.shown().size() > 0, true, finishTimeout);
    const Alert& question = world.alerter.shown().first();
    QCOMPARE(question.message, u"Are you sure you want to uninstall '%1'?"_s.arg(name));
    QCOMPARE(question.buttons, (QStringList{"Uninstall", "Cancel"}));
    QVERIFY(question.suppressionKey.isEmpty());

    if (answer == u"Cancel") {
        QTRY_COMPARE_WITH_TIMEOUT(cancelled.size(), 1, finishTimeout);
        QCOMPARE(cancelled.first().at(0).toString(), name);
        QVERIFY(finished.isEmpty());
        QVERIFY(tap && !tap->isBusy());
        QCOMPARE(world.vectors(), vectorsBefore);
        QVERIFY(world.activities().isEmpty());
        QVERIFY(log.texts().isEmpty());
    } else {
        QTRY_VERIFY_WITH_TIMEOUT(world.state.isBusy(), finishTimeout);
        QVERIFY(tap && tap->isBusy() && !tap->uninstallable());
        const auto outcome = world.waitForFinish(finished);
        QVERIFY(outcome);
        QCOMPARE(outcome->second, expectedError);
        QVERIFY(!world.state.isBusy());
        QVERIFY(!tap || !tap->isBusy());
        QCOMPARE(world.vectors().mid(vectorsBefore.size()), (QList<QStringList>{{"untap", name}}));
        QCOMPARE(world.activities(), QStringList{name + u" Uninstall"_s});
        const QString last = expectedError.isEmpty() ? name + u" repository uninstalled"_s
                                                     : u"Unable to uninstall %1: %2"_s.arg(name, expectedError);
        QCOMPARE(log.texts(), (QStringList{u"Uninstalling "_s + name, last}));
    }

    QCOMPARE(world.alerter.shown().size(), expectedError == processError ? 2 : 1);
    if (expectedError == processError) {
        QCOMPARE(world.alerter.shown().last().message, u"Unable to uninstall '%1'"_s.arg(name));
    }
    QCOMPARE(eventsBefore(world, m_server), expectedError.isEmpty() ? eventOf(u"Uninstall"_s, name) : QStringList());
    QCOMPARE(world.tokens(u"Tap"_s), expectedTaps);
    QCOMPARE(world.tokens(u"Formula"_s), expectedFormulae);
    QCOMPARE(world.tokens(u"Cask"_s), expectedCasks);
}

void TestRepositories::uninstallOnlyWhatCanBeRemoved()
{
    World world(m_server);
    QVERIFY(world.simulate());
    QVariantHash absent = tapValues(u"acme/absent"_s);
    absent.insert("installed", false);
    QVERIFY(seed(world.store, u"Tap"_s, absent));
    QVERIFY(seed(world.store, u"Tap"_s, tapValues(toolsTap)));
    Tap* busy = world.tap(toolsTap);
    busy->setBusy(true);

    QVERIFY(!world.repositories->uninstall(world.tap(u"acme/absent"_s)));
    QVERIFY(!world.repositories->uninstall(busy));
    QVERIFY(!world.repositories->uninstall(nullptr));
    QVERIFY(world.alerter.shown().isEmpty());
    QVERIFY(world.vectors().isEmpty());
}

void TestRepositories::get_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QJsonObject>("faults");
    QTest::addColumn<QString>("expected");

    QTest::newRow("installed") << toolsTap << QJsonObject() << u"localtest/tools installed"_s;
    QTest::newRow("not installed") << u"acme/unknown"_s << QJsonObject() << u"acme/unknown not installed"_s;
    QTest::newRow("brew fails") << toolsTap << QJsonObject{{"failCommands", QJsonArray{"tap-info"}}} << processError;
}

void TestRepositories::get()
{
    QFETCH(QString, name);
    QFETCH(QJsonObject, faults);
    QFETCH(QString, expected);

    World world(m_server);
    QVERIFY(world.simulate(QJsonObject{{"taps", QJsonArray{"homebrew/core", toolsTap}}, {"faults", faults}}));
    const auto record = inBackground([&] { return world.repositories->get(name); });
    QVERIFY(record);
    const QString described =
        *record ? record->value().token + (record->value().installed ? u" installed"_s : u" not installed"_s)
                : record->error().description();
    QCOMPARE(described, expected);
    // The name goes before "--json".
    QCOMPARE(world.vectors(), (QList<QStringList>{{"tap-info", name, "--json"}}));
    QVERIFY(world.activities().isEmpty());
}

void TestRepositories::githubRepository_data()
{
    QTest::addColumn<QString>("apiPath");
    QTest::addColumn<QString>("owner");
    QTest::addColumn<QString>("repository");
    QTest::addColumn<QString>("tapName");      // naming the same repository for the description
    QTest::addColumn<QString>("expected");     // the description, "none", or "error: <domain>"
    QTest::addColumn<QString>("expectedPath"); // empty when no request may be made

    const auto row = [](const char* name, const char* apiPath, const char* owner, const char* repository,
                        const char* tapName, const char* expected, const char* path) {
        QTest::newRow(name) << QString(apiPath) << QString(owner) << QString(repository) << QString(tapName)
                            << QString(expected) << QString(path);
    };
    row("description", "/github", "localtest", "homebrew-tools", "localtest/tools", "Tools for tests",
        "/github/repos/localtest/homebrew-tools");
    row("base with a path and a slash; owner/homebrew-name", "/enterprise/api/v3/", "localtest", "homebrew-tools",
        "localtest/homebrew-tools", "Tools for tests", "/enterprise/api/v3/repos/localtest/homebrew-tools");
    row("no description", "/github", "acme", "homebrew-things", "acme/things", "none",
        "/github/repos/acme/homebrew-things");
    row("unknown repository", "/github", "nobody", "homebrew-nothing", "nobody/nothing", "error: TFNetworkError",
        "/github/repos/nobody/homebrew-nothing");
    row("undecodable answer", "/github", "broken", "homebrew-x", "broken/x", "error: DecodingError",
        "/github/repos/broken/homebrew-x");
    row("not a repository name", "/github", "a/b", "homebrew-x", "nothing", "error: Repositories", "");
}

// The repository record, then the description as the repositories table fetches it: a failure there is only "none"
// and troubles nobody (no alert, nothing above the debug level).
void TestRepositories::githubRepository()
{
    QFETCH(QString, apiPath);
    QFETCH(QString, owner);
    QFETCH(QString, repository);
    QFETCH(QString, tapName);
    QFETCH(QString, expected);
    QFETCH(QString, expectedPath);
    const QStringList onePath = expectedPath.isEmpty() ? QStringList() : QStringList{expectedPath};

    World world(m_server, apiPath);
    const auto record = inBackground([&] { return world.repositories->fetchGithubRepository(owner, repository); });
    QVERIFY(record);
    const QString described =
        *record ? record->value().description.value_or(u"none"_s) : u"error: "_s + record->error().domain();
    QCOMPARE(described, expected);
    QCOMPARE(m_server.githubPaths, onePath);

    m_server.githubPaths.clear();
    LogCapture log;
    std::optional<std::optional<QString>> description;
    QObject context;
    world.repositories->fetchDescription(tapName, &context,
                                         [&](std::optional<QString> text) { description.emplace(std::move(text)); });
    QTRY_VERIFY_WITH_TIMEOUT(description.has_value(), finishTimeout);
    QCOMPARE(description->value_or(u"none"_s), expected.startsWith(u"error") ? u"none"_s : expected);
    QCOMPARE(m_server.githubPaths, onePath);
    QVERIFY(world.alerter.shown().isEmpty());
    QVERIFY(std::ranges::all_of(log.lines(), [](const LogCapture::Line& line) { return line.type == QtDebugMsg; }));
}

void TestRepositories::defaultTaps_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("description");
    QTest::addColumn<bool>("primary");

    QTest::newRow("core") << u"homebrew/core"_s << u"Primary scripts library"_s << true;
    QTest::newRow("cask") << u"homebrew/cask"_s << u"Primary apps library"_s << true;
    QTest::newRow("fonts") << u"homebrew/cask-fonts"_s << u"Library with thousands of high quality open-source fonts"_s
                           << false;
    QTest::newRow("services") << u"homebrew/services"_s << u"Command to manage background services with launchctl"_s
                              << false;
    QTest::newRow("bundle") << u"homebrew/bundle"_s << u"Command to generate a backup file of everything installed"_s
                            << false;
    QTest::newRow("not official") << toolsTap << QString() << false;
    QTest::newRow("case matters") << u"Homebrew/core"_s << QString() << false;
}

void TestRepositories::defaultTaps()
{
    QFETCH(QString, name);
    QFETCH(QString, description);
    QFETCH(bool, primary);

    QCOMPARE(DefaultTaps::description(name).value_or(QString()), description);
    QCOMPARE(DefaultTaps::contains(name), !description.isEmpty());
    QCOMPARE(DefaultTaps::isPrimary(name), primary);
}

QTEST_GUILESS_MAIN(TestRepositories)
#include "TestRepositories.moc"
