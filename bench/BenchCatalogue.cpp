// Loading a catalogue of the real size (7,500 formulae, 7,500 casks, about 40 MB), generated at start-up from the
// real records: the decoding into records, beside the floor set by a bare simdjson parse of the same files and a
// bare SQLite insert of as many rows as the store will hold.
//
// Beside them, the rebuild of the store from the decoded records as the synchronisation does it, and a keystroke
// filtering an ArrayController over the 15,000 stored objects.
#include "CatalogueGenerator.h"
#include "CatalogueReference.h"
#include "catalogue/ArrayController.h"
#include "catalogue/CoreDataManager.h"
#include "catalogue/HomebrewCask.h"
#include "catalogue/HomebrewFormula.h"
#include "foundation/RailsJSONDecoder.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <simdjson.h>
#include <span>
#include <sqlite3.h>
#include <string>
#include <vector>

namespace {

namespace ondemand = simdjson::ondemand;

[[noreturn]] void fail(const QString& what)
{
    std::fprintf(stderr, "BenchCatalogue: %s\n", qPrintable(what));
    std::exit(1);
}

using CatalogueReference::PackageRow;

class Catalogue {
public:
    Catalogue()
    {
        if (!m_folder.isValid()) {
            fail(QStringLiteral("cannot create a temporary folder: %1").arg(m_folder.errorString()));
        }
        const CatalogueGenerator generator(QStringLiteral(CORVEL_SEED_DATA_DIR));
        if (const Result<void> outcome = generator.writeVerified(m_folder.path()); !outcome) {
            fail(outcome.error().description());
        }
        m_formulaJson = read(CatalogueGenerator::formulaFileName());
        m_caskJson = read(CatalogueGenerator::caskFileName());

        // The rows come from the decoded records, so the insert sees the lengths the store will.
        const RailsJSONDecoder decoder;
        const Result<std::vector<Homebrew::Formula>> formulae =
            decoder.decode<std::vector<Homebrew::Formula>>(m_formulaJson);
        const Result<std::vector<Homebrew::Cask>> casks = decoder.decode<std::vector<Homebrew::Cask>>(m_caskJson);
        if (!formulae || !casks) {
            fail(QStringLiteral("the generated catalogue does not decode: %1")
                     .arg((formulae ? casks.error() : formulae.error()).description()));
        }
        if (formulae.value().size() != std::size_t(generator.formulaCount()) ||
            casks.value().size() != std::size_t(generator.caskCount())) {
            fail(QStringLiteral("the generated catalogue decodes to the wrong number of records"));
        }
        m_formulae = formulae.value();
        m_casks = casks.value();
        m_rows = CatalogueReference::rowsOf(m_formulae, m_casks);
    }

    const QByteArray& formulaJson() const { return m_formulaJson; }
    const QByteArray& caskJson() const { return m_caskJson; }
    const std::vector<PackageRow>& rows() const { return m_rows; }
    const std::vector<Homebrew::Formula>& formulae() const { return m_formulae; }
    const std::vector<Homebrew::Cask>& casks() const { return m_casks; }
    QString folder() const { return m_folder.path(); }

private:
    QByteArray read(const QString& fileName) const
    {
        Result<QByteArray> text = RailsJSONDecoder::readFile(QDir(m_folder.path()).filePath(fileName));
        if (!text) {
            fail(text.error().description());
        }
        return text.value();
    }

    QTemporaryDir m_folder;
    QByteArray m_formulaJson;
    QByteArray m_caskJson;
    std::vector<PackageRow> m_rows;
    std::vector<Homebrew::Formula> m_formulae;
    std::vector<Homebrew::Cask> m_casks;
};

const Catalogue& catalogue()
{
    static const Catalogue instance;
    return instance;
}

template <class Record>
void decodeCatalogue(benchmark::State& state, const QByteArray& json)
{
    const RailsJSONDecoder decoder;
    std::size_t count = 0;
    for (auto _ : state) {
        Result<std::vector<Record>> records = decoder.decode<std::vector<Record>>(json);
        if (!records) {
            state.SkipWithError(qPrintable(records.error().description()));
            break;
        }
        count = records.value().size();
        benchmark::DoNotOptimize(records);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * json.size());
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(count));
}

void decodeFormulae(benchmark::State& state)
{
    decodeCatalogue<Homebrew::Formula>(state, catalogue().formulaJson());
}

void decodeCasks(benchmark::State& state)
{
    decodeCatalogue<Homebrew::Cask>(state, catalogue().caskJson());
}

