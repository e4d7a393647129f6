#include "foundation/DecodingError.h"
#include "webicons/HtmlDocument.h"
#include "webicons/WebsiteIconDiscovery.h"

#include <QFile>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

using Source = WebsiteIconCandidate::Source;

const char* sourceName(Source source)
{
    switch (source) {
    case Source::appleTouchIcon:
        return "touch";
    case Source::icon:
        return "icon";
    case Source::manifest:
        return "manifest";
    case Source::favicon:
        return "favicon";
    }
    return "?";
}

// "source url [WxH,WxH] [any] [type]"
QString describe(const WebsiteIconCandidate& candidate)
{
    QStringList parts{QString::fromLatin1(sourceName(candidate.source)), candidate.url.toString()};
    QStringList sizes;
    for (const QSize& size : candidate.sizes) {
        sizes.append(u"%1x%2"_s.arg(size.width()).arg(size.height()));
    }
    if (!sizes.isEmpty()) {
        parts.append(sizes.join(u','));
    }
    if (candidate.anySize) {
        parts.append(u"any"_s);
    }
    if (!candidate.type.isEmpty()) {
        parts.append(candidate.type);
    }
    return parts.join(u' ');
}

QStringList describe(const QList<WebsiteIconCandidate>& candidates)
{
    QStringList described;
    for (const WebsiteIconCandidate& candidate : candidates) {
        described.append(describe(candidate));
    }
    return described;
}

// The inverse of describe() for the ranking table: "source path [sizes] [type]" on https://example.com.
WebsiteIconCandidate candidate(const QString& text)
{
    const QStringList parts = text.split(u' ');
    WebsiteIconCandidate made;
    const QString source = parts[0];
    made.source = source == u"touch"      ? Source::appleTouchIcon
                  : source == u"manifest" ? Source::manifest
                  : source == u"favicon"  ? Source::favicon
                                          : Source::icon;
    made.url = QUrl(u"https://example.com"_s + parts[1]);
    for (const QString& part : parts.mid(2)) {
        if (part.contains(u'/')) {
            made.type = part;
        } else {
            made.setSizes(QString(part).replace(u',', u' '));
        }
    }
    return made;
}

} // namespace

class TestWebsiteIconDiscovery : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void fromPage_data();
    void fromPage();
    void fromManifest_data();
    void fromManifest();
    void sizes_data();
    void sizes();
    void rank_data();
    void rank();
};

void TestWebsiteIconDiscovery::fromPage_data()
{
    QTest::addColumn<QByteArray>("html");
    QTest::addColumn<QString>("pageUrl");
    QTest::addColumn<QStringList>("expected");
    QTest::addColumn<QString>("manifest");

    QFile home(QStringLiteral(CORVEL_TEST_DATA_DIR "/webicons/project-home.html"));
    QVERIFY(home.open(QIODevice::ReadOnly));
    QTest::newRow("a project's home page")
        << home.readAll() << "https://skylark.example/guide/"
        << QStringList{"icon https://skylark.example/favicon.ico",
                       "touch https://skylark.example/static/apple-touch-icon.png 180x180",
                       "icon https://skylark.example/guide/static/favicon-32x32.png 32x32 image/png",
                       "icon https://cdn.skylark.example/favicon-16x16.png 16x16 image/png"}
        << "https://skylark.example/site.webmanifest";

    QTest::newRow("relative to the page's folder")
        << QByteArray("<link rel=icon href=icon.png><link rel=icon href=../up.png><link rel=icon href=?v=2>")
        << "https://example.com/dir/page.html"
        << QStringList{"icon https://example.com/dir/icon.png", "icon https://example.com/up.png",
                       "icon https://example.com/dir/page.html?v=2"}
        << "";
    QTest::newRow("protocol-relative on http")
        << QByteArray("<link rel=icon href=//cdn.example.net/i.png>") << "http://example.com/"
        << QStringList{"icon http://cdn.example.net/i.png"} << "";
    QTest::newRow("absolute base")
        << QByteArray("<head><base href='https://static.example.org/assets/'><link rel=icon href=img/i.png>"
                      "<link rel=manifest href=app.json></head>")
        << "https://example.com/a/b" << QStringList{"icon https://static.example.org/assets/img/i.png"}
        << "https://static.example.org/assets/app.json";
    QTest::newRow("relative base")
        << QByteArray("<base href=/v2/><link rel=icon href=i.png><link rel=icon href=/root.png>")
        << "https://example.com/a/b"
        << QStringList{"icon https://example.com/v2/i.png", "icon https://example.com/root.png"} << "";
    QTest::newRow("only the first base with an address counts")
        << QByteArray("<base target=_blank><base href=/one/><base href=/two/><link rel=icon href=i.png>")
        << "https://example.com/" << QStringList{"icon https://example.com/one/i.png"} << "";
    QTest::newRow("base after the link still applies")
        << QByteArray("<link rel=icon href=i.png><base href=/late/>") << "https://example.com/"
        << QStringList{"icon https://example.com/late/i.png"} << "";
    QTest::newRow("relations in any case and order")
        << QByteArray("<link rel='SHORTCUT ICON' href=/a.ico><link rel='icon shortcut' href=/b.ico>"
                      "<link rel='Apple-Touch-Icon' href=/c.png><link rel=apple-touch-icon-precomposed href=/d.png>"
                      "<link rel='alternate icon' href=/e.png><link rel='\ticon\n' href=/f.png>")
        << "https://example.com/" << QStringList{"icon https://example.com/a.ico",  "icon https://example.com/b.ico",
                                                 "touch https://example.com/c.png", "touch https://example.com/d.png",
                                                 "icon https://example.com/e.png",  "icon https://example.com/f.png"}
        << "";
    QTest::newRow("other relations are not icons")
        << QByteArray("<link rel=mask-icon href=/m.svg><link rel=stylesheet href=/s.css><link rel=iconic href=/x>"
                      "<link rel=preload href=/p.png as=image><link href=/no-rel.png><link rel=icon>")
        << "https://example.com/" << QStringList{} << "";
    QTest::newRow("only web addresses")
        << QByteArray("<link rel=icon href=''><link rel=icon href='  '><link rel=icon href='javascript:alert(1)'>"
                      "<link rel=icon href=file:///etc/passwd><link rel=icon href='data:image/png;base64,AAAA'>"
                      "<link rel=icon href=ftp://example.com/i.png><link rel=icon href='  /spaced.png\n'>")
        << "https://example.com/" << QStringList{"icon https://example.com/spaced.png"} << "";
    QTest::newRow("sizes and types") << QByteArray("<link rel=icon sizes='16x16 32X32' href=/a.ico type=image/x-icon>"
                                                   "<link rel=icon sizes=any type=image/svg+xml href=/b.svg>"
                                                   "<link rel=apple-touch-icon sizes='152x152 bogus 0x0' href=/c.png>")
                                     << "https://example.com/"
                                     << QStringList{"icon https://example.com/a.ico 16x16,32x32 image/x-icon",
                                                    "icon https://example.com/b.svg any image/svg+xml",
                                                    "touch https://example.com/c.png 152x152"}
                                     << "";
    QTest::newRow("first manifest") << QByteArray(
                                           "<link rel=manifest href=/first.json><link rel=MANIFEST href=/second.json>")
                                    << "https://example.com/x/" << QStringList{} << "https://example.com/first.json";
}

