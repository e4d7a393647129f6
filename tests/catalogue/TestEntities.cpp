#include "catalogue/Cask.h"
#include "catalogue/CoreDataManager.h"
#include "catalogue/Formula.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

namespace {

// A store of its own per case; entities only exist inside one.
struct Store {
    QTemporaryDir dir;
    CoreDataManager manager{dir.filePath("Corvel X.sqlite")};

    // The record as read back from the store, so that what is tested has made the round trip.
    template <class T>
    T* stored(const QString& entity, const QVariantHash& values)
    {
        bool done = false;
        const auto inserted = manager.viewContext()->batchInsert(entity, [&](QVariantHash& record) {
            record = values;
            return !std::exchange(done, true);
        });
        if (!inserted || inserted.value().size() != 1) {
            return nullptr;
        }
        const auto object = manager.viewContext()->existingObject(inserted.value().constFirst());
        return object ? qobject_cast<T*>(object.value()) : nullptr;
    }
};

} // namespace

class TestEntities : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void caskKind_data();
    void caskKind();
    void installableInFolder_data();
    void installableInFolder();
    void formulaFlags_data();
    void formulaFlags();
    void hierarchy_data();
    void hierarchy();
    void announcements_data();
    void announcements();
    void upgradableWritesOutdated();
    void pasteboard_data();
    void pasteboard();
};

void TestEntities::caskKind_data()
{
    QTest::addColumn<QVariant>("artifacts"); // invalid: Homebrew gave none
    QTest::addColumn<QString>("label");
    QTest::addColumn<QString>("icon");

    QTest::newRow("absent") << QVariant() << "Unknown"
                            << "Icons/Window/kinds/unknown";
    QTest::newRow("empty") << QVariant(QStringList{}) << "Mixed"
                           << "Icons/Window/kinds/mixed";
    QTest::newRow("app and pkg") << QVariant(QStringList{"app", "pkg"}) << "Mixed"
                                 << "Icons/Window/kinds/mixed";
    QTest::newRow("case matters") << QVariant(QStringList{"App"}) << "Unknown"
                                  << "Icons/Window/kinds/unknown";
    const QList<std::tuple<QString, QString, QString>> singles{
        {"app", "App", "Icons/Window/app"},
        {"suite", "Suite", "Icons/Window/kinds/suite"},
        {"pkg", "Package", "Icons/Window/kinds/package"},
        {"colorpicker", "Color Picker", "Icons/Window/kinds/colorPicker"},
        {"dictionary", "Dictionary", "Icons/Window/kinds/dictionary"},
        {"font", "Font", "Icons/Window/font"},
        {"inputMethod", "Input Method", "Icons/Window/kinds/inputMethod"},
        {"internetPlugin", "Internet Plugin", "Icons/Window/kinds/internetPlugin"},
        {"keyboardLayout", "Keyboard Layout", "Icons/Window/kinds/keyboardLayout"},
        {"prefpane", "Preference Pane", "Icons/Window/kinds/preferencePane"},
        {"qlplugin", "Quicklook Plugin", "Icons/Window/kinds/quicklookPlugin"},
        {"mdimporter", "Spotlight Plugin", "Icons/Window/kinds/spotlightPlugin"},
        {"screenSaver", "Screen Saver", "Icons/Window/kinds/screenSaver"},
        {"service", "Service", QString()},
        {"audioUnitPlugin", "Audio Unit Plugin", "Icons/Window/kinds/audioUnitPlugin"},
        {"vstPlugin", "VST Plugin", "Icons/Window/kinds/VSTPlugin"},
        {"vst3Plugin", "VST3 Plugin", "Icons/Window/kinds/VSTPlugin"},
        {"artifact", "Artifact", "Icons/Window/kinds/artifact"},
    };
    for (const auto& [artifact, label, icon] : singles) {
        QTest::newRow(qPrintable(artifact)) << QVariant(QStringList{artifact}) << label << icon;
    }
}