// Reads every field that becomes a column, so that the parser cannot skip the work a decoder does.
void bareParse(benchmark::State& state, const QByteArray& json, std::span<const std::string_view> columns)
{
    ondemand::parser parser;
    std::size_t count = 0;
    for (auto _ : state) {
        std::size_t total = 0;
        const std::optional<std::size_t> parsed = CatalogueReference::bareParse(parser, json, columns, total);
        if (!parsed) {
            state.SkipWithError("the catalogue did not parse");
            break;
        }
        count = *parsed;
        benchmark::DoNotOptimize(total);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * json.size());
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(count));
}

void bareParseFormulae(benchmark::State& state)
{
    bareParse(state, catalogue().formulaJson(), CatalogueReference::formulaColumns);
}

void bareParseCasks(benchmark::State& state)
{
    bareParse(state, catalogue().caskJson(), CatalogueReference::caskColumns);
}

// The floor for rebuilding the store: every row in one transaction through one prepared statement, into a
// database file with SQLite's default journal and synchronisation.
void bareSqliteInsert(benchmark::State& state)
{
    const std::vector<PackageRow>& rows = catalogue().rows();
    const QString path = QDir(catalogue().folder()).filePath(QStringLiteral("bare.sqlite"));
    int64_t bytes = 0;
    for (const PackageRow& row : rows) {
        bytes += row.token.size() + row.name.size();
        for (const auto* text : {&row.tap, &row.desc, &row.website, &row.license, &row.version, &row.artifacts}) {
            bytes += *text ? (*text)->size() : 0;
        }
    }

    for (auto _ : state) {
        state.PauseTiming();
        QString error;
        sqlite3* database = CatalogueReference::createBareDatabase(path, error);
        if (!database) {
            state.SkipWithError(qPrintable(error));
            break;
        }
        state.ResumeTiming();
        const bool inserted = CatalogueReference::insertRows(database, rows, error);
        state.PauseTiming();
        sqlite3_close(database);
        state.ResumeTiming();
        if (!inserted) {
            state.SkipWithError(qPrintable(error));
            break;
        }
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * bytes);
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(rows.size()));
}

// Every stride-th token from offset on, count of them: the same spread of flagged records on every run.
QStringList everyNthToken(const QStringList& tokens, qsizetype offset, qsizetype stride, qsizetype count)
{
    QStringList picked;
    for (qsizetype i = offset; i < tokens.size() && picked.size() < count; i += stride) {
        picked.append(tokens.at(i));
    }
    return picked;
}

// A new, empty store in a folder of its own with a view context, as the application has them; the benchmark
// library runs each benchmark more than once, and every run starts from nothing.
class Store {
public:
    Store()
        : m_manager(m_folder.filePath(QStringLiteral("Corvel X.sqlite")))
    {
        if (!m_folder.isValid()) {
            fail(QStringLiteral("cannot create a temporary folder: %1").arg(m_folder.errorString()));
        }
        if (const Result<void> loaded = m_manager.loadPersistentStores(); !loaded) {
            fail(loaded.error().description());
        }
        Result<std::unique_ptr<ManagedObjectContext>> background = m_manager.newBackgroundContext();
        if (!background) {
            fail(background.error().description());
        }
        m_background = std::move(background.value());
    }

    ManagedObjectContext* view() { return m_manager.viewContext(); }
    ManagedObjectContext* background() { return m_background.get(); }

private:
    QTemporaryDir m_folder;
    CoreDataManager m_manager;
    std::unique_ptr<ManagedObjectContext> m_background;
};

std::optional<QString> urlText(const FailableCodable<QUrl>& url)
{
    return url ? std::optional(url->toString()) : std::nullopt;
}

QVariant optionalValue(const std::optional<QString>& value)
{
    return value ? QVariant(*value) : QVariant();
}

Result<QList<ObjectID>> insertFormulae(ManagedObjectContext* context)
{
    const std::vector<Homebrew::Formula>& formulae = catalogue().formulae();
    std::size_t next = 0;
    return context->batchInsert(QStringLiteral("Formula"), [&](QVariantHash& values) {
        if (next == formulae.size()) {
            return false;
        }
        const Homebrew::Formula& formula = formulae[next++];
        values.insert(QStringLiteral("token"), formula.token);
        values.insert(QStringLiteral("name"), formula.name);
        values.insert(QStringLiteral("tap"), optionalValue(formula.tap));
        values.insert(QStringLiteral("desc"), optionalValue(formula.desc));
        values.insert(QStringLiteral("website"), optionalValue(urlText(formula.website)));
        values.insert(QStringLiteral("license"), formula.license ? QVariant(*formula.license) : QVariant());
        return true;
    });
}

