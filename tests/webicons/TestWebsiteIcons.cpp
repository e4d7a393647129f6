#include "webicons/WebsiteIcons.h"

#include <QHttpServer>
#include <QHttpServerRequest>
#include <QHttpServerResponder>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>
#include <QtEndian>
#include <memory>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

const QByteArray pngSignature("\x89PNG\r\n\x1a\n", 8);
const QByteArray pngHeader = pngSignature + QByteArray("\0\0\0\x0dIHDR", 8);

QByteArray bigEndian(quint32 value)
{
    QByteArray bytes(4, Qt::Uninitialized);
    qToBigEndian(value, bytes.data());
    return bytes;
}

// Just what the injected decoder reads of a PNG: the header chunk with the size and the end chunk. The service
// never looks into the bytes itself, so checksums and pixels would prove nothing here.
QByteArray png(int width, int height)
{
    return pngHeader + bigEndian(quint32(width)) + bigEndian(quint32(height)) + QByteArray("\x08\0\0\0\0", 5) +
           QByteArray(8, '\0') + "IEND" + QByteArray(4, '\0');
}

// The size png() wrote; none for other bytes or an image cut off before its end.
std::optional<QSize> decodePng(const QByteArray& bytes)
{
    if (!bytes.startsWith(pngHeader) || bytes.indexOf("IEND", pngHeader.size() + 17) < 0) {
        return std::nullopt;
    }
    const auto edge = [&](int at) { return int(qFromBigEndian<quint32>(bytes.constData() + at)); };
    return QSize(edge(pngHeader.size()), edge(pngHeader.size() + 4));
}

struct Reply {
    int status = 200;
    QByteArray type;
    QByteArray body;
    QByteArray location;
};

// One website on its own loopback port (so on its own cache key), answering from fixed replies and recording the
// paths it is asked for. Replies are written "path -> what": "html <markup>", "json <text>", "text <text>",
// "png WxH" or "png WxH BYTES" (zeros after the image up to that size), "404", "302 /target".
class Site {
public:
    Site()
    {
        m_server.setMissingHandler([this](const QHttpServerRequest& request, QHttpServerResponder&& responder) {
            const QString path = request.url().path();
            m_requests.append(path);
            const Reply reply = m_replies.value(path, Reply{404, "text/plain", "Not Found", {}});
            const auto status = QHttpServerResponder::StatusCode(reply.status);
            if (reply.location.isEmpty()) {
                responder.write(reply.body, {{"Content-Type", reply.type}}, status);
            } else {
                responder.write(reply.body, {{"Content-Type", reply.type}, {"Location", reply.location}}, status);
            }
        });
        m_port = m_server.listen(QHostAddress::LocalHost);
    }

    bool listening() const { return m_port != 0; }
    QUrl url(const QString& path) const { return QUrl(u"http://127.0.0.1:%1%2"_s.arg(m_port).arg(path)); }
    QString key() const { return u"127.0.0.1:%1"_s.arg(m_port); }
    const QStringList& requests() const { return m_requests; }
    QByteArray body(const QString& path) const { return m_replies.value(path).body; }

    void serve(const QStringList& lines)
    {
        for (const QString& line : lines) {
            const qsizetype arrow = line.indexOf(u" -> ");
            serve(line.left(arrow), line.mid(arrow + 4));
        }
    }

