#include "LogCapture.h"
#include "diagnostics/Analytics.h"
#include "diagnostics/PKAnalyticsError.h"
#include "foundation/Bundle.h"
#include "foundation/Defaults.h"
#include "foundation/PreferenceKeys.h"
#include "foundation/PropertyList.h"

#include <QDir>
#include <QFile>
#include <QHttpServer>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QTest>
#include <thread>

namespace {

const QString siteDomain = "corvel.example.test";

// A real network manager that also remembers every request it was asked to make, so that "nothing was sent" can be
// checked at once rather than by waiting for something not to arrive.
class RecordingNetworkAccessManager : public QNetworkAccessManager {
public:
    int requests() const { return m_requests; }

protected:
    QNetworkReply* createRequest(Operation op, const QNetworkRequest& request, QIODevice* data) override
    {
        ++m_requests;
        return QNetworkAccessManager::createRequest(op, request, data);
    }

private:
    std::atomic<int> m_requests{0};
};

struct Received {
    QString path;
    QHttpServerRequest::Method method;
    QByteArray contentType;
    QJsonObject body;
};

enum class EventKind { App, Script, Repository };

} // namespace

class TestAnalytics : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void sendsEvents_data();
    void sendsEvents();
    void nothingReachesTheServerWithoutPermission_data();
    void nothingReachesTheServerWithoutPermission();
    void permissionIsReadAtEachEvent();
    void propsOnlyWithProperties_data();
    void propsOnlyWithProperties();
    void refusedCalls_data();
    void refusedCalls();
    void eventEndpoint_data();
    void eventEndpoint();
    void sendsFromAnyThread();
    void transportErrorsArePrinted_data();
    void transportErrorsArePrinted();

private:
    QUrl serverBase() const { return QUrl(QStringLiteral("http://127.0.0.1:%1").arg(m_port)); }

    // A bundle over a temporary folder whose Info.plist holds these keys.
    std::unique_ptr<Bundle> makeBundle(const QVariantMap& info);
    std::unique_ptr<Analytics> makeAnalytics(const QVariantMap& info);
    std::unique_ptr<Analytics> makeAnalytics()
    {
        return makeAnalytics({{"TW_ANALYTICS_URL", serverBase().toString()}, {"TW_ANALYTICS_DOMAIN", siteDomain}});
    }
    static void send(Analytics& analytics, EventKind kind, const QString& verb, const QString& token,
                     const std::optional<QString>& tap);

    QHttpServer m_server;
    quint16 m_port = 0;
    QList<Received> m_received;
    int m_nextStatus = 202;

    std::unique_ptr<QTemporaryDir> m_folder;
    std::unique_ptr<Defaults> m_defaults;
    std::list<std::unique_ptr<Bundle>> m_bundles;
    RecordingNetworkAccessManager m_network;
};

void TestAnalytics::initTestCase()
{
    const auto record = [this](const QHttpServerRequest& request) {
        m_received.append({request.url().path(), request.method(), request.value("Content-Type"),
                           QJsonDocument::fromJson(request.body()).object()});
        return QHttpServerResponse(static_cast<QHttpServerResponse::StatusCode>(m_nextStatus));
    };
    m_server.route("/api/event", record);
    m_server.route("/stats/api/event", record);
    m_port = m_server.listen(QHostAddress::LocalHost);
    QVERIFY(m_port != 0);
}

void TestAnalytics::init()
{
    m_received.clear();
    m_nextStatus = 202;
    m_folder = std::make_unique<QTemporaryDir>();
    QVERIFY(m_folder->isValid());
    m_defaults = std::make_unique<Defaults>(m_folder->filePath("settings.ini"));
    m_defaults->setValue(PreferenceKeys::AllowDataCollection, true);
}

void TestAnalytics::cleanup()
{
    m_defaults.reset();
    m_bundles.clear();
    m_folder.reset();
}

std::unique_ptr<Bundle> TestAnalytics::makeBundle(const QVariantMap& info)
{
    const QString folder = m_folder->filePath(QStringLiteral("bundle-%1").arg(m_bundles.size()));
    QFile file(folder + "/Info.plist");
    const QByteArray content = PropertyList::serialize(info);
    if (!QDir().mkpath(folder) || !file.open(QIODevice::WriteOnly) || file.write(content) != content.size()) {
        return nullptr;
    }
    return std::make_unique<Bundle>(folder);
}

std::unique_ptr<Analytics> TestAnalytics::makeAnalytics(const QVariantMap& info)
{
    m_bundles.push_back(makeBundle(info));
    if (!m_bundles.back()) {
        return nullptr;
    }
    return std::make_unique<Analytics>(*m_defaults, *m_bundles.back(), m_network);
}