Result<QList<ObjectID>> insertCasks(ManagedObjectContext* context)
{
    const std::vector<Homebrew::Cask>& casks = catalogue().casks();
    std::size_t next = 0;
    return context->batchInsert(QStringLiteral("Cask"), [&](QVariantHash& values) {
        if (next == casks.size()) {
            return false;
        }
        const Homebrew::Cask& cask = casks[next++];
        values.insert(QStringLiteral("token"), cask.token);
        values.insert(QStringLiteral("name"), cask.displayName());
        values.insert(QStringLiteral("tap"), optionalValue(cask.tap));
        values.insert(QStringLiteral("desc"), optionalValue(cask.desc));
        values.insert(QStringLiteral("website"), optionalValue(urlText(cask.website)));
        values.insert(QStringLiteral("version"), optionalValue(cask.version));
        if (const std::optional<QStringList> artifacts = cask.artifactTypes()) {
            values.insert(QStringLiteral("artifacts"), *artifacts);
        }
        return true;
    });
}

// One flag set on the records whose token is listed, as the synchronisation marks what is installed.
Result<QList<ObjectID>> flag(ManagedObjectContext* context, const QString& entity, const QStringList& tokens,
                             const QString& attribute)
{
    const Result<Predicate> predicate = Predicate::parse(QStringLiteral("token in %@"), {tokens});
    if (!predicate) {
        return predicate.error();
    }
    return context->batchUpdate(entity, predicate.value(), {{attribute, true}});
}

// The whole rebuild of a synchronisation: both libraries emptied and refilled from the decoded records, the
// installed, outdated and leaf formulae and casks flagged, and every touched identifier merged into a view
// context holding all the objects it had fetched before.
void rebuildStore(benchmark::State& state)
{
    Store store;
    QStringList formulaTokens;
    for (const Homebrew::Formula& formula : catalogue().formulae()) {
        formulaTokens.append(formula.token);
    }
    QStringList caskTokens;
    for (const Homebrew::Cask& cask : catalogue().casks()) {
        caskTokens.append(cask.token);
    }
    // About what a well-used machine has: 300 installed (240 formulae, 60 casks), 40 outdated, 150 leaves.
    const QStringList installedFormulae = everyNthToken(formulaTokens, 3, 31, 240);
    const QStringList outdatedFormulae = everyNthToken(installedFormulae, 0, 8, 30);
    const QStringList leaves = everyNthToken(installedFormulae, 90, 1, 150);
    const QStringList installedCasks = everyNthToken(caskTokens, 7, 125, 60);
    const QStringList outdatedCasks = everyNthToken(installedCasks, 0, 6, 10);
    const QString formulaEntity = QStringLiteral("Formula");
    const QString caskEntity = QStringLiteral("Cask");

    ManagedObjectContext* background = store.background();
    ManagedObjectContext* view = store.view();
    const std::size_t expected = catalogue().formulae().size() + catalogue().casks().size();
    // Each list names records of its entity only once, so every token is one updated identifier.
    const qsizetype expectedFlagged = installedFormulae.size() + outdatedFormulae.size() + leaves.size() +
                                      installedCasks.size() + outdatedCasks.size();
    qsizetype flagged = 0;
    // The first round fills the empty store, so that every timed round replaces a full one.
    bool first = true;
    while (first || state.KeepRunning()) {
        if (!first) {
            state.PauseTiming();
        }
        // Objects the last merge dropped go here, outside the timing, as the event loop would take them.
        QCoreApplication::sendPostedEvents();
        Result<QList<ManagedObject*>> fetchedFormulae = view->fetch(formulaEntity);
        Result<QList<ManagedObject*>> fetchedCasks = view->fetch(caskEntity);
        if (!fetchedFormulae || !fetchedCasks) {
            state.SkipWithError(qPrintable((fetchedFormulae ? fetchedCasks : fetchedFormulae).error().description()));
            break;
        }
        if (!first) {
            if (std::size_t(fetchedFormulae.value().size() + fetchedCasks.value().size()) != expected) {
                state.SkipWithError("the view context did not see the rebuilt store");
                break;
            }
            state.ResumeTiming();
        }

        ChangeSet changes;
        const auto collect = [&](Result<QList<ObjectID>> ids, QList<ObjectID>& into) {
            if (!ids) {
                state.SkipWithError(qPrintable(ids.error().description()));
                return false;
            }
            into.append(ids.value());
            return true;
        };
        const bool done =
            collect(background->batchDelete(formulaEntity, Predicate()), changes.deleted) &&
            collect(background->batchDelete(caskEntity, Predicate()), changes.deleted) &&
            collect(insertFormulae(background), changes.inserted) &&
            collect(insertCasks(background), changes.inserted) &&
            collect(flag(background, formulaEntity, installedFormulae, QStringLiteral("installed")), changes.updated) &&
            collect(flag(background, caskEntity, installedCasks, QStringLiteral("installed")), changes.updated) &&
            collect(flag(background, formulaEntity, outdatedFormulae, QStringLiteral("outdated")), changes.updated) &&
            collect(flag(background, caskEntity, outdatedCasks, QStringLiteral("outdated")), changes.updated) &&
            collect(flag(background, formulaEntity, leaves, QStringLiteral("isLeaf")), changes.updated);
        if (!done) {
            break;
        }
        if (const Result<void> merged = CoreDataManager::mergeChangesFromRemoteContextSave(changes, {view}); !merged) {
            state.SkipWithError(qPrintable(merged.error().description()));
            break;
        }
        if (std::size_t(changes.inserted.size()) != expected || changes.updated.size() != expectedFlagged) {
            state.SkipWithError("the rebuild did not insert or flag every record it should");
            break;
        }
        flagged = changes.updated.size();
        first = false;
    }
    state.counters["flagged"] = double(flagged);
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(expected));
}

