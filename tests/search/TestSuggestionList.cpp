#include "foundation/Defaults.h"
#include "foundation/PreferenceKeys.h"
#include "search/FilterSuggestionViewItems.h"
#include "search/SGKSeparatorSuggestionViewItem.h"
#include "search/SGKSuggestionList.h"
#include "search/SGKSuggestionListDelegate.h"
#include "search/SearchController.h"
#include "search/TextSuggestionViewItems.h"

#include <QAbstractItemModelTester>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

namespace {

QString format(const std::optional<Predicate>& predicate)
{
    return predicate ? predicate->format() : QStringLiteral("<none>");
}

// The filter written out by hand, parsed independently of the items.
QString expectedFormat(const QString& text, const QVariantList& arguments)
{
    if (text.isEmpty()) {
        return QStringLiteral("<none>");
    }
    const Result<Predicate> parsed = Predicate::parse(text, arguments);
    if (!parsed) {
        qFatal("bad test predicate %s", qPrintable(text));
    }
    return parsed.value().format();
}

int rowOfKind(const SGKSuggestionList& list, const QString& kind)
{
    for (int row = 0; row < list.rowCount(); ++row) {
        if (list.itemAt(row)->isKind(kind)) {
            return row;
        }
    }
    return -1;
}

QStringList activeKinds(const SGKSuggestionList& list)
{
    QStringList kinds;
    for (const SGKSuggestionViewItemPtr& item : list.activeSuggestionViewItems()) {
        kinds.append(item->kind());
    }
    return kinds;
}

// Refuses to select or to choose items of one kind, and remembers what it was told.
class RefusingDelegate : public SGKSuggestionListDelegate {
public:
    QString refusedKind;
    QStringList completions;
    QStringList chosen;

    bool shouldSelectSuggestion(const SGKSuggestionViewItemPtr& item) override { return !item->isKind(refusedKind); }
    bool shouldChooseSuggestion(const SGKSuggestionViewItemPtr& item) override { return !item->isKind(refusedKind); }
    void completionChosen(const QString& completion, const SGKSuggestionViewItemPtr&) override
    {
        completions.append(completion);
    }
    void didChooseSuggestion(const SGKSuggestionViewItemPtr& item) override { chosen.append(item->kind()); }
};

// The application's Apps list for a text, from the real controller over preferences in a temporary file.
struct AppsList {
    QTemporaryDir dir;
    Defaults defaults{dir.filePath("settings.ini")};
    SGKSuggestionList list;
    QAbstractItemModelTester tester{&list, QAbstractItemModelTester::FailureReportingMode::QtTest};
    SearchController controller{defaults, &list};

    explicit AppsList(const QString& text)
    {
        defaults.setValue(PreferenceKeys::PersonasSelectedIndex, 0);
        controller.searchTextDidChange(text);
    }

    bool choose(const QString& kind) { return list.chooseRow(rowOfKind(list, kind)); }
};

} // namespace

class TestSuggestionList : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void mixedStateAndFixedLabel();
    void choosingPredicates_data();
    void choosingPredicates();
    void alternates();
    void activeItemsOutliveRebuilds();
    void keyboard_data();
    void keyboard();
    void delegateVetoes();
    void completionAndCommand();
};

void TestSuggestionList::mixedStateAndFixedLabel()
{
    SGKSuggestionViewItem item(QStringLiteral("Key: "));
    item.setState(SGKSuggestionViewItem::State::Mixed);
    QVERIFY(!item.stateImage());

    // The label is worked out once: a later value does not change a row already shown.
    item.setValue(QStringLiteral("fire"));
    QCOMPARE(item.label(), QStringLiteral("Key: fire"));
    QCOMPARE(item.attributedLabel().size(), 2);
    item.setValue(QStringLiteral("fox"));
    QCOMPARE(item.label(), QStringLiteral("Key: fire"));
}

void TestSuggestionList::choosingPredicates_data()
{
    QTest::addColumn<QStringList>("chosen");
    QTest::addColumn<QStringList>("active");
    QTest::addColumn<QString>("expected");
    QTest::addColumn<QVariantList>("arguments");

    const QString search = SearchSuggestionViewItem::staticKind();
    const QString name = NameSuggestionViewItem::staticKind();
    const QString description = DescriptionSuggestionViewItem::staticKind();
    const QString token = TokenSuggestionViewItem::staticKind();
    const QString installed = InstalledSuggestionViewItem::staticKind();
    const QString available = AvailableSuggestionViewItem::staticKind();
    const QString app = AppSuggestionViewItem::staticKind();
    const QString font = FontSuggestionViewItem::staticKind();

    QTest::newRow("nothing chosen") << QStringList{} << QStringList{} << QString() << QVariantList{};
    QTest::newRow("one") << QStringList{name} << QStringList{name} << "name CONTAINS[c] %@" << QVariantList{"fire"};
    QTest::newRow("available replaces installed")
        << QStringList{installed, available} << QStringList{available} << "installed == NO" << QVariantList{};
    QTest::newRow("font replaces app") << QStringList{app, font} << QStringList{font} << "kind.label == %@"
                                       << QVariantList{"Font"};
    QTest::newRow("one text kind at a time") << QStringList{search, name, description, token} << QStringList{token}
                                             << "token CONTAINS[c] %@" << QVariantList{"fire"};
    QTest::newRow("families combine in list order")
        << QStringList{app, installed, name} << QStringList{name, installed, app}
        << "name CONTAINS[c] %@ AND installed == YES AND kind.label == %@" << QVariantList{"fire", "App"};
    QTest::newRow("toggling off drops the term")
        << QStringList{name, installed, name} << QStringList{installed} << "installed == YES" << QVariantList{};
    QTest::newRow("toggling everything off gives none")
        << QStringList{name, installed, installed, name} << QStringList{} << QString() << QVariantList{};
}

