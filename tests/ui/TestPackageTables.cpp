#include "catalogue/Cask.h"
#include "catalogue/CoreDataManager.h"
#include "catalogue/Formula.h"
#include "catalogue/HomebrewCask.h"
#include "catalogue/HomebrewFormula.h"
#include "foundation/Defaults.h"
#include "foundation/PreferenceKeys.h"
#include "foundation/RailsJSONDecoder.h"
#include "homebrew/HomebrewInstallation.h"
#include "search/SearchPredicates.h"
#include "ui/AppsTableViewController.h"
#include "ui/PackageStatusDelegate.h"
#include "ui/PackageTableModel.h"
#include "ui/ScriptsTableViewController.h"
#include "ui/TableAppearance.h"
#include "ui/TableHeaderMenu.h"
#include "ui/TableRowDelegate.h"

#include <QAbstractItemModelTester>
#include <QAction>
#include <QClipboard>
#include <QCollator>
#include <QDesktopServices>
#include <QHeaderView>
#include <QMenu>
#include <QSignalSpy>
#include <QTableView>
#include <QTemporaryDir>
#include <QTest>
#include <memory>

using namespace Qt::StringLiterals;
using Persona = PackageOperation::Persona;
using Kind = PackageOperation::Kind;
using Column = PackageTableModel::Column;
using MenuAction = PackageTableViewController::MenuAction;

Q_DECLARE_METATYPE(Persona)
Q_DECLARE_METATYPE(Column)
Q_DECLARE_METATYPE(MenuAction)
Q_DECLARE_METATYPE(TableAppearance::ColumnSizing)

namespace {

// The real sample records; every third one installed, every ninth outdated, every sixth script a leaf.
bool installedAt(std::size_t i)
{
    return i % 3 == 0;
}
bool outdatedAt(std::size_t i)
{
    return i % 9 == 0;
}

QVariant optional(const std::optional<QString>& text)
{
    return text ? QVariant(*text) : QVariant();
}

struct World {
    QTemporaryDir folder;
    CoreDataManager store{folder.filePath(u"Corvel X.sqlite"_s)};
    Defaults defaults{folder.filePath(u"settings.ini"_s)};
    std::vector<Homebrew::Cask> casks;
    std::vector<Homebrew::Formula> formulae;

    auto insertRows(const QString& entity, const QList<QVariantHash>& rows)
    {
        qsizetype next = 0;
        return store.backgroundContext()->batchInsert(entity, [&](QVariantHash& values) {
            if (next == rows.size()) {
                return false;
            }
            values = rows.at(next++);
            return true;
        });
    }

    bool fill()
    {
        const RailsJSONDecoder decoder;
        const auto caskJson = RailsJSONDecoder::readFile(CORVEL_TEST_DATA_DIR "/catalogue/cask-sample.json"_L1);
        const auto formulaJson = RailsJSONDecoder::readFile(CORVEL_TEST_DATA_DIR "/catalogue/formula-sample.json"_L1);
        if (!caskJson || !formulaJson) {
            return false;
        }
        auto decodedCasks = decoder.decode<std::vector<Homebrew::Cask>>(caskJson.value());
        auto decodedFormulae = decoder.decode<std::vector<Homebrew::Formula>>(formulaJson.value());
        if (!decodedCasks || !decodedFormulae) {
            return false;
        }
        casks = decodedCasks.value();
        formulae = decodedFormulae.value();
        QList<QVariantHash> caskRows;
        for (std::size_t i = 0; i < casks.size(); ++i) {
            const Homebrew::Cask& cask = casks[i];
            QVariantHash values{{u"token"_s, cask.token},
                                {u"name"_s, cask.displayName()},
                                {u"tap"_s, optional(cask.tap)},
                                {u"desc"_s, optional(cask.desc)},
                                {u"website"_s, cask.website ? QVariant(cask.website->toString()) : QVariant()},
                                {u"version"_s, optional(cask.version)},
                                {u"installed"_s, installedAt(i)},
                                {u"outdated"_s, outdatedAt(i)}};
            if (const auto artifacts = cask.artifactTypes()) {
                values.insert(u"artifacts"_s, *artifacts);
            }
            caskRows.append(values);
        }
        QList<QVariantHash> formulaRows;
        for (std::size_t i = 0; i < formulae.size(); ++i) {
            const Homebrew::Formula& formula = formulae[i];
            formulaRows.append({{u"token"_s, formula.token},
                                {u"name"_s, formula.name},
                                {u"tap"_s, optional(formula.tap)},
                                {u"desc"_s, optional(formula.desc)},
                                {u"website"_s, formula.website ? QVariant(formula.website->toString()) : QVariant()},
                                {u"license"_s, formula.license ? QVariant(*formula.license) : QVariant()},
                                {u"installed"_s, installedAt(i)},
                                {u"outdated"_s, outdatedAt(i)},
                                {u"isLeaf"_s, i % 6 == 0}});
        }
        const auto insertedCasks = insertRows(u"Cask"_s, caskRows);
        return insertedCasks && insertedCasks.value().size() == caskRows.size() &&
               insertRows(u"Formula"_s, formulaRows);
    }

