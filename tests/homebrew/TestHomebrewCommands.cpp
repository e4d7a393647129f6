#include "activities/ActivityCenter.h"
#include "activities/Transcript.h"
#include "foundation/Bundle.h"
#include "foundation/Threading.h"
#include "homebrew/HomebrewCommands.h"
#include "homebrew/HomebrewError.h"
#include "homebrew/HomebrewInstallation.h"
#include "homebrew/HomebrewOutputDecoder.h"
#include "homebrew/RuntimeError.h"
#include "homebrew/SimulatedHomebrew.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QProcessEnvironment>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>
#include <chrono>
#include <fcntl.h>
#include <future>
#include <sys/stat.h>
#include <unistd.h>

using namespace std::chrono_literals;

namespace {

// Simulated commands start a real process each; generous, because a loaded machine is not a failure.
constexpr int finishTimeout = 60000;

const QString processTerminated = QStringLiteral("Process terminated with an error");

// Runs work on the shared pool, as the application's operations do; the GUI thread waits with QTRY_VERIFY.
template <class F>
auto inBackground(F work)
{
    using T = std::invoke_result_t<F>;
    auto task = std::make_shared<std::packaged_task<T()>>(std::move(work));
    auto future = task->get_future();
    Threading::runInBackground([task] { (*task)(); });
    return future;
}

template <class T>
bool isReady(const std::future<T>& future)
{
    return future.wait_for(0s) == std::future_status::ready;
}

// Waits for background work and then for what it queued to the GUI thread (activities, transcript lines):
// everything it queued was posted before the future became ready.
#define FINISH(future)                                                                                                 \
    do {                                                                                                               \
        QTRY_VERIFY_WITH_TIMEOUT(isReady(future), finishTimeout);                                                      \
        QCoreApplication::sendPostedEvents();                                                                          \
    } while (false)

bool writeFile(const QString& path, const QByteArray& content, QFileDevice::Permissions permissions = {})
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size()) {
        return false;
    }
    file.close();
    return permissions == QFileDevice::Permissions() || file.setPermissions(permissions);
}

const QFileDevice::Permissions executable = QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner;

// The error of a result, or a default Error for a success (which no expected error equals).
template <class T>
Error errorOf(const Result<T>& result)
{
    return result.ok() ? Error() : result.error();
}

QString describe(const Error& error)
{
    return error.domain() + QStringLiteral(" ") + QString::number(error.code()) + QStringLiteral(": ") +
           error.description();
}

// For failure messages, which are built whether or not the check fails.
template <class T>
QString describe(const Result<T>& result)
{
    return result.ok() ? QStringLiteral("success") : describe(result.error());
}

// A root, a bundle, and a runner with its own activity centre and transcript.
struct Fixture {
    QTemporaryDir root;
    QTemporaryDir resources;
    Homebrew::Installation installation{root.path()};
    Bundle bundle{resources.path()};
    ActivityCenter activityCenter;
    Transcript transcript;
    Homebrew::Commands commands{installation, bundle, activityCenter, transcript};
    std::optional<SimulatedHomebrew> brew;

    QString askpassPath() const { return resources.filePath(QStringLiteral("Askpass")); }

    // Empty on success, else what went wrong.
    QString simulate(const QJsonObject& state = {}, const QJsonObject& faults = {})
    {
        auto created = SimulatedHomebrew::create(root.path(), state);
        if (!created) {
            return created.error().description();
        }
        brew = std::move(created.value());
        if (!faults.isEmpty()) {
            if (auto set = brew->setStateValue(QStringLiteral("faults"), faults); !set) {
                return set.error().description();
            }
        }
        return {};
    }

    // A shell script in place of brew, for what the simulator cannot do (crash, pause mid-character).
    bool script(const QByteArray& body)
    {
        const QString path = root.path() + QStringLiteral("/opt/homebrew/bin/brew");
        return writeFile(path, "#!/bin/sh\n" + body, executable);
    }

    QStringList lines() const
    {
        QStringList result;
        for (const TranscriptMessage& message : transcript.messages()) {
            result.append(message.string());
        }
        return result;
    }
};

} // namespace

