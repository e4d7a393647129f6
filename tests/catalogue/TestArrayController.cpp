#include "catalogue/ArrayController.h"
#include "catalogue/CoreDataManager.h"
#include "catalogue/ManagedObjectContext.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

namespace {

QVariantHash cask(const QString& token, const QString& name, bool installed, bool outdated, const QString& desc = {})
{
    return {{"token", token},
            {"name", name},
            {"installed", installed},
            {"outdated", outdated},
            {"desc", desc.isEmpty() ? QVariant() : desc}};
}

Result<QList<ObjectID>> insertAll(ManagedObjectContext& context, const QList<QVariantHash>& records)
{
    qsizetype next = 0;
    return context.batchInsert("Cask", [&](QVariantHash& values) {
        if (next == records.size()) {
            return false;
        }
        values = records.at(next++);
        return true;
    });
}

// "key" ascending, "-key" descending.
QList<SortDescriptor> descriptors(const QStringList& keys)
{
    QList<SortDescriptor> result;
    for (const QString& key : keys) {
        result.append(key.startsWith('-') ? SortDescriptor{key.mid(1), false} : SortDescriptor{key, true});
    }
    return result;
}

Predicate predicate(const QString& format)
{
    if (format.isEmpty()) {
        return Predicate();
    }
    const Result<Predicate> parsed = Predicate::parse(format);
    if (!parsed) {
        qFatal("bad test predicate %s", qPrintable(format));
    }
    return parsed.value();
}

QStringList tokensOf(const QList<ManagedObject*>& objects)
{
    QStringList tokens;
    for (const ManagedObject* object : objects) {
        tokens.append(object->token());
    }
    return tokens;
}

// Two names differ only in case, so a name order has a tie; two installed casks have upgrades. Stored in
// reverse token order, so that the store's order cannot pass for the tie-break.
struct Store {
    QTemporaryDir dir;
    CoreDataManager manager{dir.filePath("Corvel X.sqlite")};

    Store()
    {
        const auto inserted =
            insertAll(*manager.backgroundContext(),
                      {cask("echo", "ALFA", false, false), cask("delta", "Delta", true, true, "Editor"),
                       cask("charlie", "Charlie", false, false), cask("bravo", "bravo", true, true),
                       cask("alfa", "Alfa", true, false, "browser")});
        QVERIFY(inserted);
    }
};

// The installed casks with upgrades first, as the apps table shows them with upgrades above.
struct InstalledView {
    Store store;
    ArrayController controller{store.manager.viewContext(), "Cask"};

    InstalledView()
    {
        controller.setSortDescriptors(descriptors({"-outdated", "token"}));
        controller.setFetchPredicate(predicate("installed == YES"));
        QVERIFY(controller.fetch());
        QCOMPARE(tokensOf(controller.arrangedObjects()), QStringList({"bravo", "delta", "alfa"}));
    }
};

} // namespace

class TestArrayController : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void arrangement_data();
    void arrangement();
    void storeChanges_data();
    void storeChanges();
    void localChanges_data();
    void localChanges();
    void searchFollowsChanges_data();
    void searchFollowsChanges();
    void saveOfThisContext();
    void badInput();
};

void TestArrayController::arrangement_data()
{
    QTest::addColumn<QString>("fetchFormat");
    QTest::addColumn<QString>("filterFormat");
    QTest::addColumn<QStringList>("sortKeys");
    QTest::addColumn<QStringList>("arranged");

    QTest::newRow("no order: by token") << ""
                                        << "" << QStringList{}
                                        << QStringList{"alfa", "bravo", "charlie", "delta", "echo"};
    QTest::newRow("name, tie by token") << ""
                                        << "" << QStringList{"name"}
                                        << QStringList{"alfa", "echo", "bravo", "charlie", "delta"};
    QTest::newRow("name descending, tie by token")
        << ""
        << "" << QStringList{"-name"} << QStringList{"delta", "charlie", "bravo", "alfa", "echo"};
    QTest::newRow("search within view keeps order")
        << "installed == YES"
        << "desc CONTAINS[c] 'EDIT' OR name CONTAINS[c] 'BRA' OR token == 'charlie'" << QStringList{"-name"}
        << QStringList{"delta", "bravo"};
    QTest::newRow("upgrades above") << ""
                                    << "" << QStringList{"-outdated", "name"}
                                    << QStringList{"bravo", "delta", "alfa", "echo", "charlie"};
    QTest::newRow("search matches nothing") << ""
                                            << "token == 'zulu'" << QStringList{"name"} << QStringList{};
}

