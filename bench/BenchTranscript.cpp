// Output of a busy command reaching the transcript pane: lines go through Transcript::append, the model and a
// shown list that follows the end, 10,000 lines a round in chunks of 50 with the events processed after each
// chunk, as a reading thread delivers them. The backlog argument is the number of lines already shown, to see
// that a long transcript does not slow each new line down.
#include "activities/ActivityCenter.h"
#include "activities/Transcript.h"
#include "foundation/Alerter.h"
#include "foundation/Defaults.h"
#include "ui/TranscriptModel.h"
#include "ui/TranscriptPane.h"

#include <QApplication>
#include <QComboBox>
#include <QListView>
#include <QScrollBar>
#include <QTemporaryDir>
#include <benchmark/benchmark.h>

namespace {

constexpr int linesPerRound = 10'000;
constexpr int linesPerChunk = 50;

// Saving is not measured; nothing is ever asked.
class SilentAlerter : public Alerter {
public:
    void present(const Alert&, std::function<void(AlertResponse)> done) override { done({}); }
};

QStringList chunks(const QString& prefix)
{
    QStringList result;
    for (int c = 0; c < linesPerRound / linesPerChunk; ++c) {
        QString chunk;
        for (int l = 0; l < linesPerChunk; ++l) {
            chunk += QStringLiteral("%1 ==> Downloading https://ghcr.io/v2/homebrew/core/pkg/blobs/sha256:%2%3\n")
                         .arg(prefix)
                         .arg(c, 6, 10, QLatin1Char('0'))
                         .arg(l, 4, 10, QLatin1Char('0'));
        }
        result.append(chunk);
    }
    return result;
}

// Arguments: whether the pane shows one of two activities (half the lines) or all, and the backlog.
void linesToShownList(benchmark::State& state)
{
    const bool filtered = state.range(0) != 0;
    const int backlog = int(state.range(1));

    QTemporaryDir folder;
    Transcript transcript;
    ActivityCenter center;
    Defaults defaults(folder.filePath(QStringLiteral("settings.ini")));
    SilentAlerter alerter;
    const ActivityPtr shown = Activity::make(QStringLiteral("llvm"), QStringLiteral("Install"));
    const ActivityPtr other = Activity::make(QStringLiteral("ffmpeg"), QStringLiteral("Upgrade"));
    center.post(other);
    center.post(shown);
    QCoreApplication::processEvents();

    TranscriptPane pane(transcript, center, defaults, alerter);
    pane.resize(900, 300);
    pane.show();
    if (filtered) {
        pane.sourcesBox()->setCurrentIndex(2);
    }
    const QStringList text = chunks(QStringLiteral("fill"));
    for (int round = 0; round < backlog / linesPerRound; ++round) {
        for (const QString& chunk : text) {
            transcript.append(chunk, shown);
        }
        QCoreApplication::processEvents();
    }
    QCoreApplication::processEvents();

    const QStringList rounds = chunks(QStringLiteral("line"));
    qsizetype chunk = 0;
    for (auto _ : state) {
        for (const QString& lines : rounds) {
            transcript.append(lines, filtered && (chunk++ % 2) ? other : shown);
            QCoreApplication::processEvents();
        }
    }
    QCoreApplication::processEvents();

    const QScrollBar* bar = pane.listView()->verticalScrollBar();
    const qsizetype expectedRows =
        backlog + qsizetype(state.iterations()) * (filtered ? linesPerRound / 2 : linesPerRound);
    if (pane.model()->rowCount() != expectedRows) {
        state.SkipWithError("the list lacks lines");
    } else if (bar->maximum() == 0 || bar->value() != bar->maximum()) {
        state.SkipWithError("the list did not follow the end");
    }
    state.SetItemsProcessed(state.iterations() * linesPerRound);
    state.counters["rows"] = double(pane.model()->rowCount());
}

} // namespace

BENCHMARK(linesToShownList)
    ->ArgNames({"filtered", "backlog"})
    ->Args({0, 0})
    ->Args({1, 0})
    ->Args({0, 200'000})
    ->Iterations(5)
    ->Unit(benchmark::kMillisecond);

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication application(argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