    void serve(const QString& path, const QString& what)
    {
        const QString kind = what.section(u' ', 0, 0);
        const QString rest = what.section(u' ', 1);
        Reply reply;
        const auto size = [](const QString& text) {
            return QSize(text.section(u'x', 0, 0).toInt(), text.section(u'x', 1, 1).toInt());
        };
        if (kind == u"html") {
            reply = {200, "text/html", rest.toUtf8(), {}};
        } else if (kind == u"json") {
            reply = {200, "application/manifest+json", rest.toUtf8(), {}};
        } else if (kind == u"text") {
            reply = {200, "image/png", rest.toUtf8(), {}};
        } else if (kind == u"png") {
            const QSize pixels = size(rest.section(u' ', 0, 0));
            const QByteArray image = png(pixels.width(), pixels.height());
            reply = {200, "image/png", image.leftJustified(rest.section(u' ', 1).toInt(), '\0'), {}};
        } else if (kind.startsWith(u'3')) {
            const QByteArray target = url(rest).toEncoded();
            reply = {kind.toInt(), "text/html", "moved", target};
        } else {
            reply = {kind.toInt(), "text/html", "no", {}};
        }
        m_replies.insert(path, reply);
    }

private:
    QHttpServer m_server;
    quint16 m_port = 0;
    QHash<QString, Reply> m_replies;
    QStringList m_requests;
};

// Accepts connections and never answers; remembers what had happened by the time each connection came in.
class SilentServer : public QTcpServer {
public:
    explicit SilentServer(std::function<int()> observe = {})
        : m_observe(std::move(observe))
    {
        connect(this, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket* socket = nextPendingConnection()) {
                socket->setParent(this);
                m_observed.append(m_observe ? m_observe() : 0);
            }
        });
        listen(QHostAddress::LocalHost);
    }

    QUrl url(const QString& path) const { return QUrl(u"http://127.0.0.1:%1%2"_s.arg(serverPort()).arg(path)); }
    const QList<int>& observed() const { return m_observed; }

private:
    std::function<int()> m_observe;
    QList<int> m_observed;
};

QString errorCode(const Error& error)
{
    switch (error.code()) {
    case WebsiteIcons::invalidWebsite:
        return u"invalidWebsite"_s;
    case WebsiteIcons::unreachable:
        return u"unreachable"_s;
    case WebsiteIcons::noIcon:
        return u"noIcon"_s;
    }
    return u"code %1"_s.arg(error.code());
}

struct Answer {
    QString site;
    QByteArray icon; // empty when it failed
    QString failure; // the error code's name, empty for an icon
    QString description;
};

// Asks for an icon and waits for its one answer. None when the answer came before request() returned (even the
// cache answers later, so that callers can connect after asking) or never came.
std::optional<Answer> ask(WebsiteIcons& icons, const QUrl& website, int size)
{
    QSignalSpy ready(&icons, &WebsiteIcons::iconReady);
    QSignalSpy failed(&icons, &WebsiteIcons::failed);
    icons.request(website, size);
    if (ready.size() + failed.size() != 0 || !QTest::qWaitFor([&] { return ready.size() + failed.size() > 0; })) {
        return std::nullopt;
    }
    if (!ready.isEmpty()) {
        return Answer{ready[0][0].toString(), ready[0][1].toByteArray(), {}, {}};
    }
    const Error error = failed[0][1].value<Error>();
    return Answer{failed[0][0].toString(), {}, errorCode(error), error.description()};
}

} // namespace

class TestWebsiteIcons : public QObject {
    Q_OBJECT

    std::unique_ptr<WebsiteIcons> makeIcons()
    {
        return std::make_unique<WebsiteIcons>(decodePng, m_cacheFolder->path());
    }

private Q_SLOTS:
    void initTestCase();
    void init();
    void testDecoderIsReal();
    void chosenIcon_data();
    void chosenIcon();
    void outcomesAreRemembered_data();
    void outcomesAreRemembered();
    void redirects_data();
    void redirects();
    void slowSitesTimeOutWithoutFreezing_data();
    void slowSitesTimeOutWithoutFreezing();
    void requestsAtOnceAreLimited();
    void requestsForOneSiteShareTheWork();
    void siteOf_data();
    void siteOf();

private:
    std::unique_ptr<QTemporaryDir> m_cacheFolder;
};

void TestWebsiteIcons::initTestCase()
{
    qRegisterMetaType<Error>();
}