    // The tokens of the records that the rule selects, as the JSON has them.
    QSet<QString> tokens(Persona persona, const std::function<bool(std::size_t)>& rule) const
    {
        QSet<QString> result;
        const std::size_t count = persona == Persona::apps ? casks.size() : formulae.size();
        for (std::size_t i = 0; i < count; ++i) {
            if (rule(i)) {
                result.insert(persona == Persona::apps ? casks[i].token : formulae[i].token);
            }
        }
        return result;
    }

    std::unique_ptr<PackageTableViewController> table(Persona persona)
    {
        if (persona == Persona::apps) {
            return std::make_unique<AppsTableViewController>(store.viewContext(), defaults);
        }
        return std::make_unique<ScriptsTableViewController>(store.viewContext(), defaults);
    }

    // A background write reaching the view context, as synchronisation and operations deliver theirs.
    bool merge(const QString& entity, const QString& request, const QVariantList& items,
               const QVariantHash& values = {})
    {
        ManagedObjectContext* background = store.backgroundContext();
        ChangeSet changes;
        if (request == u"insert") {
            QList<QVariantHash> rows;
            for (const QVariant& item : items) {
                rows.append(item.toHash());
            }
            const auto ids = insertRows(entity, rows);
            if (!ids) {
                return false;
            }
            changes.inserted = ids.value();
        } else {
            const auto predicate = Predicate::parse(u"token in %@"_s, QVariantList{QVariant(items)});
            const auto ids = request == u"delete" ? background->batchDelete(entity, predicate.value())
                                                  : background->batchUpdate(entity, predicate.value(), values);
            if (!ids) {
                return false;
            }
            (request == u"delete" ? changes.deleted : changes.updated) = ids.value();
        }
        return bool(CoreDataManager::mergeChangesFromRemoteContextSave(changes, {store.viewContext()}));
    }
};

QString entityOf(Persona persona)
{
    return persona == Persona::apps ? u"Cask"_s : u"Formula"_s;
}

QStringList shownTokens(const PackageTableViewController& table)
{
    const PackageTableModel* model = table.model();
    QStringList tokens;
    for (int row = 0; row < model->rowCount(); ++row) {
        tokens.append(model->index(row, model->columnOf(Column::token)).data().toString());
    }
    return tokens;
}

QStringList tokensOf(const QList<Package*>& records)
{
    QStringList tokens;
    for (const Package* record : records) {
        tokens.append(record->token());
    }
    return tokens;
}

int rowOfToken(const PackageTableViewController& table, const QString& token)
{
    return int(shownTokens(table).indexOf(token));
}

void selectTokens(PackageTableViewController& table, const QStringList& tokens)
{
    QItemSelectionModel* selection = table.tableView()->selectionModel();
    selection->clearSelection();
    for (const QString& token : tokens) {
        const int row = rowOfToken(table, token);
        QVERIFY2(row >= 0, qPrintable(token));
        selection->select(table.model()->index(row, 0), QItemSelectionModel::Select | QItemSelectionModel::Rows);
    }
}

QStringList sorted(QStringList tokens)
{
    tokens.sort();
    return tokens;
}

bool exposed(PackageTableViewController& table, QSize size)
{
    table.resize(size);
    table.show();
    return QTest::qWaitForWindowExposed(&table);
}

void showAll(PackageTableViewController& table)
{
    table.filter(Predicate::truePredicate());
}

} // namespace

class TestPackageTables : public QObject {
    Q_OBJECT

public Q_SLOTS:
    // URL handler for QDesktopServices: records instead of launching a browser or file manager.
    void openUrl(const QUrl& url) { m_openedUrls.append(url); }

private Q_SLOTS:
    void init();
    void cleanup();
    void modelStaysConsistent_data();
    void modelStaysConsistent();
    void defaultViewAndSearch_data();
    void defaultViewAndSearch();
    void upgradesAbove_data();
    void upgradesAbove();
    void columnSizing_data();
    void columnSizing();
    void tableStyle_data();
    void tableStyle();
    void headerMenu_data();
    void headerMenu();
    void contextMenu_data();
    void contextMenu();
    void menuCommands_data();
    void menuCommands();
    void inlineButton_data();
    void inlineButton();
    void selectionSurvivesMerge_data();
    void selectionSurvivesMerge();
    void installedCount_data();
    void installedCount();

private:
    QList<QUrl> m_openedUrls;
};

void TestPackageTables::init()
{
    m_openedUrls.clear();
    QDesktopServices::setUrlHandler(u"https"_s, this, "openUrl");
    QDesktopServices::setUrlHandler(u"http"_s, this, "openUrl");
    QDesktopServices::setUrlHandler(u"file"_s, this, "openUrl");
}

void TestPackageTables::cleanup()
{
    for (const QString& scheme : {u"https"_s, u"http"_s, u"file"_s}) {
        QDesktopServices::unsetUrlHandler(scheme);
    }
}

void TestPackageTables::modelStaysConsistent_data()
{
    QTest::addColumn<Persona>("persona");
    QTest::newRow("apps") << Persona::apps;
    QTest::newRow("scripts") << Persona::scripts;
}