class TestHomebrewCommands : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void decodesChunks_data();
    void decodesChunks();
    void childEnvironment_data();
    void childEnvironment();
    void streamed_data();
    void streamed();
    void quietModes_data();
    void quietModes();
    void withoutHomebrew_data();
    void withoutHomebrew();
    void launchFailureIsTheSystems();
    void crashIsATerminationError();
    void invalidChunkIsDroppedAndLaterOutputArrives();
    void characterSplitAcrossReadsArrivesIntact();
    void refusesTheGuiThread();
    void slowCommandsLeaveTheGuiThreadFree();
};

void TestHomebrewCommands::decodesChunks_data()
{
    QTest::addColumn<QList<QByteArray>>("chunks");
    QTest::addColumn<QStringList>("expected"); // the non-empty texts handed on, in order

    using Chunks = QList<QByteArray>;
    QTest::newRow("whole lines") << Chunks{"==> Pouring\n", "done\n"} << QStringList{"==> Pouring\n", "done\n"};
    QTest::newRow("emoji cut 1|3") << Chunks{"\xf0", "\x9f\x8d\xba  wget\n"} << QStringList{u"🍺  wget\n"_qs};
    QTest::newRow("emoji cut 2|2") << Chunks{"x \xf0\x9f", "\x8d\xba y"} << QStringList{"x ", u"🍺 y"_qs};
    QTest::newRow("emoji cut 3|1") << Chunks{"\xf0\x9f\x8d", "\xba"} << QStringList{u"🍺"_qs};
    QTest::newRow("emoji over four chunks") << Chunks{"\xf0", "\x9f", "\x8d", "\xba!"} << QStringList{u"🍺!"_qs};
    QTest::newRow("3-byte cut 1|2") << Chunks{"price \xe2", "\x82\xac 5"} << QStringList{"price ", u"€ 5"_qs};
    QTest::newRow("3-byte cut 2|1") << Chunks{"\xe2\x82", "\xac"} << QStringList{u"€"_qs};
    QTest::newRow("2-byte cut") << Chunks{"na\xc3", "\xafve"} << QStringList{"na", u"ïve"_qs};
    QTest::newRow("invalid chunk dropped, later kept")
        << Chunks{"one\n", "\xff\xfe garbage\n", "two\n"} << QStringList{"one\n", "two\n"};
    QTest::newRow("stray continuation byte drops its chunk")
        << Chunks{"good \x80 bad\n", "after\n"} << QStringList{"after\n"};
    QTest::newRow("overlong slash") << Chunks{"\xc0\xaf\n", "ok"} << QStringList{"ok"};
    QTest::newRow("overlong 3-byte form cut") << Chunks{"\xe0", "\x80\xaf", "ok"} << QStringList{"ok"};
    QTest::newRow("surrogate") << Chunks{"\xed\xa0\x80", "ok"} << QStringList{"ok"};
    QTest::newRow("beyond U+10FFFF") << Chunks{"\xf4\x90\x80\x80", "ok"} << QStringList{"ok"};
    QTest::newRow("held-back byte that starts nothing") << Chunks{"a\xe2", "bc"} << QStringList{"a", "bc"};
    QTest::newRow("invalid chunk leaves nothing behind")
        << Chunks{"\xff\xf0\x9f", "\x8d\xba", "next"} << QStringList{"next"};
    QTest::newRow("cut short at the end is lost") << Chunks{"a\xf0\x9f"} << QStringList{"a"};
    QTest::newRow("byte order mark kept")
        << Chunks{"\xef\xbb\xbfhi", "\xef\xbb\xbf"} << QStringList{u"\ufeffhi"_qs, u"\ufeff"_qs};
    QTest::newRow("empty chunks") << Chunks{"", "a", ""} << QStringList{"a"};
}

void TestHomebrewCommands::decodesChunks()
{
    QFETCH(QList<QByteArray>, chunks);
    QFETCH(QStringList, expected);

    Homebrew::OutputDecoder decoder;
    QStringList texts;
    for (const QByteArray& chunk : chunks) {
        if (const QString text = decoder.decode(chunk); !text.isEmpty()) {
            texts.append(text);
        }
    }
    QCOMPARE(texts, expected);
}

