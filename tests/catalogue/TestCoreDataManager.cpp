#include "catalogue/Cask.h"
#include "catalogue/CoreDataManager.h"
#include "catalogue/CoreDataManagerError.h"
#include "catalogue/Formula.h"
#include "foundation/Threading.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QPointer>
#include <QProcess>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QTextStream>
#include <algorithm>
#include <atomic>
#include <sqlite3.h>
#include <sys/resource.h>

namespace {

// In this mode the executable opens the default store and prints its path.
constexpr const char* childStoreVariable = "CORVEL_TEST_STORE_CHILD";

QVariantHash cask(const QString& token, const QVariant& artifacts = {}, bool installed = false, bool outdated = false,
                  const QString& desc = {})
{
    return {{"token", token},         {"name", token.toUpper()}, {"artifacts", artifacts},
            {"installed", installed}, {"outdated", outdated},    {"desc", desc.isNull() ? QVariant() : desc}};
}

Result<QList<ObjectID>> insertAll(ManagedObjectContext& context, const QString& entity,
                                  const QList<QVariantHash>& records)
{
    qsizetype next = 0;
    return context.batchInsert(entity, [&](QVariantHash& values) {
        if (next == records.size()) {
            return false;
        }
        values = records.at(next++);
        return true;
    });
}

QStringList tokensOf(const QList<ManagedObject*>& objects)
{
    QStringList tokens;
    for (const ManagedObject* object : objects) {
        tokens.append(object->token());
    }
    return tokens;
}

QStringList sorted(QStringList list)
{
    list.sort();
    return list;
}

// The only record of token, or null when there is none or more than one.
ManagedObject* only(ManagedObjectContext& context, const QString& token)
{
    const auto found = context.fetch("Cask", "token == %@", {token});
    return found && found.value().size() == 1 ? found.value().constFirst() : nullptr;
}

QList<ManagedObject*> sortedBy(QList<ManagedObject*> objects, const QList<SortDescriptor>& order)
{
    std::stable_sort(objects.begin(), objects.end(),
                     [comparator = SortDescriptor::comparator(order)](const auto* left, const auto* right) {
                         return comparator(*left, *right);
                     });
    return objects;
}

// A store in a temporary folder with four casks, a-d.
struct Store {
    QTemporaryDir dir;
    CoreDataManager manager{dir.filePath("Corvel X.sqlite")};

    Store()
    {
        const auto inserted = insertAll(*manager.backgroundContext(), "Cask",
                                        {cask("a", QStringList{"app"}), cask("b", QStringList{"pkg"}),
                                         cask("c", QStringList{"font"}), cask("d", QStringList{"app"})});
        QVERIFY(inserted);
    }

    QList<ManagedObject*> all(const QString& entity = "Cask")
    {
        const auto fetched = manager.viewContext()->fetch(entity, Predicate(), {{"token", true}});
        return fetched ? fetched.value() : QList<ManagedObject*>();
    }
};

struct Child {
    int exitCode = -1;
    QString out;
    QString err;
};

Child runChild(const QString& dataHome)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("QT_FORCE_STDERR_LOGGING", "1");
    environment.remove("QT_MESSAGE_PATTERN");
    environment.insert("XDG_DATA_HOME", dataHome);
    environment.insert(childStoreVariable, "1");
    QProcess process;
    process.setProcessEnvironment(environment);
    process.start(QCoreApplication::applicationFilePath(), {});
    const bool ended = process.waitForFinished(60000) && process.exitStatus() == QProcess::NormalExit;
    return {ended ? process.exitCode() : -1, QString::fromUtf8(process.readAllStandardOutput()).trimmed(),
            QString::fromUtf8(process.readAllStandardError())};
}

bool writeSqlite(const QString& path, const char* sql)
{
    sqlite3* connection = nullptr;
    const bool ok = sqlite3_open(QFile::encodeName(path).constData(), &connection) == SQLITE_OK &&
                    sqlite3_exec(connection, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
    sqlite3_close(connection);
    return ok;
}

} // namespace

