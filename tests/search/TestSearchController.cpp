#include "activities/Notifications.h"
#include "catalogue/ArrayController.h"
#include "catalogue/CoreDataManager.h"
#include "catalogue/ManagedObjectContext.h"
#include "foundation/Defaults.h"
#include "foundation/PreferenceKeys.h"
#include "search/FilterSuggestionViewItems.h"
#include "search/RecentSearchSuggestionViewItems.h"
#include "search/SGKSuggestionList.h"
#include "search/SearchController.h"
#include "search/TextSuggestionViewItems.h"

#include <QAbstractItemModelTester>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

namespace {

using Searches = QList<QPair<QString, int>>; // text, persona

int rowOfKind(const SGKSuggestionList& list, const QString& kind)
{
    for (int row = 0; row < list.rowCount(); ++row) {
        if (list.itemAt(row)->isKind(kind)) {
            return row;
        }
    }
    return -1;
}

QStringList labels(const SGKSuggestionList& list)
{
    QStringList result;
    for (int row = 0; row < list.rowCount(); ++row) {
        result.append(list.data(list.index(row)).toString());
    }
    return result;
}

QStringList tokensOf(const QList<ManagedObject*>& objects)
{
    QStringList tokens;
    for (const ManagedObject* object : objects) {
        tokens.append(object->token());
    }
    tokens.sort();
    return tokens;
}

struct Search {
    QTemporaryDir dir;
    Defaults defaults{dir.filePath("settings.ini")};
    SGKSuggestionList list;
    QAbstractItemModelTester tester{&list, QAbstractItemModelTester::FailureReportingMode::QtTest};
    SearchController controller{defaults, &list};

    explicit Search(int persona = 0)
    {
        setPersona(persona);
        // What the search field does with a requested text: show it, and report the change.
        QObject::connect(&controller, &SearchController::searchTextChangeRequested, &controller,
                         &SearchController::searchTextDidChange);
    }

    void setPersona(int persona) { defaults.setValue(PreferenceKeys::PersonasSelectedIndex, persona); }

    // Searches for text and lets its recording (if any) happen.
    void searchAndWait(const QString& text)
    {
        QSignalSpy recorded(&controller, &SearchController::recentSearchRecorded);
        controller.searchAction(text);
        if (controller.isRecordingPending()) {
            QVERIFY(recorded.wait(5000));
        }
    }
};

} // namespace

class TestSearchController : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void compositions_data();
    void compositions();
    void textItems_data();
    void textItems();
    void recording_data();
    void recording();
    void onlyTheLastTextOfASecondIsRecorded();
    void personaIsCapturedWithTheText();
    void malformedStore_data();
    void malformedStore();
    void recentRows();
    void clearingForgetsBothPersonas();
    void searchAction_data();
    void searchAction();
    void filtersTheAppsTable();
};

void TestSearchController::compositions_data()
{
    QTest::addColumn<int>("persona");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QStringList>("rows");

    const auto textAndState = [](const QString& text) {
        return QStringList{"Search: " + text,
                           "Name Contains: " + text,
                           "Description Contains: " + text,
                           "Token Contains: " + text,
                           "",
                           "State",
                           "Installed",
                           "Available"};
    };
    const QStringList kinds{"", "Kind", "App", "Font"};
    QTest::newRow("apps") << 0 << "fire" << textAndState("fire") + kinds;
    QTest::newRow("scripts") << 1 << "fire" << textAndState("fire");
    QTest::newRow("unknown persona") << 2 << "fire" << QStringList{};
    QTest::newRow("negative persona") << -1 << "fire" << QStringList{};
    QTest::newRow("empty, no recent searches") << 0 << "" << QStringList{};
    QTest::newRow("a space is a text") << 0 << " " << textAndState(" ") + kinds;
}

void TestSearchController::compositions()
{
    QFETCH(int, persona);
    QFETCH(QString, text);
    QFETCH(QStringList, rows);

    Search search(persona);
    search.controller.searchTextDidChange(text);
    QCOMPARE(labels(search.list), rows);
    for (int row = 0; row < search.list.rowCount(); ++row) {
        const SGKSuggestionViewItemPtr item = search.list.itemAt(row);
        const bool structural = item->isSeparator() || item->isGroup();
        QCOMPARE(item->isSelectable(), !structural);
        QCOMPARE(item->hasState(), !structural);
        QCOMPARE(item->predicate().has_value(), !structural);
    }
}