void TestEntities::caskKind()
{
    QFETCH(QVariant, artifacts);
    QFETCH(QString, label);
    QFETCH(QString, icon);

    Store store;
    Cask* cask = store.stored<Cask>("Cask", {{"token", "c"}, {"artifacts", artifacts}});
    QVERIFY(cask);
    QCOMPARE(cask->kind().label(), label);
    QCOMPARE(cask->kind().iconName(), icon);
    QCOMPARE(cask->kind().iconName().isNull(), icon.isNull());
    QCOMPARE(cask->value(u"kind.label").toString(), label);
    // The store files the cask under the same label.
    const auto filed = store.manager.viewContext()->fetch("Cask", "kind.label == %@", {label});
    QVERIFY(filed);
    QCOMPARE(filed.value(), QList<ManagedObject*>{cask});
}

void TestEntities::installableInFolder_data()
{
    QTest::addColumn<QStringList>("artifacts");
    QTest::addColumn<bool>("installed");
    QTest::addColumn<bool>("busy");
    QTest::addColumn<bool>("installable");
    QTest::addColumn<bool>("inFolder");

    QTest::newRow("app") << QStringList{"app"} << false << false << true << true;
    QTest::newRow("font") << QStringList{"font"} << false << false << true << true;
    QTest::newRow("pkg") << QStringList{"pkg"} << false << false << true << false;
    QTest::newRow("app and font") << QStringList{"app", "font"} << false << false << true << false;
    QTest::newRow("installed app") << QStringList{"app"} << true << false << false << false;
    QTest::newRow("busy app") << QStringList{"app"} << false << true << false << false;
}

void TestEntities::installableInFolder()
{
    QFETCH(QStringList, artifacts);
    QFETCH(bool, installed);
    QFETCH(bool, busy);
    QFETCH(bool, installable);
    QFETCH(bool, inFolder);

    Store store;
    Cask* cask = store.stored<Cask>("Cask", {{"token", "c"}, {"artifacts", artifacts}, {"installed", installed}});
    QVERIFY(cask);
    cask->setBusy(busy);
    QCOMPARE(cask->installable(), installable);
    QCOMPARE(cask->installableInFolder(), inFolder);
    QCOMPARE(cask->value(u"installableInFolder").toBool(), inFolder);
}

void TestEntities::formulaFlags_data()
{
    QTest::addColumn<bool>("installed");
    QTest::addColumn<bool>("outdated");
    QTest::addColumn<bool>("busy");
    QTest::addColumn<QString>("allowed"); // installable, uninstallable, reinstallable, upgradable as 0/1

    QTest::newRow("available") << false << false << false << "1000";
    QTest::newRow("installed") << true << false << false << "0110";
    QTest::newRow("installed outdated") << true << true << false << "0111";
    QTest::newRow("installed outdated busy") << true << true << true << "0000";
}

// While an operation runs on a formula, nothing else may start on it, whatever its flags say.
void TestEntities::formulaFlags()
{
    QFETCH(bool, installed);
    QFETCH(bool, outdated);
    QFETCH(bool, busy);
    QFETCH(QString, allowed);

    Store store;
    Formula* formula =
        store.stored<Formula>("Formula", {{"token", "f"}, {"installed", installed}, {"outdated", outdated}});
    QVERIFY(formula);
    formula->setBusy(busy);
    QString actual;
    for (const char16_t* key : {u"installable", u"uninstallable", u"reinstallable", u"upgradable"}) {
        actual += formula->value(key).toBool() ? u'1' : u'0';
    }
    QCOMPARE(actual, allowed);
}

void TestEntities::hierarchy_data()
{
    QTest::addColumn<bool>("installed");
    QTest::addColumn<bool>("isLeaf");
    QTest::addColumn<QString>("label");
    QTest::addColumn<QString>("icon");

    QTest::newRow("leaf") << true << true << "Source"
                          << "Icons/Window/source";
    QTest::newRow("dependency") << true << false << "Dependency"
                                << "Icons/Window/dependency";
    QTest::newRow("not installed") << false << false << QString() << QString();
}

void TestEntities::hierarchy()
{
    QFETCH(bool, installed);
    QFETCH(bool, isLeaf);
    QFETCH(QString, label);
    QFETCH(QString, icon);

    Store store;
    Formula* formula = store.stored<Formula>("Formula", {{"token", "f"}, {"installed", installed}, {"isLeaf", isLeaf}});
    QVERIFY(formula);
    QCOMPARE(formula->hierarchy().label, label);
    QCOMPARE(formula->hierarchy().label.isNull(), label.isNull());
    QCOMPARE(formula->hierarchy().iconName, icon);
    QCOMPARE(formula->hierarchy().isEmpty(), label.isNull());
    QCOMPARE(formula->value(u"hierarchy.label").isValid(), !label.isNull());
    // A script is a script, but the kind filter of apps never matches it.
    QCOMPARE(Formula::kind(), (LabelWithIcon{"Script", "Icons/Window/script"}));
    QVERIFY(!formula->value(u"kind.label").isValid());
}