class TestCoreDataManager : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void batchRequests_data();
    void batchRequests();
    void backgroundSaveReachesViewContext();
    void conflictKeepsStoreValue_data();
    void conflictKeepsStoreValue();
    void fetchAgreesWithEvaluation_data();
    void fetchAgreesWithEvaluation();
    void identityAndSave();
    void valuesRoundTrip_data();
    void valuesRoundTrip();
    void badRequests();
    void schemaRebuilt_data();
    void schemaRebuilt();
    void unopenableStore_data();
    void unopenableStore();
};

void TestCoreDataManager::batchRequests_data()
{
    QTest::addColumn<QString>("request");
    QTest::addColumn<QStringList>("tokens");
    QTest::addColumn<QStringList>("outdatedAfter"); // of the view's objects that remain
    QTest::addColumn<QStringList>("remaining");

    const QStringList all{"a", "b", "c", "d"};
    QTest::newRow("update some") << "update" << QStringList{"b", "d", "x"} << QStringList{"b", "d"} << all;
    QTest::newRow("update none") << "update" << QStringList{"x"} << QStringList{} << all;
    QTest::newRow("delete all") << "delete" << all << QStringList{} << QStringList{};
    QTest::newRow("insert") << "insert" << QStringList{"e", "f"} << QStringList{}
                            << QStringList{"a", "b", "c", "d", "e", "f"};
}

// Batch requests bypass the view context: only the merge of their identifiers shows them there, and then on the
// objects already handed out, without a new fetch.
void TestCoreDataManager::batchRequests()
{
    QFETCH(QString, request);
    QFETCH(QStringList, tokens);
    QFETCH(QStringList, outdatedAfter);
    QFETCH(QStringList, remaining);

    Store store;
    ManagedObjectContext* view = store.manager.viewContext();
    QList<QPointer<ManagedObject>> shown;
    QHash<qint64, QString> tokenOfRowid;
    for (ManagedObject* object : store.all()) {
        shown.append(object);
        tokenOfRowid.insert(object->objectID().rowid, object->token());
    }
    QCOMPARE(shown.size(), 4);

    auto background = store.manager.newBackgroundContext();
    const auto predicate = Predicate::parse("token in %@", {tokens});
    QVERIFY(background && predicate);
    QList<QVariantHash> records;
    std::transform(tokens.cbegin(), tokens.cend(), std::back_inserter(records),
                   [](const auto& token) { return cask(token); });
    const Result<QList<ObjectID>> touched =
        request == "update"   ? background.value()->batchUpdate("Cask", predicate.value(), {{"outdated", true}})
        : request == "delete" ? background.value()->batchDelete("Cask", predicate.value())
                              : insertAll(*background.value(), "Cask", records);
    QVERIFY2(touched, qPrintable(touched.ok() ? QString() : touched.error().description()));

    // New records are looked up in the store; the others were known before the request.
    QStringList touchedTokens;
    for (const ObjectID& id : touched.value()) {
        QCOMPARE(id.entity, "Cask");
        const auto inserted = view->existingObject(id);
        touchedTokens.append(request != "insert" ? tokenOfRowid.value(id.rowid)
                             : inserted          ? inserted.value()->token()
                                                 : QString());
    }
    QStringList expected = tokens;
    expected.removeAll("x");
    QCOMPARE(sorted(touchedTokens), sorted(expected));
    // Not merged yet: the view still shows what it had.
    QVERIFY(std::all_of(shown.cbegin(), shown.cend(), [](const auto& object) {
        return object && !object->value(u"outdated").toBool() && !object->isDeleted();
    }));

    ChangeSet changes;
    (request == "update"   ? changes.updated
     : request == "delete" ? changes.deleted
                           : changes.inserted) = touched.value();
    QSignalSpy announced(view, &ManagedObjectContext::objectsDidChange);
    QVERIFY(CoreDataManager::mergeChangesFromRemoteContextSave(changes, {view}));
    QCOMPARE(announced.size(), 1);
    QStringList shownOutdated;
    for (const auto& object : shown) {
        QVERIFY(object);
        if (object->value(u"outdated").toBool()) {
            shownOutdated.append(object->token());
        }
        QCOMPARE(object->isDeleted(), !remaining.contains(object->token()));
    }
    QCOMPARE(shownOutdated, outdatedAfter);
    QCOMPARE(tokensOf(store.all()), remaining);
    // Dropped objects go once the event loop has run.
    const auto alive = [&] {
        return std::count_if(shown.cbegin(), shown.cend(), [](const auto& object) { return object; });
    };
    const auto kept = std::count_if(tokenOfRowid.cbegin(), tokenOfRowid.cend(),
                                    [&](const QString& token) { return remaining.contains(token); });
    QTRY_COMPARE(alive(), kept);
}