// Every change a table lives through, with the model checked after each signal it sends.
void TestPackageTables::modelStaysConsistent()
{
    QFETCH(Persona, persona);
    World world;
    std::unique_ptr<PackageTableViewController> table = world.table(persona); // empty store first
    QAbstractItemModelTester tester(table->model(), QAbstractItemModelTester::FailureReportingMode::QtTest);
    QCOMPARE(table->model()->rowCount(), 0);
    QVERIFY(world.fill());
    QVERIFY(table->arrayController().fetch());
    const int installed = int(world.tokens(persona, installedAt).size());
    QCOMPARE(table->model()->rowCount(), installed);

    table->filter(SearchPredicates::search(u"co"_s));
    QVERIFY(table->model()->rowCount() > 0);
    for (int section = 0; section < table->model()->columnCount(); ++section) {
        table->tableView()->horizontalHeader()->setSortIndicator(section, Qt::DescendingOrder);
        QVERIFY(!QTest::currentTestFailed());
    }
    world.defaults.setValue(PreferenceKeys::TableShowUpgradesAbove, true);
    table->show();
    const QStringList shown = shownTokens(*table);
    QVERIFY(world.merge(entityOf(persona), u"delete"_s, {shown.first()}));
    QVERIFY(!shownTokens(*table).contains(shown.first()));
    QVERIFY(world.merge(entityOf(persona), u"insert"_s,
                        {QVariantHash{{u"token"_s, u"zz-co"_s}, {u"name"_s, u"ZZ Co"_s}, {u"installed"_s, true}}}));
    QVERIFY(shownTokens(*table).contains(u"zz-co"_s));
    Package* record = table->model()->recordAt(0);
    QSignalSpy changed(table->model(), &QAbstractItemModel::dataChanged);
    record->setBusy(true);
    QVERIFY(changed.size() >= 1);
    QCOMPARE(table->model()->index(0, 0).data(PackageTableModel::StatusRole).toInt(),
             int(PackageTableModel::Status::busy));
    table->filter(std::nullopt);
    const int deleted = world.tokens(persona, installedAt).contains(shown.first()) ? 1 : 0;
    QCOMPARE(table->model()->rowCount(), installed + 1 - deleted); // zz-co joined
}

void TestPackageTables::defaultViewAndSearch_data()
{
    QTest::addColumn<Persona>("persona");
    QTest::addColumn<QString>("text");
    QTest::newRow("apps") << Persona::apps << u"font"_s;
    QTest::newRow("scripts") << Persona::scripts << u"lib"_s;
}

void TestPackageTables::defaultViewAndSearch()
{
    QFETCH(Persona, persona);
    QFETCH(QString, text);
    World world;
    QVERIFY(world.fill());
    std::unique_ptr<PackageTableViewController> table = world.table(persona);

    const QStringList installed = shownTokens(*table);
    QCOMPARE(QSet<QString>(installed.cbegin(), installed.cend()), world.tokens(persona, installedAt));
    // By name, ignoring case.
    QCollator collator;
    collator.setCaseSensitivity(Qt::CaseInsensitive);
    for (int row = 1; row < table->model()->rowCount(); ++row) {
        const QString before = table->model()->recordAt(row - 1)->name();
        const QString after = table->model()->recordAt(row)->name();
        QVERIFY2(collator.compare(before, after) <= 0, qPrintable(before + u" > "_s + after));
    }

    // A search reaches beyond the installed records, narrowed to what matches.
    table->filter(SearchPredicates::search(text));
    const QStringList found = shownTokens(*table);
    QVERIFY(!found.isEmpty());
    QVERIFY(found.size() < int(persona == Persona::apps ? world.casks.size() : world.formulae.size()));
    QVERIFY(!QSet<QString>(found.cbegin(), found.cend()).contains(world.tokens(persona, installedAt)));
    for (int row = 0; row < table->model()->rowCount(); ++row) {
        const Package* record = table->model()->recordAt(row);
        const QString haystack =
            record->name() + u' ' + record->token() + u' ' + record->value(u"desc").toString() + u' ' +
            table->model()->index(row, 0).siblingAtColumn(table->model()->columnOf(Column::kind)).data().toString();
        QVERIFY2(haystack.contains(text, Qt::CaseInsensitive), qPrintable(record->token()));
    }

    table->filter(std::nullopt);
    QCOMPARE(shownTokens(*table), installed);
}

void TestPackageTables::upgradesAbove_data()
{
    QTest::addColumn<Persona>("persona");
    QTest::addColumn<Column>("column");
    QTest::addColumn<Qt::SortOrder>("order");
    QTest::addColumn<bool>("upgradesAbove");
    QTest::newRow("apps by token, descending, upgrades above")
        << Persona::apps << Column::token << Qt::DescendingOrder << true;
    QTest::newRow("apps by token, ascending, plain") << Persona::apps << Column::token << Qt::AscendingOrder << false;
    QTest::newRow("scripts by name descending, plain")
        << Persona::scripts << Column::name << Qt::DescendingOrder << false;
}