void TestHomebrewCommands::childEnvironment_data()
{
    QTest::addColumn<bool>("withAskpass");
    QTest::newRow("Askpass in the bundle") << true;
    QTest::newRow("no Askpass") << false;
}

void TestHomebrewCommands::childEnvironment()
{
    QFETCH(bool, withAskpass);

    Fixture fixture;
    QCOMPARE(fixture.simulate(), QString());
    if (withAskpass) {
        QVERIFY(writeFile(fixture.askpassPath(), "#!/bin/sh\nexit 1\n", executable));
    }
    // Something only this process has, to see it inherited.
    qputenv("CORVEL_TEST_MARKER", "inherited from the test");

    auto future = inBackground([&] { return fixture.commands.collect({"--version"}); });
    FINISH(future);
    const auto output = future.get();
    QVERIFY2(output.ok(), qPrintable(describe(output)));
    QVERIFY(!output.value().isEmpty());

    const auto invocations = fixture.brew->invocations();
    QCOMPARE(invocations.size(), 1);
    QCOMPARE(invocations.first().arguments, QStringList{"--version"});
    QMap<QString, QString> expected;
    if (withAskpass) {
        expected = {{"SUDO_ASKPASS", fixture.askpassPath()}, {"HOME", QDir::homePath()}};
    } else {
        const QProcessEnvironment system = QProcessEnvironment::systemEnvironment();
        for (const QString& key : system.keys()) {
            expected.insert(key, system.value(key));
        }
        QCOMPARE(expected.value("CORVEL_TEST_MARKER"), QStringLiteral("inherited from the test"));
    }
    QCOMPARE(invocations.first().environment, expected);
}

void TestHomebrewCommands::streamed_data()
{
    QTest::addColumn<QJsonObject>("faults");
    QTest::addColumn<int>("followUp");          // 0: none, 1: succeeds, 2: fails
    QTest::addColumn<QString>("expectedError"); // empty: success
    QTest::addColumn<QString>("expectedLine");  // the start of a line the transcript must hold

    const QString poured = u"🍺  opera was successfully installed!"_qs;
    QTest::newRow("follow-up runs") << QJsonObject() << 1 << QString() << poured;
    QTest::newRow("no follow-up") << QJsonObject() << 0 << QString() << poured;
    QTest::newRow("follow-up's error is the result") << QJsonObject() << 2 << "Unable to install" << poured;
    QTest::newRow("standard error only") << QJsonObject{{"stderrOnly", true}} << 1 << QString() << poured;
    // The output so far stays in the transcript, where the user reads the cause.
    QTest::newRow("exit 1 after good output")
        << QJsonObject{{"exitAfterOutput", 1}} << 1 << processTerminated << poured;
    QTest::newRow("failing token") << QJsonObject{{"failTokens", QJsonArray{"opera"}}} << 1 << processTerminated
                                   << "Error: ";
}