void TestWebsiteIcons::init()
{
    m_cacheFolder = std::make_unique<QTemporaryDir>();
    QVERIFY(m_cacheFolder->isValid());
}

void TestWebsiteIcons::testDecoderIsReal()
{
    // The decoder the other tests inject must tell images from other bytes, or they would prove nothing.
    QCOMPARE(decodePng(png(48, 32)).value_or(QSize()), QSize(48, 32));
    QVERIFY(!decodePng(png(48, 32).chopped(8)));
    QVERIFY(!decodePng("<html>not found</html>"));
}

void TestWebsiteIcons::chosenIcon_data()
{
    QTest::addColumn<QStringList>("site");
    QTest::addColumn<int>("size");
    QTest::addColumn<QString>("expected"); // "icon <path it was served at>" or "failed <code>"
    QTest::addColumn<QStringList>("requests");

    const QString page = u"/ -> html <head><link rel=icon sizes=16x16 href=/16.png>"
                         "<link rel=icon sizes=32x32 href=/32.png><link rel=apple-touch-icon href=/touch.png>"
                         "<link rel=manifest href=/app/manifest.json></head>"_s;
    const QStringList icons{
        u"/16.png -> png 16x16"_s,
        u"/32.png -> png 32x32"_s,
        u"/touch.png -> png 180x180"_s,
        u"/app/manifest.json -> json {\"icons\": [{\"src\": \"512.png\", \"sizes\": \"512x512\"}]}"_s,
        u"/app/512.png -> png 512x512"_s,
        u"/favicon.ico -> png 16x16"_s};

    QTest::newRow("smallest that is large enough")
        << QStringList{page} + icons << 64 << "icon /touch.png" << QStringList{"/", "/app/manifest.json", "/touch.png"};
    QTest::newRow("what does not decode gives way to the next")
        << QStringList{page, u"/touch.png -> text <html>moved</html>"_s} + icons.mid(3) + icons.mid(0, 2) << 64
        << "icon /app/512.png" << QStringList{"/", "/app/manifest.json", "/touch.png", "/app/512.png"};
    QTest::newRow("missing icons fall back to /favicon.ico")
        << QStringList{u"/ -> html <link rel=icon href=/gone.png><link rel=apple-touch-icon href=/gone-too.png>"_s,
                       u"/favicon.ico -> png 32x32"_s}
        << 64 << "icon /favicon.ico" << QStringList{"/", "/gone-too.png", "/gone.png", "/favicon.ico"};
    QTest::newRow("a missing page") << QStringList{u"/favicon.ico -> png 16x16"_s} << 64 << "icon /favicon.ico"
                                    << QStringList{"/", "/favicon.ico"};
    QTest::newRow("404 everywhere") << QStringList{} << 64 << "failed noIcon" << QStringList{"/", "/favicon.ico"};
    QTest::newRow("a broken manifest is passed over")
        << QStringList{u"/ -> html <link rel=manifest href=/m.json><link rel=icon href=/i.png>"_s,
                       u"/m.json -> json {\"icons\": [{\"src\": "_s, u"/i.png -> png 64x64"_s}
        << 64 << "icon /i.png" << QStringList{"/", "/m.json", "/i.png"};
    QTest::newRow("a missing manifest is passed over")
        << QStringList{u"/ -> html <link rel=manifest href=/m.json><link rel=icon href=/i.png>"_s,
                       u"/i.png -> png 64x64"_s}
        << 64 << "icon /i.png" << QStringList{"/", "/m.json", "/i.png"};
    QTest::newRow("relative to where a redirect led")
        << QStringList{u"/ -> 302 /docs/intro/"_s, u"/docs/intro/ -> html <link rel=icon href=img/i.png>"_s,
                       u"/docs/intro/img/i.png -> png 48x48"_s}
        << 64 << "icon /docs/intro/img/i.png" << QStringList{"/", "/docs/intro/", "/docs/intro/img/i.png"};
    QTest::newRow("an icon above the size limit is passed over")
        << QStringList{u"/ -> html <link rel=icon sizes=256x256 href=/huge.png><link rel=icon href=/small.png>"_s,
                       u"/huge.png -> png 256x256 1100000"_s, u"/small.png -> png 16x16"_s}
        << 64 << "icon /small.png" << QStringList{"/", "/huge.png", "/small.png"};
    QTest::newRow("an icon just under the size limit is taken")
        << QStringList{u"/ -> html <link rel=icon sizes=256x256 href=/large.png>"_s,
                       u"/large.png -> png 256x256 1048576"_s}
        << 64 << "icon /large.png" << QStringList{"/", "/large.png"};
    QTest::newRow("a page that is not HTML")
        << QStringList{u"/ -> text \x89PNG\r\n\x1a\n\0\0"_s, u"/favicon.ico -> png 16x16"_s} << 64
        << "icon /favicon.ico" << QStringList{"/", "/favicon.ico"};
}