void TestSuggestionList::choosingPredicates()
{
    QFETCH(QStringList, chosen);
    QFETCH(QStringList, active);
    QFETCH(QString, expected);
    QFETCH(QVariantList, arguments);

    AppsList apps(QStringLiteral("fire"));
    QSignalSpy reported(&apps.list, &SGKSuggestionList::predicateChanged);
    for (const QString& kind : std::as_const(chosen)) {
        QVERIFY2(apps.choose(kind), qPrintable(kind));
    }

    QCOMPARE(activeKinds(apps.list), active);
    QCOMPARE(format(apps.list.predicate()), expectedFormat(expected, arguments));
    QCOMPARE(reported.size(), chosen.size());
    if (!chosen.isEmpty()) {
        QCOMPARE(format(reported.last().at(0).value<std::optional<Predicate>>()), format(apps.list.predicate()));
    }
    for (int row = 0; row < apps.list.rowCount(); ++row) {
        const SGKSuggestionViewItemPtr item = apps.list.itemAt(row);
        const bool on = active.contains(item->kind());
        QCOMPARE(item->state() == SGKSuggestionViewItem::State::On, on);
        QCOMPARE(apps.list.data(apps.list.index(row), SGKSuggestionList::StateImageNameRole).toString(),
                 on ? QStringLiteral("checkmark") : QString());
    }
}

void TestSuggestionList::alternates()
{
    AppsList apps(QStringLiteral("fire"));
    QVERIFY(apps.choose(NameSuggestionViewItem::staticKind()));
    QVERIFY(apps.choose(InstalledSuggestionViewItem::staticKind()));
    const QString name = NameSuggestionViewItem::staticKind();

    QCOMPARE(apps.list.availableAlternates(name),
             QStringList({SearchSuggestionViewItem::staticKind(), DescriptionSuggestionViewItem::staticKind(),
                          TokenSuggestionViewItem::staticKind()}));
    QVERIFY(apps.list.availableAlternates(InstalledSuggestionViewItem::staticKind()).isEmpty());

    // An empty field shows other rows, yet the token still switches, keeping its text.
    apps.controller.searchTextDidChange(QString());
    QVERIFY(apps.list.switchActiveItem(name, DescriptionSuggestionViewItem::staticKind()));
    QCOMPARE(activeKinds(apps.list),
             QStringList({DescriptionSuggestionViewItem::staticKind(), InstalledSuggestionViewItem::staticKind()}));
    QCOMPARE(format(apps.list.predicate()),
             expectedFormat(QStringLiteral("desc CONTAINS[c] %@ AND installed == YES"), {"fire"}));

    // Only listed alternates, and only of active items.
    QVERIFY(!apps.list.switchActiveItem(DescriptionSuggestionViewItem::staticKind(),
                                        AvailableSuggestionViewItem::staticKind()));
    QVERIFY(!apps.list.switchActiveItem(name, TokenSuggestionViewItem::staticKind()));
    QVERIFY(!apps.list.switchActiveItem(InstalledSuggestionViewItem::staticKind(),
                                        AvailableSuggestionViewItem::staticKind()));
}

void TestSuggestionList::activeItemsOutliveRebuilds()
{
    AppsList apps(QStringLiteral("fire"));
    QVERIFY(apps.choose(NameSuggestionViewItem::staticKind()));
    QVERIFY(apps.choose(FontSuggestionViewItem::staticKind()));

    apps.controller.searchTextDidChange(QStringLiteral("firefox"));
    const int nameRow = rowOfKind(apps.list, NameSuggestionViewItem::staticKind());
    QCOMPARE(apps.list.itemAt(nameRow)->state(), SGKSuggestionViewItem::State::On);
    QCOMPARE(apps.list.data(apps.list.index(nameRow)).toString(), QStringLiteral("Name Contains: firefox"));
    QCOMPARE(apps.list.selectedRow(), -1);
    // The token follows the text typed since it was chosen.
    QCOMPARE(format(apps.list.predicate()),
             expectedFormat(QStringLiteral("name CONTAINS[c] %@ AND kind.label == %@"), {"firefox", "Font"}));

    QVERIFY(apps.list.deactivate(FontSuggestionViewItem::staticKind()));
    QVERIFY(!apps.list.deactivate(FontSuggestionViewItem::staticKind()));
    QCOMPARE(apps.list.activeSuggestionIdentifiers(), QSet<QString>({NameSuggestionViewItem::staticKind()}));
    QVERIFY(apps.list.deactivate(NameSuggestionViewItem::staticKind()));
    QVERIFY(!apps.list.predicate());
}