void TestHomebrewCommands::streamed()
{
    QFETCH(QJsonObject, faults);
    QFETCH(int, followUp);
    QFETCH(QString, expectedError);
    QFETCH(QString, expectedLine);

    Fixture fixture;
    QCOMPARE(fixture.simulate({}, faults), QString());
    const QString apps = fixture.root.filePath("My Apps");

    // Whether the activity was already there when the first line arrived.
    std::optional<bool> activityFirst;
    connect(&fixture.transcript, &Transcript::messagesAppended, this, [&] {
        if (!activityFirst) {
            activityFirst = !fixture.activityCenter.activities().isEmpty();
        }
    });

    std::atomic<int> followUps = 0;
    std::function<Result<void>()> work;
    if (followUp > 0) {
        work = [&followUps, fails = followUp == 2]() -> Result<void> {
            ++followUps;
            return fails ? Result<void>(HomebrewError::make(HomebrewError::unableToInstall, "detail")) : Result<void>();
        };
    }
    auto future = inBackground([&] {
        return fixture.commands.run({"install", "--cask", "opera"}, {"--appdir", apps}, "Opera", "Install", work);
    });
    FINISH(future);
    const auto result = future.get();

    const QStringList lines = fixture.lines();
    QCOMPARE(errorOf(result).description(), expectedError);
    QCOMPARE(followUps.load(), followUp > 0 && expectedError != processTerminated ? 1 : 0);
    const bool found =
        std::any_of(lines.cbegin(), lines.cend(), [&](const QString& line) { return line.startsWith(expectedLine); });
    QVERIFY2(found, qPrintable(lines.join(u'\n')));

    // The extra arguments come last, each apart.
    const auto invocations = fixture.brew->invocations();
    QCOMPARE(invocations.size(), 1);
    QCOMPARE(invocations.first().arguments, (QStringList{"install", "--cask", "opera", "--appdir", apps}));

    QCOMPARE(fixture.activityCenter.activities().size(), 1);
    const ActivityPtr activity = fixture.activityCenter.activities().first();
    QCOMPARE(activity->target(), QStringLiteral("Opera"));
    QCOMPARE(activity->action(), QStringLiteral("Install"));
    QCOMPARE(activityFirst, std::optional(true));
    for (const TranscriptMessage& message : fixture.transcript.messages()) {
        QCOMPARE(message.activity(), activity);
    }
}

void TestHomebrewCommands::quietModes_data()
{
    QTest::addColumn<QString>("mode"); // collect, silent or update
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QJsonObject>("faults");
    QTest::addColumn<QString>("script");        // instead of the simulator, when set
    QTest::addColumn<QString>("expectedError"); // "domain code", empty for success

    const auto row = [](const char* name, const char* mode, const QStringList& arguments, const QJsonObject& faults,
                        const QString& expectedError, const char* script = "") {
        QTest::newRow(name) << mode << arguments << faults << script << expectedError;
    };
    const QStringList info{"info", "--installed", "--casks", "--json=v2"};
    const QString terminated = RuntimeError::domain() + " 0";
    row("collected", "collect", info, {}, {});
    // Merged channels: what brew writes to standard error is collected too.
    row("collected from standard error", "collect", info, {{"stderrOnly", true}}, {});
    row("collected, exit 1 after output", "collect", info, {{"exitAfterOutput", 1}}, terminated);
    row("collected, failing command", "collect", info, {{"failCommands", QJsonArray{"info"}}}, terminated);
    row("cleanup", "silent", {"cleanup"}, {}, {});
    row("companion tap", "silent", {"tap", "tesselworks/corvel-cmd"}, {{"stderrOnly", true}}, {});
    row("silent, failing command", "silent", {"cleanup"}, {{"failCommands", QJsonArray{"cleanup"}}}, terminated);
    row("silent, exit 1 after output", "silent", {"autoremove"}, {{"exitAfterOutput", 1}}, terminated);
    row("update", "update", {"update"}, {}, {});
    row("update fails with Homebrew's text", "update", {"update"}, {{"failCommands", QJsonArray{"update"}}},
        HomebrewError::domain() + " " + QString::number(HomebrewError::unableToUpdate));
    row("update fails with text that is not UTF-8", "update", {"update"}, {},
        HomebrewError::domain() + " " + QString::number(HomebrewError::unknown) + ": Unknown error",
        "echo 'Updating Homebrew...'\nprintf 'Error: \\377\\376\\n' >&2\nexit 1\n");
}

