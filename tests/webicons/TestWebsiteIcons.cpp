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

quint32 crc32(QByteArrayView data)
{
    quint32 crc = 0xFFFFFFFFu;
    for (const char byte : data) {
        crc ^= quint8(byte);
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
        }
    }
    return ~crc;
}

QByteArray bigEndian(quint32 value)
{
    QByteArray bytes(4, Qt::Uninitialized);
    qToBigEndian(value, bytes.data());
    return bytes;
}

QByteArray pngChunk(const char* type, const QByteArray& data)
{
    const QByteArray typed = QByteArray(type) + data;
    return bigEndian(quint32(data.size())) + typed + bigEndian(crc32(typed));
}

// A real, minimal PNG: 8-bit greyscale, every row one shade.
QByteArray png(int width, int height)
{
    QByteArray pixels;
    for (int row = 0; row < height; ++row) {
        pixels += '\0'; // no filter
        pixels += QByteArray(width, char(row));
    }
    const QByteArray header = bigEndian(quint32(width)) + bigEndian(quint32(height)) + QByteArray("\x08\0\0\0\0", 5);
    // qCompress gives a zlib stream behind the length that qUncompress wants.
    return pngSignature + pngChunk("IHDR", header) + pngChunk("IDAT", qCompress(pixels).mid(4)) + pngChunk("IEND", {});
}

// Decodes what png() makes, checking what a real decoder checks: signature, chunk checksums, the header first and
// image data that inflates to exactly the rows the header announces.
std::optional<QSize> decodePng(const QByteArray& bytes)
{
    if (!bytes.startsWith(pngSignature)) {
        return std::nullopt;
    }
    qsizetype at = pngSignature.size();
    QSize size;
    QByteArray compressed;
    while (at + 12 <= bytes.size()) {
        const auto length = qsizetype(qFromBigEndian<quint32>(bytes.constData() + at));
        if (at + 12 + length > bytes.size()) {
            return std::nullopt;
        }
        const QByteArrayView typed(bytes.constData() + at + 4, length + 4);
        if (qFromBigEndian<quint32>(bytes.constData() + at + 8 + length) != crc32(typed)) {
            return std::nullopt;
        }
        const QByteArrayView type = typed.first(4);
        const QByteArrayView data = typed.sliced(4);
        if (size.isEmpty() && type != "IHDR") {
            return std::nullopt;
        }
        if (type == "IHDR") {
            if (length != 13 || data[8] != 8 || data[9] != 0) {
                return std::nullopt;
            }
            size = QSize(int(qFromBigEndian<quint32>(data.data())), int(qFromBigEndian<quint32>(data.data() + 4)));
        } else if (type == "IDAT") {
            compressed += data;
        } else if (type == "IEND") {
            const qsizetype expected = qsizetype(size.height()) * (size.width() + 1);
            const QByteArray pixels = qUncompress(bigEndian(quint32(expected)) + compressed);
            return pixels.size() == expected ? std::optional(size) : std::nullopt;
        }
        at += 12 + length;
    }
    return std::nullopt;
}

struct Reply {
    int status = 200;
    QByteArray type;
    QByteArray body;
    QByteArray location;
};