void TestSuggestionList::keyboard_data()
{
    // The Apps rows: 0-3 text, 4 separator, 5 "State", 6-7, 8 separator, 9 "Kind", 10-11.
    QTest::addColumn<int>("start");
    QTest::addColumn<QString>("moves");
    QTest::addColumn<int>("selected");

    QTest::newRow("down from nothing takes the first row") << -1 << "D" << 0;
    QTest::newRow("up from nothing takes the last row") << -1 << "U" << 11;
    QTest::newRow("up at the first row stays") << 0 << "U" << 0;
    QTest::newRow("down at the last row stays") << 11 << "DDD" << 11;
    QTest::newRow("down over separator and heading") << 3 << "D" << 6;
    QTest::newRow("up over heading and separator") << 10 << "U" << 7;
}

void TestSuggestionList::keyboard()
{
    QFETCH(int, start);
    QFETCH(QString, moves);
    QFETCH(int, selected);

    AppsList apps(QStringLiteral("fire"));
    QCOMPARE(apps.list.rowCount(), 12);
    QVERIFY(apps.list.selectRow(start));
    for (const QChar move : moves) {
        QVERIFY(apps.list.handleCommand(move == u'D' ? SGKSuggestionList::Command::MoveDown
                                                     : SGKSuggestionList::Command::MoveUp));
        QVERIFY(apps.list.selectedItem() == nullptr || apps.list.selectedItem()->isSelectable());
    }
    QCOMPARE(apps.list.selectedRow(), selected);
    QVERIFY(!apps.list.handleCommand(SGKSuggestionList::Command::Other));
    QVERIFY(!apps.list.selectRow(4));
    QVERIFY(!apps.list.selectRow(5));
    QVERIFY(!apps.list.selectRow(12));
    QCOMPARE(apps.list.selectedRow(), selected);
}

void TestSuggestionList::delegateVetoes()
{
    AppsList apps(QStringLiteral("fire"));
    RefusingDelegate delegate;
    delegate.refusedKind = InstalledSuggestionViewItem::staticKind();
    apps.list.setDelegate(&delegate);

    QVERIFY(apps.list.selectRow(3));
    QVERIFY(!apps.list.selectNextSuggestionViewItem());
    QCOMPARE(apps.list.selectedRow(), 3);
    QVERIFY(!apps.choose(InstalledSuggestionViewItem::staticKind()));
    QVERIFY(!apps.list.predicate());
    QVERIFY(delegate.chosen.isEmpty());

    QVERIFY(apps.list.selectRow(7));
    QVERIFY(apps.list.handleCommand(SGKSuggestionList::Command::InsertNewline));
    QCOMPARE(activeKinds(apps.list), QStringList{AvailableSuggestionViewItem::staticKind()});
    QCOMPARE(delegate.chosen, QStringList{AvailableSuggestionViewItem::staticKind()});
    apps.list.setDelegate(nullptr);
}

void TestSuggestionList::completionAndCommand()
{
    SGKSuggestionList list;
    QAbstractItemModelTester tester(&list, QAbstractItemModelTester::FailureReportingMode::QtTest);
    RefusingDelegate delegate;
    list.setDelegate(&delegate);

    auto completion = std::make_shared<SGKSuggestionViewItem>(QStringLiteral("More: "));
    completion->setStrategy(SGKSuggestionViewItem::Strategy::Completion);
    completion->setCompletion(QStringLiteral("fox"));
    int commandRuns = 0;
    auto command = std::make_shared<SGKSuggestionViewItem>(QStringLiteral("Run"));
    command->setStrategy(SGKSuggestionViewItem::Strategy::Command);
    command->setCommand([&commandRuns] { ++commandRuns; });
    list.setSuggestionViewItems({completion, std::make_shared<SGKSeparatorSuggestionViewItem>(), command});

    QVERIFY(!list.chooseRow(1));
    QVERIFY(!list.toggleSelectedSuggestion());
    QVERIFY(list.chooseRow(0));
    QCOMPARE(delegate.completions, QStringList{"fox"});
    QVERIFY(list.chooseRow(2));
    QCOMPARE(commandRuns, 1);
    // Neither kind of choice is a filter.
    QVERIFY(list.activeSuggestionIdentifiers().isEmpty());
    QVERIFY(!list.predicate());
    list.setDelegate(nullptr);
}

QTEST_GUILESS_MAIN(TestSuggestionList)
#include "TestSuggestionList.moc"
