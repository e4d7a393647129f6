// Cold start of the real program on a full-size catalogue: from launching corvel-x to its first painted table, and
// the peak memory it took to get there. The store is filled once, by the program's own "sync", beforehand.
#include "CatalogueGenerator.h"
#include "foundation/Defaults.h"
#include "foundation/PreferenceKeys.h"
#include "foundation/PropertyList.h"
#include "homebrew/SimulatedHomebrew.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QUrl>
#include <benchmark/benchmark.h>
#include <cstdio>

namespace {

// One prepared machine for every run: catalogue files, a simulated Homebrew with a well-used set of installed
// packages, and a home whose store already holds the synchronised catalogue.
class Machine {
public:
    static Machine& shared()
    {
        static Machine machine;
        return machine;
    }

    bool ready() const { return m_error.isEmpty(); }
    const QString& error() const { return m_error; }

    QStringList arguments() const
    {
        return {QStringLiteral("--config"), m_folder.filePath(QStringLiteral("Info.plist")), QStringLiteral("--root"),
                m_folder.filePath(QStringLiteral("machine"))};
    }

    QProcessEnvironment environment() const
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        const QString home = m_folder.filePath(QStringLiteral("home"));
        environment.insert(QStringLiteral("HOME"), home);
        environment.insert(QStringLiteral("XDG_CONFIG_HOME"), home + QStringLiteral("/.config"));
        environment.insert(QStringLiteral("XDG_DATA_HOME"), home + QStringLiteral("/.local/share"));
        environment.insert(QStringLiteral("XDG_CACHE_HOME"), home + QStringLiteral("/.cache"));
        environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
        environment.remove(QStringLiteral("DISPLAY"));
        environment.remove(QStringLiteral("WAYLAND_DISPLAY"));
        return environment;
    }

    static QString program() { return QCoreApplication::applicationDirPath() + QStringLiteral("/corvel-x"); }

private:
    Machine() { m_error = prepare(); }

    QString prepare()
    {
        if (!m_folder.isValid()) {
            return QStringLiteral("no temporary folder");
        }
        const QString api = m_folder.filePath(QStringLiteral("catalogue/api"));
        const CatalogueGenerator generator(QStringLiteral(CORVEL_SEED_DATA_DIR));
        if (const Result<void> written = generator.writeVerified(api); !written) {
            return written.error().description();
        }
        QJsonObject casks;
        QJsonObject formulae;
        if (const QString failure = pickInstalled(api, casks, formulae); !failure.isEmpty()) {
            return failure;
        }
        const QJsonObject state{
            {QStringLiteral("taps"), QJsonArray{QStringLiteral("homebrew/cask"), QStringLiteral("homebrew/core"),
                                                QStringLiteral("tesselworks/corvel-cmd")}},
            {QStringLiteral("casks"), casks},
            {QStringLiteral("formulae"), formulae},
            {QStringLiteral("catalogue"),
             QJsonObject{{QStringLiteral("formulae"), api + u'/' + CatalogueGenerator::formulaFileName()},
                         {QStringLiteral("casks"), api + u'/' + CatalogueGenerator::caskFileName()}}},
        };
        const QString root = m_folder.filePath(QStringLiteral("machine"));
        QDir().mkpath(root);
        if (const Result<SimulatedHomebrew> brew = SimulatedHomebrew::create(root, state); !brew) {
            return brew.error().description();
        }
        QFile info(m_folder.filePath(QStringLiteral("Info.plist")));
        const QByteArray plist = PropertyList::serialize(
            QVariantMap{{QStringLiteral("TW_HOMEBREW_API_URL"),
                         QUrl::fromLocalFile(m_folder.filePath(QStringLiteral("catalogue"))).toString()}});
        if (!info.open(QIODevice::WriteOnly) || info.write(plist) != plist.size()) {
            return QStringLiteral("cannot write Info.plist");
        }
        info.close();

        QProcess sync;
        sync.setProcessEnvironment(environment());
        sync.setProcessChannelMode(QProcess::MergedChannels);
        sync.start(program(), QStringList{QStringLiteral("sync")} + arguments());
        if (!sync.waitForFinished(600000) || sync.exitStatus() != QProcess::NormalExit || sync.exitCode() != 0) {
            return QStringLiteral("corvel-x sync failed: ") + QString::fromUtf8(sync.readAll());
        }
        // The window opens on the catalogue, as on every start after the first.
        const QString home = m_folder.filePath(QStringLiteral("home"));
        Defaults defaults(home + QStringLiteral("/.config/works.tessel.corvel/Corvel X.conf"));
        defaults.setValue(PreferenceKeys::IsFirstRun, false);
        defaults.setValue(PreferenceKeys::SyncOnAppLaunch, false);
        defaults.setValue(PreferenceKeys::ShowWebsiteIcons, false);
        defaults.setValue(PreferenceKeys::LastFastSyncTime, QDateTime::currentDateTime());
        defaults.sync();
        return {};
    }

