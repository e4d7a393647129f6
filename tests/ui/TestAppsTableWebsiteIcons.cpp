#include "catalogue/Cask.h"
#include "catalogue/CoreDataManager.h"
#include "foundation/Defaults.h"
#include "foundation/PreferenceKeys.h"
#include "ui/AppsTableViewController.h"
#include "ui/PackageTableModel.h"
#include "ui/WebsiteIconDecoder.h"
#include "ui/WebsiteIconLoader.h"
#include "webicons/WebsiteIcons.h"

#include <QBuffer>
#include <QFile>
#include <QHeaderView>
#include <QHttpServer>
#include <QHttpServerRequest>
#include <QHttpServerResponder>
#include <QImageReader>
#include <QImageWriter>
#include <QSignalSpy>
#include <QTableView>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QTest>
#include <QtEndian>
#include <memory>

using namespace Qt::StringLiterals;
using State = WebsiteIconLoader::SiteState;

namespace {

QByteArray encoded(const QImage& image, const char* format)
{
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    QImageWriter(&buffer, format).write(image);
    return bytes;
}

QImage filled(QSize size, QColor colour)
{
    QImage image(size, QImage::Format_ARGB32);
    image.fill(colour);
    return image;
}

// An icon file holding one picture per colour, 16 pixels then 64: Qt writes single-picture ones, which are joined.
QByteArray icoOfTwo(QColor small, QColor large)
{
    const QByteArray parts[] = {encoded(filled({16, 16}, small), "ico"), encoded(filled({64, 64}, large), "ico")};
    QByteArray header("\0\0\1\0\2\0", 6);
    QByteArray data;
    quint32 offset = 6 + 2 * 16;
    for (const QByteArray& part : parts) {
        QByteArray entry = part.mid(6, 16);
        qToLittleEndian(offset + quint32(data.size()), entry.data() + 12);
        header += entry;
        data += part.mid(22);
    }
    return header + data;
}

// A PNG whose header claims a picture far too large to be an icon, its checksum kept right.
QByteArray oversizedPng()
{
    QByteArray bytes = encoded(filled({4, 4}, Qt::red), "png");
    qToBigEndian(quint32(60000), bytes.data() + 16);
    qToBigEndian(quint32(60000), bytes.data() + 20);
    quint32 crc = 0xFFFFFFFFu;
    for (const char byte : QByteArrayView(bytes).sliced(12, 17)) {
        crc ^= quint8(byte);
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
        }
    }
    qToBigEndian(~crc, bytes.data() + 29);
    return bytes;
}

// One website on its own loopback port: a page naming its icon, the icon, and the paths it was asked for.
class Site {
public:
    Site()
    {
        m_server.setMissingHandler([this](const QHttpServerRequest& request, QHttpServerResponder&& responder) {
            m_requests.append(request.url().path());
            const auto reply = m_replies.constFind(request.url().path());
            if (reply == m_replies.cend()) {
                responder.write("no", "text/plain", QHttpServerResponder::StatusCode::NotFound);
            } else {
                responder.write(reply->second, reply->first, QHttpServerResponder::StatusCode::Ok);
            }
        });
        m_port = m_server.listen(QHostAddress::LocalHost);
    }

    QString url(const QString& path = u"/"_s) const { return u"http://127.0.0.1:%1%2"_s.arg(m_port).arg(path); }
    QString name() const { return u"127.0.0.1:%1"_s.arg(m_port); }
    const QStringList& requests() const { return m_requests; }

    void serve(const QString& path, const QByteArray& type, const QByteArray& body) { m_replies[path] = {type, body}; }
    void serveIcon(const QByteArray& type, const QByteArray& icon)
    {
        serve(u"/"_s, "text/html", "<html><head><link rel=\"icon\" href=\"/site-icon\"></head></html>");
        serve(u"/site-icon"_s, type, icon);
    }

private:
    QHttpServer m_server;
    quint16 m_port = 0;
    QHash<QString, std::pair<QByteArray, QByteArray>> m_replies;
    QStringList m_requests;
};