void TestWebsiteIconDiscovery::fromPage()
{
    QFETCH(QByteArray, html);
    QFETCH(QString, pageUrl);
    QFETCH(QStringList, expected);
    QFETCH(QString, manifest);

    const WebsiteIconDiscovery::PageIcons icons =
        WebsiteIconDiscovery::fromPage(HtmlDocument::parse(html), QUrl(pageUrl));
    QCOMPARE(describe(icons.candidates), expected);
    QCOMPARE(icons.manifest.toString(), manifest);
}

void TestWebsiteIconDiscovery::fromManifest_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QStringList>("expected");
    QTest::addColumn<QString>("error"); // the error's domain, empty when it reads

    QTest::newRow("icons relative to the manifest")
        << QByteArray(R"({"name": "Skylark", "icons": [
                {"src": "icons/192.png", "sizes": "192x192", "type": "image/png"},
                {"src": "/icons/512.png", "sizes": "512x512"},
                {"src": "https://cdn.example.net/logo.svg", "sizes": "any", "type": "image/svg+xml"}]})")
        << QStringList{"manifest https://example.com/static/icons/192.png 192x192 image/png",
                       "manifest https://example.com/icons/512.png 512x512",
                       "manifest https://cdn.example.net/logo.svg any image/svg+xml"}
        << "";
    QTest::newRow("purposes") << QByteArray(R"({"icons": [{"src": "a.png", "purpose": "monochrome"},
                                    {"src": "b.png", "purpose": "maskable"},
                                    {"src": "c.png", "purpose": "monochrome any"},
                                    {"src": "d.png", "purpose": "MONOCHROME"}]})")
                              << QStringList{"manifest https://example.com/static/b.png",
                                             "manifest https://example.com/static/c.png"}
                              << "";
    QTest::newRow("loosely written fields are skipped")
        << QByteArray(R"({"icons": [{"src": "a.png", "sizes": 192}, {"sizes": "64x64"}, {"src": 7},
                                    {"src": "javascript:x"}, "b.png", null, {"src": "c.png", "type": ["x"]}]})")
        << QStringList{"manifest https://example.com/static/a.png", "manifest https://example.com/static/c.png"} << "";
    QTest::newRow("icons of the wrong type") << QByteArray(R"({"icons": "icon.png"})") << QStringList{} << "";
    QTest::newRow("no icons") << QByteArray(R"({"name": "x", "display": "standalone"})") << QStringList{} << "";
    QTest::newRow("not JSON") << QByteArray("<html>not a manifest</html>") << QStringList{} << DecodingError::domain;
    QTest::newRow("truncated") << QByteArray(R"({"icons": [{"src": "a.png")") << QStringList{} << DecodingError::domain;
}