void TestHomebrewCommands::quietModes()
{
    QFETCH(QString, mode);
    QFETCH(QStringList, arguments);
    QFETCH(QJsonObject, faults);
    QFETCH(QString, script);
    QFETCH(QString, expectedError);

    Fixture fixture;
    if (script.isEmpty()) {
        QCOMPARE(fixture.simulate({{"casks", QJsonObject{{"opera", "134.0"}}}}, faults), QString());
    } else {
        QVERIFY(fixture.script(script.toUtf8()));
    }
    if (mode == u"update" && expectedError.startsWith(HomebrewError::domain()) && script.isEmpty()) {
        // Homebrew's own words, from a separate run of the same command in the same state.
        QProcess direct;
        direct.setProcessChannelMode(QProcess::MergedChannels);
        direct.start(fixture.brew->brewPath(), arguments);
        QVERIFY(direct.waitForFinished(finishTimeout));
        const QString text = QString::fromUtf8(direct.readAll());
        QVERIFY2(direct.exitCode() == 1 && text.contains("Error: "), qPrintable(text));
        expectedError += ": " + text;
    } else if (expectedError.startsWith(RuntimeError::domain())) {
        expectedError += ": " + processTerminated;
    }

    auto future = inBackground([&]() -> std::pair<Error, QByteArray> {
        if (mode == u"collect") {
            const auto collected = fixture.commands.collect(arguments);
            return {errorOf(collected), collected.ok() ? collected.value() : QByteArray()};
        }
        return {errorOf(mode == u"silent" ? fixture.commands.runSilently(arguments) : fixture.commands.update()), {}};
    });
    FINISH(future);
    const auto [error, output] = future.get();

    QCOMPARE(error == Error() ? QString() : describe(error), expectedError);
    if (mode == u"collect" && expectedError.isEmpty()) {
        const QJsonArray casks = QJsonDocument::fromJson(output).object().value("casks").toArray();
        QVERIFY2(casks.size() == 1 && casks.first().toObject().value("token").toString() == u"opera",
                 output.constData());
    }
    if (fixture.brew) {
        QCOMPARE(fixture.brew->invocations().last().arguments, arguments);
    }
    QVERIFY(fixture.transcript.isEmpty());
    QVERIFY(fixture.activityCenter.activities().isEmpty());
}

void TestHomebrewCommands::withoutHomebrew_data()
{
    QTest::addColumn<QString>("setup");
    QTest::newRow("no candidate at all") << "none";
    QTest::newRow("prefix without bin/brew") << "empty prefix";
    QTest::newRow("bin/brew is a folder") << "folder";
    QTest::newRow("both candidates are files") << "files";
}

void TestHomebrewCommands::withoutHomebrew()
{
    QFETCH(QString, setup);

    Fixture fixture;
    const QString prefix = fixture.root.path() + QStringLiteral("/opt/homebrew");
    if (setup == u"empty prefix") {
        QVERIFY(QDir().mkpath(prefix + QStringLiteral("/bin")));
    } else if (setup == u"folder") {
        QVERIFY(QDir().mkpath(prefix + QStringLiteral("/bin/brew")));
    } else if (setup == u"files") {
        QVERIFY(writeFile(prefix, "", executable));
        QVERIFY(writeFile(fixture.root.path() + QStringLiteral("/usr/local/homebrew"), "", executable));
    }

    const auto made = fixture.commands.makeProcess();
    QVERIFY(!made.ok());
    QVERIFY(made.error().is(HomebrewError::domain(), HomebrewError::processNotAvailable));

    std::atomic<bool> followedUp = false;
    auto future = inBackground([&] {
        return QList<Error>{
            errorOf(fixture.commands.run({"install", "--formula", "wget"}, {}, "wget", "Install",
                                         [&]() -> Result<void> {
                                             followedUp = true;
                                             return {};
                                         })),
            errorOf(fixture.commands.collect({"leaves"})),
            errorOf(fixture.commands.runSilently({"cleanup"})),
            errorOf(fixture.commands.update()),
        };
    });
    FINISH(future);
    for (const Error& error : future.get()) {
        QVERIFY2(error.is(HomebrewError::domain(), HomebrewError::processNotAvailable), qPrintable(describe(error)));
        QCOMPARE(error.description(), QStringLiteral("Homebrew executable not found"));
    }
    QVERIFY(!followedUp);
    QVERIFY(fixture.activityCenter.activities().isEmpty());
    QVERIFY(fixture.transcript.isEmpty());
}