struct World {
    QTemporaryDir folder;
    CoreDataManager store{folder.filePath(u"Corvel X.sqlite"_s)};
    Defaults defaults{folder.filePath(u"settings.ini"_s)};
    WebsiteIcons icons{WebsiteIconDecoder::decoder(), folder.filePath(u"icons"_s)};
    std::unique_ptr<AppsTableViewController> table;

    // Installed apps named in table order, app-00 first, with these websites.
    bool open(const QStringList& websites, bool showIcons = true)
    {
        defaults.setValue(PreferenceKeys::ShowWebsiteIcons, showIcons);
        qsizetype next = 0;
        const auto inserted = store.backgroundContext()->batchInsert(u"Cask"_s, [&](QVariantHash& values) {
            if (next == websites.size()) {
                return false;
            }
            const QString token = u"app-%1"_s.arg(next, 2, 10, QLatin1Char('0'));
            values = {{u"token"_s, token},
                      {u"name"_s, token},
                      {u"installed"_s, true},
                      {u"artifacts"_s, QStringList{u"app"_s}},
                      {u"website"_s, websites.at(next)}};
            ++next;
            return true;
        });
        table = std::make_unique<AppsTableViewController>(store.viewContext(), defaults, icons);
        table->resize(640, 240);
        return inserted && table->model()->rowCount() == websites.size();
    }

    bool show()
    {
        table->show();
        return QTest::qWaitForWindowExposed(table.get());
    }

    // A file where the service keeps its folder: nothing is remembered across requests, so what reaches the sites
    // is what the table asks for.
    bool withoutCache()
    {
        QFile blocker(icons.cache().folder());
        return blocker.open(QIODevice::WriteOnly);
    }

    WebsiteIconLoader& loader() const { return *table->websiteIconLoader(); }
    QIcon decoration(int row) const
    {
        const PackageTableModel* model = table->model();
        return model->index(row, model->columnOf(PackageTableModel::Column::icon))
            .data(Qt::DecorationRole)
            .value<QIcon>();
    }
    QRgb pixel(int row, QPoint at) const
    {
        const int extent = loader().iconExtent();
        const QImage image = decoration(row).pixmap(extent).toImage();
        return image.isNull() ? 0 : image.pixel(at.x() * (image.width() - 1) / 15, at.y() * (image.height() - 1) / 15);
    }
    bool settled(const QString& site) const
    {
        const State state = loader().stateOf(site);
        return state == State::found || state == State::failed;
    }
};

bool near(QRgb actual, QColor expected)
{
    const auto close = [](int a, int b) { return std::abs(a - b) <= 24; };
    return close(qRed(actual), expected.red()) && close(qGreen(actual), expected.green()) &&
           close(qBlue(actual), expected.blue()) && close(qAlpha(actual), expected.alpha());
}

} // namespace

class TestAppsTableWebsiteIcons : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void decodesOrRefuses_data();
    void decodesOrRefuses();
    void visibleRowShowsWebsiteIcon_data();
    void visibleRowShowsWebsiteIcon();
    void onlyRowsOnScreenAreAsked_data();
    void onlyRowsOnScreenAreAsked();
    void oneRequestPerSite_data();
    void oneRequestPerSite();
    void nothingAskedUntilAllowed_data();
    void nothingAskedUntilAllowed();
    void turningOffRestoresKindIcons();
    void failingSiteKeepsKindIcon_data();
    void failingSiteKeepsKindIcon();
};

void TestAppsTableWebsiteIcons::decodesOrRefuses_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QSize>("size"); // invalid: refused
    QTest::addColumn<int>("extent"); // of the drawn icon
    QTest::addColumn<QColor>("centre");

    QTest::newRow("png") << encoded(filled({40, 20}, Qt::green), "png") << QSize(40, 20) << 16 << QColor(Qt::green);
    QTest::newRow("ico, small picture for a small icon")
        << icoOfTwo(Qt::red, Qt::blue) << QSize(64, 64) << 16 << QColor(Qt::red);
    QTest::newRow("ico, larger picture for a larger icon")
        << icoOfTwo(Qt::red, Qt::blue) << QSize(64, 64) << 32 << QColor(Qt::blue);
    QTest::newRow("svg without a size") << QByteArray("<svg xmlns='http://www.w3.org/2000/svg' viewBox='0 0 8 8'>"
                                                      "<rect width='8' height='8' fill='#0000ff'/></svg>")
                                        << QSize(8, 8) << 32 << QColor(Qt::blue);
    QTest::newRow("empty") << QByteArray() << QSize() << 16 << QColor();
    QTest::newRow("html page") << QByteArray("<!doctype html><p>moved</p>") << QSize() << 16 << QColor();
    QTest::newRow("truncated png") << encoded(filled({40, 40}, Qt::green), "png").first(60) << QSize() << 16
                                   << QColor();
    QTest::newRow("png claiming 60000 pixels square") << oversizedPng() << QSize() << 16 << QColor();
}