// The background context does its work on a worker of the shared pool, as synchronisation does.
void TestCoreDataManager::backgroundSaveReachesViewContext()
{
    QTest::failOnWarning(QRegularExpression(".*"));
    Store store;
    ManagedObjectContext* view = store.manager.viewContext();
    auto* viewCask = qobject_cast<Cask*>(only(*view, "b"));
    QVERIFY(viewCask);

    auto background = store.manager.newBackgroundContext();
    QVERIFY(background);
    QSignalSpy announced(view, &ManagedObjectContext::objectsDidChange);
    std::atomic<bool> finished = false;
    QString failure;
    ObjectID createdID;
    Threading::runInBackground([&, context = background.value().get()] {
        ManagedObject* found = only(*context, "b");
        ManagedObject* created = context->insertNewObject("Cask");
        if (!found || !created) {
            failure = "fetch or insert failed";
        } else {
            found->setValue(u"installed", true);
            found->setValue(u"version", "2.0");
            created->setValue(u"token", "new");
            if (!context->hasChanges() || !context->save() || context->hasChanges() ||
                created->objectID().isTemporary()) {
                failure = "save failed";
            }
            createdID = created->objectID();
        }
        finished = true;
    });
    QTRY_VERIFY(finished);
    QVERIFY2(failure.isEmpty(), qPrintable(failure));

    QTRY_COMPARE(announced.size(), 1);
    QVERIFY(viewCask->installed());
    QCOMPARE(viewCask->version(), "2.0");
    QVERIFY(!view->hasChanges());
    const auto changes = announced.constFirst().constFirst().value<ChangeSet>();
    QCOMPARE(changes.inserted, QList<ObjectID>{createdID});
    QCOMPARE(changes.updated, QList<ObjectID>{viewCask->objectID()});
    QVERIFY(only(*view, "new"));
    QCOMPARE(only(*view, "new")->objectID(), createdID);
}

void TestCoreDataManager::conflictKeepsStoreValue_data()
{
    QTest::addColumn<bool>("mergeFirst");
    // The background save either reaches the view context before it saves, or the view saves first.
    QTest::newRow("merged, then saved") << true;
    QTest::newRow("saved before the merge") << false;
}

void TestCoreDataManager::conflictKeepsStoreValue()
{
    QFETCH(bool, mergeFirst);

    Store store;
    ManagedObjectContext* view = store.manager.viewContext();
    ManagedObject* mine = only(*view, "a");
    QVERIFY(mine && mine->setValue(u"desc", "mine") && mine->setValue(u"version", "1.0"));

    auto background = store.manager.newBackgroundContext();
    QVERIFY(background);
    ManagedObject* theirs = only(*background.value(), "a");
    QVERIFY(theirs && theirs->setValue(u"desc", "theirs"));
    QSignalSpy announced(view, &ManagedObjectContext::objectsDidChange);
    QVERIFY(background.value()->save());

    if (mergeFirst) {
        QTRY_COMPARE(announced.size(), 1);
        QCOMPARE(mine->value(u"desc").toString(), "theirs");
        QCOMPARE(mine->changedKeys(), QSet<QString>{"version"});
    }
    QVERIFY(view->save());
    QCOMPARE(mine->value(u"desc").toString(), "theirs");
    QCOMPARE(mine->value(u"version").toString(), "1.0");

    auto fresh = store.manager.newBackgroundContext();
    QVERIFY(fresh);
    const ManagedObject* stored = only(*fresh.value(), "a");
    QVERIFY(stored);
    QCOMPARE(stored->value(u"desc").toString(), "theirs");
    QCOMPARE(stored->value(u"version").toString(), "1.0");
}

