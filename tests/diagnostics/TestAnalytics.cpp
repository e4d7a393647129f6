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

void send(Analytics& analytics, EventKind kind, const QString& verb, const QString& token,
          const std::optional<QString>& tap)
{
    if (kind == EventKind::App) {
        analytics.appEvent(verb, token, tap);
    } else if (kind == EventKind::Script) {
        analytics.scriptEvent(verb, token, tap);
    } else {
        analytics.repositoryEvent(verb, token);
    }
}

QString prop(const Received& received, const QString& key)
{
    return received.body.value("props").toObject().value(key).toString();
}

} // namespace

class TestAnalytics : public QObject {
    Q_OBJECT

    QUrl serverBase() const { return QUrl(QStringLiteral("http://127.0.0.1:%1").arg(m_port)); }

    // An Analytics over a bundle in a temporary folder whose Info.plist holds these keys.
    std::unique_ptr<Analytics> makeAnalytics(const QVariantMap& info)
    {
        const QString folder = m_folder->filePath(QStringLiteral("bundle-%1").arg(m_bundles.size()));
        QFile file(folder + "/Info.plist");
        const QByteArray content = PropertyList::serialize(info);
        if (!QDir().mkpath(folder) || !file.open(QIODevice::WriteOnly) || file.write(content) != content.size()) {
            return nullptr;
        }
        file.close(); // the bundle reads it at once
        m_bundles.push_back(std::make_unique<Bundle>(folder));
        return std::make_unique<Analytics>(*m_defaults, *m_bundles.back(), m_network);
    }
    std::unique_ptr<Analytics> makeAnalytics()
    {
        return makeAnalytics({{"TW_ANALYTICS_URL", serverBase().toString()}, {"TW_ANALYTICS_DOMAIN", siteDomain}});
    }

    QHttpServer m_server;
    quint16 m_port = 0;
    QList<Received> m_received;
    int m_nextStatus = 202;

    std::unique_ptr<QTemporaryDir> m_folder;
    std::unique_ptr<Defaults> m_defaults;
    std::list<std::unique_ptr<Bundle>> m_bundles;
    RecordingNetworkAccessManager m_network;

private Q_SLOTS:
    void initTestCase()
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

    void init()
    {
        m_received.clear();
        m_nextStatus = 202;
        m_folder = std::make_unique<QTemporaryDir>();
        QVERIFY(m_folder->isValid());
        m_defaults = std::make_unique<Defaults>(m_folder->filePath("settings.ini"));
        m_defaults->setValue(PreferenceKeys::AllowDataCollection, true);
    }

    void cleanup()
    {
        m_defaults.reset();
        m_bundles.clear();
        m_folder.reset();
    }

    void sendsEvents_data()
    {
        QTest::addColumn<EventKind>("kind");
        QTest::addColumn<QString>("verb");
        QTest::addColumn<QString>("token");
        QTest::addColumn<std::optional<QString>>("tap");
        QTest::addColumn<QString>("url");
        QTest::addColumn<QVariantMap>("props");
        const auto row = [](const char* name, EventKind kind, const QString& verb, const QString& token,
                            const std::optional<QString>& tap, const QString& page, const QVariantMap& props) {
            QTest::newRow(name) << kind << verb << token << tap << "https://" + siteDomain + page << props;
        };

        row("app installed", EventKind::App, "Install", "firefox", "homebrew/cask", "/main/apps",
            {{"App", "firefox"}, {"Repository", "homebrew/cask"}});
        row("font cask installed", EventKind::App, "Install", "font-fira-code", "homebrew/cask-fonts", "/main/apps",
            {{"Font", "font-fira-code"}, {"Repository", "homebrew/cask-fonts"}});
        // Only the repository makes a font: the token's prefix does not.
        row("font-like token of another tap", EventKind::App, "Install", "font-tool", "homebrew/cask", "/main/apps",
            {{"App", "font-tool"}, {"Repository", "homebrew/cask"}});
        row("app of an unknown tap", EventKind::App, "Reinstall", "opera", {}, "/main/apps", {{"App", "opera"}});
        row("script installed", EventKind::Script, "Install", "wget", "homebrew/core", "/main/scripts",
            {{"Script", "wget"}, {"Repository", "homebrew/core"}});
        row("repository added", EventKind::Repository, "Install", "localtest/tools", {}, "/settings/repositories",
            {{"Repository", "localtest/tools"}});
    }

    void sendsEvents()
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

    void nothingReachesTheServerWithoutPermission_data()
    {
        QTest::addColumn<QVariant>("allow");
        QTest::addColumn<EventKind>("kind");

        for (const auto& [name, allow] :
             {std::pair{"never asked", QVariant()}, std::pair{"declined", QVariant(false)}}) {
            QTest::addRow("%s, app event", name) << allow << EventKind::App;
            QTest::addRow("%s, script event", name) << allow << EventKind::Script;
            QTest::addRow("%s, repository event", name) << allow << EventKind::Repository;
        }
    }