void TestAppsTableWebsiteIcons::decodesOrRefuses()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QSize, size);
    QFETCH(int, extent);
    QFETCH(QColor, centre);
    if (bytes.startsWith("<svg") && !QImageReader::supportedImageFormats().contains("svg")) {
        QSKIP("Qt has no SVG image plugin here");
    }
    QCOMPARE(WebsiteIconDecoder::imageSize(bytes).value_or(QSize()), size);
    const QImage image = WebsiteIconDecoder::image(bytes, extent);
    QCOMPARE(image.isNull(), !size.isValid());
    if (size.isValid()) {
        QCOMPARE(image.size(), QSize(extent, extent));
        QVERIFY(near(image.pixel(extent / 2, extent / 2), centre));
    }
}

void TestAppsTableWebsiteIcons::visibleRowShowsWebsiteIcon_data()
{
    QTest::addColumn<QByteArray>("type");
    QTest::addColumn<QByteArray>("icon");
    QTest::addColumn<QColor>("corner"); // what the corner of the icon shows: wide pictures leave it clear

    QTest::newRow("png") << QByteArray("image/png") << encoded(filled({64, 64}, Qt::magenta), "png")
                         << QColor(Qt::magenta);
    QTest::newRow("wide png") << QByteArray("image/png") << encoded(filled({128, 64}, Qt::magenta), "png")
                              << QColor(Qt::transparent);
}

void TestAppsTableWebsiteIcons::visibleRowShowsWebsiteIcon()
{
    QFETCH(QByteArray, type);
    QFETCH(QByteArray, icon);
    QFETCH(QColor, corner);
    Site site;
    site.serveIcon(type, icon);
    World world;
    QVERIFY(world.open({site.url()}));
    const qint64 kindIcon = world.decoration(0).cacheKey();
    QVERIFY(!near(world.pixel(0, {8, 8}), Qt::magenta));
    QVERIFY(world.show());

    QTRY_VERIFY(world.decoration(0).cacheKey() != kindIcon);
    QVERIFY(near(world.pixel(0, {8, 8}), Qt::magenta));
    QVERIFY(near(world.pixel(0, {0, 0}), corner));
    QCOMPARE(world.loader().stateOf(site.name()), State::found);
}

void TestAppsTableWebsiteIcons::onlyRowsOnScreenAreAsked_data()
{
    QTest::addColumn<QList<int>>("tops");  // rows put at the top in turn, each left to settle
    QTest::addColumn<bool>("waitBetween"); // false: the view jumps through them without pausing

    // The table opens at the top, so that screen is always the first.
    QTest::newRow("first and last screen") << QList<int>{0, 39} << true;
    QTest::newRow("three places") << QList<int>{0, 25, 12} << true;
    QTest::newRow("passed over on the way") << QList<int>{0, 9, 15, 25, 30} << false;
}