void TestCoreDataManager::fetchAgreesWithEvaluation_data()
{
    QTest::addColumn<QString>("entity");
    QTest::addColumn<QString>("format");
    QTest::addColumn<QVariantList>("arguments");

    const auto row = [](const char* tag, const char* entity, const char* format, const QVariantList& arguments = {}) {
        QTest::newRow(tag) << QString::fromLatin1(entity) << QString::fromLatin1(format) << arguments;
    };
    row("flag", "Cask", "installed == YES");
    row("token in", "Cask", "token in %@", {QStringList{"app", "vst3", "zzz"}});
    row("folded name", "Cask", "name CONTAINS[c] %@", {"äp"});
    row("desc missing", "Cask", "desc == %@", {QVariant()});
    row("compound", "Cask", "(installed == YES OR desc CONTAINS[c] %@) AND NOT kind.label == %@", {"TOOL", "Service"});
    row("formula leaf", "Formula", "isLeaf == YES OR name CONTAINS %@", {"lib"});
}

// Fetches compile the predicate to SQL; what they find must be what the predicate says of each object.
void TestCoreDataManager::fetchAgreesWithEvaluation()
{
    QFETCH(QString, entity);
    QFETCH(QString, format);
    QFETCH(QVariantList, arguments);

    QTemporaryDir dir;
    CoreDataManager manager(dir.filePath("Corvel X.sqlite"));
    ManagedObjectContext* context = manager.viewContext();
    QVERIFY(insertAll(*context, "Cask",
                      {cask("app", QStringList{"app"}, true, false, "A tool"),
                       cask("Äpfel", QStringList{"App"}, false, true, "Fruit tool"),
                       cask("mixed", QStringList{"app", "pkg"}, true, true), cask("none", QStringList{}),
                       cask("absent"), cask("vst3", QStringList{"vst3Plugin"}, false, false, ""),
                       cask("service", QStringList{"service"}, true), cask("qlplugin", QStringList{"qlplugin"})}));
    QVERIFY(insertAll(*context, "Formula",
                      {{{"token", "libfoo"}, {"name", "libfoo"}, {"isLeaf", false}, {"installed", true}},
                       {{"token", "tool"}, {"name", "user/tap/tool"}, {"isLeaf", true}, {"installed", true}},
                       {{"token", "other"}, {"name", "other"}}}));

    const auto predicate = Predicate::parse(format, arguments);
    QVERIFY(predicate);
    const auto everything = context->fetch(entity, Predicate(), {{"token", true}});
    const auto matching = context->fetch(entity, predicate.value(), {{"token", true}});
    QVERIFY(everything && matching);
    QList<ManagedObject*> evaluated;
    std::copy_if(everything.value().cbegin(), everything.value().cend(), std::back_inserter(evaluated),
                 [&](const ManagedObject* object) { return predicate.value().evaluate(*object); });
    QCOMPARE(tokensOf(matching.value()), tokensOf(evaluated));

    // The store orders text as the in-memory comparator does.
    const QList<SortDescriptor> byName{{"name", false}, {"token", true}};
    const auto byNameInStore = context->fetch(entity, predicate.value(), byName);
    QVERIFY(byNameInStore);
    QCOMPARE(tokensOf(byNameInStore.value()), tokensOf(sortedBy(evaluated, byName)));

    // A derived sort key is ordered in memory, and the limit applies after it.
    const QList<SortDescriptor> byUpgradable{{"upgradable", false}, {"name", true}};
    const auto limited = context->fetch(entity, predicate.value(), byUpgradable, 2);
    QVERIFY(limited);
    QCOMPARE(tokensOf(limited.value()), tokensOf(sortedBy(sortedBy(evaluated, byName), byUpgradable).mid(0, 2)));
}

