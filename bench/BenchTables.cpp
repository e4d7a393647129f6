// The Apps table over a catalogue of the real size (7,500 casks, every third installed): building its controller,
// model and view from the view context, and the model reset (with the selection and scroll position carried over)
// that one search keystroke causes.
#include "CatalogueGenerator.h"
#include "catalogue/CoreDataManager.h"
#include "catalogue/HomebrewCask.h"
#include "foundation/Defaults.h"
#include "foundation/RailsJSONDecoder.h"
#include "search/SearchPredicates.h"
#include "ui/AppsTableViewController.h"
#include "ui/PackageTableModel.h"

#include <QApplication>
#include <QItemSelectionModel>
#include <QTableView>
#include <QTemporaryDir>
#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>
#include <memory>

namespace {

[[noreturn]] void fail(const QString& what)
{
    std::fprintf(stderr, "BenchTables: %s\n", qPrintable(what));
    std::exit(1);
}

class Store {
public:
    Store()
        : m_manager(m_folder.filePath(QStringLiteral("Corvel X.sqlite")))
        , m_defaults(m_folder.filePath(QStringLiteral("settings.ini")))
    {
        if (!m_folder.isValid()) {
            fail(QStringLiteral("cannot create a temporary folder: %1").arg(m_folder.errorString()));
        }
        const CatalogueGenerator generator(QStringLiteral(CORVEL_SEED_DATA_DIR));
        if (const Result<void> written = generator.writeVerified(m_folder.path()); !written) {
            fail(written.error().description());
        }
        const Result<QByteArray> json =
            RailsJSONDecoder::readFile(m_folder.filePath(CatalogueGenerator::caskFileName()));
        if (!json) {
            fail(json.error().description());
        }
        const Result<std::vector<Homebrew::Cask>> casks =
            RailsJSONDecoder().decode<std::vector<Homebrew::Cask>>(json.value());
        if (!casks) {
            fail(casks.error().description());
        }
        std::size_t next = 0;
        const Result<QList<ObjectID>> inserted =
            m_manager.backgroundContext()->batchInsert(QStringLiteral("Cask"), [&](QVariantHash& values) {
                if (next == casks.value().size()) {
                    return false;
                }
                const Homebrew::Cask& cask = casks.value()[next];
                values.insert(QStringLiteral("token"), cask.token);
                values.insert(QStringLiteral("name"), cask.displayName());
                values.insert(QStringLiteral("desc"), cask.desc ? QVariant(*cask.desc) : QVariant());
                values.insert(QStringLiteral("version"), cask.version ? QVariant(*cask.version) : QVariant());
                values.insert(QStringLiteral("installed"), next % 3 == 0);
                values.insert(QStringLiteral("outdated"), next % 27 == 0);
                if (const std::optional<QStringList> artifacts = cask.artifactTypes()) {
                    values.insert(QStringLiteral("artifacts"), *artifacts);
                }
                ++next;
                return true;
            });
        if (!inserted) {
            fail(inserted.error().description());
        }
    }

    ManagedObjectContext* view() { return m_manager.viewContext(); }
    Defaults& defaults() { return m_defaults; }

private:
    QTemporaryDir m_folder;
    CoreDataManager m_manager;
    Defaults m_defaults;
};

Store& store()
{
    static Store instance;
    return instance;
}

// The controller, its model and view, the fetch, the first arrangement and one layout of the view.
void buildAppsTable(benchmark::State& state)
{
    int rows = 0;
    for (auto _ : state) {
        AppsTableViewController table(store().view(), store().defaults());
        table.resize(1000, 700);
        table.tableView()->doItemsLayout();
        rows = table.model()->rowCount();
        benchmark::DoNotOptimize(rows);
    }
    if (rows == 0) {
        state.SkipWithError("the table shows no installed app");
    }
    state.counters["rows"] = rows;
}

// A keystroke that narrows the search and the next one that widens it again, each a model reset with ten
// selected rows carried over.
void searchKeystrokeReset(benchmark::State& state)
{
    AppsTableViewController table(store().view(), store().defaults());
    table.resize(1000, 700);
    const Predicate wide = SearchPredicates::search(QStringLiteral("pr"));
    const Predicate narrow = SearchPredicates::search(QStringLiteral("pro"));
    table.filter(wide);
    for (int row = 0; row < 10 && row < table.model()->rowCount(); ++row) {
        table.tableView()->selectionModel()->select(table.model()->index(row * 3, 0),
                                                    QItemSelectionModel::Select | QItemSelectionModel::Rows);
    }
    int narrowRows = 0;
    int wideRows = 0;
    for (auto _ : state) {
        table.filter(narrow);
        narrowRows = table.model()->rowCount();
        table.filter(wide);
        wideRows = table.model()->rowCount();
    }
    if (narrowRows == 0 || narrowRows == wideRows) {
        state.SkipWithError("the keystroke did not narrow the table");
    }
    state.counters["narrow"] = narrowRows;
    state.counters["wide"] = wideRows;
    state.counters["selected"] = double(table.selectedRecords().size());
}

} // namespace

BENCHMARK(buildAppsTable)->Unit(benchmark::kMillisecond);
BENCHMARK(searchKeystrokeReset)->Unit(benchmark::kMillisecond);

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication application(argc, argv);
    // Generated and loaded before any timing, so that a broken catalogue stops the run with its reason.
    store();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