void TestWebsiteIconDiscovery::fromManifest()
{
    QFETCH(QByteArray, json);
    QFETCH(QStringList, expected);
    QFETCH(QString, error);

    const auto icons = WebsiteIconDiscovery::fromManifest(json, QUrl(u"https://example.com/static/site.webmanifest"_s));
    QCOMPARE(icons.ok() ? QString() : icons.error().domain(), error);
    if (icons.ok()) {
        QCOMPARE(describe(icons.value()), expected);
    }
}

void TestWebsiteIconDiscovery::sizes_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("expected"); // described as in the other tables
    QTest::addColumn<int>("edge");

    QTest::newRow("several, largest edge counts") << "16x16 48x48 32x32"
                                                  << "icon https://example.com/i 16x16,48x48,32x32" << 48;
    QTest::newRow("upper-case X, other whitespace") << "\t64X64\n128x128 "
                                                    << "icon https://example.com/i 64x64,128x128" << 128;
    QTest::newRow("not square") << "120x90"
                                << "icon https://example.com/i 120x90" << 120;
    QTest::newRow("any") << "ANY"
                         << "icon https://example.com/i any" << 0;
    QTest::newRow("junk is ignored") << "big 0x0 12 x12 -1x-1 1e3x1 32x"
                                     << "icon https://example.com/i" << 0;
    QTest::newRow("empty") << ""
                           << "icon https://example.com/i" << 0;
}

void TestWebsiteIconDiscovery::sizes()
{
    QFETCH(QString, text);
    QFETCH(QString, expected);
    QFETCH(int, edge);

    WebsiteIconCandidate candidate;
    candidate.url = QUrl(u"https://example.com/i"_s);
    candidate.setSizes(text);
    QCOMPARE(describe(candidate), expected);
    QCOMPARE(candidate.edge(), edge);
}

void TestWebsiteIconDiscovery::rank_data()
{
    QTest::addColumn<QStringList>("candidates"); // "source path [sizes] [type]"
    QTest::addColumn<int>("size");
    QTest::addColumn<QStringList>("expected"); // paths, best first

    const QStringList mixed{"icon /16.png 16x16", "icon /32.png 32x32", "touch /180.png 180x180",
                            "manifest /512.png 512x512", "favicon /favicon.ico"};
    QTest::newRow("smallest that is large enough")
        << mixed << 64 << QStringList{"/180.png", "/512.png", "/32.png", "/16.png", "/favicon.ico"};
    QTest::newRow("exactly large enough")
        << mixed << 32 << QStringList{"/32.png", "/180.png", "/512.png", "/16.png", "/favicon.ico"};
    QTest::newRow("none large enough: the largest")
        << mixed << 1024 << QStringList{"/512.png", "/180.png", "/32.png", "/16.png", "/favicon.ico"};
    QTest::newRow("svg fits any size") << QStringList{"icon /32.png 32x32", "icon /logo.svg image/svg+xml"} << 64
                                       << QStringList{"/logo.svg", "/32.png"};
    QTest::newRow("svg after a raster that fits")
        << QStringList{"icon /logo.svg", "icon /180.png 180x180"} << 64 << QStringList{"/180.png", "/logo.svg"};
    QTest::newRow("sizes any fits any size")
        << QStringList{"icon /48.png 48x48", "manifest /any.webp any"} << 96 << QStringList{"/any.webp", "/48.png"};
    QTest::newRow("touch icon without sizes is taken as 180")
        << QStringList{"icon /64.png 64x64", "touch /touch.png", "icon /256.png 256x256"} << 100
        << QStringList{"/touch.png", "/256.png", "/64.png"};
    QTest::newRow("unknown sizes after known ones, in page order")
        << QStringList{"icon /unknown-a.png", "icon /16.png 16x16", "icon /unknown-b.png"} << 32
        << QStringList{"/16.png", "/unknown-a.png", "/unknown-b.png"};
    QTest::newRow("favicon last even when others are small")
        << QStringList{"favicon /favicon.ico", "icon /8.png 8x8"} << 16 << QStringList{"/8.png", "/favicon.ico"};
    QTest::newRow("equal sizes keep page order")
        << QStringList{"icon /b.png 64x64", "manifest /a.png 64x64", "touch /c.png 64x64"} << 48
        << QStringList{"/b.png", "/a.png", "/c.png"};
    QTest::newRow("repeated address kept once at its best place")
        << QStringList{"icon /same.png 16x16", "touch /other.png 57x57", "touch /same.png 180x180"} << 120
        << QStringList{"/same.png", "/other.png"};
    QTest::newRow("nothing") << QStringList{} << 64 << QStringList{};
}

void TestWebsiteIconDiscovery::rank()
{
    QFETCH(QStringList, candidates);
    QFETCH(int, size);
    QFETCH(QStringList, expected);

    QList<WebsiteIconCandidate> list;
    for (const QString& text : candidates) {
        list.append(candidate(text));
    }
    QStringList ranked;
    for (const WebsiteIconCandidate& c : WebsiteIconDiscovery::rank(list, size)) {
        ranked.append(c.url.path());
    }
    QCOMPARE(ranked, expected);
}

QTEST_GUILESS_MAIN(TestWebsiteIconDiscovery)
#include "TestWebsiteIconDiscovery.moc"