void TestWebsiteIcons::chosenIcon()
{
    QFETCH(QStringList, site);
    QFETCH(int, size);
    QFETCH(QString, expected);
    QFETCH(QStringList, requests);

    Site server;
    QVERIFY(server.listening());
    server.serve(site);
    auto icons = makeIcons();
    const std::optional<Answer> answer = ask(*icons, server.url(u"/"_s), size);
    QVERIFY(answer);
    QCOMPARE(answer->site, server.key());
    QCOMPARE(answer->icon, expected.startsWith(u"icon ") ? server.body(expected.mid(5)) : QByteArray());
    QCOMPARE(answer->failure, expected.startsWith(u"failed ") ? expected.mid(7) : QString());
    QCOMPARE(server.requests(), requests);
    QCOMPARE(icons->requestsInFlight(), 0);
}

void TestWebsiteIcons::outcomesAreRemembered_data()
{
    QTest::addColumn<QStringList>("site");
    QTest::addColumn<bool>("found");

    QTest::newRow("an icon") << QStringList{u"/favicon.ico -> png 16x16"_s} << true;
    QTest::newRow("404 everywhere") << QStringList{} << false;
}

void TestWebsiteIcons::outcomesAreRemembered()
{
    QFETCH(QStringList, site);
    QFETCH(bool, found);

    Site server;
    QVERIFY(server.listening());
    server.serve(site);
    const QUrl page = server.url(u"/some/page"_s);
    auto icons = makeIcons();
    const std::optional<Answer> first = ask(*icons, page, 32);
    QVERIFY(first);
    QCOMPARE(first->failure, found ? QString() : u"noIcon"_s);
    const QStringList asked = server.requests();
    QCOMPARE(asked.size(), 2); // the page, then /favicon.ico

    // The same service, then another one over the same cache folder (as at the next start): no HTTP at all.
    const std::optional<Answer> again = ask(*icons, page, 32);
    auto nextRun = makeIcons();
    const std::optional<Answer> afterRestart = ask(*nextRun, page, 32);
    QCOMPARE(server.requests(), asked);
    for (const std::optional<Answer>& answer : {again, afterRestart}) {
        QVERIFY(answer);
        QCOMPARE(answer->site, server.key());
        QCOMPARE(answer->icon, first->icon);
        QCOMPARE(answer->failure, first->failure);
    }

    // Once the remembered outcome has expired, the site is asked again.
    nextRun->cache().setIconLifetime(0s);
    nextRun->cache().setFailureLifetime(0s);
    QVERIFY(ask(*nextRun, page, 32));
    QCOMPARE(server.requests(), asked + asked);
}

void TestWebsiteIcons::redirects_data()
{
    QTest::addColumn<int>("hops");
    QTest::addColumn<int>("limit"); // -1: the default
    QTest::addColumn<bool>("found");

    QTest::newRow("three, the default limit") << 3 << -1 << true;
    QTest::newRow("four, over the default limit") << 4 << -1 << false;
    QTest::newRow("one, none allowed") << 1 << 0 << false;
    QTest::newRow("five, five allowed") << 5 << 5 << true;
}

