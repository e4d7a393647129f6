// A whole synchronisation over a catalogue of the real size (7,500 formulae, 7,500 casks, about 40 MB) without its
// waits: the catalogues come from memory and brew's answers are canned, so what is timed is the application's own
// work (decoding, the store's batch requests, the merges into a view context that holds every record, the hops
// between the worker and the GUI thread). Beside it, the floor for the same load: a bare simdjson parse of both
// catalogues and a bare SQLite insert of as many rows.
#include "CatalogueGenerator.h"
#include "CatalogueReference.h"
#include "activities/ActivityCenter.h"
#include "activities/Transcript.h"
#include "catalogue/CoreDataManager.h"
#include "catalogue/HomebrewDecodableWrapper.h"
#include "catalogue/HomebrewSources.h"
#include "catalogue/Synchronisation.h"
#include "foundation/Bundle.h"
#include "foundation/Defaults.h"
#include "foundation/HttpClient.h"
#include "foundation/RailsJSONDecoder.h"
#include "homebrew/HomebrewCommands.h"
#include "homebrew/HomebrewInstallation.h"

#include <QCoreApplication>
#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>
#include <QTemporaryDir>
#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>

using namespace Qt::StringLiterals;

namespace {

[[noreturn]] void fail(const QString& what)
{
    std::fprintf(stderr, "BenchSynchronisation: %s\n", qPrintable(what));
    std::exit(1);
}

QByteArray readFile(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        fail(QStringLiteral("cannot read %1: %2").arg(path, file.errorString()));
    }
    return file.readAll();
}

// As brew's lists print a package: "owner/repository/token" outside the core repositories.
QString listedName(const QJsonObject& record, const QString& tokenKey)
{
    const QString token = record.value(tokenKey).toString();
    const QString tap = record.value(QStringLiteral("tap")).toString();
    return tap.isEmpty() || tap == u"homebrew/core" || tap == u"homebrew/cask" ? token : tap + u'/' + token;
}

// Every stride-th record from offset on, count of them: the same spread of installed packages on every run.
QList<QJsonObject> everyNth(const QJsonArray& records, qsizetype offset, qsizetype stride, qsizetype count)
{
    QList<QJsonObject> picked;
    for (qsizetype i = offset; i < records.size() && picked.size() < count; i += stride) {
        picked.append(records.at(i).toObject());
    }
    return picked;
}

QByteArray lines(const QStringList& names)
{
    return names.join(u'\n').toUtf8() + '\n';
}

