// One search keystroke over a catalogue of the real size (7,500 formulae, 7,500 casks) built from the real
// sample records: the search field's predicate evaluated in memory, with and without pre-folded text.
#include "catalogue/Predicate.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

constexpr int recordsPerCatalogue = 7500;

[[noreturn]] void fail(const char* what)
{
    std::fprintf(stderr, "BenchPredicate: %s\n", what);
    std::exit(1);
}

// The searchable attributes of an entity, folded once as the entities fold them.
class SearchRecord : public KeyValueRecord {
public:
    SearchRecord(QString token, QString name, QString desc, bool folding)
        : m_token(std::move(token))
        , m_name(std::move(name))
        , m_desc(std::move(desc))
    {
        if (folding) {
            m_foldedToken = m_token.toCaseFolded();
            m_foldedName = m_name.toCaseFolded();
            m_foldedDesc = m_desc.toCaseFolded();
        }
    }

    QVariant value(QStringView keyPath) const override
    {
        if (keyPath == u"token") {
            return m_token;
        }
        if (keyPath == u"name") {
            return m_name;
        }
        if (keyPath == u"desc" && !m_desc.isNull()) {
            return m_desc;
        }
        return {};
    }

    std::optional<QStringView> foldedValue(QStringView keyPath) const override
    {
        if (keyPath == u"token") {
            return m_foldedToken;
        }
        if (keyPath == u"name") {
            return m_foldedName;
        }
        if (keyPath == u"desc") {
            return m_foldedDesc;
        }
        return std::nullopt;
    }

private:
    QString m_token;
    QString m_name;
    QString m_desc;
    QString m_foldedToken;
    QString m_foldedName;
    QString m_foldedDesc;
};

QJsonArray readSample(const char* file)
{
    QFile sample(QStringLiteral(CORVEL_SEED_DATA_DIR "/catalogue/") + QString::fromLatin1(file));
    if (!sample.open(QIODevice::ReadOnly)) {
        fail("cannot read the sample records");
    }
    const QJsonArray records = QJsonDocument::fromJson(sample.readAll()).array();
    if (records.isEmpty()) {
        fail("the sample holds no records");
    }
    return records;
}

// The samples repeated, renamed, up to the real size of each catalogue.
std::vector<SearchRecord> buildCatalogue(bool folding)
{
    std::vector<SearchRecord> records;
    const QJsonArray formulae = readSample("formula-sample.json");
    const QJsonArray casks = readSample("cask-sample.json");
    for (int i = 0; i < recordsPerCatalogue; ++i) {
        const QJsonObject formula = formulae.at(i % formulae.size()).toObject();
        const QString copy = QLatin1Char('-') + QString::number(i / formulae.size());
        records.emplace_back(formula.value(u"name").toString() + copy, formula.value(u"full_name").toString() + copy,
                             formula.value(u"desc").toString(), folding);
    }
    for (int i = 0; i < recordsPerCatalogue; ++i) {
        const QJsonObject cask = casks.at(i % casks.size()).toObject();
        const QString copy = QLatin1Char('-') + QString::number(i / casks.size());
        QStringList nameParts;
        for (const QJsonValue& part : cask.value(u"name").toArray()) {
            nameParts.append(part.toString());
        }
        records.emplace_back(cask.value(u"token").toString() + copy, nameParts.join(QLatin1Char(' ')),
                             cask.value(u"desc").toString(), folding);
    }
    return records;
}

void searchKeystroke(benchmark::State& state, bool folding)
{
    const std::vector<SearchRecord> records = buildCatalogue(folding);
    const QString typed = QStringLiteral("Brows");
    qsizetype matches = 0;
    for (auto _ : state) {
        const Result<Predicate> predicate =
            Predicate::parse(QStringLiteral("name CONTAINS[c] %@ OR token CONTAINS[c] %@ OR desc CONTAINS[c] %@"),
                             {typed, typed, typed});
        if (!predicate) {
            fail("the search predicate does not parse");
        }
        matches = 0;
        for (const SearchRecord& record : records) {
            matches += predicate.value().evaluate(record) ? 1 : 0;
        }
        benchmark::DoNotOptimize(matches);
    }
    state.counters["records"] = double(records.size());
    state.counters["matches"] = double(matches);
}

void BM_SearchKeystrokePrefolded(benchmark::State& state)
{
    searchKeystroke(state, true);
}

void BM_SearchKeystrokeFoldingEachRecord(benchmark::State& state)
{
    searchKeystroke(state, false);
}

} // namespace

BENCHMARK(BM_SearchKeystrokePrefolded)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SearchKeystrokeFoldingEachRecord)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