void TestEntities::announcements_data()
{
    QTest::addColumn<QString>("entity");
    QTest::addColumn<QString>("key");
    QTest::addColumn<QStringList>("announced");

    QTest::newRow("formula installed") << "Formula"
                                       << "installed"
                                       << QStringList{"installed", "installable", "uninstallable", "reinstallable"};
    QTest::newRow("formula busy") << "Formula"
                                  << "isBusy"
                                  << QStringList{"isBusy", "installable", "uninstallable", "reinstallable",
                                                 "upgradable"};
    QTest::newRow("cask outdated") << "Cask"
                                   << "outdated" << QStringList{"outdated", "upgradable"};
    QTest::newRow("cask installed") << "Cask"
                                    << "installed"
                                    << QStringList{"installed", "installable", "uninstallable", "reinstallable",
                                                   "installableInFolder"};
    QTest::newRow("tap busy") << "Tap"
                              << "isBusy" << QStringList{"isBusy", "uninstallable"};
    QTest::newRow("formula desc") << "Formula"
                                  << "desc" << QStringList{"desc"};
}

// Views bound to a derived key must hear when what it is derived from changes.
void TestEntities::announcements()
{
    QFETCH(QString, entity);
    QFETCH(QString, key);
    QFETCH(QStringList, announced);

    Store store;
    ManagedObject* object = store.stored<ManagedObject>(entity, {{"token", "t"}});
    QVERIFY(object);
    QSignalSpy spy(object, &ManagedObject::valueChanged);
    QVERIFY(object->setValue(key, true));
    QStringList keys;
    for (const QList<QVariant>& emission : std::as_const(spy)) {
        keys.append(emission.constFirst().toString());
    }
    QCOMPARE(keys, announced);
    spy.clear();
    QVERIFY(object->setValue(key, true)); // no change, no announcement
    QCOMPARE(spy.size(), 0);
}

void TestEntities::upgradableWritesOutdated()
{
    Store store;
    Cask* cask = store.stored<Cask>("Cask", {{"token", "c"}, {"installed", true}, {"outdated", true}});
    QVERIFY(cask);
    QVERIFY(cask->setValue(u"upgradable", false));
    QVERIFY(!cask->outdated());
    QVERIFY(store.manager.viewContext()->save());

    auto other = store.manager.newBackgroundContext();
    QVERIFY(other);
    const auto outdated = other.value()->fetch("Cask", "outdated == YES", {});
    QVERIFY(outdated);
    QVERIFY(outdated.value().isEmpty());
    // Reading back through another context keeps the other attributes.
    const auto installed = other.value()->fetch("Cask", "installed == YES", {});
    QVERIFY(installed && installed.value().size() == 1);
}

void TestEntities::pasteboard_data()
{
    QTest::addColumn<QString>("entity");
    QTest::addColumn<QString>("type");
    QTest::addColumn<QVariant>("expected");

    QTest::newRow("formula text") << "Formula"
                                  << "text/plain" << QVariant("wget");
    QTest::newRow("cask text") << "Cask"
                               << "text/plain" << QVariant("wget");
    QTest::newRow("cask url") << "Cask"
                              << "text/uri-list" << QVariant();
}

void TestEntities::pasteboard()
{
    QFETCH(QString, entity);
    QFETCH(QString, type);
    QFETCH(QVariant, expected);

    Store store;
    ManagedObject* object =
        store.stored<ManagedObject>(entity, {{"token", "wget"}, {"name", "GNU Wget"}, {"website", "https://x.test"}});
    QVERIFY(object);
    const QVariant copied = entity == "Cask" ? qobject_cast<Cask*>(object)->pasteboardPropertyList(type)
                                             : qobject_cast<Formula*>(object)->pasteboardPropertyList(type);
    QCOMPARE(copied, expected);
}

QTEST_GUILESS_MAIN(TestEntities)

#include "TestEntities.moc"
