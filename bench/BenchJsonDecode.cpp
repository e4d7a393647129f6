// Decoding a catalogue of the real size (7,500 formulae, 7,500 casks) built at start-up from the real sample records.
#include "catalogue/HomebrewCask.h"
#include "catalogue/HomebrewFormula.h"
#include "foundation/RailsJSONDecoder.h"

#include <QByteArrayList>
#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>

namespace {

constexpr int catalogueSize = 7500;

[[noreturn]] void fail(const char* what)
{
    std::fprintf(stderr, "BenchJsonDecode: %s\n", what);
    std::exit(1);
}

// Appends "-<copy>" to the string value of key in one record's text, so that repeated records stay distinct.
void renameRecord(QByteArray& record, const QByteArray& key, int copy)
{
    const QByteArray opening = '"' + key + "\":\"";
    const qsizetype start = record.indexOf(opening);
    if (start < 0) {
        fail("a sample record lacks its token");
    }
    const qsizetype end = record.indexOf('"', start + opening.size());
    record.insert(end, '-' + QByteArray::number(copy));
}

// The samples hold one record per line; the catalogue repeats them, renamed, up to its real size.
QByteArray buildCatalogue(const char* sample, const QByteArrayList& renamedKeys, qsizetype expectedRecords)
{
    // The samples are the test data of the repository: bench/data/../../tests/data, resolved without bench/data.
    const QString path = QStringLiteral(CORVEL_SEED_DATA_DIR "/") + QString::fromUtf8(sample);
    const Result<QByteArray> text = RailsJSONDecoder::readFile(path);
    if (!text) {
        fail("cannot read the sample records");
    }
    QByteArrayList records;
    for (QByteArray line : text.value().split('\n')) {
        line = line.trimmed();
        if (line.startsWith('{')) {
            if (line.endsWith(',')) {
                line.chop(1);
            }
            records.append(line);
        }
    }
    if (records.size() != expectedRecords) {
        fail("the sample records are not one per line");
    }

    QByteArray catalogue = "[\n";
    for (int i = 0; i < catalogueSize; ++i) {
        QByteArray record = records[i % records.size()];
        if (const int copy = i / int(records.size()); copy > 0) {
            for (const QByteArray& key : renamedKeys) {
                renameRecord(record, key, copy);
            }
        }
        catalogue += record + (i + 1 < catalogueSize ? ",\n" : "\n");
    }
    catalogue += "]\n";
    return RailsJSONDecoder::padded(catalogue);
}

const QByteArray& formulaCatalogue()
{
    static const QByteArray catalogue = buildCatalogue("catalogue/formula-sample.json", {"name", "full_name"}, 63);
    return catalogue;
}

const QByteArray& caskCatalogue()
{
    static const QByteArray catalogue = buildCatalogue("catalogue/cask-sample.json", {"token"}, 211);
    return catalogue;
}

template <class Record>
void decodeCatalogue(benchmark::State& state, const QByteArray& json)
{
    const RailsJSONDecoder decoder;
    for (auto _ : state) {
        Result<std::vector<Record>> records = decoder.decode<std::vector<Record>>(json);
        if (!records || records.value().size() != std::size_t(catalogueSize)) {
            state.SkipWithError("the catalogue did not decode");
            break;
        }
        benchmark::DoNotOptimize(records);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * json.size());
    state.SetItemsProcessed(int64_t(state.iterations()) * catalogueSize);
}

void formulae(benchmark::State& state)
{
    decodeCatalogue<Homebrew::Formula>(state, formulaCatalogue());
}

void casks(benchmark::State& state)
{
    decodeCatalogue<Homebrew::Cask>(state, caskCatalogue());
}

// The same bytes without spare room behind them: the decoder has to copy them first.
void casksUnpadded(benchmark::State& state)
{
    const QByteArray& padded = caskCatalogue();
    decodeCatalogue<Homebrew::Cask>(state, QByteArray::fromRawData(padded.constData(), padded.size()));
}

// For scale: only parsing the same formulae into a QJsonDocument, without building any record.
void formulaeQJsonDocumentParseOnly(benchmark::State& state)
{
    const QByteArray& json = formulaCatalogue();
    for (auto _ : state) {
        const QJsonDocument document = QJsonDocument::fromJson(json);
        if (document.array().size() != catalogueSize) {
            state.SkipWithError("the catalogue did not parse");
            break;
        }
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * json.size());
}

} // namespace

BENCHMARK(formulae)->Unit(benchmark::kMillisecond);
BENCHMARK(casks)->Unit(benchmark::kMillisecond);
BENCHMARK(casksUnpadded)->Unit(benchmark::kMillisecond);
BENCHMARK(formulaeQJsonDocumentParseOnly)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