void TestAppsTableWebsiteIcons::onlyRowsOnScreenAreAsked()
{
    QFETCH(QList<int>, tops);
    QFETCH(bool, waitBetween);
    std::vector<std::unique_ptr<Site>> sites(40);
    QStringList websites;
    for (auto& site : sites) {
        site = std::make_unique<Site>();
        site->serveIcon("image/png", encoded(filled({32, 32}, Qt::cyan), "png"));
        websites.append(site->url());
    }
    World world;
    QVERIFY(world.open(websites));
    QVERIFY(world.show());
    QTableView* view = world.table->tableView();

    QSet<QString> shown;
    for (const int top : std::as_const(tops)) {
        view->scrollTo(world.table->model()->index(top, 1), QAbstractItemView::PositionAtTop);
        if (!waitBetween && top != tops.constFirst() && top != tops.constLast()) {
            continue;
        }
        int rows = 0;
        for (int row = 0; row < world.table->model()->rowCount(); ++row) {
            const QRect cell = view->visualRect(world.table->model()->index(row, 1));
            if (cell.intersects(view->viewport()->rect())) {
                shown.insert(sites.at(row)->name());
                ++rows;
            }
        }
        QVERIFY(rows >= 3 && rows < 20);
        QTRY_VERIFY(std::all_of(shown.cbegin(), shown.cend(),
                                [&](const QString& site) { return world.loader().stateOf(site) == State::found; }));
    }
    QSet<QString> asked;
    for (const auto& site : sites) {
        if (!site->requests().isEmpty()) {
            asked.insert(site->name());
            QCOMPARE(site->requests().count(u"/"_s), 1);
        }
    }
    QCOMPARE(asked, shown);
}

void TestAppsTableWebsiteIcons::oneRequestPerSite_data()
{
    QTest::addColumn<QString>("otherPath");     // where the second app's website is on the same site
    QTest::addColumn<int>("lifetime");          // of a found icon, in seconds
    QTest::addColumn<int>("pagesAfterLooking"); // once more at the same rows

    QTest::newRow("another page of the site") << u"/download?os=mac"_s << 86400 << 1;
    QTest::newRow("answers that expire at once") << u"/"_s << 0 << 2;
}

void TestAppsTableWebsiteIcons::oneRequestPerSite()
{
    QFETCH(QString, otherPath);
    QFETCH(int, lifetime);
    QFETCH(int, pagesAfterLooking);
    Site shared;
    shared.serveIcon("image/png", encoded(filled({32, 32}, Qt::yellow), "png"));
    World world;
    world.icons.cache().setIconLifetime(std::chrono::seconds(lifetime));
    QVERIFY(world.withoutCache());
    QVERIFY(world.open({shared.url(), shared.url(otherPath)}));
    QVERIFY(world.show());

    QTRY_VERIFY(near(world.pixel(0, {8, 8}), Qt::yellow) && near(world.pixel(1, {8, 8}), Qt::yellow));
    QCOMPARE(world.decoration(0).cacheKey(), world.decoration(1).cacheKey());
    QCOMPARE(shared.requests(), (QStringList{u"/"_s, u"/site-icon"_s}));

    QSignalSpy settled(&world.loader(), &WebsiteIconLoader::siteSettled);
    world.loader().update();
    QTRY_COMPARE(settled.count(), pagesAfterLooking - 1);
    QTRY_COMPARE(world.icons.requestsInFlight() + world.icons.requestsQueued(), 0);
    QCOMPARE(int(shared.requests().count(u"/"_s)), pagesAfterLooking);
    QCOMPARE(world.loader().stateOf(shared.name()), State::found);
    QVERIFY(near(world.pixel(1, {8, 8}), Qt::yellow));
}

void TestAppsTableWebsiteIcons::nothingAskedUntilAllowed_data()
{
    QTest::addColumn<QString>("blocker");
    QTest::newRow("website icons switched off") << u"switch"_s;
    QTest::newRow("table not on screen") << u"hidden"_s;
    QTest::newRow("icon column hidden") << u"column"_s;
}

void TestAppsTableWebsiteIcons::nothingAskedUntilAllowed()
{
    QFETCH(QString, blocker);
    Site site;
    site.serveIcon("image/png", encoded(filled({32, 32}, Qt::green), "png"));
    World world;
    QVERIFY(world.open({site.url(), site.url(u"/other"_s)}, blocker != u"switch"));
    const int iconColumn = world.table->model()->columnOf(PackageTableModel::Column::icon);
    world.table->tableView()->setColumnHidden(iconColumn, blocker == u"column");
    if (blocker != u"hidden") {
        QVERIFY(world.show());
    }
    // Looking right now, instead of after the delay, shows whether anything would be asked at all.
    world.loader().update();
    QCOMPARE(world.icons.requestsInFlight() + world.icons.requestsQueued(), 0);
    QCOMPARE(world.loader().stateOf(site.name()), State::unknown);

    if (blocker == u"switch") {
        world.defaults.setValue(PreferenceKeys::ShowWebsiteIcons, true);
    } else if (blocker == u"hidden") {
        QVERIFY(world.show());
    } else {
        world.table->tableView()->setColumnHidden(iconColumn, false);
    }
    QTRY_VERIFY(near(world.pixel(0, {8, 8}), Qt::green));
    QCOMPARE(site.requests().count(u"/"_s), 1);
}