// Settings arrive in any order: a search over an already arranged view must still honour view and order, and
// clearing it brings the whole view back.
void TestArrayController::arrangement()
{
    QFETCH(QString, fetchFormat);
    QFETCH(QString, filterFormat);
    QFETCH(QStringList, sortKeys);
    QFETCH(QStringList, arranged);

    Store store;
    ArrayController controller(store.manager.viewContext(), "Cask");
    QSignalSpy aboutToChange(&controller, &ArrayController::arrangedObjectsAboutToChange);
    QSignalSpy changed(&controller, &ArrayController::arrangedObjectsChanged);
    QVERIFY(controller.fetch());
    controller.setFetchPredicate(predicate(fetchFormat));
    const QStringList view = tokensOf(controller.arrangedObjects());
    controller.setFilterPredicate(predicate(filterFormat));
    controller.setSortDescriptors(descriptors(sortKeys));
    QCOMPARE(tokensOf(controller.arrangedObjects()), arranged);

    controller.setFilterPredicate(predicate(filterFormat));
    controller.setFilterPredicate(Predicate());
    controller.setSortDescriptors(descriptors(sortKeys));
    QStringList sortedView = tokensOf(controller.arrangedObjects());
    QCOMPARE(sortedView.size(), view.size());
    std::sort(sortedView.begin(), sortedView.end());
    QCOMPARE(sortedView, view); // the view alone is in token order
    QCOMPARE(aboutToChange.size(), changed.size());
}

void TestArrayController::storeChanges_data()
{
    QTest::addColumn<QString>("request");
    QTest::addColumn<QVariantList>("records"); // tokens to update or delete, or records to insert
    QTest::addColumn<QVariantHash>("properties");
    QTest::addColumn<QStringList>("arranged");

    QTest::newRow("update leaves view") << "update" << QVariantList{"bravo", "echo"}
                                        << QVariantHash{{"installed", false}} << QStringList{"delta", "alfa"};
    QTest::newRow("update joins view") << "update" << QVariantList{"charlie"} << QVariantHash{{"installed", true}}
                                       << QStringList{"bravo", "delta", "alfa", "charlie"};
    QTest::newRow("delete") << "delete" << QVariantList{"bravo", "charlie"} << QVariantHash{}
                            << QStringList{"delta", "alfa"};
    QTest::newRow("insert") << "insert"
                            << QVariantList{cask("zulu", "Zulu", true, true), cask("yankee", "Yankee", false, false),
                                            cask("golf", "Golf", true, false)}
                            << QVariantHash{} << QStringList{"bravo", "delta", "zulu", "alfa", "golf"};

    // More records than are worth looking up one by one: the controller fetches them all instead.
    QVariantList many;
    QStringList arranged{"bravo", "delta", "alfa"};
    for (int i = 0; i < 100; ++i) {
        const QString token = QStringLiteral("m%1").arg(i, 3, 10, QLatin1Char('0'));
        many.append(cask(token, token, true, false));
        arranged.append(token);
    }
    QTest::newRow("insert a synchronisation's worth") << "insert" << many << QVariantHash{} << arranged;
}

// Batch requests of another context reach the controller through the merge alone.
void TestArrayController::storeChanges()
{
    QFETCH(QString, request);
    QFETCH(QVariantList, records);
    QFETCH(QVariantHash, properties);
    QFETCH(QStringList, arranged);

    InstalledView fixture;
    auto background = fixture.store.manager.newBackgroundContext();
    QVERIFY(background);
    Result<QList<ObjectID>> touched = QList<ObjectID>();
    if (request == "insert") {
        QList<QVariantHash> values;
        for (const QVariant& record : std::as_const(records)) {
            values.append(record.toHash());
        }
        touched = insertAll(*background.value(), values);
    } else {
        const auto tokens = Predicate::parse("token in %@", QVariantList{QVariant(records)});
        QVERIFY(tokens);
        touched = request == "update" ? background.value()->batchUpdate("Cask", tokens.value(), properties)
                                      : background.value()->batchDelete("Cask", tokens.value());
    }
    QVERIFY(touched);

    ChangeSet changes;
    (request == "update"   ? changes.updated
     : request == "delete" ? changes.deleted
                           : changes.inserted) = touched.value();
    QSignalSpy changed(&fixture.controller, &ArrayController::arrangedObjectsChanged);
    QVERIFY(CoreDataManager::mergeChangesFromRemoteContextSave(changes, {fixture.store.manager.viewContext()}));
    QCOMPARE(changed.size(), 1);
    QCOMPARE(tokensOf(fixture.controller.arrangedObjects()), arranged);

    // Deleted objects go once control returns to the event loop; none may linger in the arrangement.
    QTest::qWait(0);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QCOMPARE(tokensOf(fixture.controller.arrangedObjects()), arranged);
}