void TestWebsiteIcons::redirects()
{
    QFETCH(int, hops);
    QFETCH(int, limit);
    QFETCH(bool, found);

    Site server;
    QVERIFY(server.listening());
    for (int hop = hops; hop > 0; --hop) {
        server.serve(u"/hop/%1"_s.arg(hop), u"302 /hop/%1"_s.arg(hop - 1));
    }
    server.serve({u"/hop/0 -> html <link rel=icon href=icon.png>"_s, u"/hop/icon.png -> png 24x24"_s});
    auto icons = makeIcons();
    if (limit >= 0) {
        icons->setMaxRedirects(limit);
    }
    const std::optional<Answer> answer = ask(*icons, server.url(u"/hop/%1"_s.arg(hops)), 32);
    QVERIFY(answer);
    // A site that redirects without end is not asked for its favicon either.
    QCOMPARE(answer->failure, found ? QString() : u"unreachable"_s);
    QStringList expectedRequests;
    for (int hop = hops; hop >= hops - std::min(hops, limit >= 0 ? limit : 3); --hop) {
        expectedRequests.append(u"/hop/%1"_s.arg(hop));
    }
    if (found) {
        expectedRequests.append(u"/hop/icon.png"_s);
    }
    QCOMPARE(server.requests(), expectedRequests);
}

void TestWebsiteIcons::slowSitesTimeOutWithoutFreezing_data()
{
    QTest::addColumn<bool>("pageAnswers");

    QTest::newRow("the page never answers") << false;
    QTest::newRow("the icon never answers") << true;
}

void TestWebsiteIcons::slowSitesTimeOutWithoutFreezing()
{
    QFETCH(bool, pageAnswers);

    SilentServer silent;
    QVERIFY(silent.isListening());
    Site server;
    QVERIFY(server.listening());
    server.serve({u"/ -> html <link rel=icon sizes=64x64 href=%1>"_s.arg(silent.url(u"/icon.png"_s).toString()),
                  u"/favicon.ico -> png 16x16"_s});

    auto icons = makeIcons();
    icons->setTimeout(300ms);
    // request() only starts the work; the waiting happens in the event loop, which keeps serving the timer.
    int ticks = 0;
    int ticksAtAnswer = -1;
    QTimer ticker;
    connect(&ticker, &QTimer::timeout, this, [&ticks] { ++ticks; });
    connect(icons.get(), &WebsiteIcons::iconReady, this, [&] { ticksAtAnswer = ticks; });
    connect(icons.get(), &WebsiteIcons::failed, this, [&] { ticksAtAnswer = ticks; });
    ticker.start(10);

    const std::optional<Answer> answer = ask(*icons, pageAnswers ? server.url(u"/"_s) : silent.url(u"/"_s), 64);
    QVERIFY(answer);
    QVERIFY2(ticksAtAnswer >= 5, qPrintable(QString::number(ticksAtAnswer)));
    if (pageAnswers) {
        // The icon that hung was given up, and the next candidate taken.
        QCOMPARE(answer->icon, server.body(u"/favicon.ico"_s));
        QCOMPARE(silent.observed().size(), 1);
    } else {
        QCOMPARE(answer->failure, u"unreachable"_s);
        QVERIFY2(answer->description.contains(u"timed out after 300 ms"), qPrintable(answer->description));
    }
    QCOMPARE(icons->requestsInFlight(), 0);
}