    // Every 40th app and every 25th script, with their catalogue versions: a well-used machine.
    static QString pickInstalled(const QString& api, QJsonObject& casks, QJsonObject& formulae)
    {
        const auto load = [&](const QString& name) {
            QFile file(api + u'/' + name);
            return file.open(QIODevice::ReadOnly) ? QJsonDocument::fromJson(file.readAll()).array() : QJsonArray();
        };
        const QJsonArray caskRecords = load(CatalogueGenerator::caskFileName());
        const QJsonArray formulaRecords = load(CatalogueGenerator::formulaFileName());
        if (caskRecords.isEmpty() || formulaRecords.isEmpty()) {
            return QStringLiteral("cannot read the generated catalogue");
        }
        for (qsizetype i = 0; i < caskRecords.size(); i += 40) {
            const QJsonObject record = caskRecords.at(i).toObject();
            casks.insert(record.value(QStringLiteral("token")).toString(), record.value(QStringLiteral("version")));
        }
        for (qsizetype i = 0; i < formulaRecords.size(); i += 25) {
            const QJsonObject record = formulaRecords.at(i).toObject();
            formulae.insert(record.value(QStringLiteral("name")).toString(),
                            record.value(QStringLiteral("versions")).toObject().value(QStringLiteral("stable")));
        }
        return {};
    }

    QTemporaryDir m_folder;
    QString m_error;
};

void coldStartToFirstPaintedTable(benchmark::State& state)
{
    Machine& machine = Machine::shared();
    if (!machine.ready()) {
        state.SkipWithError(machine.error().toUtf8().constData());
        return;
    }
    static const QRegularExpression report(QStringLiteral("first paint after (\\d+) ms, peak memory (\\d+) KiB"));
    double reportedMs = 0;
    double peakKiB = 0;
    for (auto _ : state) {
        QProcess child;
        child.setProcessEnvironment(machine.environment());
        QElapsedTimer clock;
        clock.start();
        child.start(Machine::program(), QStringList{QStringLiteral("--measure-startup")} + machine.arguments());
        const bool ended = child.waitForFinished(60000);
        const double seconds = double(clock.nsecsElapsed()) / 1e9;
        const QString out = QString::fromUtf8(child.readAllStandardOutput());
        const QRegularExpressionMatch match = report.match(out);
        if (!ended || child.exitCode() != 0 || !match.hasMatch()) {
            state.SkipWithError(
                ("corvel-x did not report its start: " + out.toStdString() + child.readAllStandardError().toStdString())
                    .c_str());
            return;
        }
        state.SetIterationTime(seconds);
        reportedMs = std::max(reportedMs, match.captured(1).toDouble());
        peakKiB = std::max(peakKiB, match.captured(2).toDouble());
    }
    // The whole process lifetime is timed (including quitting); these are what the program itself saw.
    state.counters["first_paint_ms_max"] = reportedMs;
    state.counters["peak_MiB_max"] = peakKiB / 1024.0;
}

} // namespace

BENCHMARK(coldStartToFirstPaintedTable)->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(10);

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    QCoreApplication application(argc, argv);
    if (!Machine::shared().ready()) {
        std::fprintf(stderr, "BenchStartup: %s\n", Machine::shared().error().toUtf8().constData());
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