// What the catalogue endpoints and brew answer, fixed once: the generated catalogue, the real records of one
// non-core repository (brewsci/bio) from the companion command, and a well-used machine: 300 packages installed
// (240 formulae, 60 casks), 40 outdated, 150 leaves, three repositories.
class Answers {
public:
    Answers()
    {
        if (!m_folder.isValid()) {
            fail(QStringLiteral("cannot create a temporary folder: %1").arg(m_folder.errorString()));
        }
        const CatalogueGenerator generator(QStringLiteral(CORVEL_SEED_DATA_DIR));
        if (const Result<void> outcome = generator.writeVerified(m_folder.path()); !outcome) {
            fail(outcome.error().description());
        }
        // Plain arrays, as a network reply or a child's output delivers them.
        formulaCatalogue = readFile(QDir(m_folder.path()).filePath(CatalogueGenerator::formulaFileName()));
        caskCatalogue = readFile(QDir(m_folder.path()).filePath(CatalogueGenerator::caskFileName()));
        const QByteArray bio = readFile(QStringLiteral(CORVEL_SEED_DATA_DIR "/catalogue/bio-formula.json"));
        tapFormulae = "{\n  \"formulae\": " + bio + ",\n  \"casks\": [\n\n  ]\n}\n";
        tapCasks = "{\n  \"formulae\": [\n\n  ],\n  \"casks\": [\n\n  ]\n}\n";

        const QJsonArray formulae = QJsonDocument::fromJson(formulaCatalogue).array();
        const QJsonArray casks = QJsonDocument::fromJson(caskCatalogue).array();
        if (formulae.size() != generator.formulaCount() || casks.size() != generator.caskCount()) {
            fail(QStringLiteral("the generated catalogue does not parse"));
        }
        const QList<QJsonObject> installed = everyNth(formulae, 3, 31, 240);
        QJsonArray installedRecords;
        QStringList installedNames;
        for (QJsonObject record : installed) {
            installedNames.append(listedName(record, QStringLiteral("name")));
            record.insert(QStringLiteral("installed"), QJsonArray{QJsonObject{{QStringLiteral("version"), "1.0"}}});
            installedRecords.append(record);
        }
        installedFormulae = QJsonDocument(QJsonObject{{QStringLiteral("formulae"), installedRecords},
                                                      {QStringLiteral("casks"), QJsonArray()}})
                                .toJson();
        QStringList outdated;
        for (qsizetype i = 0; i < installedNames.size(); i += 8) {
            outdated.append(installedNames.at(i));
        }
        outdatedFormulae = lines(outdated);
        leaves = lines(installedNames.mid(90, 150));

        QJsonArray installedCaskRecords;
        QStringList installedCaskNames;
        for (QJsonObject record : everyNth(casks, 7, 125, 60)) {
            installedCaskNames.append(listedName(record, QStringLiteral("token")));
            record.insert(QStringLiteral("installed"), QStringLiteral("1.0"));
            installedCaskRecords.append(record);
        }
        installedCasks = QJsonDocument(QJsonObject{{QStringLiteral("formulae"), QJsonArray()},
                                                   {QStringLiteral("casks"), installedCaskRecords}})
                             .toJson();
        QStringList outdatedCaskNames;
        for (qsizetype i = 0; i < installedCaskNames.size(); i += 6) {
            outdatedCaskNames.append(installedCaskNames.at(i));
        }
        outdatedCasks = lines(outdatedCaskNames);

        QJsonArray taps;
        for (const char* name : {"homebrew/cask", "homebrew/core", "brewsci/bio"}) {
            const QString tap = QString::fromLatin1(name);
            taps.append(QJsonObject{{QStringLiteral("name"), tap},
                                    {QStringLiteral("user"), tap.section(u'/', 0, 0)},
                                    {QStringLiteral("repo"), tap.section(u'/', 1, 1)},
                                    {QStringLiteral("installed"), true},
                                    {QStringLiteral("official"), tap.startsWith(u"homebrew/")},
                                    {QStringLiteral("formula_files"), QJsonArray()},
                                    {QStringLiteral("cask_files"), QJsonArray()},
                                    {QStringLiteral("command_files"), QJsonArray()},
                                    {QStringLiteral("remote"), QStringLiteral("https://github.com/") + tap}});
        }
        installedTaps = QJsonDocument(taps).toJson();

        // What the libraries hold: the catalogue and the repository's own formulae.
        libraryFormulae = formulae.size() + QJsonDocument::fromJson(bio).array().size();
        libraryCasks = casks.size();
        flaggedFormulae = {{QStringLiteral("installed"), installedNames.size()},
                           {QStringLiteral("outdated"), outdated.size()},
                           {QStringLiteral("isLeaf"), qMin<qsizetype>(150, installedNames.size() - 90)}};
        flaggedCasks = {{QStringLiteral("installed"), installedCaskNames.size()},
                        {QStringLiteral("outdated"), outdatedCaskNames.size()}};
    }

    QString folder() const { return m_folder.path(); }

    QByteArray formulaCatalogue;
    QByteArray caskCatalogue;
    QByteArray tapFormulae;
    QByteArray tapCasks;
    QByteArray installedFormulae;
    QByteArray installedCasks;
    QByteArray installedTaps;
    QByteArray outdatedFormulae;
    QByteArray outdatedCasks;
    QByteArray leaves;
    qsizetype libraryFormulae = 0;
    qsizetype libraryCasks = 0;
    QList<std::pair<QString, qsizetype>> flaggedFormulae;
    QList<std::pair<QString, qsizetype>> flaggedCasks;

private:
    QTemporaryDir m_folder;
};

const Answers& answers()
{
    static const Answers instance;
    return instance;
}

template <class T>
Result<std::vector<T>> decodeWrapped(const QByteArray& output)
{
    Result<Homebrew::DecodableWrapper<T>> wrapper = RailsJSONDecoder().decode<Homebrew::DecodableWrapper<T>>(output);
    if (!wrapper) {
        return wrapper.error();
    }
    return std::move(wrapper.value().items);
}