// One keystroke of a search over every stored cask and formula: the search text's predicate set as the filter
// of both tables' controllers, which hold all 15,000 objects sorted by name.
void searchKeystroke(benchmark::State& state)
{
    Store store;
    ManagedObjectContext* background = store.background();
    if (const Result<QList<ObjectID>> formulae = insertFormulae(background); !formulae) {
        state.SkipWithError(qPrintable(formulae.error().description()));
        return;
    }
    if (const Result<QList<ObjectID>> casks = insertCasks(background); !casks) {
        state.SkipWithError(qPrintable(casks.error().description()));
        return;
    }
    ArrayController caskController(store.view(), QStringLiteral("Cask"));
    ArrayController formulaController(store.view(), QStringLiteral("Formula"));
    qsizetype total = 0;
    for (ArrayController* controller : {&caskController, &formulaController}) {
        controller->setSortDescriptors({SortDescriptor{QStringLiteral("name"), true}});
        if (const Result<void> fetched = controller->fetch(); !fetched) {
            state.SkipWithError(qPrintable(fetched.error().description()));
            return;
        }
        total += controller->arrangedObjects().size();
    }
    if (std::size_t(total) != catalogue().formulae().size() + catalogue().casks().size()) {
        state.SkipWithError("the controllers do not hold every record");
        return;
    }

    const QString text = QStringLiteral("pro");
    qsizetype matching = 0;
    for (auto _ : state) {
        const Result<Predicate> filter = Predicate::parse(
            QStringLiteral("name CONTAINS[c] %@ OR token CONTAINS[c] %@ OR desc CONTAINS[c] %@"), {text, text, text});
        if (!filter) {
            state.SkipWithError(qPrintable(filter.error().description()));
            break;
        }
        caskController.setFilterPredicate(filter.value());
        formulaController.setFilterPredicate(filter.value());
        matching = caskController.arrangedObjects().size() + formulaController.arrangedObjects().size();
    }
    // A search that matched nothing or everything would not have exercised the filter.
    if (matching == 0 || matching == total) {
        state.SkipWithError("the search text matched none or all of the records");
    }
    state.counters["matching"] = double(matching);
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(total));
}

} // namespace

BENCHMARK(decodeFormulae)->Unit(benchmark::kMillisecond);
BENCHMARK(decodeCasks)->Unit(benchmark::kMillisecond);
BENCHMARK(bareParseFormulae)->Unit(benchmark::kMillisecond);
BENCHMARK(bareParseCasks)->Unit(benchmark::kMillisecond);
// Wall time: the commits wait for the disk, which the CPU time leaves out.
BENCHMARK(bareSqliteInsert)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(rebuildStore)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(searchKeystroke)->Unit(benchmark::kMicrosecond);

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    // Objects dropped by a merge on the GUI thread are deleted through its event queue.
    QCoreApplication application(argc, argv);
    // Generated and checked before any timing, so that a broken catalogue stops the run with its reason.
    catalogue();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