void TestArrayController::localChanges_data()
{
    QTest::addColumn<QString>("token");
    QTest::addColumn<QString>("key");
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QStringList>("arranged");

    QTest::newRow("outdated moves up") << "alfa"
                                       << "outdated" << QVariant(true) << QStringList{"alfa", "bravo", "delta"};
    QTest::newRow("uninstalled leaves") << "delta"
                                        << "installed" << QVariant(false) << QStringList{"bravo", "alfa"};
    QTest::newRow("busy leaves idle view") << "bravo"
                                           << "isBusy" << QVariant(true) << QStringList{"delta", "alfa"};
}

// Changes made to the view context's objects before any save, as operations mark them.
void TestArrayController::localChanges()
{
    QFETCH(QString, token);
    QFETCH(QString, key);
    QFETCH(QVariant, value);
    QFETCH(QStringList, arranged);

    InstalledView fixture;
    fixture.controller.setFetchPredicate(predicate("installed == YES AND isBusy == NO"));
    const auto objects = fixture.store.manager.viewContext()->fetch("Cask", "token == %@", {token});
    QVERIFY(objects && objects.value().size() == 1);
    QVERIFY(objects.value().constFirst()->setValue(key, value));
    QTRY_COMPARE(tokensOf(fixture.controller.arrangedObjects()), arranged);
}

void TestArrayController::searchFollowsChanges_data()
{
    QTest::addColumn<QString>("token");
    QTest::addColumn<QString>("key");
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<bool>("merged"); // changed by another context, or on the view's object
    QTest::addColumn<QStringList>("arranged");

    QTest::newRow("renamed into the search") << "alfa"
                                             << "name" << QVariant("Zebra") << false << QStringList{"bravo", "alfa"};
    QTest::newRow("description gains it")
        << "delta"
        << "desc" << QVariant("A BRAND new editor") << true << QStringList{"bravo", "delta"};
    QTest::newRow("description loses it") << "bravo"
                                          << "desc" << QVariant() << true << QStringList{"bravo"};
}

// The search reads the records' current text, whether it changed here or in the store.
void TestArrayController::searchFollowsChanges()
{
    QFETCH(QString, token);
    QFETCH(QString, key);
    QFETCH(QVariant, value);
    QFETCH(bool, merged);
    QFETCH(QStringList, arranged);

    InstalledView fixture;
    fixture.controller.setFilterPredicate(predicate("name CONTAINS[c] 'bra' OR desc CONTAINS[c] 'bra'"));
    QCOMPARE(tokensOf(fixture.controller.arrangedObjects()), QStringList{"bravo"});
    if (merged) {
        auto background = fixture.store.manager.newBackgroundContext();
        QVERIFY(background);
        const auto touched = background.value()->batchUpdate(
            "Cask", predicate(QStringLiteral("token == '%1'").arg(token)), {{key, value}});
        QVERIFY(touched);
        ChangeSet changes;
        changes.updated = touched.value();
        QVERIFY(CoreDataManager::mergeChangesFromRemoteContextSave(changes, {fixture.store.manager.viewContext()}));
    } else {
        const auto objects = fixture.store.manager.viewContext()->fetch("Cask", "token == %@", {token});
        QVERIFY(objects && objects.value().size() == 1);
        QVERIFY(objects.value().constFirst()->setValue(key, value));
    }
    QTRY_COMPARE(tokensOf(fixture.controller.arrangedObjects()), arranged);
}

void TestArrayController::saveOfThisContext()
{
    InstalledView fixture;
    ManagedObjectContext* view = fixture.store.manager.viewContext();
    const auto bravo = view->fetch("Cask", "token == 'bravo'", {});
    QVERIFY(bravo && bravo.value().size() == 1);
    view->deleteObject(bravo.value().constFirst());
    ManagedObject* added = view->insertNewObject("Cask");
    QVERIFY(added);
    for (const auto& [key, value] : cask("foxtrot", "Foxtrot", true, true).asKeyValueRange()) {
        if (value.isValid()) {
            QVERIFY(added->setValue(key, value));
        }
    }
    QVERIFY(view->save());
    QTRY_COMPARE(tokensOf(fixture.controller.arrangedObjects()), QStringList({"delta", "foxtrot", "alfa"}));
}

void TestArrayController::badInput()
{
    Store store;
    ArrayController unknown(store.manager.viewContext(), "Beverage");
    const Result<void> fetched = unknown.fetch();
    QVERIFY(!fetched);
    QVERIFY(!fetched.error().description().isEmpty());
    QVERIFY(unknown.arrangedObjects().isEmpty());

    ArrayController orphan(nullptr, "Cask");
    QVERIFY(!orphan.fetch());
    orphan.setFilterPredicate(predicate("installed == YES"));
    QVERIFY(orphan.arrangedObjects().isEmpty());
}

QTEST_GUILESS_MAIN(TestArrayController)
#include "TestArrayController.moc"
