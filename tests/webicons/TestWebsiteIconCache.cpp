#include "webicons/WebsiteIconCache.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>
#include <functional>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

const QDateTime fetchedAt = QDateTime(QDate(2026, 3, 1), QTime(12, 0), Qt::UTC);

// "icon:<bytes>", "failure" or "none", with the fetch date when there is an entry.
QString describe(const std::optional<WebsiteIconCache::Entry>& entry)
{
    if (!entry) {
        return u"none"_s;
    }
    const QString date = entry->fetched.toUTC().toString(Qt::ISODate);
    return entry->icon ? u"icon:%1 %2"_s.arg(QString::fromLatin1(*entry->icon), date) : u"failure "_s + date;
}

bool writeFile(const QString& path, const QByteArray& contents)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(contents) == contents.size();
}

} // namespace

class TestWebsiteIconCache : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void expiry_data();
    void expiry();
    void laterOutcomeReplacesEarlier_data();
    void laterOutcomeReplacesEarlier();
    void damagedIndex_data();
    void damagedIndex();
    void missingIconFileIsAMiss();
    void siteNamesStayInTheFolder_data();
    void siteNamesStayInTheFolder();
    void unwritableFolder();
    void defaultFolderFollowsTheCacheLocation();
};

void TestWebsiteIconCache::expiry_data()
{
    QTest::addColumn<bool>("found");
    QTest::addColumn<int>("lifetimeHours"); // 0: the default
    QTest::addColumn<qint64>("ageSeconds");
    QTest::addColumn<bool>("fresh");

    const qint64 day = 24 * 3600;
    QTest::newRow("icon, a second short of a week") << true << 0 << 7 * day - 1 << true;
    QTest::newRow("icon, a week") << true << 0 << 7 * day << false;
    QTest::newRow("failure, 23 hours") << false << 0 << 23 * 3600LL << true;
    QTest::newRow("failure, a day") << false << 0 << day << false;
    QTest::newRow("icon, own lifetime of an hour, 59 minutes") << true << 1 << 59 * 60LL << true;
    QTest::newRow("icon, own lifetime of an hour, 61 minutes") << true << 1 << 61 * 60LL << false;
    QTest::newRow("failure, own lifetime of 48 hours, 47 hours") << false << 48 << 47 * 3600LL << true;
}

void TestWebsiteIconCache::expiry()
{
    QFETCH(bool, found);
    QFETCH(int, lifetimeHours);
    QFETCH(qint64, ageSeconds);
    QFETCH(bool, fresh);

    QTemporaryDir folder;
    const auto configure = [&](WebsiteIconCache& cache) {
        if (lifetimeHours > 0) {
            std::invoke(found ? &WebsiteIconCache::setIconLifetime : &WebsiteIconCache::setFailureLifetime, cache,
                        std::chrono::hours(lifetimeHours));
        }
    };
    {
        WebsiteIconCache cache(folder.path());
        configure(cache);
        const Result<void> stored = found ? cache.storeIcon(u"example.com"_s, "PNG", fetchedAt)
                                          : cache.storeFailure(u"example.com"_s, fetchedAt);
        QVERIFY(stored.ok());
        QCOMPARE(describe(cache.lookup(u"example.com"_s, fetchedAt.addSecs(ageSeconds))),
                 !fresh  ? u"none"_s
                 : found ? u"icon:PNG 2026-03-01T12:00:00Z"_s
                         : u"failure 2026-03-01T12:00:00Z"_s);
    }
    // Another run reads the same from disk.
    WebsiteIconCache reopened(folder.path());
    configure(reopened);
    QCOMPARE(reopened.lookup(u"example.com"_s, fetchedAt.addSecs(ageSeconds)).has_value(), fresh);
    QVERIFY(!reopened.lookup(u"other.example.com"_s, fetchedAt).has_value());
}

void TestWebsiteIconCache::laterOutcomeReplacesEarlier_data()
{
    QTest::addColumn<bool>("firstFound");
    QTest::addColumn<bool>("secondFound");
    QTest::addColumn<QString>("expected");
    QTest::addColumn<bool>("iconFileLeft");

    QTest::newRow("failure after icon") << true << false << "failure 2026-03-02T12:00:00Z" << false;
    QTest::newRow("icon after failure") << false << true << "icon:two 2026-03-02T12:00:00Z" << true;
    QTest::newRow("icon after icon") << true << true << "icon:two 2026-03-02T12:00:00Z" << true;
}

void TestWebsiteIconCache::laterOutcomeReplacesEarlier()
{
    QFETCH(bool, firstFound);
    QFETCH(bool, secondFound);
    QFETCH(QString, expected);
    QFETCH(bool, iconFileLeft);

    QTemporaryDir folder;
    WebsiteIconCache cache(folder.path());
    const QString site = u"example.com"_s;
    QVERIFY((firstFound ? cache.storeIcon(site, "one", fetchedAt) : cache.storeFailure(site, fetchedAt)).ok());
    const QDateTime later = fetchedAt.addDays(1);
    QVERIFY((secondFound ? cache.storeIcon(site, "two", later) : cache.storeFailure(site, later)).ok());
    QCOMPARE(describe(cache.lookup(site, later)), expected);
    QCOMPARE(QFile::exists(cache.iconPath(site)), iconFileLeft);
    QCOMPARE(describe(WebsiteIconCache(folder.path()).lookup(site, later)), expected);
}