// One object per record and context; local changes and deletions persist through save.
void TestCoreDataManager::identityAndSave()
{
    Store store;
    ManagedObjectContext* view = store.manager.viewContext();
    const auto first = view->fetch("Cask", "token == %@", {"c"});
    const auto again = view->fetch("Cask", "kind.label == %@", {"Font"});
    QVERIFY(first && again);
    QCOMPARE(again.value(), first.value());
    ManagedObject* font = first.value().constFirst();
    const auto existing = view->existingObject(font->objectID());
    QVERIFY(existing && existing.value() == font);

    QVERIFY(!view->hasChanges());
    QVERIFY(font->setValue(u"desc", "changed"));
    QVERIFY(font->setValue(u"desc", QVariant())); // back to what the store has
    QVERIFY(!view->hasChanges());

    const auto doomed = view->fetch("Cask", "token in %@", {QStringList{"a", "b"}});
    QVERIFY(doomed && doomed.value().size() == 2);
    for (ManagedObject* object : doomed.value()) {
        view->deleteObject(object);
    }
    QVERIFY(view->hasChanges());
    QCOMPARE(tokensOf(view->fetch("Cask", Predicate(), {{"token", true}}).value()), QStringList({"c", "d"}));
    QSignalSpy saved(view, &ManagedObjectContext::didSave);
    QVERIFY(view->save());
    QCOMPARE(saved.size(), 1);
    QCOMPARE(saved.constFirst().constFirst().value<ChangeSet>().deleted.size(), 2);
    QVERIFY(!view->hasChanges());
    QVERIFY(view->save()); // nothing to write: no second announcement
    QCOMPARE(saved.size(), 1);

    auto other = store.manager.newBackgroundContext();
    QVERIFY(other);
    QCOMPARE(tokensOf(other.value()->fetch("Cask", Predicate(), {{"token", true}}).value()), QStringList({"c", "d"}));
}

void TestCoreDataManager::valuesRoundTrip_data()
{
    QTest::addColumn<QVariantHash>("record");

    QTest::newRow("quotes, backslashes and controls in a list")
        << cask("odd", QStringList{"app", "say \"hi\"", "back\\slash", "tab\tand\nline", "\u00e9t\u00e9 \U0001F37A"});
    QTest::newRow("empty list and empty text") << cask("empty", QStringList{}, false, false, "");
    QTest::newRow("absent list and text") << cask("absent");
}

// Whatever a batch insert writes reads back the same, each value with its type (an absent one stays absent).
void TestCoreDataManager::valuesRoundTrip()
{
    QFETCH(QVariantHash, record);

    QTemporaryDir dir;
    CoreDataManager manager(dir.filePath("Corvel X.sqlite"));
    QVERIFY(insertAll(*manager.backgroundContext(), "Cask", {record}));
    const ManagedObject* object = only(*manager.viewContext(), record.value("token").toString());
    QVERIFY(object);
    for (auto it = record.cbegin(); it != record.cend(); ++it) {
        QCOMPARE(object->value(it.key()), it.value());
    }
}

void TestCoreDataManager::badRequests()
{
    Store store;
    ManagedObjectContext* view = store.manager.viewContext();
    const auto unknownEntity = view->fetch("Bottle", Predicate());
    QVERIFY(!unknownEntity && !view->insertNewObject("Bottle"));
    QCOMPARE(unknownEntity.error().code(), ManagedObjectContext::UnknownEntity);
    const auto badFormat = view->fetch("Cask", "token ==", {});
    QVERIFY(!badFormat);
    QCOMPARE(badFormat.error().domain(), "PredicateError");
    const auto unknownAttribute = view->batchUpdate("Cask", Predicate(), {{"colour", "red"}});
    QVERIFY(!unknownAttribute);
    QCOMPARE(unknownAttribute.error().code(), ManagedObjectContext::UnknownAttribute);

    // A handler naming an unknown attribute half-way leaves nothing inserted.
    int calls = 0;
    const auto halfInserted = view->batchInsert("Cask", [&](QVariantHash& values) {
        values = ++calls == 1 ? cask("e") : QVariantHash{{"colour", "red"}};
        return calls <= 2;
    });
    QVERIFY(!halfInserted);
    QCOMPARE(tokensOf(store.all()), QStringList({"a", "b", "c", "d"}));

    const auto missingRecord = view->existingObject({"Cask", 999});
    QVERIFY(!missingRecord);
    QCOMPARE(missingRecord.error().code(), ManagedObjectContext::MissingRecord);
    const auto missing = CoreDataManager::mergeChangesFromRemoteContextSave({}, {view, nullptr});
    QVERIFY(!missing);
    QVERIFY(missing.error().is(u"CoreDataManagerError", CoreDataManagerError::MissingManagedObjectContext));
    QCOMPARE(missing.error().description(), "Missing managed object context");
}