void TestPackageTables::upgradesAbove()
{
    QFETCH(Persona, persona);
    QFETCH(Column, column);
    QFETCH(Qt::SortOrder, order);
    QFETCH(bool, upgradesAbove);
    World world;
    QVERIFY(world.fill());
    std::unique_ptr<PackageTableViewController> table = world.table(persona);
    table->show();
    world.defaults.setValue(PreferenceKeys::TableShowUpgradesAbove, upgradesAbove);
    table->tableView()->horizontalHeader()->setSortIndicator(table->model()->columnOf(column), order);

    const QSet<QString> outdated = world.tokens(persona, outdatedAt);
    const QStringList shown = shownTokens(*table);
    QStringList upgradable;
    QStringList others;
    for (const QString& token : shown) {
        (outdated.contains(token) ? upgradable : others).append(token);
    }
    QVERIFY(!upgradable.isEmpty() && !others.isEmpty());
    QCOMPARE(shown == upgradable + others, upgradesAbove);
    // Within each group (or the whole table) the user's column orders the rows.
    QCollator collator;
    collator.setCaseSensitivity(Qt::CaseInsensitive);
    const auto ordered = [&](const QStringList& tokens) {
        QStringList values;
        for (const QString& token : tokens) {
            values.append(
                table->model()->index(rowOfToken(*table, token), table->model()->columnOf(column)).data().toString());
        }
        for (qsizetype i = 1; i < values.size(); ++i) {
            const int comparison = collator.compare(values.at(i - 1), values.at(i));
            if (order == Qt::AscendingOrder ? comparison > 0 : comparison < 0) {
                return false;
            }
        }
        return true;
    };
    if (upgradesAbove) {
        QVERIFY(ordered(upgradable));
        QVERIFY(ordered(others));
    } else {
        QVERIFY(ordered(shown));
    }

    // Hidden, the table stops following the preference; shown again, it catches up.
    table->hide();
    world.defaults.setValue(PreferenceKeys::TableShowUpgradesAbove, !upgradesAbove);
    QCOMPARE(shownTokens(*table), shown);
    table->show();
    QCOMPARE(shownTokens(*table) == upgradable + others, !upgradesAbove);
}

void TestPackageTables::columnSizing_data()
{
    QTest::addColumn<int>("stored");
    QTest::addColumn<TableAppearance::ColumnSizing>("sizing");
    QTest::addColumn<QString>("stretched"); // "all", "first", "last" or "none"
    using S = TableAppearance::ColumnSizing;
    QTest::newRow("0 none") << 0 << S::none << u"none"_s;
    QTest::newRow("1 uniform") << 1 << S::uniform << u"all"_s;
    QTest::newRow("2 has no sizing") << 2 << S::none << u"none"_s;
    QTest::newRow("3 sequential") << 3 << S::sequential << u"last"_s;
    QTest::newRow("4 reverse sequential") << 4 << S::reverseSequential << u"first"_s;
    QTest::newRow("6 first column only") << 6 << S::firstColumnOnly << u"first"_s;
    QTest::newRow("7 last column only") << 7 << S::lastColumnOnly << u"last"_s;
    QTest::newRow("8 unknown") << 8 << S::none << u"none"_s;
    QTest::newRow("-1 unknown") << -1 << S::none << u"none"_s;
}

void TestPackageTables::columnSizing()
{
    QFETCH(int, stored);
    QFETCH(TableAppearance::ColumnSizing, sizing);
    QFETCH(QString, stretched);
    QCOMPARE(TableAppearance::columnSizing(stored), sizing);

    World world;
    std::unique_ptr<PackageTableViewController> table = world.table(Persona::apps);
    // Start from the opposite extreme, so that every mode must be undone, and change the key while on screen.
    world.defaults.setValue(PreferenceKeys::TableColumnSizing, stored == 1 ? 6 : 1);
    table->show();
    world.defaults.setValue(PreferenceKeys::TableColumnSizing, stored);
    const QHeaderView* header = table->tableView()->horizontalHeader();
    const int icon = table->model()->columnOf(Column::icon);
    QCOMPARE(header->sectionResizeMode(icon), QHeaderView::Fixed); // never the "first" column
    const int first = table->model()->columnOf(Column::name);
    for (int section = 0; section < header->count(); ++section) {
        if (section == icon) {
            continue;
        }
        const bool stretches = stretched == u"all" || (stretched == u"first" && section == first);
        QCOMPARE(header->sectionResizeMode(section), stretches ? QHeaderView::Stretch : QHeaderView::Interactive);
    }
    QCOMPARE(header->stretchLastSection(), stretched == u"last");
}

void TestPackageTables::tableStyle_data()
{
    QTest::addColumn<int>("stored");
    QTest::addColumn<bool>("alternating");
    QTest::addColumn<bool>("grid");
    QTest::addColumn<int>("rowLine"); // Qt::PenStyle
    QTest::newRow("0") << 0 << true << false << int(Qt::NoPen);
    QTest::newRow("1 falls back") << 1 << true << false << int(Qt::NoPen);
    QTest::newRow("2 horizontal solid") << 2 << false << false << int(Qt::SolidLine);
    QTest::newRow("3 horizontal dashed") << 3 << false << false << int(Qt::DashLine);
    QTest::newRow("4 both solid") << 4 << false << true << int(Qt::NoPen);
    QTest::newRow("6 plain") << 6 << false << false << int(Qt::NoPen);
    QTest::newRow("99 falls back") << 99 << true << false << int(Qt::NoPen);
}