    // The permission is read at each event: made while allowed, the service still stops when it is taken away.
    void nothingReachesTheServerWithoutPermission()
    {
        QFETCH(QVariant, allow);
        QFETCH(EventKind, kind);

        auto analytics = makeAnalytics();
        QVERIFY(analytics);
        if (allow.isValid()) {
            m_defaults->setValue(PreferenceKeys::AllowDataCollection, allow);
        } else {
            m_defaults->remove(PreferenceKeys::AllowDataCollection);
        }
        const int before = m_network.requests();

        send(*analytics, kind, "Install", "firefox", QString("homebrew/cask"));
        QCOMPARE(m_network.requests(), before);

        // Once allowed, the next event arrives alone: the refused one was never queued behind it.
        m_defaults->setValue(PreferenceKeys::AllowDataCollection, true);
        analytics->repositoryEvent("Install", "sentinel/tap");
        QTRY_COMPARE(m_received.size(), 1);
        QCOMPARE(prop(m_received.constFirst(), "Repository"), "sentinel/tap");
        QCOMPARE(m_network.requests(), before + 1);
    }

    void propsOnlyWithProperties_data()
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

    void propsOnlyWithProperties()
    {
        QFETCH(bool, pageview);
        QFETCH(QString, path);
        QFETCH(PKAnalytics::Properties, properties);
        QFETCH(QString, url);

        PKAnalytics analytics(siteDomain, serverBase(), m_network);
        QVERIFY(pageview ? analytics.trackPageview(path, properties)
                         : analytics.trackEvent("Launch", path, properties));

        QTRY_COMPARE(m_received.size(), 1);
        const QJsonObject body = m_received.constFirst().body;
        QCOMPARE(body.value("name").toString(), pageview ? "pageview" : "Launch");
        QCOMPARE(body.value("url").toString(), url);
        QStringList keys = body.keys();
        keys.sort();
        QCOMPARE(keys, properties.isEmpty() ? QStringList({"domain", "name", "url"})
                                            : QStringList({"domain", "name", "props", "url"}));
    }

    void refusedCalls_data()
    {
        QTest::addColumn<QString>("domain");
        QTest::addColumn<QString>("eventName"); // empty for a pageview
        QTest::addColumn<int>("error");
        const auto row = [](const char* name, const QString& domain, const QString& eventName, int error) {
            QTest::newRow(name) << domain << eventName << error;
        };

        row("pageview, empty domain", "", "", PKAnalyticsError::domainNotSet);
        row("domain with a space", "corvel example.test", "", PKAnalyticsError::invalidDomain);
        row("domain with a scheme", "https://corvel.test", "", PKAnalyticsError::invalidDomain);
        row("domain with a path", "corvel.test/apps", "", PKAnalyticsError::invalidDomain);
        row("event named pageview", siteDomain, "pageview", PKAnalyticsError::eventIsPageview);
        row("event named pageview, empty domain", "", "pageview", PKAnalyticsError::eventIsPageview);
    }

    void refusedCalls()
    {
        QFETCH(QString, domain);
        QFETCH(QString, eventName);
        QFETCH(int, error);

        PKAnalytics analytics(domain, serverBase(), m_network);
        const int before = m_network.requests();
        const Result<void> tracked =
            eventName.isEmpty() ? analytics.trackPageview("/main/apps") : analytics.trackEvent(eventName, "/main/apps");
        QVERIFY(!tracked);
        QVERIFY(tracked.error().is(u"PKAnalyticsError", error));
        QVERIFY(!tracked.error().description().isEmpty());
        QCOMPARE(m_network.requests(), before);
    }

    void eventEndpoint_data()
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

    void eventEndpoint()
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

    void sendsFromAnyThread()
    {
        // A service with a path prefix, reached through it.
        auto analytics = makeAnalytics(
            {{"TW_ANALYTICS_URL", serverBase().toString() + "/stats"}, {"TW_ANALYTICS_DOMAIN", siteDomain}});
        QVERIFY(analytics);
        std::thread worker([&] { analytics->scriptEvent("Install", "wget", QString("homebrew/core")); });
        worker.join();

        QTRY_COMPARE(m_received.size(), 1);
        QCOMPARE(m_received.constFirst().path, "/stats/api/event");
        QCOMPARE(m_received.constFirst().body.value("url").toString(), "https://" + siteDomain + "/main/scripts");
    }

    void transportErrorsArePrinted_data()
    {
        QTest::addColumn<int>("status"); // 0: nobody listening
        QTest::addColumn<bool>("printed");

        QTest::newRow("nobody listening") << 0 << true;
        QTest::newRow("service accepts") << 202 << false;
        // The service answered: that is not a failure to send.
        QTest::newRow("service refuses") << 500 << false;
    }

    void transportErrorsArePrinted()
    {
        QFETCH(int, status);
        QFETCH(bool, printed);

        QUrl base = serverBase();
        if (status == 0) {
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

        const QString prefix = "error sending pageview to Plausible: ";
        QStringList errors;
        for (const LogCapture::Line& line : log.lines()) {
            if (line.type == QtWarningMsg && line.text.startsWith(prefix)) {
                errors.append(line.text);
            }
        }
        QCOMPARE(errors.size(), printed ? 1 : 0);
        // The reason follows the prefix.
        QVERIFY2(!printed || errors.constFirst().size() > prefix.size(), qPrintable(errors.join(u'\n')));
        QCOMPARE(m_received.size(), status == 0 ? 0 : 1);
    }
};

QTEST_GUILESS_MAIN(TestAnalytics)
#include "TestAnalytics.moc"