void TestSearchController::textItems_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QString>("format");
    QTest::addColumn<QVariantList>("arguments");

    QTest::newRow("search") << SearchSuggestionViewItem::staticKind()
                            << "name CONTAINS[c] %@ OR token CONTAINS[c] %@ OR desc CONTAINS[c] %@ OR "
                               "kind.label CONTAINS[c] %@"
                            << QVariantList{"Fi re", "Fi re", "Fi re", "Fi re"};
    QTest::newRow("description") << DescriptionSuggestionViewItem::staticKind() << "desc CONTAINS[c] %@"
                                 << QVariantList{"Fi re"};
    QTest::newRow("installed") << InstalledSuggestionViewItem::staticKind() << "installed == YES" << QVariantList{};
}

void TestSearchController::textItems()
{
    QFETCH(QString, kind);
    QFETCH(QString, format);
    QFETCH(QVariantList, arguments);

    Search search;
    search.controller.searchTextDidChange(QStringLiteral("Fi re"));
    const SGKSuggestionViewItemPtr item = search.list.itemAt(rowOfKind(search.list, kind));
    QVERIFY(item);
    QCOMPARE(SGKSuggestionViewItem::strategyName(item->strategy()), QStringLiteral("predicate"));
    QCOMPARE(item->predicate()->format(), Predicate::parse(format, arguments).value().format());
    if (item->value()) {
        QCOMPARE(*item->value(), QStringLiteral("Fi re"));
        QVERIFY(!item->icon());
    } else {
        QVERIFY(item->icon() && item->icon()->startsWith(u':'));
    }
}

void TestSearchController::recording_data()
{
    QTest::addColumn<Searches>("searches");
    QTest::addColumn<QStringList>("apps");
    QTest::addColumn<QStringList>("scripts");

    QTest::newRow("spaces only record nothing") << Searches{{"   ", 0}, {"\n\t ", 1}} << QStringList{} << QStringList{};
    QTest::newRow("surrounding spaces are trimmed")
        << Searches{{"  fire fox \n", 0}} << QStringList{"fire fox"} << QStringList{};
    QTest::newRow("a repeated text keeps the order")
        << Searches{{"a", 0}, {"b", 0}, {"c", 0}, {"a", 0}} << QStringList{"c", "b", "a"} << QStringList{};
    QTest::newRow("case matters") << Searches{{"Fire", 0}, {"fire", 0}} << QStringList{"fire", "Fire"} << QStringList{};
    QTest::newRow("a sixth text drops the oldest")
        << Searches{{"1", 0}, {"2", 0}, {"3", 0}, {"4", 0}, {"5", 0}, {"6", 0}, {"7", 0}}
        << QStringList{"7", "6", "5", "4", "3"} << QStringList{};
    QTest::newRow("personas keep their own") << Searches{{"app", 0}, {"script", 1}, {"both", 0}, {"both", 1}}
                                             << QStringList{"both", "app"} << QStringList{"both", "script"};
}

void TestSearchController::recording()
{
    QFETCH(Searches, searches);
    QFETCH(QStringList, apps);
    QFETCH(QStringList, scripts);

    Search search;
    for (const auto& [text, persona] : std::as_const(searches)) {
        search.setPersona(persona);
        search.searchAndWait(text);
    }
    QCOMPARE(search.controller.recentSearches().searches(0), apps);
    QCOMPARE(search.controller.recentSearches().searches(1), scripts);
    // What is stored is what a fresh reader finds.
    Defaults reread(search.defaults.filePath());
    QCOMPARE(RecentSearches(reread).searches(0), apps);
}

void TestSearchController::onlyTheLastTextOfASecondIsRecorded()
{
    Search search;
    QSignalSpy recorded(&search.controller, &SearchController::recentSearchRecorded);
    search.controller.searchAction(QStringLiteral("fi"));
    search.controller.searchAction(QStringLiteral("fire"));
    QVERIFY(search.controller.isRecordingPending());
    QVERIFY(recorded.wait(5000));
    QCOMPARE(recorded.size(), 1);
    QVERIFY(!search.controller.isRecordingPending());
    QCOMPARE(search.controller.recentSearches().searches(0), QStringList{"fire"});
}

