// The filters behind the search items, over real entities in a real store, both as a fetch (SQL) and as the tables
// judge loaded records (in memory): the kind filters, and the kind label that scripts lack, are not reachable from
// the command line.
#include "catalogue/CoreDataManager.h"
#include "catalogue/SortDescriptor.h"
#include "search/SearchPredicates.h"

#include <QTemporaryDir>
#include <QTest>

Q_DECLARE_METATYPE(Predicate)

using namespace Qt::StringLiterals;

class TestSearchPredicates : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void filters_data();
    void filters();

private:
    QTemporaryDir m_dir;
    std::unique_ptr<CoreDataManager> m_store;
};

void TestSearchPredicates::initTestCase()
{
    QVERIFY(m_dir.isValid());
    m_store = std::make_unique<CoreDataManager>(m_dir.filePath(u"Corvel X.sqlite"_s));
    QVERIFY(m_store->loadPersistentStores().ok());

    // A record's attributes; casks also name their one artifact.
    const auto record = [](const QString& token, const QString& name, const QString& desc, bool installed,
                           bool outdated, const QString& artifact = {}) {
        QVariantHash values{{u"token"_s, token},
                            {u"name"_s, name},
                            {u"desc"_s, desc},
                            {u"installed"_s, installed},
                            {u"outdated"_s, outdated}};
        if (!artifact.isEmpty()) {
            values.insert(u"artifacts"_s, QStringList{artifact});
        }
        return values;
    };
    const auto insert = [this](const QString& entity, const QList<QVariantHash>& records) {
        qsizetype next = 0;
        return m_store->viewContext()
            ->batchInsert(entity,
                          [&](QVariantHash& values) {
                              if (next == records.size()) {
                                  return false;
                              }
                              values = records.at(next++);
                              return true;
                          })
            .ok();
    };
    // "hack-nf" and "little-snitch" are a font and a package by their kind alone; one name holds quotes.
    QVERIFY(insert(
        u"Cask"_s,
        {record(u"vlc"_s, u"VLC"_s, u"Media player"_s, true, true, u"app"_s),
         record(u"fontforge"_s, u"FontForge"_s, u"Outline editor"_s, false, false, u"app"_s),
         record(u"font-fira-code"_s, u"Fira Code"_s, u"Monospaced typeface"_s, true, false, u"font"_s),
         record(u"hack-nf"_s, u"Hack Nerd"_s, u"Typeface with glyphs"_s, false, false, u"font"_s),
         record(u"little-snitch"_s, u"Little Snitch \"Network\" Monitor"_s, u"Firewall"_s, false, false, u"pkg"_s)}));
    QVERIFY(insert(u"Formula"_s,
                   {record(u"fontconfig"_s, u"fontconfig"_s, u"XML-based font configuration API"_s, true, true),
                    record(u"wget"_s, u"wget"_s, u"Internet file retriever"_s, true, false),
                    record(u"pv"_s, u"pv"_s, u"Monitor pipes"_s, false, false)}));
}

void TestSearchPredicates::filters_data()
{
    QTest::addColumn<Predicate>("filter");
    QTest::addColumn<QString>("entity");
    QTest::addColumn<QStringList>("expected");

    using P = SearchPredicates;
    const auto row = [](const char* name, const Predicate& predicate, const QString& entity,
                        const QStringList& expected) { QTest::newRow(name) << predicate << entity << expected; };

    row("search finds apps by kind", P::search(u"FONT"_s), u"Cask"_s,
        {u"font-fira-code"_s, u"fontforge"_s, u"hack-nf"_s});
    row("search finds a package by kind only", P::search(u"package"_s), u"Cask"_s, {u"little-snitch"_s});
    row("search over scripts, which have no kind", P::search(u"font"_s), u"Formula"_s, {u"fontconfig"_s});
    row("a kind's name finds no script", P::search(u"app"_s), u"Formula"_s, {});
    row("name with quotes", P::name(u"\"network\""_s), u"Cask"_s, {u"little-snitch"_s});
    row("apps", P::app(), u"Cask"_s, {u"fontforge"_s, u"vlc"_s});
    row("fonts", P::font(), u"Cask"_s, {u"font-fira-code"_s, u"hack-nf"_s});
    row("no script is an app", P::app(), u"Formula"_s, {});
}

void TestSearchPredicates::filters()
{
    QFETCH(Predicate, filter);
    QFETCH(QString, entity);
    QFETCH(QStringList, expected);

    const auto fetched = m_store->viewContext()->fetch(entity, filter, {SortDescriptor{u"token"_s, true}});
    QVERIFY2(fetched, fetched ? "" : qPrintable(fetched.error().description()));
    QStringList tokens;
    for (const ManagedObject* object : fetched.value()) {
        tokens << object->token();
    }
    QCOMPARE(tokens, expected);

    // The tables filter loaded records in memory; they must agree with the store.
    const auto all = m_store->viewContext()->fetch(entity, Predicate(), {SortDescriptor{u"token"_s, true}});
    QVERIFY(all);
    QStringList judged;
    for (const ManagedObject* object : all.value()) {
        if (filter.evaluate(*object)) {
            judged << object->token();
        }
    }
    QCOMPARE(judged, expected);
}

QTEST_GUILESS_MAIN(TestSearchPredicates)
#include "TestSearchPredicates.moc"