// Every source answered from memory and decoded as the real ones decode what they receive.
class CannedSources : public Homebrew::Sources {
public:
    CannedSources(const Homebrew::Commands& commands, HttpClient& httpClient)
        : Sources(commands, QUrl(), httpClient)
    {}

    Result<std::vector<Homebrew::Formula>> allFormulae() const override
    {
        return RailsJSONDecoder().decode<std::vector<Homebrew::Formula>>(answers().formulaCatalogue);
    }
    Result<std::vector<Homebrew::Cask>> allCasks() const override
    {
        return RailsJSONDecoder().decode<std::vector<Homebrew::Cask>>(answers().caskCatalogue);
    }
    Result<std::vector<Homebrew::Formula>> installedFormulae() const override
    {
        return decodeWrapped<Homebrew::Formula>(answers().installedFormulae);
    }
    Result<std::vector<Homebrew::Cask>> installedCasks() const override
    {
        return decodeWrapped<Homebrew::Cask>(answers().installedCasks);
    }
    Result<std::vector<Homebrew::Formula>> tapFormulae() const override
    {
        return decodeWrapped<Homebrew::Formula>(answers().tapFormulae);
    }
    Result<std::vector<Homebrew::Cask>> tapCasks() const override
    {
        return decodeWrapped<Homebrew::Cask>(answers().tapCasks);
    }
    Result<std::vector<Homebrew::Tap>> installedTaps() const override
    {
        return RailsJSONDecoder().decode<std::vector<Homebrew::Tap>>(answers().installedTaps);
    }
    Result<QStringList> outdatedFormulae() const override { return tokenList(answers().outdatedFormulae); }
    Result<QStringList> outdatedCasks() const override { return tokenList(answers().outdatedCasks); }
    Result<QStringList> leaves() const override { return tokenList(answers().leaves); }
};

// A throw-away store and preferences with a synchronisation over the canned sources; the runner behind the sources
// is never asked to start a child.
class Machine {
public:
    Machine()
    {
        if (!m_folder.isValid()) {
            fail(QStringLiteral("cannot create a temporary folder: %1").arg(m_folder.errorString()));
        }
    }

    // Runs one pass to its end on this thread's event loop; its error, empty on success.
    QString run(Synchronisation::Form form)
    {
        QEventLoop loop;
        QString error = QStringLiteral("the pass did not start");
        QObject::connect(&m_synchronisation, &Synchronisation::finished, &loop,
                         [&](bool succeeded, const QString& description) {
                             error = succeeded ? QString() : description;
                             loop.quit();
                         });
        if (m_synchronisation.start(form)) {
            loop.exec();
        }
        return error;
    }

    // What the tables do: every record fetched into the view context, to be kept up to date by the merges.
    QString holdEverything()
    {
        for (const char* entity : {"Formula", "Cask", "Tap"}) {
            if (const auto fetched = m_store.viewContext()->fetch(QString::fromLatin1(entity)); !fetched) {
                return fetched.error().description();
            }
        }
        return {};
    }

    // What the view context sees after a full pass, against what the answers call for; empty when all is right.
    QString mismatch()
    {
        QStringList wrong;
        const auto expect = [&](const QString& entity, const QString& flag, qsizetype expected) {
            const auto fetched = flag.isEmpty() ? m_store.viewContext()->fetch(entity)
                                                : m_store.viewContext()->fetch(entity, flag + u" == YES"_s, {});
            const qsizetype actual = fetched ? fetched.value().size() : -1;
            if (actual != expected) {
                wrong.append(u"%1 %2: %3 instead of %4"_s.arg(entity, flag).arg(actual).arg(expected));
            }
        };
        expect(u"Formula"_s, {}, answers().libraryFormulae);
        expect(u"Cask"_s, {}, answers().libraryCasks);
        for (const auto& [flag, expected] : answers().flaggedFormulae) {
            expect(u"Formula"_s, flag, expected);
        }
        for (const auto& [flag, expected] : answers().flaggedCasks) {
            expect(u"Cask"_s, flag, expected);
        }
        return wrong.join(QStringLiteral("; "));
    }

private:
    QTemporaryDir m_folder;
    Homebrew::Installation m_installation{m_folder.path()};
    Bundle m_bundle{m_folder.path()};
    ActivityCenter m_activityCenter;
    Transcript m_transcript;
    Homebrew::Commands m_commands{m_installation, m_bundle, m_activityCenter, m_transcript};
    HttpClient m_httpClient;
    CannedSources m_sources{m_commands, m_httpClient};
    CoreDataManager m_store{m_folder.filePath(QStringLiteral("Corvel X.sqlite"))};
    Defaults m_defaults{m_folder.filePath(QStringLiteral("settings.ini"))};
    Synchronisation m_synchronisation{m_store, m_sources, m_defaults, m_activityCenter};
};

