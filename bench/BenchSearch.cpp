// One keystroke of the main window's search over a catalogue of the real size (7,500 formulae, 7,500 casks): the
// suggestion rows for the new text, the combined filter of the active tokens (a text token that follows the typed
// text, and Installed), and the apps table's controller arranging its casks by that filter.
#include "CatalogueGenerator.h"
#include "catalogue/ArrayController.h"
#include "catalogue/CoreDataManager.h"
#include "catalogue/HomebrewCask.h"
#include "catalogue/HomebrewFormula.h"
#include "foundation/Defaults.h"
#include "foundation/PreferenceKeys.h"
#include "foundation/RailsJSONDecoder.h"
#include "search/FilterSuggestionViewItems.h"
#include "search/SGKSuggestionList.h"
#include "search/SearchController.h"
#include "search/TextSuggestionViewItems.h"

#include <QCoreApplication>
#include <QFile>
#include <QTemporaryDir>
#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

[[noreturn]] void fail(const QString& what)
{
    std::fprintf(stderr, "BenchSearch: %s\n", qPrintable(what));
    std::exit(1);
}

QVariant optionalValue(const std::optional<QString>& value)
{
    return value ? QVariant(*value) : QVariant();
}

template <typename Record>
std::vector<Record> decoded(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        fail(QStringLiteral("cannot read %1: %2").arg(path, file.errorString()));
    }
    const Result<std::vector<Record>> records = RailsJSONDecoder().decode<std::vector<Record>>(file.readAll());
    if (!records) {
        fail(records.error().description());
    }
    return records.value();
}

// A store filled with the generated catalogue, every third record installed.
class Store {
public:
    Store()
        : m_manager(m_folder.filePath(QStringLiteral("Corvel X.sqlite")))
    {
        if (!m_folder.isValid()) {
            fail(QStringLiteral("cannot create a temporary folder: %1").arg(m_folder.errorString()));
        }
        const CatalogueGenerator generator(QStringLiteral(CORVEL_SEED_DATA_DIR));
        if (const Result<void> written = generator.writeVerified(m_folder.path()); !written) {
            fail(written.error().description());
        }
        if (const Result<void> loaded = m_manager.loadPersistentStores(); !loaded) {
            fail(loaded.error().description());
        }
        const auto formulae = decoded<Homebrew::Formula>(m_folder.filePath(CatalogueGenerator::formulaFileName()));
        const auto casks = decoded<Homebrew::Cask>(m_folder.filePath(CatalogueGenerator::caskFileName()));
        ManagedObjectContext* context = m_manager.backgroundContext();
        std::size_t next = 0;
        const Result<QList<ObjectID>> insertedFormulae =
            context->batchInsert(QStringLiteral("Formula"), [&](QVariantHash& values) {
                if (next == formulae.size()) {
                    return false;
                }
                const Homebrew::Formula& formula = formulae[next];
                values.insert(QStringLiteral("token"), formula.token);
                values.insert(QStringLiteral("name"), formula.name);
                values.insert(QStringLiteral("desc"), optionalValue(formula.desc));
                values.insert(QStringLiteral("installed"), next++ % 3 == 0);
                return true;
            });
        next = 0;
        const Result<QList<ObjectID>> insertedCasks =
            context->batchInsert(QStringLiteral("Cask"), [&](QVariantHash& values) {
                if (next == casks.size()) {
                    return false;
                }
                const Homebrew::Cask& cask = casks[next];
                values.insert(QStringLiteral("token"), cask.token);
                values.insert(QStringLiteral("name"), cask.displayName());
                values.insert(QStringLiteral("desc"), optionalValue(cask.desc));
                values.insert(QStringLiteral("installed"), next++ % 3 == 0);
                if (const std::optional<QStringList> artifacts = cask.artifactTypes()) {
                    values.insert(QStringLiteral("artifacts"), *artifacts);
                }
                return true;
            });
        if (!insertedFormulae || !insertedCasks) {
            fail((insertedFormulae ? insertedCasks.error() : insertedFormulae.error()).description());
        }
        m_recordCount = formulae.size() + casks.size();
    }

    ManagedObjectContext* view() { return m_manager.viewContext(); }
    QString folder() const { return m_folder.path(); }
    std::size_t recordCount() const { return m_recordCount; }

private:
    QTemporaryDir m_folder;
    CoreDataManager m_manager;
    std::size_t m_recordCount = 0;
};

int rowOfKind(const SGKSuggestionList& list, const QString& kind)
{
    for (int row = 0; row < list.rowCount(); ++row) {
        if (list.itemAt(row)->isKind(kind)) {
            return row;
        }
    }
    return -1;
}

void searchKeystroke(benchmark::State& state)
{
    Store store;
    Defaults defaults(store.folder() + QStringLiteral("/settings.ini"));
    defaults.setValue(PreferenceKeys::PersonasSelectedIndex, 0);
    SGKSuggestionList list;
    SearchController controller(defaults, &list);

    ArrayController apps(store.view(), QStringLiteral("Cask"));
    ArrayController scripts(store.view(), QStringLiteral("Formula"));
    for (ArrayController* table : {&apps, &scripts}) {
        table->setSortDescriptors({SortDescriptor{QStringLiteral("name"), true}});
        if (const Result<void> fetched = table->fetch(); !fetched) {
            fail(fetched.error().description());
        }
    }
    if (std::size_t(apps.arrangedObjects().size() + scripts.arrangedObjects().size()) != store.recordCount()) {
        fail(QStringLiteral("the controllers do not hold every record"));
    }

    // The tokens a person would have chosen by now; the text token then follows each keystroke.
    controller.searchTextDidChange(QStringLiteral("pr"));
    if (!list.chooseRow(rowOfKind(list, SearchSuggestionViewItem::staticKind())) ||
        !list.chooseRow(rowOfKind(list, InstalledSuggestionViewItem::staticKind()))) {
        fail(QStringLiteral("the suggestions lack the Search or Installed row"));
    }

    // Alternating texts, so that every keystroke changes the filter.
    const QStringList texts{QStringLiteral("pro"), QStringLiteral("pr")};
    qsizetype keystroke = 0;
    qsizetype matching = 0;
    for (auto _ : state) {
        controller.searchTextDidChange(texts.at(keystroke++ % texts.size()));
        const std::optional<Predicate> predicate = list.predicate();
        apps.setFilterPredicate(SearchController::filterPredicate(predicate));
        matching = apps.arrangedObjects().size();
        benchmark::DoNotOptimize(matching);
    }
    if (list.rowCount() != 12 || matching == 0 || std::size_t(matching) >= store.recordCount() / 2) {
        state.SkipWithError("the keystroke did not narrow the apps table");
    }
    state.counters["matching"] = double(matching);
}

} // namespace

BENCHMARK(searchKeystroke)->Unit(benchmark::kMicrosecond);

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    // Objects dropped by a merge on the GUI thread are deleted through its event queue.
    QCoreApplication application(argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