void TestAnalytics::send(Analytics& analytics, EventKind kind, const QString& verb, const QString& token,
                         const std::optional<QString>& tap)
{
    switch (kind) {
    case EventKind::App:
        analytics.appEvent(verb, token, tap);
        break;
    case EventKind::Script:
        analytics.scriptEvent(verb, token, tap);
        break;
    case EventKind::Repository:
        analytics.repositoryEvent(verb, token);
        break;
    }
}

void TestAnalytics::sendsEvents_data()
{
    QTest::addColumn<EventKind>("kind");
    QTest::addColumn<QString>("verb");
    QTest::addColumn<QString>("token");
    QTest::addColumn<std::optional<QString>>("tap");
    QTest::addColumn<QString>("url");
    QTest::addColumn<QVariantMap>("props");

    const QString apps = "https://" + siteDomain + "/main/apps";
    const QString scripts = "https://" + siteDomain + "/main/scripts";
    const QString repositories = "https://" + siteDomain + "/settings/repositories";
    using Tap = std::optional<QString>;

    QTest::newRow("app installed") << EventKind::App << "Install"
                                   << "firefox" << Tap("homebrew/cask") << apps
                                   << QVariantMap{{"App", "firefox"}, {"Repository", "homebrew/cask"}};
    QTest::newRow("font cask installed") << EventKind::App << "Install"
                                         << "font-fira-code" << Tap("homebrew/cask-fonts") << apps
                                         << QVariantMap{{"Font", "font-fira-code"},
                                                        {"Repository", "homebrew/cask-fonts"}};
    // Only the repository makes a font: the token's prefix does not.
    QTest::newRow("font-like token of another tap")
        << EventKind::App << "Install"
        << "font-tool" << Tap("homebrew/cask") << apps
        << QVariantMap{{"App", "font-tool"}, {"Repository", "homebrew/cask"}};
    QTest::newRow("app of an unknown tap") << EventKind::App << "Reinstall"
                                           << "opera" << Tap() << apps << QVariantMap{{"App", "opera"}};
    QTest::newRow("script installed") << EventKind::Script << "Install"
                                      << "wget" << Tap("homebrew/core") << scripts
                                      << QVariantMap{{"Script", "wget"}, {"Repository", "homebrew/core"}};
    QTest::newRow("repository added") << EventKind::Repository << "Install"
                                      << "localtest/tools" << Tap() << repositories
                                      << QVariantMap{{"Repository", "localtest/tools"}};
    QTest::newRow("repository removed") << EventKind::Repository << "Uninstall"
                                        << "localtest/tools" << Tap() << repositories
                                        << QVariantMap{{"Repository", "localtest/tools"}};
}

void TestAnalytics::sendsEvents()
{
    QFETCH(EventKind, kind);
    QFETCH(QString, verb);
    QFETCH(QString, token);
    QFETCH(std::optional<QString>, tap);
    QFETCH(QString, url);
    QFETCH(QVariantMap, props);

    auto analytics = makeAnalytics();
    QVERIFY(analytics);
    send(*analytics, kind, verb, token, tap);

    QTRY_COMPARE(m_received.size(), 1);
    const Received& received = m_received.constFirst();
    QCOMPARE(received.path, "/api/event");
    QCOMPARE(received.method, QHttpServerRequest::Method::Post);
    QCOMPARE(received.contentType, "application/json");
    const QJsonObject expected{
        {"name", verb}, {"url", url}, {"domain", siteDomain}, {"props", QJsonObject::fromVariantMap(props)}};
    QCOMPARE(received.body, expected);
}

void TestAnalytics::nothingReachesTheServerWithoutPermission_data()
{
    QTest::addColumn<QVariant>("allow");
    QTest::addColumn<EventKind>("kind");

    for (const auto& [name, allow] : {std::pair{"never asked", QVariant()}, std::pair{"declined", QVariant(false)}}) {
        QTest::addRow("%s, app event", name) << allow << EventKind::App;
        QTest::addRow("%s, script event", name) << allow << EventKind::Script;
        QTest::addRow("%s, repository event", name) << allow << EventKind::Repository;
    }
}