void TestPackageTables::tableStyle()
{
    QFETCH(int, stored);
    QFETCH(bool, alternating);
    QFETCH(bool, grid);
    QFETCH(int, rowLine);

    World world;
    QVERIFY(world.fill());
    std::unique_ptr<PackageTableViewController> table = world.table(Persona::scripts);
    table->resize(700, 300);
    world.defaults.setValue(PreferenceKeys::TableStyle, stored == 0 ? 4 : 0);
    table->show();
    QVERIFY(QTest::qWaitForWindowExposed(table.get()));
    world.defaults.setValue(PreferenceKeys::TableStyle, stored);

    QTableView* view = table->tableView();
    QCOMPARE(view->alternatingRowColors(), alternating);
    QCOMPARE(view->showGrid(), grid);
    for (int column = 0; column < table->model()->columnCount(); ++column) {
        auto* delegate = qobject_cast<TableRowDelegate*>(view->itemDelegateForIndex(table->model()->index(0, column)));
        QVERIFY(delegate);
        QCOMPARE(int(delegate->lineStyle()), rowLine);
    }
    // The horizontal lines really reach the screen: the boundary under the first row differs from a plain table.
    if (rowLine != Qt::NoPen) {
        world.defaults.setValue(PreferenceKeys::TableStyle, 6);
        const QImage plain = view->viewport()->grab().toImage();
        world.defaults.setValue(PreferenceKeys::TableStyle, stored);
        const QImage lined = view->viewport()->grab().toImage();
        const int y = int((view->rowViewportPosition(0) + view->rowHeight(0) - 1) * lined.devicePixelRatio());
        int differing = 0;
        for (int x = 0; x < lined.width(); ++x) {
            differing += lined.pixel(x, y) != plain.pixel(x, y) ? 1 : 0;
        }
        QVERIFY2(differing > lined.width() / 4, qPrintable(QString::number(differing)));
    }
}

void TestPackageTables::headerMenu_data()
{
    QTest::addColumn<Persona>("persona");
    QTest::addColumn<QString>("identifier");
    QTest::addColumn<Column>("hidden");
    QTest::newRow("apps") << Persona::apps << u"Apps Table Header"_s << Column::kind;
    QTest::newRow("scripts") << Persona::scripts << u"Scripts Table Header"_s << Column::license;
}

void TestPackageTables::headerMenu()
{
    QFETCH(Persona, persona);
    QFETCH(QString, identifier);
    QFETCH(Column, hidden);
    World world;
    int hiddenSection = -1;
    {
        std::unique_ptr<PackageTableViewController> table = world.table(persona);
        TableHeaderMenu* menu = table->headerMenu();
        QCOMPARE(menu->title(), u"Column Selection"_s);
        QCOMPARE(menu->identifier(), identifier);
        QCOMPARE(menu->columnActions().size(), table->model()->columnCount());
        const int name = table->model()->columnOf(Column::name);
        QAction* nameAction = menu->columnActions().at(name);
        QCOMPARE(nameAction->text(), u"Name"_s);
        QVERIFY(nameAction->isChecked());
        QVERIFY(!nameAction->isEnabled());
        nameAction->setChecked(false); // even forced, the column stays
        QVERIFY(!table->tableView()->horizontalHeader()->isSectionHidden(name));

        hiddenSection = table->model()->columnOf(hidden);
        QAction* action = menu->columnActions().at(hiddenSection);
        QVERIFY(action->isEnabled());
        action->setChecked(false);
        QVERIFY(table->tableView()->horizontalHeader()->isSectionHidden(hiddenSection));
        table->tableView()->horizontalHeader()->resizeSection(name, 333);
    }
    QVERIFY(!world.defaults.value(identifier + u" State"_s).toByteArray().isEmpty());

    // A new table with the same preferences comes back as it was left.
    std::unique_ptr<PackageTableViewController> table = world.table(persona);
    const QHeaderView* header = table->tableView()->horizontalHeader();
    QVERIFY(header->isSectionHidden(hiddenSection));
    QCOMPARE(header->sectionSize(table->model()->columnOf(Column::name)), 333);
    table->headerMenu()->refreshActions();
    QVERIFY(!table->headerMenu()->columnActions().at(hiddenSection)->isChecked());

    // A saved state that hides the name column does not hide it.
    QHeaderView scratch(Qt::Horizontal);
    scratch.setModel(table->model());
    scratch.hideSection(table->model()->columnOf(Column::name));
    world.defaults.setValue(TableHeaderMenu::stateKey(identifier), scratch.saveState());
    std::unique_ptr<PackageTableViewController> again = world.table(persona);
    QVERIFY(!again->tableView()->horizontalHeader()->isSectionHidden(again->model()->columnOf(Column::name)));
}