void TestHomebrewCommands::launchFailureIsTheSystems()
{
    Fixture fixture;
    const QString brew = fixture.root.path() + QStringLiteral("/opt/homebrew/bin/brew");
    // There, but not executable.
    QVERIFY(writeFile(brew, "#!/bin/sh\necho never\n", QFileDevice::ReadOwner | QFileDevice::WriteOwner));

    QProcess reference;
    reference.start(brew, {});
    QVERIFY(!reference.waitForStarted());
    const QString systemDescription = reference.errorString();
    QVERIFY(!systemDescription.isEmpty());

    auto future = inBackground([&] {
        return fixture.commands.run({"install", "--formula", "wget"}, {}, "wget", "Install");
    });
    FINISH(future);
    const auto result = future.get();
    QVERIFY(!result.ok());
    QCOMPARE(result.error().domain(), Homebrew::Commands::launchErrorDomain());
    QCOMPARE(result.error().code(), int(QProcess::FailedToStart));
    QCOMPARE(result.error().description(), systemDescription);
    // The activity was posted before the launch was tried.
    QCOMPARE(fixture.activityCenter.activities().size(), 1);
    QVERIFY(fixture.transcript.isEmpty());
}

void TestHomebrewCommands::crashIsATerminationError()
{
    Fixture fixture;
    QVERIFY(fixture.script("echo '==> Downloading'\nkill -KILL $$\n"));
    auto future = inBackground([&] {
        return fixture.commands.run({"install", "--formula", "wget"}, {}, "wget", "Install",
                                    [] { return Result<void>(HomebrewError::make(HomebrewError::unknown)); });
    });
    FINISH(future);
    const auto result = future.get();
    QVERIFY(!result.ok());
    QCOMPARE(result.error().description(), processTerminated);
    QCOMPARE(fixture.lines(), QStringList{"==> Downloading"});
}

void TestHomebrewCommands::invalidChunkIsDroppedAndLaterOutputArrives()
{
    // The same command without the fault, for the lines to expect.
    Fixture reference;
    QCOMPARE(reference.simulate(), QString());
    auto referenceRun = inBackground([&] {
        return reference.commands.run({"install", "--formula", "wget"}, {}, "wget", "Install");
    });
    FINISH(referenceRun);
    QVERIFY(referenceRun.get().ok());

    // The invalid bytes come after the first line, each line a pause apart.
    Fixture fixture;
    QCOMPARE(fixture.simulate({}, QJsonObject{{"invalidUtf8", true}, {"delayMs", 200}}), QString());
    auto future = inBackground([&] {
        return fixture.commands.run({"install", "--formula", "wget"}, {}, "wget", "Install");
    });
    FINISH(future);
    const auto result = future.get();
    QVERIFY2(result.ok(), qPrintable(describe(result)));

    // The paths differ between the two roots; the shape of every line does not.
    const auto normalized = [](Fixture& run) {
        return run.lines().replaceInStrings(run.root.path(), QStringLiteral("<root>"));
    };
    const QStringList expected = normalized(reference);
    const QStringList lines = normalized(fixture);
    QVERIFY2(expected.size() >= 4, qPrintable(expected.join(u'\n')));
    for (const QString& line : lines) {
        QVERIFY2(!line.contains(QChar::ReplacementCharacter), qPrintable(line));
    }
    // What follows the invalid chunk still arrives, to the last line.
    QVERIFY2(!lines.isEmpty() && lines.last() == expected.last(), qPrintable(lines.join(u'\n')));
    // A reader that falls a pause behind gets a neighbouring line in the same read as the invalid bytes and loses
    // it with them; nothing else may go missing, and nothing may be reordered.
    QVERIFY2(lines.size() >= expected.size() - 2, qPrintable(lines.join(u'\n')));
    auto next = expected.cbegin();
    for (const QString& line : lines) {
        next = std::find(next, expected.cend(), line);
        QVERIFY2(next != expected.cend(), qPrintable(line));
        ++next;
    }
}