void synchronise(benchmark::State& state, Synchronisation::Form form)
{
    Machine machine;
    // The first pass fills the empty store, so that every timed pass replaces or refreshes a full one.
    if (const QString error = machine.run(Synchronisation::Form::full); !error.isEmpty()) {
        state.SkipWithError(qPrintable(error));
        return;
    }
    for (auto _ : state) {
        state.PauseTiming();
        // Objects the last merges dropped go here, outside the timing, as the event loop would take them.
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        const QString held = machine.holdEverything();
        state.ResumeTiming();
        const QString error = held.isEmpty() ? machine.run(form) : held;
        if (!error.isEmpty()) {
            state.SkipWithError(qPrintable(error));
            return;
        }
    }
    // A pass that flagged the wrong records measured the wrong work.
    if (const QString wrong = machine.mismatch(); !wrong.isEmpty()) {
        state.SkipWithError(qPrintable(wrong));
        return;
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * (answers().libraryFormulae + answers().libraryCasks));
}

void fullSynchronisation(benchmark::State& state)
{
    synchronise(state, Synchronisation::Form::full);
}

void fastSynchronisation(benchmark::State& state)
{
    synchronise(state, Synchronisation::Form::fast);
}

// The floor of a full pass: both catalogues parsed bare and every library row inserted bare, one transaction.
void rawReference(benchmark::State& state)
{
    const QByteArray formulaJson = RailsJSONDecoder::padded(answers().formulaCatalogue);
    const QByteArray caskJson = RailsJSONDecoder::padded(answers().caskCatalogue);
    const RailsJSONDecoder decoder;
    Result<std::vector<Homebrew::Formula>> formulae = decoder.decode<std::vector<Homebrew::Formula>>(formulaJson);
    const Result<std::vector<Homebrew::Formula>> tapFormulae = decodeWrapped<Homebrew::Formula>(answers().tapFormulae);
    const Result<std::vector<Homebrew::Cask>> casks = decoder.decode<std::vector<Homebrew::Cask>>(caskJson);
    if (!formulae || !tapFormulae || !casks) {
        state.SkipWithError("the catalogue does not decode");
        return;
    }
    formulae.value().insert(formulae.value().end(), tapFormulae.value().begin(), tapFormulae.value().end());
    const std::vector<CatalogueReference::PackageRow> rows =
        CatalogueReference::rowsOf(formulae.value(), casks.value());
    const QString path = QDir(answers().folder()).filePath(QStringLiteral("bare.sqlite"));
    simdjson::ondemand::parser parser;

    for (auto _ : state) {
        state.PauseTiming();
        QString error;
        sqlite3* database = CatalogueReference::createBareDatabase(path, error);
        state.ResumeTiming();
        std::size_t total = 0;
        const std::optional<std::size_t> parsedFormulae =
            CatalogueReference::bareParse(parser, formulaJson, CatalogueReference::formulaColumns, total);
        const std::optional<std::size_t> parsedCasks =
            CatalogueReference::bareParse(parser, caskJson, CatalogueReference::caskColumns, total);
        const bool inserted =
            database && parsedFormulae && parsedCasks && CatalogueReference::insertRows(database, rows, error);
        benchmark::DoNotOptimize(total);
        state.PauseTiming();
        sqlite3_close(database);
        state.ResumeTiming();
        if (!inserted) {
            state.SkipWithError(error.isEmpty() ? "the catalogue did not parse" : qPrintable(error));
            return;
        }
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(rows.size()));
}

} // namespace

// Wall time: the worker, the GUI thread and the disk all take part, which the CPU time of one thread leaves out.
BENCHMARK(fullSynchronisation)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(fastSynchronisation)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(rawReference)->Unit(benchmark::kMillisecond)->UseRealTime();

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    // The passes hop to this thread, whose event loop also deletes the objects that merges drop.
    QCoreApplication application(argc, argv);
    // Generated and checked before any timing, so that a broken catalogue stops the run with its reason.
    answers();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