void TestPackageTables::contextMenu_data()
{
    QTest::addColumn<Persona>("persona");
    QTest::addColumn<QStringList>("selected");
    QTest::addColumn<QString>("clicked"); // empty: opened from the keyboard
    QTest::addColumn<QStringList>("designated");
    QTest::addColumn<QStringList>("enabled");
    QTest::addColumn<QStringList>("absent");

    // Menu entries by the first part of their object names, in menu order.
    const auto actions = [](const QString& names) {
        QStringList list = names.split(u' ', Qt::SkipEmptyParts);
        for (QString& name : list) {
            name += u"Action"_s;
        }
        return list;
    };
    const auto tokens = [](const QString& names) { return names.split(u' ', Qt::SkipEmptyParts); };
    // 0-ad: installed, outdated app. 1clipboard: installed app. 010-editor: available app. corretto: available pkg.
    // awscli: installed, outdated script.
    const QStringList appOnly = actions(u"installInFolder move showInFileManager"_s);
    QTest::newRow("outdated app clicked outside the selection")
        << Persona::apps << tokens(u"1clipboard"_s) << u"0-ad"_s << tokens(u"0-ad"_s)
        << actions(u"uninstall upgrade reinstall move copy goToWebsite"_s) << QStringList{};
    QTest::newRow("available app clicked")
        << Persona::apps << QStringList{} << u"010-editor"_s << tokens(u"010-editor"_s)
        << actions(u"install installInFolder copy goToWebsite"_s) << QStringList{};
    QTest::newRow("package kind cannot go into a folder")
        << Persona::apps << QStringList{} << u"corretto"_s << tokens(u"corretto"_s)
        << actions(u"install copy goToWebsite"_s) << QStringList{};
    QTest::newRow("clicked inside the selection: all of it")
        << Persona::apps << tokens(u"0-ad 010-editor"_s) << u"010-editor"_s << tokens(u"0-ad 010-editor"_s)
        << actions(u"install uninstall upgrade reinstall copy goToWebsite"_s) << QStringList{};
    QTest::newRow("keyboard: the selection")
        << Persona::apps << tokens(u"1clipboard"_s) << QString() << tokens(u"1clipboard"_s)
        << actions(u"uninstall reinstall move copy goToWebsite"_s) << QStringList{};
    QTest::newRow("nothing designated") << Persona::apps << QStringList{} << QString() << QStringList{} << QStringList{}
                                        << QStringList{};
    QTest::newRow("scripts: outdated") << Persona::scripts << QStringList{} << u"awscli"_s << tokens(u"awscli"_s)
                                       << actions(u"uninstall upgrade reinstall copy goToWebsite"_s) << appOnly;
}

void TestPackageTables::contextMenu()
{
    QFETCH(Persona, persona);
    QFETCH(QStringList, selected);
    QFETCH(QString, clicked);
    QFETCH(QStringList, designated);
    QFETCH(QStringList, enabled);
    QFETCH(QStringList, absent);
    World world;
    QVERIFY(world.fill());
    std::unique_ptr<PackageTableViewController> table = world.table(persona);
    QVERIFY(exposed(*table, {900, 500}));
    showAll(*table);
    selectTokens(*table, selected);
    QCOMPARE(sorted(tokensOf(table->designatedRecords())), sorted(selected));

    // A real right click on the row (or the menu key), through the table's own event handling.
    QWidget* target = table->tableView();
    QPoint position = target->rect().center();
    QContextMenuEvent::Reason reason = QContextMenuEvent::Keyboard;
    if (!clicked.isEmpty()) {
        const int row = rowOfToken(*table, clicked);
        table->tableView()->scrollTo(table->model()->index(row, 0));
        target = table->tableView()->viewport();
        position = table->tableView()->visualRect(table->model()->index(row, 1)).center();
        reason = QContextMenuEvent::Mouse;
    }
    QContextMenuEvent event(reason, position, target->mapToGlobal(position));
    QCoreApplication::sendEvent(target, &event);
    QMenu* menu = table->contextMenu();
    QTRY_VERIFY(menu->isVisible());
    QCOMPARE(sorted(tokensOf(table->designatedRecords())), sorted(designated));

    QStringList actual;
    QStringList present;
    for (QAction* action : menu->actions()) {
        if (!action->isSeparator()) {
            present.append(action->objectName());
            if (action->isEnabled()) {
                actual.append(action->objectName());
            }
        }
    }
    QCOMPARE(actual, enabled);
    for (const QString& name : absent) {
        QVERIFY2(!present.contains(name), qPrintable(name));
    }

    // An operation hands over the designated records that offer it, and only those.
    QSignalSpy requested(table.get(), &PackageTableViewController::operationRequested);
    if (QAction* uninstall = table->menuAction(MenuAction::uninstall); uninstall->isEnabled()) {
        menu->hide();
        uninstall->trigger();
        QCOMPARE(requested.size(), 1);
        QCOMPARE(requested.first().at(0).value<Kind>(), Kind::uninstall);
        const auto records = requested.first().at(1).value<QList<Package*>>();
        QVERIFY(!records.isEmpty());
        for (const Package* record : records) {
            QVERIFY(designated.contains(record->token()));
            QVERIFY(record->uninstallable());
        }
    }
    menu->hide();
    QTRY_VERIFY(table->designatedRecords() == table->selectedRecords()); // the clicked row is forgotten
}