void TestAppsTableWebsiteIcons::turningOffRestoresKindIcons()
{
    Site site;
    site.serveIcon("image/png", encoded(filled({32, 32}, Qt::blue), "png"));
    World world;
    QVERIFY(world.withoutCache());
    QVERIFY(world.open({site.url(), site.url(u"/b"_s)}));
    const qint64 kindIcon = world.decoration(0).cacheKey();
    QVERIFY(world.show());
    QTRY_VERIFY(near(world.pixel(1, {8, 8}), Qt::blue));

    world.defaults.setValue(PreferenceKeys::ShowWebsiteIcons, false);
    for (int row : {0, 1}) {
        QCOMPARE(world.decoration(row).cacheKey(), kindIcon);
        QVERIFY(!world.table->model()->recordAt(row)->value(u"icon").isValid());
    }
    world.loader().update();
    QCOMPARE(world.icons.requestsInFlight(), 0);

    // Back on: the picture found before, without asking the site again.
    world.defaults.setValue(PreferenceKeys::ShowWebsiteIcons, true);
    QTRY_VERIFY(near(world.pixel(0, {8, 8}), Qt::blue) && near(world.pixel(1, {8, 8}), Qt::blue));
    QCOMPARE(site.requests().count(u"/"_s), 1);
}

void TestAppsTableWebsiteIcons::failingSiteKeepsKindIcon_data()
{
    QTest::addColumn<QString>("failure");
    QTest::addColumn<State>("state");
    QTest::newRow("no page and no icon") << u"404"_s << State::failed;
    QTest::newRow("icon is not an image") << u"text"_s << State::failed;
    QTest::newRow("nothing listening") << u"closed"_s << State::failed;
    QTest::newRow("not a web address") << u"ftp"_s << State::unknown;
    QTest::newRow("no website") << u"none"_s << State::unknown;
}

void TestAppsTableWebsiteIcons::failingSiteKeepsKindIcon()
{
    QFETCH(QString, failure);
    QFETCH(State, state);
    Site good;
    good.serveIcon("image/png", encoded(filled({32, 32}, Qt::red), "png"));
    Site bad;
    if (failure == u"text") {
        bad.serveIcon("image/png", "this is no picture");
        bad.serve(u"/favicon.ico"_s, "image/x-icon", "nor is this");
    }
    QString website = bad.url();
    if (failure == u"closed") {
        QTcpServer closed;
        QVERIFY(closed.listen(QHostAddress::LocalHost));
        website = u"http://127.0.0.1:%1/"_s.arg(closed.serverPort());
    } else if (failure == u"ftp") {
        website = u"ftp://127.0.0.1/"_s;
    } else if (failure == u"none") {
        website.clear();
    }
    World world;
    QVERIFY(world.open({website, good.url()}));
    const qint64 kindIcon = world.decoration(0).cacheKey();
    QVERIFY(world.show());

    // Both rows are looked at together: once the good site has settled, the bad one was considered too.
    const QString badSite = WebsiteIcons::siteOf(QUrl(website));
    QTRY_VERIFY(world.settled(good.name()) && (state == State::unknown || world.settled(badSite)));
    QCOMPARE(world.loader().stateOf(badSite), state);
    QCOMPARE(world.decoration(0).cacheKey(), kindIcon);
    QVERIFY(near(world.pixel(1, {8, 8}), Qt::red));
}

QTEST_MAIN(TestAppsTableWebsiteIcons)
#include "TestAppsTableWebsiteIcons.moc"