void TestWebsiteIcons::requestsAtOnceAreLimited()
{
    auto icons = makeIcons();
    icons->setTimeout(400ms);
    QSignalSpy failed(icons.get(), &WebsiteIcons::failed);

    // Six sites that never answer: each notes how many requests had failed when it was reached.
    std::vector<std::unique_ptr<SilentServer>> sites;
    QList<int> failedWhenReached;
    for (int i = 0; i < 6; ++i) {
        sites.push_back(std::make_unique<SilentServer>([&failed] { return int(failed.size()); }));
        QVERIFY(sites.back()->isListening());
    }
    for (const auto& site : sites) {
        icons->request(site->url(u"/"_s), 32);
    }
    QCOMPARE(icons->requestsInFlight(), 4);
    QCOMPARE(icons->requestsQueued(), 2);
    QTRY_COMPARE(failed.size(), 6);

    for (const auto& site : sites) {
        failedWhenReached += site->observed();
    }
    std::ranges::sort(failedWhenReached);
    // Four at once; the last two only once earlier ones had given up.
    QCOMPARE(failedWhenReached.size(), 6);
    QCOMPARE(failedWhenReached.mid(0, 4), QList<int>(4, 0));
    QVERIFY(failedWhenReached[4] > 0);
}

void TestWebsiteIcons::requestsForOneSiteShareTheWork()
{
    Site server;
    QVERIFY(server.listening());
    server.serve({u"/ -> html <link rel=icon href=/i.png>"_s, u"/i.png -> png 32x32"_s});
    auto icons = makeIcons();
    QSignalSpy ready(icons.get(), &WebsiteIcons::iconReady);
    icons->request(server.url(u"/"_s), 32);
    icons->request(server.url(u"/"_s), 32);
    icons->request(server.url(u"/other/page?x=1"_s), 128);
    QTRY_COMPARE(ready.size(), 1);
    QCOMPARE(server.requests(), (QStringList{"/", "/i.png"}));

    // Asked again once answered, it comes from the cache: a second answer, no HTTP.
    icons->request(server.url(u"/"_s), 32);
    QTRY_COMPARE(ready.size(), 2);
    QCOMPARE(server.requests(), (QStringList{"/", "/i.png"}));
}

void TestWebsiteIcons::siteOf_data()
{
    QTest::addColumn<QString>("address");
    QTest::addColumn<QString>("site"); // empty: not a website, which request() refuses

    const auto row = [](const char* name, const QString& address, const char* site) {
        QTest::newRow(name) << address << QString(site);
    };
    row("host in lower case", u"https://WWW.Example.COM/Path?q=1"_s, "www.example.com");
    row("default http port", u"http://example.com:80/"_s, "example.com");
    row("default https port", u"https://example.com:443"_s, "example.com");
    row("https on port 80", u"https://example.com:80/"_s, "example.com:80");
    row("other port", u"http://example.com:8080/"_s, "example.com:8080");
    row("international name", u"https://bücher.example/"_s, "xn--bcher-kva.example");
    row("IPv6", u"https://[::1]:8443/"_s, "[::1]:8443");
    row("empty", u""_s, "");
    row("no scheme", u"example.com"_s, "");
    row("no host", u"https://"_s, "");
    row("file", u"file:///etc/hosts"_s, "");
}

void TestWebsiteIcons::siteOf()
{
    QFETCH(QString, address);
    QFETCH(QString, site);

    QCOMPARE(WebsiteIcons::siteOf(QUrl(address)), site);
    if (!site.isEmpty()) {
        return;
    }
    auto icons = makeIcons();
    const std::optional<Answer> answer = ask(*icons, QUrl(address), 32);
    QVERIFY(answer);
    QCOMPARE(answer->site, QString());
    QCOMPARE(answer->failure, u"invalidWebsite"_s);
    QVERIFY2(answer->description.startsWith(u"Not a website address: "), qPrintable(answer->description));
    QCOMPARE(icons->requestsInFlight(), 0);
    QVERIFY(!QFile::exists(m_cacheFolder->filePath(WebsiteIconCache::indexFileName)));
}

QTEST_GUILESS_MAIN(TestWebsiteIcons)
#include "TestWebsiteIcons.moc"
