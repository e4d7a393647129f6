// Loading a catalogue of the real size (7,500 formulae, 7,500 casks, about 40 MB), generated at start-up from the
// real records: the decoding into records, beside the floor set by a bare simdjson parse of the same files and a
// bare SQLite insert of as many rows as the store will hold.
//
// The rebuild of the store from the decoded records and a keystroke filtering an ArrayController over the 15,000
// stored objects join these once the store exists.
#include "CatalogueGenerator.h"
#include "catalogue/HomebrewCask.h"
#include "catalogue/HomebrewFormula.h"
#include "foundation/RailsJSONDecoder.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <simdjson.h>
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

// One row as the store will keep a formula or a cask; absent values stay NULL.
struct PackageRow {
    QByteArray token;
    QByteArray name;
    std::optional<QByteArray> tap;
    std::optional<QByteArray> desc;
    std::optional<QByteArray> website;
    std::optional<QByteArray> license;
    std::optional<QByteArray> version;
    std::optional<QByteArray> artifacts;
};

std::optional<QByteArray> utf8(const std::optional<QString>& text)
{
    return text ? std::optional<QByteArray>(text->toUtf8()) : std::nullopt;
}

class Catalogue {
public:
    Catalogue()
    {
        if (!m_folder.isValid()) {
            fail(QStringLiteral("cannot create a temporary folder: %1").arg(m_folder.errorString()));
        }
        const CatalogueGenerator generator(QStringLiteral(CORVEL_SEED_DATA_DIR));
        Result<void> outcome = generator.writeTo(m_folder.path());
        if (outcome) {
            outcome = generator.verify(m_folder.path());
        }
        if (!outcome) {
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
        for (const Homebrew::Formula& formula : formulae.value()) {
            m_rows.push_back({formula.token.toUtf8(), formula.name.toUtf8(), utf8(formula.tap), utf8(formula.desc),
                              formula.website ? std::optional(formula.website->toEncoded()) : std::nullopt,
                              formula.license ? std::optional(formula.license->toUtf8()) : std::nullopt, std::nullopt,
                              std::nullopt});
        }
        for (const Homebrew::Cask& cask : casks.value()) {
            const std::optional<QStringList> artifactTypes = cask.artifactTypes();
            m_rows.push_back({cask.token.toUtf8(), cask.displayName().toUtf8(), utf8(cask.tap), utf8(cask.desc),
                              cask.website ? std::optional(cask.website->toEncoded()) : std::nullopt, std::nullopt,
                              utf8(cask.version),
                              artifactTypes ? std::optional(artifactTypes->join(u',').toUtf8()) : std::nullopt});
        }
    }

    const QByteArray& formulaJson() const { return m_formulaJson; }
    const QByteArray& caskJson() const { return m_caskJson; }
    const std::vector<PackageRow>& rows() const { return m_rows; }
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

// A null or missing value counts as empty; anything else that is not a string is an error.
simdjson::error_code addLength(simdjson::simdjson_result<ondemand::value> field, std::size_t& total)
{
    ondemand::value value;
    ondemand::json_type type;
    if (const auto error = field.get(value)) {
        return error == simdjson::NO_SUCH_FIELD ? simdjson::SUCCESS : error;
    }
    if (const auto error = value.type().get(type)) {
        return error;
    }
    if (type == ondemand::json_type::array) {
        // A cask's name is a list; its first part is what people search.
        ondemand::array parts;
        if (const auto error = value.get_array().get(parts)) {
            return error;
        }
        for (auto part : parts) {
            return addLength(part, total);
        }
        return simdjson::SUCCESS;
    }
    if (type != ondemand::json_type::string) {
        return type == ondemand::json_type::null ? simdjson::SUCCESS : simdjson::INCORRECT_TYPE;
    }
    std::string_view text;
    if (const auto error = value.get_string().get(text)) {
        return error;
    }
    total += text.size();
    return simdjson::SUCCESS;
}

// Reads what the search needs of every record, so that the parser cannot skip the work a decoder does.
void bareParse(benchmark::State& state, const QByteArray& json, std::string_view tokenKey, std::string_view nameKey)
{
    const simdjson::padded_string_view text(json.constData(), std::size_t(json.size()), std::size_t(json.capacity()));
    if (json.capacity() - json.size() < qsizetype(simdjson::SIMDJSON_PADDING)) {
        state.SkipWithError("the catalogue text has no padding");
        return;
    }
    ondemand::parser parser;
    int64_t count = 0;
    for (auto _ : state) {
        ondemand::document document;
        ondemand::array records;
        if (parser.iterate(text).get(document) || document.get_array().get(records)) {
            state.SkipWithError("the catalogue did not parse");
            break;
        }
        std::size_t total = 0;
        bool failed = false;
        count = 0;
        for (auto element : records) {
            ondemand::object record;
            failed = element.get_object().get(record) || addLength(record[tokenKey], total) ||
                     addLength(record[nameKey], total) || addLength(record["desc"], total);
            if (failed) {
                break;
            }
            ++count;
        }
        if (failed) {
            state.SkipWithError("a record did not parse");
            break;
        }
        benchmark::DoNotOptimize(total);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * json.size());
    state.SetItemsProcessed(int64_t(state.iterations()) * count);
}

void bareParseFormulae(benchmark::State& state)
{
    bareParse(state, catalogue().formulaJson(), "name", "full_name");
}

void bareParseCasks(benchmark::State& state)
{
    bareParse(state, catalogue().caskJson(), "token", "name");
}

void bindText(sqlite3_stmt* statement, int column, const std::optional<QByteArray>& text)
{
    if (text) {
        sqlite3_bind_text(statement, column, text->constData(), int(text->size()), SQLITE_STATIC);
    } else {
        sqlite3_bind_null(statement, column);
    }
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
        QFile::remove(path);
        sqlite3* database = nullptr;
        if (sqlite3_open(QFile::encodeName(path).constData(), &database) != SQLITE_OK ||
            sqlite3_exec(database,
                         "CREATE TABLE package (token TEXT NOT NULL, name TEXT NOT NULL, tap TEXT, desc TEXT, "
                         "website TEXT, license TEXT, version TEXT, artifacts TEXT)",
                         nullptr, nullptr, nullptr) != SQLITE_OK) {
            state.SkipWithError(sqlite3_errmsg(database));
            sqlite3_close(database);
            break;
        }
        state.ResumeTiming();

        sqlite3_stmt* statement = nullptr;
        bool failed = sqlite3_exec(database, "BEGIN", nullptr, nullptr, nullptr) != SQLITE_OK ||
                      sqlite3_prepare_v2(database, "INSERT INTO package VALUES (?, ?, ?, ?, ?, ?, ?, ?)", -1,
                                         &statement, nullptr) != SQLITE_OK;
        for (std::size_t i = 0; !failed && i < rows.size(); ++i) {
            const PackageRow& row = rows[i];
            sqlite3_bind_text(statement, 1, row.token.constData(), int(row.token.size()), SQLITE_STATIC);
            sqlite3_bind_text(statement, 2, row.name.constData(), int(row.name.size()), SQLITE_STATIC);
            bindText(statement, 3, row.tap);
            bindText(statement, 4, row.desc);
            bindText(statement, 5, row.website);
            bindText(statement, 6, row.license);
            bindText(statement, 7, row.version);
            bindText(statement, 8, row.artifacts);
            failed = sqlite3_step(statement) != SQLITE_DONE || sqlite3_reset(statement) != SQLITE_OK;
        }
        sqlite3_finalize(statement);
        failed = failed || sqlite3_exec(database, "COMMIT", nullptr, nullptr, nullptr) != SQLITE_OK;
        if (failed) {
            state.SkipWithError(sqlite3_errmsg(database));
        }

        state.PauseTiming();
        sqlite3_close(database);
        state.ResumeTiming();
        if (failed) {
            break;
        }
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * bytes);
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(rows.size()));
}

} // namespace

BENCHMARK(decodeFormulae)->Unit(benchmark::kMillisecond);
BENCHMARK(decodeCasks)->Unit(benchmark::kMillisecond);
BENCHMARK(bareParseFormulae)->Unit(benchmark::kMillisecond);
BENCHMARK(bareParseCasks)->Unit(benchmark::kMillisecond);
// Wall time: the commit waits for the disk, which the CPU time leaves out.
BENCHMARK(bareSqliteInsert)->Unit(benchmark::kMillisecond)->UseRealTime();

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    // Generated and checked before any timing, so that a broken catalogue stops the run with its reason.
    catalogue();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