void TestAnalytics::nothingReachesTheServerWithoutPermission()
{
    QFETCH(QVariant, allow);
    QFETCH(EventKind, kind);

    if (allow.isValid()) {
        m_defaults->setValue(PreferenceKeys::AllowDataCollection, allow);
    } else {
        m_defaults->remove(PreferenceKeys::AllowDataCollection);
    }
    auto analytics = makeAnalytics();
    QVERIFY(analytics);
    const int before = m_network.requests();

    send(*analytics, kind, "Install", "firefox", QString("homebrew/cask"));
    QCOMPARE(m_network.requests(), before);

    // Once allowed, the next event arrives alone: the refused one was never queued behind it.
    m_defaults->setValue(PreferenceKeys::AllowDataCollection, true);
    analytics->repositoryEvent("Install", "sentinel/tap");
    QTRY_COMPARE(m_received.size(), 1);
    QCOMPARE(m_received.constFirst().body.value("props").toObject().value("Repository").toString(), "sentinel/tap");
    QCOMPARE(m_network.requests(), before + 1);
}

void TestAnalytics::permissionIsReadAtEachEvent()
{
    auto analytics = makeAnalytics();
    QVERIFY(analytics);
    analytics->appEvent("Install", "first", QString("homebrew/cask"));
    m_defaults->setValue(PreferenceKeys::AllowDataCollection, false);
    analytics->appEvent("Install", "second", QString("homebrew/cask"));
    m_defaults->setValue(PreferenceKeys::AllowDataCollection, true);
    analytics->appEvent("Install", "third", QString("homebrew/cask"));

    QTRY_COMPARE(m_received.size(), 2);
    QStringList tokens;
    for (const Received& received : std::as_const(m_received)) {
        tokens.append(received.body.value("props").toObject().value("App").toString());
    }
    tokens.sort();
    QCOMPARE(tokens, QStringList({"first", "third"}));
}

void TestAnalytics::propsOnlyWithProperties_data()
{
    QTest::addColumn<bool>("pageview");
    QTest::addColumn<QString>("path");
    QTest::addColumn<PKAnalytics::Properties>("properties");
    QTest::addColumn<QString>("url");

    const QString site = "https://" + siteDomain;
    QTest::newRow("event without properties")
        << false << "/main/apps" << PKAnalytics::Properties() << site + "/main/apps";
    QTest::newRow("pageview without properties")
        << true << "/settings" << PKAnalytics::Properties() << site + "/settings";
    QTest::newRow("event with a property")
        << false << "/main/scripts" << PKAnalytics::Properties{{"Script", "wget"}} << site + "/main/scripts";
    QTest::newRow("path without a leading slash")
        << true << "main/apps" << PKAnalytics::Properties{{"k", "v"}} << site + "/main/apps";
}

void TestAnalytics::propsOnlyWithProperties()
{
    QFETCH(bool, pageview);
    QFETCH(QString, path);
    QFETCH(PKAnalytics::Properties, properties);
    QFETCH(QString, url);

    PKAnalytics analytics(siteDomain, serverBase(), m_network);
    const Result<void> tracked =
        pageview ? analytics.trackPageview(path, properties) : analytics.trackEvent("Launch", path, properties);
    QVERIFY(tracked);

    QTRY_COMPARE(m_received.size(), 1);
    const QJsonObject body = m_received.constFirst().body;
    QCOMPARE(body.value("name").toString(), pageview ? "pageview" : "Launch");
    QCOMPARE(body.value("url").toString(), url);
    QCOMPARE(body.contains("props"), !properties.isEmpty());
    QStringList keys = body.keys();
    keys.sort();
    QCOMPARE(keys, properties.isEmpty() ? QStringList({"domain", "name", "url"})
                                        : QStringList({"domain", "name", "props", "url"}));
}

void TestAnalytics::refusedCalls_data()
{
    QTest::addColumn<QString>("domain");
    QTest::addColumn<bool>("pageview");
    QTest::addColumn<QString>("eventName");
    QTest::addColumn<int>("error");

    QTest::newRow("pageview, empty domain") << "" << true << "" << int(PKAnalyticsError::domainNotSet);
    QTest::newRow("domain with a space") << "corvel example.test" << true << "" << int(PKAnalyticsError::invalidDomain);
    QTest::newRow("domain with a scheme")
        << "https://corvel.test" << true << "" << int(PKAnalyticsError::invalidDomain);
    QTest::newRow("domain with a port") << "corvel.test:8080" << true << "" << int(PKAnalyticsError::invalidDomain);
    QTest::newRow("domain with a path") << "corvel.test/apps" << true << "" << int(PKAnalyticsError::invalidDomain);
    QTest::newRow("event named pageview")
        << siteDomain << false << "pageview" << int(PKAnalyticsError::eventIsPageview);
    QTest::newRow("event named pageview, empty domain")
        << "" << false << "pageview" << int(PKAnalyticsError::eventIsPageview);
}