void TestPackageTables::menuCommands_data()
{
    QTest::addColumn<Persona>("persona");
    QTest::addColumn<QStringList>("selected");
    QTest::addColumn<MenuAction>("action");
    QTest::addColumn<QString>("clipboard");
    QTest::addColumn<QStringList>("urls");

    QTest::newRow("copy apps") << Persona::apps << QStringList{u"0-ad"_s, u"1password"_s} << MenuAction::copy
                               << u"0-ad\n1password"_s << QStringList{};
    QTest::newRow("website of an app") << Persona::apps << QStringList{u"1password"_s} << MenuAction::goToWebsite
                                       << QString() << QStringList{u"https://1password.com/"_s};
    QTest::newRow("folder of an installed app")
        << Persona::apps << QStringList{u"0-ad"_s, u"010-editor"_s} << MenuAction::showInFileManager << QString()
        << QStringList{u"Caskroom/0-ad"_s};
}

void TestPackageTables::menuCommands()
{
    QFETCH(Persona, persona);
    QFETCH(QStringList, selected);
    QFETCH(MenuAction, action);
    QFETCH(QString, clipboard);
    QFETCH(QStringList, urls);
    World world;
    QVERIFY(world.fill());
    // A Homebrew prefix under a throw-away root, with the installed app's folder in its Caskroom.
    QTemporaryDir root;
    QVERIFY(QDir(root.path()).mkpath(u"opt/homebrew/bin"_s));
    QVERIFY(QDir(root.path()).mkpath(u"opt/homebrew/Caskroom/0-ad"_s));
    QVERIFY(QDir(root.path()).mkpath(u"opt/homebrew/Caskroom/010-editor"_s)); // not installed: never shown
    QFile brew(root.filePath(u"opt/homebrew/bin/brew"_s));
    QVERIFY(brew.open(QIODevice::WriteOnly));
    brew.close();
    QVERIFY(brew.setPermissions(brew.permissions() | QFile::ExeOwner));
    Homebrew::Installation installation(root.path());
    QVERIFY(installation.prefix());

    std::unique_ptr<PackageTableViewController> table = world.table(persona);
    table->setInstallation(&installation);
    showAll(*table);
    selectTokens(*table, selected);
    QApplication::clipboard()->setText(u"before"_s);
    table->showContextMenu(-1, QPoint());
    QAction* entry = table->menuAction(action);
    QVERIFY(entry->isEnabled());
    table->contextMenu()->hide();
    entry->trigger();

    QCOMPARE(QApplication::clipboard()->text(), clipboard.isEmpty() ? u"before"_s : clipboard);
    QCOMPARE(m_openedUrls.size(), urls.size());
    for (qsizetype i = 0; i < urls.size(); ++i) {
        if (urls.at(i).startsWith(u"https")) {
            QCOMPARE(m_openedUrls.at(i), QUrl(urls.at(i)));
        } else {
            QVERIFY(m_openedUrls.at(i).isLocalFile());
            QCOMPARE(QDir::cleanPath(m_openedUrls.at(i).toLocalFile()),
                     QDir::cleanPath(installation.prefix().value() + u'/' + urls.at(i)));
        }
    }
}

void TestPackageTables::inlineButton_data()
{
    QTest::addColumn<Persona>("persona");
    QTest::addColumn<QString>("token");
    QTest::addColumn<bool>("busy");
    QTest::addColumn<QString>("identifier"); // empty: no button
    QTest::addColumn<int>("kind");           // -1: nothing requested

    QTest::newRow("install an app") << Persona::apps << u"010-editor"_s << false << u"InstallTableButton"_s
                                    << int(Kind::install);
    QTest::newRow("upgrade an app") << Persona::apps << u"0-ad"_s << false << u"UpgradeTableButton"_s
                                    << int(Kind::upgrade);
    QTest::newRow("installed app: no button") << Persona::apps << u"1clipboard"_s << false << QString() << -1;
    QTest::newRow("busy app: no button") << Persona::apps << u"010-editor"_s << true << QString() << -1;
    QTest::newRow("upgrade a script") << Persona::scripts << u"awscli"_s << false << u"UpgradeTableButton"_s
                                      << int(Kind::upgrade);
}

void TestPackageTables::inlineButton()
{
    QFETCH(Persona, persona);
    QFETCH(QString, token);
    QFETCH(bool, busy);
    QFETCH(QString, identifier);
    QFETCH(int, kind);
    World world;
    QVERIFY(world.fill());
    std::unique_ptr<PackageTableViewController> table = world.table(persona);
    QVERIFY(exposed(*table, {1400, 400}));
    showAll(*table);
    QTableView* view = table->tableView();
    const int row = rowOfToken(*table, token);
    table->model()->recordAt(row)->setBusy(busy);
    const QModelIndex status = table->model()->index(row, table->model()->columnOf(Column::status));
    view->scrollTo(status);
    QCOMPARE(status.data(PackageTableModel::ButtonIdentifierRole).toString(), identifier);

    QSignalSpy requested(table.get(), &PackageTableViewController::operationRequested);
    QStyleOptionViewItem option;
    option.initFrom(view->viewport());
    option.rect = view->visualRect(status);
    option.widget = view;
    auto* delegate = qobject_cast<PackageStatusDelegate*>(view->itemDelegateForIndex(status));
    QVERIFY(delegate);
    const QRect button = delegate->buttonRect(option, status);
    QCOMPARE(button.isEmpty(), identifier.isEmpty());
    const QPoint point = button.isEmpty() ? option.rect.center() : button.center();
    // Pressed on the button but released outside it: nothing.
    if (!button.isEmpty()) {
        QTest::mousePress(view->viewport(), Qt::LeftButton, {}, point);
        QTest::mouseRelease(view->viewport(), Qt::LeftButton, {}, QPoint(option.rect.right() - 1, point.y()));
        QCOMPARE(requested.size(), 0);
    }
    QTest::mouseClick(view->viewport(), Qt::LeftButton, {}, point);
    QCOMPARE(requested.size(), kind < 0 ? 0 : 1);
    if (kind >= 0) {
        QCOMPARE(requested.first().at(0).value<Kind>(), Kind(kind));
        QCOMPARE(tokensOf(requested.first().at(1).value<QList<Package*>>()), QStringList{token});
    }
}