void TestSearchController::personaIsCapturedWithTheText()
{
    Search search(1);
    QSignalSpy recorded(&search.controller, &SearchController::recentSearchRecorded);
    search.controller.searchAction(QStringLiteral("wget"));
    search.setPersona(0);
    QVERIFY(recorded.wait(5000));
    QCOMPARE(search.controller.recentSearches().searches(1), QStringList{"wget"});
    QVERIFY(search.controller.recentSearches().searches(0).isEmpty());
}

void TestSearchController::malformedStore_data()
{
    QTest::addColumn<QVariant>("stored");

    QTest::newRow("not a dictionary") << QVariant(QStringLiteral("junk"));
    QTest::newRow("entry is text") << QVariant(QVariantMap{{"0", QStringLiteral("abc")}});
    QTest::newRow("entry holds a number") << QVariant(QVariantMap{{"0", QVariantList{"abc", 42}}});
    QTest::newRow("entry is a dictionary") << QVariant(QVariantMap{{"0", QVariantMap{{"a", "b"}}}});
    QTest::newRow("entry is empty") << QVariant(QVariantMap{{"0", QStringList{}}});
}

void TestSearchController::malformedStore()
{
    QFETCH(QVariant, stored);

    Search search;
    search.defaults.setValue(PreferenceKeys::MainWindowRecentSearches, stored);
    search.controller.searchTextDidChange(QString());
    QCOMPARE(search.list.rowCount(), 0);

    search.searchAndWait(QStringLiteral("fire"));
    QCOMPARE(search.controller.recentSearches().searches(0), QStringList{"fire"});
}

void TestSearchController::recentRows()
{
    Search search;
    search.searchAndWait(QStringLiteral("fire"));
    search.searchAndWait(QStringLiteral("vlc"));
    search.controller.searchTextDidChange(QString());
    QCOMPARE(labels(search.list), QStringList({"Recent: vlc", "Recent: fire", "", "Clear Recent Searches"}));
    const SGKSuggestionViewItemPtr recent = search.list.itemAt(1);
    QVERIFY(!recent->hasState());
    QCOMPARE(recent->icon(), std::optional<QString>(QStringLiteral("clock.arrow.circlepath")));
    QVERIFY(!search.list.itemAt(2)->isSelectable());

    // Choosing a recent search puts its text into the field, replacing what was there, and shows its rows.
    QSignalSpy requested(&search.controller, &SearchController::searchTextChangeRequested);
    QVERIFY(search.list.selectNextSuggestionViewItem());
    QVERIFY(search.list.selectNextSuggestionViewItem());
    QVERIFY(search.list.toggleSelectedSuggestion());
    QCOMPARE(requested.size(), 1);
    QCOMPARE(requested.first().at(0).toString(), QStringLiteral("fire"));
    QCOMPARE(search.controller.searchText(), QStringLiteral("fire"));
    QCOMPARE(search.list.data(search.list.index(0)).toString(), QStringLiteral("Search: fire"));
    QVERIFY(search.list.activeSuggestionIdentifiers().isEmpty());
}

void TestSearchController::clearingForgetsBothPersonas()
{
    Search search;
    search.searchAndWait(QStringLiteral("firefox"));
    search.setPersona(1);
    search.searchAndWait(QStringLiteral("wget"));
    search.controller.searchTextDidChange(QString());
    QCOMPARE(search.list.rowCount(), 3);

    QVERIFY(search.list.chooseRow(rowOfKind(search.list, ClearRecentSearchesSuggestionViewItem::staticKind())));
    QVERIFY(!search.defaults.isWritten(PreferenceKeys::MainWindowRecentSearches));
    QCOMPARE(search.list.rowCount(), 0);
    search.setPersona(0);
    search.controller.searchTextDidChange(QString());
    QCOMPARE(search.list.rowCount(), 0);
}