// One website on its own loopback port (so on its own cache key), answering from fixed replies and recording the
// paths it is asked for. Replies are written "path -> what": "html <markup>", "json <text>", "text <text>",
// "png WxH", "bigpng WxH BYTES" (padded behind the image), "404", "302 /target".
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
            const QSize pixels = size(rest);
            reply = {200, "image/png", png(pixels.width(), pixels.height()), {}};
        } else if (kind == u"bigpng") {
            const QSize pixels = size(rest.section(u' ', 0, 0));
            const QByteArray image = png(pixels.width(), pixels.height());
            reply = {200, "image/png", image + QByteArray(rest.section(u' ', 1).toInt() - image.size(), '\0'), {}};
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

QString errorCode(const QList<QVariant>& failure)
{
    const Error error = failure.at(1).value<Error>();
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
    void invalidWebsites_data();
    void invalidWebsites();
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
    QByteArray damaged = png(48, 32);
    damaged[damaged.size() / 2] = char(damaged[damaged.size() / 2] ^ 0x55);
    QVERIFY(!decodePng(damaged));
    QVERIFY(!decodePng(png(48, 32).chopped(12)));
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
    QTest::newRow("largest when none is large enough") << QStringList{page} + icons << 1024 << "icon /app/512.png"
                                                       << QStringList{"/", "/app/manifest.json", "/app/512.png"};
    QTest::newRow("exact size") << QStringList{page} + icons << 32 << "icon /32.png"
                                << QStringList{"/", "/app/manifest.json", "/32.png"};
    QTest::newRow("what does not decode gives way to the next")
        << QStringList{page, u"/touch.png -> text <html>moved</html>"_s} + icons.mid(3) + icons.mid(0, 2) << 64
        << "icon /app/512.png" << QStringList{"/", "/app/manifest.json", "/touch.png", "/app/512.png"};
    QTest::newRow("missing icons fall back to /favicon.ico")
        << QStringList{u"/ -> html <link rel=icon href=/gone.png><link rel=apple-touch-icon href=/gone-too.png>"_s,
                       u"/favicon.ico -> png 32x32"_s}
        << 64 << "icon /favicon.ico" << QStringList{"/", "/gone-too.png", "/gone.png", "/favicon.ico"};
    QTest::newRow("a page without icons")
        << QStringList{u"/ -> html <title>Plain</title>"_s, u"/favicon.ico -> png 16x16"_s} << 64 << "icon /favicon.ico"
        << QStringList{"/", "/favicon.ico"};
    QTest::newRow("a missing page") << QStringList{u"/favicon.ico -> png 16x16"_s} << 64 << "icon /favicon.ico"
                                    << QStringList{"/", "/favicon.ico"};
    QTest::newRow("404 everywhere") << QStringList{} << 64 << "failed noIcon" << QStringList{"/", "/favicon.ico"};
    QTest::newRow("nothing decodes") << QStringList{u"/ -> html <link rel=icon href=/a.png>"_s,
                                                    u"/a.png -> text GIF89a"_s, u"/favicon.ico -> text \0\0\1\0"_s}
                                     << 64 << "failed noIcon" << QStringList{"/", "/a.png", "/favicon.ico"};
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
    QTest::newRow("against the base element")
        << QStringList{u"/ -> html <base href=/assets/v2/><link rel=icon href=i.png>"_s,
                       u"/assets/v2/i.png -> png 48x48"_s}
        << 64 << "icon /assets/v2/i.png" << QStringList{"/", "/assets/v2/i.png"};
    QTest::newRow("an icon above the size limit is passed over")
        << QStringList{u"/ -> html <link rel=icon sizes=256x256 href=/huge.png><link rel=icon href=/small.png>"_s,
                       u"/huge.png -> bigpng 256x256 1100000"_s, u"/small.png -> png 16x16"_s}
        << 64 << "icon /small.png" << QStringList{"/", "/huge.png", "/small.png"};
    QTest::newRow("an icon just under the size limit is taken")
        << QStringList{u"/ -> html <link rel=icon sizes=256x256 href=/large.png>"_s,
                       u"/large.png -> bigpng 256x256 1048576"_s}
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
    QSignalSpy ready(icons.get(), &WebsiteIcons::iconReady);
    QSignalSpy failed(icons.get(), &WebsiteIcons::failed);

    icons->request(server.url(u"/"_s), size);
    QTRY_COMPARE(ready.size() + failed.size(), 1);
    if (expected.startsWith(u"icon ")) {
        QCOMPARE(ready.size(), 1);
        QCOMPARE(ready[0][0].toString(), server.key());
        QCOMPARE(ready[0][1].toByteArray(), server.body(expected.mid(5)));
    } else {
        QVERIFY(failed.size() == 1);
        QCOMPARE(failed[0][0].toString(), server.key());
        QCOMPARE(u"failed "_s + errorCode(failed[0]), expected);
    }
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
    const auto askAndWait = [&server](WebsiteIcons& icons) -> QList<QVariant> {
        QSignalSpy ready(&icons, &WebsiteIcons::iconReady);
        QSignalSpy failed(&icons, &WebsiteIcons::failed);
        icons.request(server.url(u"/some/page"_s), 32);
        // The answer comes later even from the cache, so that callers can connect after asking.
        if (ready.size() + failed.size() != 0) {
            return {};
        }
        if (!QTest::qWaitFor([&] { return ready.size() + failed.size() > 0; })) {
            return {};
        }
        return ready.isEmpty() ? failed.takeFirst() : ready.takeFirst();
    };

    auto icons = makeIcons();
    const QList<QVariant> first = askAndWait(*icons);
    QCOMPARE(first.size(), 2);
    const QStringList asked = server.requests();
    QCOMPARE(asked.size(), 2); // the page, then /favicon.ico

    // The same service, then another one over the same cache folder (as at the next start): no HTTP at all.
    const QList<QVariant> again = askAndWait(*icons);
    auto nextRun = makeIcons();
    const QList<QVariant> afterRestart = askAndWait(*nextRun);
    QCOMPARE(server.requests(), asked);
    for (const QList<QVariant>& answer : {again, afterRestart}) {
        QCOMPARE(answer.size(), 2);
        QCOMPARE(answer[0].toString(), server.key());
        if (found) {
            QCOMPARE(answer[1].toByteArray(), first[1].toByteArray());
        } else {
            QCOMPARE(answer[1].value<Error>().code(), int(WebsiteIcons::noIcon));
        }
    }

    // Once the remembered outcome has expired, the site is asked again.
    nextRun->cache().setIconLifetime(0s);
    nextRun->cache().setFailureLifetime(0s);
    const QList<QVariant> expired = askAndWait(*nextRun);
    QCOMPARE(expired.size(), 2);
    QCOMPARE(server.requests(), asked + asked);
}

void TestWebsiteIcons::redirects_data()
{
    QTest::addColumn<int>("hops");
    QTest::addColumn<int>("limit"); // -1: the default
    QTest::addColumn<bool>("found");

    QTest::newRow("none") << 0 << -1 << true;
    QTest::newRow("one") << 1 << -1 << true;
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
    QStringList expectedRequests;
    for (int hop = hops; hop > 0; --hop) {
        server.serve(u"/hop/%1"_s.arg(hop), u"302 /hop/%1"_s.arg(hop - 1));
    }
    server.serve({u"/hop/0 -> html <link rel=icon href=icon.png>"_s, u"/hop/icon.png -> png 24x24"_s});
    auto icons = makeIcons();
    QCOMPARE(icons->maxRedirects(), 3);
    if (limit >= 0) {
        icons->setMaxRedirects(limit);
    }
    QSignalSpy ready(icons.get(), &WebsiteIcons::iconReady);
    QSignalSpy failed(icons.get(), &WebsiteIcons::failed);
    icons->request(server.url(u"/hop/%1"_s.arg(hops)), 32);
    QTRY_COMPARE(ready.size() + failed.size(), 1);

    QCOMPARE(ready.size(), found ? 1 : 0);
    const int followed = std::min(hops, icons->maxRedirects());
    for (int hop = hops; hop >= hops - followed; --hop) {
        expectedRequests.append(u"/hop/%1"_s.arg(hop));
    }
    if (found) {
        expectedRequests.append(u"/hop/icon.png"_s);
    } else {
        // A site that redirects without end is not asked for its favicon either.
        QCOMPARE(errorCode(failed[0]), u"unreachable");
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
    QSignalSpy ready(icons.get(), &WebsiteIcons::iconReady);
    QSignalSpy failed(icons.get(), &WebsiteIcons::failed);
    int ticks = 0;
    int ticksAtAnswer = -1;
    QTimer ticker;
    connect(&ticker, &QTimer::timeout, this, [&ticks] { ++ticks; });
    const auto noteAnswer = [&] { ticksAtAnswer = ticks; };
    connect(icons.get(), &WebsiteIcons::iconReady, this, noteAnswer);
    connect(icons.get(), &WebsiteIcons::failed, this, noteAnswer);
    ticker.start(10);

    icons->request(pageAnswers ? server.url(u"/"_s) : silent.url(u"/"_s), 64);
    // request() only starts the work; the waiting happens in the event loop, which keeps serving the timer.
    QCOMPARE(ticksAtAnswer, -1);
    QTRY_VERIFY(ticksAtAnswer >= 0);
    QVERIFY2(ticksAtAnswer >= 5, qPrintable(QString::number(ticksAtAnswer)));

    if (pageAnswers) {
        // The icon that hung was given up, and the next candidate taken.
        QCOMPARE(ready.size(), 1);
        QCOMPARE(ready[0][1].toByteArray(), server.body(u"/favicon.ico"_s));
        QCOMPARE(silent.observed().size(), 1);
    } else {
        QCOMPARE(failed.size(), 1);
        QCOMPARE(errorCode(failed[0]), u"unreachable");
        const QString description = failed[0][1].value<Error>().description();
        QVERIFY2(description.contains(u"timed out after 300 ms"), qPrintable(description));
    }
    QCOMPARE(icons->requestsInFlight(), 0);
}

void TestWebsiteIcons::requestsAtOnceAreLimited()
{
    auto icons = makeIcons();
    icons->setTimeout(400ms);
    QCOMPARE(icons->maxConcurrentRequests(), 4);
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
    QCOMPARE(failedWhenReached.size(), 6);
    // Four at once; the last two only once earlier ones had given up.
    QCOMPARE(failedWhenReached.mid(0, 4), QList<int>(4, 0));
    QVERIFY(failedWhenReached[4] > 0);
    QVERIFY(failedWhenReached[5] > 0);
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

void TestWebsiteIcons::invalidWebsites_data()
{
    QTest::addColumn<QString>("address");

    QTest::newRow("empty") << "";
    QTest::newRow("no scheme") << "example.com";
    QTest::newRow("no host") << "https://";
    QTest::newRow("ftp") << "ftp://example.com/";
    QTest::newRow("file") << "file:///etc/hosts";
    QTest::newRow("mail") << "mailto:someone@example.com";
}

void TestWebsiteIcons::invalidWebsites()
{
    QFETCH(QString, address);

    auto icons = makeIcons();
    QSignalSpy failed(icons.get(), &WebsiteIcons::failed);
    icons->request(QUrl(address), 32);
    QCOMPARE(failed.size(), 0);
    QTRY_COMPARE(failed.size(), 1);
    QCOMPARE(failed[0][0].toString(), QString());
    QCOMPARE(errorCode(failed[0]), u"invalidWebsite");
    QVERIFY(failed[0][1].value<Error>().description().startsWith(u"Not a website address: "));
    QCOMPARE(icons->requestsInFlight(), 0);
    QVERIFY(!QFile::exists(m_cacheFolder->filePath(WebsiteIconCache::indexFileName)));
}

void TestWebsiteIcons::siteOf_data()
{
    QTest::addColumn<QString>("address");
    QTest::addColumn<QString>("site");

    QTest::newRow("host in lower case") << "https://WWW.Example.COM/Path?q=1"
                                        << "www.example.com";
    QTest::newRow("default http port") << "http://example.com:80/"
                                       << "example.com";
    QTest::newRow("default https port") << "https://example.com:443"
                                        << "example.com";
    QTest::newRow("https on port 80") << "https://example.com:80/"
                                      << "example.com:80";
    QTest::newRow("other port") << "http://example.com:8080/"
                                << "example.com:8080";
    QTest::newRow("international name") << u"https://bücher.example/"_s << "xn--bcher-kva.example";
    QTest::newRow("address") << "http://127.0.0.1:1234/x"
                             << "127.0.0.1:1234";
    QTest::newRow("IPv6") << "https://[::1]:8443/"
                          << "[::1]:8443";
    QTest::newRow("not http") << "ftp://example.com/"
                              << "";
    QTest::newRow("relative") << "/favicon.ico"
                              << "";
}

void TestWebsiteIcons::siteOf()
{
    QFETCH(QString, address);
    QFETCH(QString, site);

    QCOMPARE(WebsiteIcons::siteOf(QUrl(address)), site);
}

QTEST_GUILESS_MAIN(TestWebsiteIcons)
#include "TestWebsiteIcons.moc"
