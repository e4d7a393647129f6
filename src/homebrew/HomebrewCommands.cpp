#include "homebrew/HomebrewCommands.h"

#include "activities/ActivityCenter.h"
#include "activities/Transcript.h"
#include "foundation/Bundle.h"
#include "foundation/Threading.h"
#include "homebrew/HomebrewError.h"
#include "homebrew/HomebrewInstallation.h"
#include "homebrew/HomebrewOutputDecoder.h"
#include "homebrew/RuntimeError.h"

#include <QDir>
#include <QFileInfo>
#include <QProcessEnvironment>
#include <QStringDecoder>

namespace Homebrew {

namespace {

Error launchError(const QProcess& process)
{
    return Error(Commands::launchErrorDomain(), int(process.error()), process.errorString());
}

// Starts the child and waits for it to be running; a child that cannot be started is reported as the system
// described it.
Result<void> launch(QProcess& process)
{
    process.start();
    if (!process.waitForStarted(-1)) {
        return launchError(process);
    }
    return {};
}

// There is no event loop on the worker, so the child is waited on directly. waitForFinished keeps draining the
// pipe into the process's buffer meanwhile, so a chatty child never blocks on a full pipe.
void waitForExit(QProcess& process)
{
    while (process.state() != QProcess::NotRunning) {
        process.waitForFinished(-1);
    }
}

Result<void> judgeExit(const QProcess& process)
{
    if (process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0) {
        return RuntimeError::processTerminated();
    }
    return {};
}

} // namespace

Commands::Commands(const Installation& installation, const Bundle& bundle, ActivityCenter& activityCenter,
                   Transcript& transcript)
    : m_installation(installation)
    , m_bundle(bundle)
    , m_activityCenter(activityCenter)
    , m_transcript(transcript)
{}

Commands& Commands::shared()
{
    static Commands commands(Installation::shared(), Bundle::main(), ActivityCenter::shared(), Transcript::shared());
    return commands;
}

QString Commands::launchErrorDomain()
{
    return QStringLiteral("ProcessLaunchError");
}

Result<std::unique_ptr<QProcess>> Commands::makeProcess() const
{
    const auto brewPath = m_installation.brewPath();
    if (!brewPath || !QFileInfo(*brewPath).isFile()) {
        return HomebrewError::make(HomebrewError::processNotAvailable);
    }
    auto process = std::make_unique<QProcess>();
    // Absolute, so that nothing is looked up in PATH.
    process->setProgram(*brewPath);
    process->setProcessChannelMode(QProcess::MergedChannels);
    // Nobody answers a question the child might ask: it reads end of input instead of waiting forever.
    process->setStandardInputFile(QProcess::nullDevice());
    if (const auto askpass = m_bundle.pathForResource(QStringLiteral("Askpass"))) {
        // Exactly these two: nothing of the application's own environment (PATH, locale, HOMEBREW_*) reaches brew.
        QProcessEnvironment environment;
        environment.insert(QStringLiteral("SUDO_ASKPASS"), *askpass);
        environment.insert(QStringLiteral("HOME"), QDir::homePath());
        process->setProcessEnvironment(environment);
    }
    return process;
}

Result<std::unique_ptr<QProcess>> Commands::prepare(const QStringList& arguments) const
{
    if (Threading::isGuiThread()) {
        // Waiting for a child here would freeze the interface for as long as brew runs.
        return RuntimeError::make(QStringLiteral("Homebrew commands must not run on the GUI thread"));
    }
    auto made = makeProcess();
    if (!made) {
        return made;
    }
    made.value()->setArguments(arguments);
    return made;
}

Result<void> Commands::run(const QStringList& arguments, const QStringList& extraArguments, const QString& target,
                           const QString& action, const std::function<Result<void>()>& followUp) const
{
    auto prepared = prepare(arguments);
    if (!prepared) {
        return prepared.error();
    }
    QProcess& process = *prepared.value();
    process.setArguments(process.arguments() + extraArguments);

    const ActivityPtr activity = Activity::make(target, action);
    m_activityCenter.post(activity);

    OutputDecoder decoder;
    const auto forward = [&] {
        // Chunks are handed on as they come; the transcript splits them into lines.
        const QString text = decoder.decode(process.readAll());
        if (!text.isEmpty()) {
            m_transcript.append(text, activity);
        }
    };

    if (auto launched = launch(process); !launched) {
        return launched;
    }
    while (process.state() != QProcess::NotRunning) {
        if (process.waitForReadyRead(-1)) {
            forward();
        } else if (process.state() != QProcess::NotRunning) {
            // Nothing more can be read while it runs; whatever it still writes is buffered until it exits.
            process.waitForFinished(-1);
        }
    }
    // waitForReadyRead returns false once the child has exited, possibly with its last output still buffered.
    forward();

    if (auto ended = judgeExit(process); !ended) {
        return ended;
    }
    return followUp ? followUp() : Result<void>();
}

Result<QByteArray> Commands::collect(const QStringList& arguments) const
{
    auto prepared = prepare(arguments);
    if (!prepared) {
        return prepared.error();
    }
    QProcess& process = *prepared.value();
    if (auto launched = launch(process); !launched) {
        return launched.error();
    }
    waitForExit(process);
    if (auto ended = judgeExit(process); !ended) {
        return ended.error();
    }
    return process.readAll();
}

Result<void> Commands::runSilently(const QStringList& arguments) const
{
    auto prepared = prepare(arguments);
    if (!prepared) {
        return prepared.error();
    }
    QProcess& process = *prepared.value();
    // Merged channels follow standard output, so both go to the null device and nothing piles up in memory.
    process.setStandardOutputFile(QProcess::nullDevice());
    if (auto launched = launch(process); !launched) {
        return launched;
    }
    waitForExit(process);
    return judgeExit(process);
}

Result<void> Commands::update() const
{
    auto prepared = prepare({QStringLiteral("update")});
    if (!prepared) {
        return prepared.error();
    }
    QProcess& process = *prepared.value();
    // The output is kept (not sent to the null device) because a failure is explained by Homebrew's own words.
    if (auto launched = launch(process); !launched) {
        return launched;
    }
    waitForExit(process);
    if (judgeExit(process)) {
        return {};
    }
    QStringDecoder decoder(QStringDecoder::Utf8,
                           QStringConverter::Flag::Stateless | QStringConverter::Flag::ConvertInitialBom);
    const QString text = decoder.decode(process.readAll());
    if (decoder.hasError()) {
        return HomebrewError::make(HomebrewError::unknown);
    }
    return HomebrewError::make(HomebrewError::unableToUpdate, text);
}

} // namespace Homebrew