void TestPackageTables::selectionSurvivesMerge_data()
{
    QTest::addColumn<QString>("request");
    QTest::addColumn<QVariantList>("items");
    QTest::addColumn<QVariantHash>("values");
    QTest::addColumn<QStringList>("lost"); // selected tokens the merge takes away

    QVariantList above;
    for (int i = 0; i < 30; ++i) {
        const QString token = QStringLiteral("000-new-%1").arg(i, 2, 10, QLatin1Char('0'));
        above.append(QVariantHash{{u"token"_s, token}, {u"name"_s, token}, {u"installed"_s, true}});
    }
    QTest::newRow("rows inserted above") << u"insert"_s << above << QVariantHash() << QStringList{};
    QTest::newRow("rows join from the catalogue")
        << u"update"_s << QVariantList{u"010-editor"_s, u"115browser"_s, u"1kc-razer"_s}
        << QVariantHash{{u"installed"_s, true}} << QStringList{};
    QTest::newRow("a selected row is deleted") << u"delete"_s << QVariantList{u"astro-command-center"_s}
                                               << QVariantHash() << QStringList{u"astro-command-center"_s};
}

void TestPackageTables::selectionSurvivesMerge()
{
    QFETCH(QString, request);
    QFETCH(QVariantList, items);
    QFETCH(QVariantHash, values);
    QFETCH(QStringList, lost);
    World world;
    QVERIFY(world.fill());
    std::unique_ptr<PackageTableViewController> table = world.table(Persona::apps);
    QVERIFY(exposed(*table, {800, 260}));
    QTableView* view = table->tableView();
    const QStringList before = shownTokens(*table);
    QVERIFY(before.size() > 40);
    // Two separate runs of selected rows, one far down, and the view scrolled into the middle.
    QStringList selected{before.at(20), before.at(21), before.at(35)};
    selected.append(u"astro-command-center"_s);
    selectTokens(*table, selected);
    view->setCurrentIndex(table->model()->index(rowOfToken(*table, before.at(35)), 2));
    selectTokens(*table, selected);
    view->scrollTo(table->model()->index(18, 0), QAbstractItemView::PositionAtTop);
    const QString top = shownTokens(*table).at(view->rowAt(0));
    QVERIFY(world.merge(u"Cask"_s, request, items, values));
    QCOMPARE_NE(shownTokens(*table), before);
    QStringList expected = selected;
    for (const QString& token : lost) {
        expected.removeAll(token);
    }
    QCOMPARE(sorted(tokensOf(table->selectedRecords())), sorted(expected));
    QCOMPARE(shownTokens(*table).at(view->rowAt(0)), top);
    QCOMPARE(table->model()->recordAt(view->currentIndex().row())->token(), before.at(35));
    QCOMPARE(view->currentIndex().column(), 2);
}

void TestPackageTables::installedCount_data()
{
    QTest::addColumn<Persona>("persona");
    QTest::addColumn<bool>("filled");
    QTest::newRow("apps, empty catalogue") << Persona::apps << false;
    QTest::newRow("apps") << Persona::apps << true;
    QTest::newRow("scripts") << Persona::scripts << true;
}

void TestPackageTables::installedCount()
{
    QFETCH(Persona, persona);
    QFETCH(bool, filled);
    World world;
    if (filled) {
        QVERIFY(world.fill());
    }
    std::unique_ptr<PackageTableViewController> table = world.table(persona);
    const int expected = filled ? int(world.tokens(persona, installedAt).size()) : 0;
    QCOMPARE(table->installedCount(), expected);
    table->filter(SearchPredicates::search(u"a"_s)); // the count ignores the search
    QCOMPARE(table->installedCount(), expected);

    QSignalSpy changed(table.get(), &PackageTableViewController::installedCountChanged);
    const QString token = u"new-one"_s;
    QVERIFY(world.merge(entityOf(persona), u"insert"_s,
                        {QVariantHash{{u"token"_s, token}, {u"name"_s, token}, {u"installed"_s, true}}}));
    QTRY_COMPARE(changed.size(), 1);
    QCOMPARE(table->installedCount(), expected + 1);
    QVERIFY(world.merge(entityOf(persona), u"update"_s, {token}, {{u"installed"_s, false}}));
    QTRY_COMPARE(changed.size(), 2);
    QCOMPARE(table->installedCount(), expected);
}

QTEST_MAIN(TestPackageTables)
#include "TestPackageTables.moc"