void TestSearchController::searchAction_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("withToken");
    QTest::addColumn<QString>("posted");

    QTest::newRow("text without tokens") << "fire" << false << "<none>";
    QTest::newRow("text with a token") << "fire" << true << "installed == NO";
    QTest::newRow("spaces with a token") << " \n " << true << "<none>";
    QTest::newRow("empty with a token") << "" << true << "<none>";
}

void TestSearchController::searchAction()
{
    QFETCH(QString, text);
    QFETCH(bool, withToken);
    QFETCH(QString, posted);

    Search search;
    search.controller.searchTextDidChange(QStringLiteral("fire"));
    if (withToken) {
        QVERIFY(search.list.chooseRow(rowOfKind(search.list, AvailableSuggestionViewItem::staticKind())));
    }
    QSignalSpy performed(&Notifications::instance(), &Notifications::searchPerformed);
    search.controller.searchAction(text);
    QCOMPARE(performed.size(), 1);
    const auto predicate = performed.first().at(0).value<std::optional<Predicate>>();
    QCOMPARE(predicate ? predicate->format() : QStringLiteral("<none>"), posted);
}

void TestSearchController::filtersTheAppsTable()
{
    QTemporaryDir dir;
    CoreDataManager manager(dir.filePath("Corvel X.sqlite"));
    QVERIFY(manager.loadPersistentStores());
    const QList<QVariantHash> casks{
        {{"token", "firefox"}, {"name", "Firefox"}, {"installed", true}},
        {{"token", "firefox@nightly"}, {"name", "Firefox Nightly"}, {"installed", false}},
        {{"token", "spitfire-audio"}, {"name", "SPITFIRE AUDIO"}, {"installed", true}},
        {{"token", "campfire-tools"}, {"name", "Camp Tools"}, {"installed", true}, {"desc", "fire"}},
        {{"token", "vlc"}, {"name", "VLC"}, {"installed", true}},
    };
    qsizetype next = 0;
    QVERIFY(manager.backgroundContext()->batchInsert("Cask", [&](QVariantHash& values) {
        if (next == casks.size()) {
            return false;
        }
        values = casks.at(next++);
        return true;
    }));
    ArrayController apps(manager.viewContext(), "Cask");
    apps.setFilterPredicate(SearchController::filterPredicate(std::nullopt));
    QVERIFY(apps.fetch());
    // The apps table's reaction to a search.
    connect(&Notifications::instance(), &Notifications::searchPerformed, &apps,
            [&apps](const std::optional<Predicate>& predicate) {
                apps.setFilterPredicate(SearchController::filterPredicate(predicate));
            });
    const QStringList installed{"campfire-tools", "firefox", "spitfire-audio", "vlc"};
    QCOMPARE(tokensOf(apps.arrangedObjects()), installed);

    Search search;
    search.controller.searchTextDidChange(QStringLiteral("fIRe"));
    QVERIFY(search.list.chooseRow(rowOfKind(search.list, NameSuggestionViewItem::staticKind())));
    QCOMPARE(tokensOf(apps.arrangedObjects()), QStringList({"firefox", "firefox@nightly", "spitfire-audio"}));
    QVERIFY(search.list.chooseRow(rowOfKind(search.list, InstalledSuggestionViewItem::staticKind())));
    QCOMPARE(tokensOf(apps.arrangedObjects()), QStringList({"firefox", "spitfire-audio"}));
    QVERIFY(search.list.switchActiveItem(NameSuggestionViewItem::staticKind(), SearchSuggestionViewItem::staticKind()));
    QCOMPARE(tokensOf(apps.arrangedObjects()), QStringList({"campfire-tools", "firefox", "spitfire-audio"}));

    QVERIFY(search.list.deactivate(InstalledSuggestionViewItem::staticKind()));
    QCOMPARE(tokensOf(apps.arrangedObjects()),
             QStringList({"campfire-tools", "firefox", "firefox@nightly", "spitfire-audio"}));
    QVERIFY(search.list.deactivate(SearchSuggestionViewItem::staticKind()));
    QCOMPARE(apps.filterPredicate().format(), QStringLiteral("installed == YES"));
    QCOMPARE(tokensOf(apps.arrangedObjects()), installed);
}

QTEST_GUILESS_MAIN(TestSearchController)
#include "TestSearchController.moc"