void TestCoreDataManager::schemaRebuilt_data()
{
    QTest::addColumn<QByteArray>("existing");
    QTest::newRow("older layout") << QByteArray("CREATE TABLE Formula (token TEXT, full_name TEXT);"
                                                "INSERT INTO Formula VALUES ('old', 'old');");
    QTest::newRow("newer version") << QByteArray("CREATE TABLE Tap (x);PRAGMA user_version = 99;");
    QTest::newRow("right version, tables missing") << QByteArray("PRAGMA user_version = 1;");
}

// A store of another layout is rebuilt empty rather than misread.
void TestCoreDataManager::schemaRebuilt()
{
    QFETCH(QByteArray, existing);

    QTemporaryDir dir;
    const QString path = dir.filePath("Corvel X.sqlite");
    QVERIFY(writeSqlite(path, existing.constData()));
    CoreDataManager manager(path);
    QVERIFY(manager.loadPersistentStores());
    ManagedObjectContext* context = manager.viewContext();
    for (const QString entity : {"Formula", "Cask", "Tap"}) {
        const auto records = context->fetch(entity, Predicate());
        QVERIFY(records && records.value().isEmpty());
    }
    QVERIFY(insertAll(*context, "Tap", {{{"token", "user/repo"}}}));
    const auto taps = context->fetch("Tap", Predicate());
    QVERIFY(taps && taps.value().size() == 1);
    QCOMPARE(taps.value().constFirst()->value(u"local"), true); // absent counts as local
}

void TestCoreDataManager::unopenableStore_data()
{
    QTest::addColumn<QString>("blocker"); // what stands in the way, under XDG_DATA_HOME
    QTest::newRow("usable") << "";
    QTest::newRow("data folder is a file") << ".";
    QTest::newRow("store is a folder") << "store";
}

void TestCoreDataManager::unopenableStore()
{
    QFETCH(QString, blocker);

    QTemporaryDir dir;
    QString dataHome = dir.filePath("data");
    const QString storePath = dataHome + u'/' + QCoreApplication::applicationName() + "/Corvel X.sqlite";
    if (blocker == ".") {
        QFile file(dataHome);
        QVERIFY(file.open(QIODevice::WriteOnly));
    } else if (blocker == "store") {
        QVERIFY(QDir().mkpath(storePath));
    }
    const Child child = runChild(dataHome);
    if (blocker.isEmpty()) {
        QCOMPARE(child.exitCode, 0);
        QCOMPARE(child.out, storePath);
        QVERIFY(QFile::exists(storePath));
    } else {
        QCOMPARE_NE(child.exitCode, 0);
        QVERIFY2(child.err.contains("Unresolved error "), qPrintable(child.err));
    }
}

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    if (qEnvironmentVariableIsSet(childStoreVariable)) {
        // The failing cases abort on purpose; a core file per case would only litter the disk.
        const rlimit noCore{0, 0};
        setrlimit(RLIMIT_CORE, &noCore);
        CoreDataManager::shared().viewContext();
        QTextStream(stdout) << CoreDataManager::shared().storePath() << Qt::endl;
        return 0;
    }
    TestCoreDataManager test;
    return QTest::qExec(&test, argc, argv);
}

#include "TestCoreDataManager.moc"