void TestWebsiteIconCache::damagedIndex_data()
{
    QTest::addColumn<QByteArray>("index");
    QTest::addColumn<QString>("expected"); // the lookup of example.com

    const QByteArray good = R"({"site": "example.com", "fetched": "2026-03-01T12:00:00Z", "found": true})";
    QTest::newRow("not JSON") << QByteArray("\x89PNG garbage") << "none";
    QTest::newRow("truncated") << QByteArray(R"({"sites": [{"site": "example.com", "fetch)") << "none";
    QTest::newRow("an array") << QByteArray("[" + good + "]") << "none";
    QTest::newRow("sites of the wrong type") << QByteArray(R"({"sites": 3})") << "none";
    QTest::newRow("a bad date") << QByteArray(
                                       R"({"sites": [{"site": "example.com", "fetched": "soon", "found": true}]})")
                                << "none";
    QTest::newRow("found of the wrong type")
        << QByteArray(R"({"sites": [{"site": "example.com", "fetched": "2026-03-01T12:00:00Z", "found": "yes"}]})")
        << "none";
    QTest::newRow("one bad record among good ones")
        << QByteArray(R"({"sites": [7, {"site": 1}, )" + good + "]}") << "icon:cached 2026-03-01T12:00:00Z";
    QTest::newRow("empty file") << QByteArray() << "none";
}

void TestWebsiteIconCache::damagedIndex()
{
    QFETCH(QByteArray, index);
    QFETCH(QString, expected);

    QTemporaryDir folder;
    WebsiteIconCache cache(folder.path());
    QVERIFY(writeFile(cache.iconPath(u"example.com"_s), "cached"));
    QVERIFY(writeFile(folder.filePath(WebsiteIconCache::indexFileName), index));
    QCOMPARE(describe(cache.lookup(u"example.com"_s, fetchedAt.addSecs(60))), expected);

    // Storing writes a sound index again.
    QVERIFY(cache.storeFailure(u"dead.example"_s, fetchedAt).ok());
    WebsiteIconCache reopened(folder.path());
    QCOMPARE(describe(reopened.lookup(u"dead.example"_s, fetchedAt)), u"failure 2026-03-01T12:00:00Z");
    QCOMPARE(describe(reopened.lookup(u"example.com"_s, fetchedAt.addSecs(60))), expected);
}

void TestWebsiteIconCache::missingIconFileIsAMiss()
{
    QTemporaryDir folder;
    WebsiteIconCache cache(folder.path());
    QVERIFY(cache.storeIcon(u"example.com"_s, "PNG", fetchedAt).ok());
    QVERIFY(QFile::remove(cache.iconPath(u"example.com"_s)));
    QCOMPARE(describe(cache.lookup(u"example.com"_s, fetchedAt)), u"none");
}

void TestWebsiteIconCache::siteNamesStayInTheFolder_data()
{
    QTest::addColumn<QString>("site");

    QTest::newRow("IPv6") << "[::1]:8443";
    QTest::newRow("dots only") << "..";
    QTest::newRow("slashes") << "../../escape";
    QTest::newRow("percent") << "a%2Fb";
}

void TestWebsiteIconCache::siteNamesStayInTheFolder()
{
    QFETCH(QString, site);

    QTemporaryDir folder;
    WebsiteIconCache cache(folder.filePath(u"icons"_s));
    QVERIFY(cache.storeIcon(site, "ICON", fetchedAt).ok());
    QCOMPARE(QFileInfo(cache.iconPath(site)).absolutePath(), QDir(folder.filePath(u"icons"_s)).absolutePath());
    QCOMPARE(QDir(folder.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot), QStringList{u"icons"_s});
    QCOMPARE(describe(WebsiteIconCache(folder.filePath(u"icons"_s)).lookup(site, fetchedAt)),
             u"icon:ICON 2026-03-01T12:00:00Z");
    // Sites that differ only in what encoding would hide keep apart.
    QVERIFY(!cache.lookup(site + u'x', fetchedAt).has_value());
}

void TestWebsiteIconCache::unwritableFolder()
{
    {
        QTemporaryDir folder;
        WebsiteIconCache cache(folder.path());
        const Result<void> nameless = cache.storeIcon(QString(), "PNG", fetchedAt);
        QVERIFY(!nameless.ok());
        QCOMPARE(nameless.error().description(), u"A site is needed to cache an icon");
    }

    QTemporaryDir folder;
    const QString blocked = folder.filePath(u"blocked"_s);
    QVERIFY(writeFile(blocked, "a file where the folder should be"));
    WebsiteIconCache cache(blocked + u"/WebsiteIcons"_s);
    for (const Result<void>& stored :
         {cache.storeIcon(u"example.com"_s, "PNG", fetchedAt), cache.storeFailure(u"example.com"_s, fetchedAt)}) {
        QVERIFY(!stored.ok());
        QCOMPARE(stored.error().domain(), WebsiteIconCache::errorDomain);
        QVERIFY2(stored.error().description().contains(blocked), qPrintable(stored.error().description()));
    }
}

void TestWebsiteIconCache::defaultFolderFollowsTheCacheLocation()
{
    QTemporaryDir home;
    qputenv("XDG_CACHE_HOME", home.path().toUtf8());
    QCoreApplication::setApplicationName(u"corvel-test"_s);
    QCOMPARE(WebsiteIconCache::defaultFolder(), home.path() + u"/corvel-test/WebsiteIcons"_s);
    WebsiteIconCache cache;
    QVERIFY(cache.storeIcon(u"example.com"_s, "PNG", fetchedAt).ok());
    QVERIFY(QFile::exists(home.path() + u"/corvel-test/WebsiteIcons/index.json"_s));
}

QTEST_GUILESS_MAIN(TestWebsiteIconCache)
#include "TestWebsiteIconCache.moc"