void TestHomebrewCommands::characterSplitAcrossReadsArrivesIntact()
{
    Fixture fixture;
    // The child writes half of the character, then waits for the test before writing the rest, so the two halves
    // certainly arrive in separate reads.
    const QString gate = fixture.root.filePath("gate");
    QCOMPARE(mkfifo(QFile::encodeName(gate).constData(), 0600), 0);
    QVERIFY(fixture.script("printf '==> Pouring \\360\\237'\nread answer < '" + QFile::encodeName(gate) +
                           "'\nprintf '\\215\\272  wget\\n'\n"));
    // However the test ends, the child must not wait forever.
    const auto openGate = [&] {
        const int fd = ::open(QFile::encodeName(gate).constData(), O_WRONLY | O_NONBLOCK);
        if (fd >= 0) {
            [[maybe_unused]] const auto written = ::write(fd, "go\n", 3);
            ::close(fd);
        }
    };
    const std::shared_ptr<void> gateGuard(nullptr, [&](void*) { openGate(); });

    auto future = inBackground([&] {
        return fixture.commands.run({"install", "--formula", "wget"}, {}, "wget", "Install");
    });
    QTRY_COMPARE_WITH_TIMEOUT(fixture.lines(), QStringList{"==> Pouring "}, finishTimeout);
    QTRY_VERIFY_WITH_TIMEOUT((openGate(), isReady(future)), finishTimeout);
    QCoreApplication::sendPostedEvents();
    const auto result = future.get();
    QVERIFY2(result.ok(), qPrintable(describe(result)));
    QCOMPARE(fixture.lines(), (QStringList{"==> Pouring ", u"🍺  wget"_qs}));
}

void TestHomebrewCommands::refusesTheGuiThread()
{
    Fixture fixture;
    QCOMPARE(fixture.simulate(), QString());

    const QList<Error> errors{
        errorOf(fixture.commands.run({"install", "--formula", "wget"}, {}, "wget", "Install")),
        errorOf(fixture.commands.collect({"leaves"})),
        errorOf(fixture.commands.runSilently({"cleanup"})),
        errorOf(fixture.commands.update()),
    };
    for (const Error& error : errors) {
        QCOMPARE(error.domain(), RuntimeError::domain());
        QVERIFY2(error.description().contains("GUI thread"), qPrintable(error.description()));
    }
    QCoreApplication::sendPostedEvents();
    QVERIFY(fixture.brew->invocations().isEmpty());
    QVERIFY(fixture.activityCenter.activities().isEmpty());
}

void TestHomebrewCommands::slowCommandsLeaveTheGuiThreadFree()
{
    Fixture fixture;
    QCOMPARE(fixture.simulate({}, QJsonObject{{"delayMs", 150}}), QString());

    int ticks = 0;
    QTimer timer;
    connect(&timer, &QTimer::timeout, this, [&] { ++ticks; });
    timer.start(20);

    const QStringList tokens{"wget", "jq", "tmux"};
    std::vector<std::future<Result<void>>> runs;
    for (const QString& token : tokens) {
        runs.push_back(inBackground([&fixture, token] {
            return fixture.commands.run({"install", "--formula", token}, {}, token, "Install");
        }));
    }
    QTRY_VERIFY_WITH_TIMEOUT(std::all_of(runs.cbegin(), runs.cend(), [](const auto& run) { return isReady(run); }),
                             finishTimeout);
    timer.stop();
    QCoreApplication::sendPostedEvents();
    for (auto& run : runs) {
        const auto result = run.get();
        QVERIFY2(result.ok(), qPrintable(describe(result)));
    }
    // Each line of output is at least 150 ms apart, so the timer had many chances; a blocked GUI thread gets one.
    QVERIFY2(ticks >= 5, qPrintable(QString::number(ticks)));

    // Each command's output is filed under its own activity.
    QCOMPARE(fixture.activityCenter.activities().size(), 3);
    for (const ActivityPtr& activity : fixture.activityCenter.activities()) {
        const auto own = Transcript::shownMessages(fixture.transcript.messages(), activity.get());
        const bool poured = std::any_of(own.cbegin(), own.cend(), [&](const TranscriptMessage& message) {
            return message.string().startsWith(u"🍺") &&
                   message.string().contains(QStringLiteral("/Cellar/") + activity->target() + u'/');
        });
        QVERIFY2(poured, qPrintable(activity->target()));
    }
}

QTEST_GUILESS_MAIN(TestHomebrewCommands)
#include "TestHomebrewCommands.moc"