void TestAnalytics::refusedCalls()
{
    QFETCH(QString, domain);
    QFETCH(bool, pageview);
    QFETCH(QString, eventName);
    QFETCH(int, error);

    PKAnalytics analytics(domain, serverBase(), m_network);
    const int before = m_network.requests();
    const Result<void> tracked =
        pageview ? analytics.trackPageview("/main/apps") : analytics.trackEvent(eventName, "/main/apps");
    QVERIFY(!tracked);
    QCOMPARE(tracked.error().domain(), "PKAnalyticsError");
    QCOMPARE(tracked.error().code(), error);
    QVERIFY(!tracked.error().description().isEmpty());
    QCOMPARE(m_network.requests(), before);
}

void TestAnalytics::eventEndpoint_data()
{
    QTest::addColumn<QVariant>("configured");
    QTest::addColumn<QUrl>("endpoint");

    QTest::newRow("host only") << QVariant("https://plausible.io") << QUrl("https://plausible.io/api/event");
    QTest::newRow("trailing slash") << QVariant("https://plausible.io/") << QUrl("https://plausible.io/api/event");
    QTest::newRow("path prefix") << QVariant("https://stats.example.test/stats/")
                                 << QUrl("https://stats.example.test/stats/api/event");
    QTest::newRow("not set") << QVariant() << QUrl();
    QTest::newRow("not a web address") << QVariant("ftp://stats.example.test") << QUrl();
}

void TestAnalytics::eventEndpoint()
{
    QFETCH(QVariant, configured);
    QFETCH(QUrl, endpoint);

    auto analytics = makeAnalytics({{"TW_ANALYTICS_URL", configured}, {"TW_ANALYTICS_DOMAIN", siteDomain}});
    QVERIFY(analytics);
    QCOMPARE(analytics->PlausibleAPIEventURL(), endpoint);
    QCOMPARE(analytics->domain(), siteDomain);

    // Without an endpoint events are dropped quietly.
    if (endpoint.isEmpty()) {
        const int before = m_network.requests();
        analytics->appEvent("Install", "firefox", QString("homebrew/cask"));
        QCOMPARE(m_network.requests(), before);
    }
}

void TestAnalytics::sendsFromAnyThread()
{
    // A service with a path prefix, reached through it.
    auto analytics =
        makeAnalytics({{"TW_ANALYTICS_URL", serverBase().toString() + "/stats"}, {"TW_ANALYTICS_DOMAIN", siteDomain}});
    QVERIFY(analytics);
    std::thread worker([&] { analytics->scriptEvent("Install", "wget", QString("homebrew/core")); });
    worker.join();

    QTRY_COMPARE(m_received.size(), 1);
    QCOMPARE(m_received.constFirst().path, "/stats/api/event");
    QCOMPARE(m_received.constFirst().body.value("url").toString(), "https://" + siteDomain + "/main/scripts");
}

void TestAnalytics::transportErrorsArePrinted_data()
{
    QTest::addColumn<bool>("reachable");
    QTest::addColumn<int>("status");
    QTest::addColumn<bool>("printed");

    QTest::newRow("nobody listening") << false << 0 << true;
    QTest::newRow("service accepts") << true << 202 << false;
    // The service answered: that is not a failure to send.
    QTest::newRow("service refuses") << true << 500 << false;
}

void TestAnalytics::transportErrorsArePrinted()
{
    QFETCH(bool, reachable);
    QFETCH(int, status);
    QFETCH(bool, printed);

    QUrl base = serverBase();
    if (!reachable) {
        QTcpServer closed; // a port that was free a moment ago, closed again
        QVERIFY(closed.listen(QHostAddress::LocalHost));
        base = QUrl(QStringLiteral("http://127.0.0.1:%1").arg(closed.serverPort()));
    }
    m_nextStatus = status;

    LogCapture log;
    QSignalSpy finished(&m_network, &QNetworkAccessManager::finished);
    PKAnalytics analytics(siteDomain, base, m_network);
    QVERIFY(analytics.trackPageview("/main/apps"));
    // The reply's own handlers have run by the time the event loop checks again.
    QTRY_COMPARE(finished.size(), 1);

    QStringList errors;
    for (const LogCapture::Line& line : log.lines()) {
        if (line.type == QtWarningMsg && line.text.startsWith("error sending pageview to Plausible: ")) {
            errors.append(line.text);
        }
    }
    QCOMPARE(errors.size(), printed ? 1 : 0);
    if (printed) {
        QVERIFY2(errors.constFirst().size() > QString("error sending pageview to Plausible: ").size(),
                 qPrintable(errors.constFirst()));
    }
    QCOMPARE(m_received.size(), reachable ? 1 : 0);
}

QTEST_GUILESS_MAIN(TestAnalytics)
#include "TestAnalytics.moc"
