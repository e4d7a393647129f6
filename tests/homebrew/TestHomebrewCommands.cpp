#include "HomebrewFixture.h"
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
#include <QJsonArray>
#include <QProcessEnvironment>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>
#include <algorithm>

namespace {

// Every command starts a real process; generous, because a loaded machine is not a failure.
constexpr int finishTimeout = 60000;
const QString terminated = QStringLiteral("Process terminated with an error");
const QString poured = u"🍺  opera was successfully installed!"_qs;

// Runs work on the shared pool as the application's operations do, and waits on the event loop for its result,
// which arrives after everything the work queued for this thread (activities, transcript lines).
template <class F>
auto inBackground(F work)
{
    using T = std::invoke_result_t<F>;
    std::optional<T> result;
    QObject context; // drops a result that comes too late
    Threading::runAsync<T>(std::move(work), &context, [&](T value) { result.emplace(std::move(value)); });
    return QTest::qWaitFor([&] { return result.has_value(); }, finishTimeout) ? std::move(result) : std::nullopt;
}

QString describe(const QString& domain, int code, const QString& description)
{
    return QStringLiteral("%1 %2: %3").arg(domain).arg(code).arg(description);
}

// "domain code: description"; empty for a success.
template <class T>
QString describe(const Result<T>& result)
{
    return result ? QString() : describe(result.error().domain(), result.error().code(), result.error().description());
}

bool writeExecutable(const QString& path, const QByteArray& content)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size() &&
           file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
}

// The simulated Homebrew and its runner, and the odd cases the simulator cannot play.
struct Fixture : HomebrewFixture {
    bool simulate(const QJsonObject& faults = {}, QJsonObject state = {})
    {
        state.insert(QStringLiteral("faults"), faults);
        return HomebrewFixture::simulate(state);
    }

    // A shell script in place of brew, for what the simulator cannot do.
    bool script(const QByteArray& body) { return writeExecutable(brewPath(), "#!/bin/sh\n" + body); }
    QString brewPath() const { return root.path() + QStringLiteral("/opt/homebrew/bin/brew"); }

    QStringList lines() const
    {
        QStringList result;
        std::ranges::transform(transcript.messages(), std::back_inserter(result), &TranscriptMessage::string);
        return result;
    }

    // Each mode once; whether the streamed one's follow-up ran goes to followedUp.
    QStringList runEveryMode(std::atomic<bool>& followedUp) const
    {
        const auto followUp = [&] { return followedUp = true, Result<void>(); };
        return {describe(commands.run({"install", "--formula", "wget"}, {}, "wget", "Install", followUp)),
                describe(commands.collect({"leaves"})), describe(commands.runSilently({"cleanup"})),
                describe(commands.update())};
    }
};

} // namespace

class TestHomebrewCommands : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void decodesChunks_data();
    void decodesChunks();
    void childEnvironment();
    void streamed_data();
    void streamed();
    void quietModes_data();
    void quietModes();
    void refusedBeforeLaunch_data();
    void refusedBeforeLaunch();
    void launchFailureIsTheSystems();
    void characterSplitAcrossReadsArrivesIntact();
    void slowCommandsLeaveTheGuiThreadFree();
};

void TestHomebrewCommands::decodesChunks_data()
{
    QTest::addColumn<QList<QByteArray>>("chunks");
    QTest::addColumn<QStringList>("expected"); // the non-empty texts handed on, in order

    using C = QList<QByteArray>;
    QTest::newRow("emoji cut 1|3") << C{"\xf0", "\x9f\x8d\xba  wget\n"} << QStringList{u"🍺  wget\n"_qs};
    QTest::newRow("emoji cut 3|1") << C{"\xf0\x9f\x8d", "\xba"} << QStringList{u"🍺"_qs};
    QTest::newRow("emoji over four chunks") << C{"\xf0", "\x9f", "\x8d", "\xba!"} << QStringList{u"🍺!"_qs};
    QTest::newRow("3-byte cut 1|2") << C{"price \xe2", "\x82\xac 5"} << QStringList{"price ", u"€ 5"_qs};
    QTest::newRow("2-byte cut") << C{"na\xc3", "\xafve"} << QStringList{"na", u"ïve"_qs};
    QTest::newRow("invalid chunk dropped") << C{"one\n", "\xff\xfe x\n", "two\n"} << QStringList{"one\n", "two\n"};
    QTest::newRow("overlong slash") << C{"\xc0\xaf\n", "ok"} << QStringList{"ok"};
    QTest::newRow("overlong form cut after two bytes") << C{"ok \xe0\x80", "next"} << QStringList{"next"};
    QTest::newRow("held-back byte that starts nothing") << C{"a\xe2", "bc"} << QStringList{"a", "bc"};
    QTest::newRow("invalid chunk holds nothing back") << C{"\xff\xf0\x9f", "\x8d\xba", "next"} << QStringList{"next"};
    QTest::newRow("byte order mark kept")
        << C{"\xef\xbb\xbfhi", "\xef\xbb\xbf"} << QStringList{u"\ufeffhi"_qs, u"\ufeff"_qs};
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

void TestHomebrewCommands::childEnvironment()
{
    Fixture fixture;
    QVERIFY(fixture.simulate());
    const auto environmentOfRun = [&] {
        const auto output = inBackground([&] { return fixture.commands.collect({"--version"}); });
        const bool ran = output && *output && output->value().startsWith("Homebrew ");
        return ran ? fixture.brew->invocations().last().environment : QMap<QString, QString>();
    };
    // Without the Askpass program brew inherits this process's environment; with it, it gets exactly two variables.
    QMap<QString, QString> inherited;
    const QProcessEnvironment system = QProcessEnvironment::systemEnvironment();
    for (const QString& key : system.keys()) {
        inherited.insert(key, system.value(key));
    }
    QCOMPARE(environmentOfRun(), inherited);
    const QString askpass = fixture.resources.filePath(QStringLiteral("Askpass"));
    QVERIFY(writeExecutable(askpass, "#!/bin/sh\nexit 1\n"));
    QCOMPARE(environmentOfRun(), (QMap<QString, QString>{{"SUDO_ASKPASS", askpass}, {"HOME", QDir::homePath()}}));
}

void TestHomebrewCommands::streamed_data()
{
    QTest::addColumn<QJsonObject>("faults");
    QTest::addColumn<int>("followUp"); // 0: none, 1: succeeds, 2: fails
    QTest::addColumn<QString>("expectedError");

    QTest::newRow("follow-up runs") << QJsonObject() << 1 << QString();
    QTest::newRow("no follow-up") << QJsonObject() << 0 << QString();
    QTest::newRow("follow-up's error is the result") << QJsonObject() << 2 << "Unable to install";
    QTest::newRow("standard error only") << QJsonObject{{"stderrOnly", true}} << 1 << QString();
    // The output stays in the transcript, where the user reads the cause.
    QTest::newRow("exit 1 after good output") << QJsonObject{{"exitAfterOutput", 1}} << 1 << terminated;
}

void TestHomebrewCommands::streamed()
{
    QFETCH(QJsonObject, faults);
    QFETCH(int, followUp);
    QFETCH(QString, expectedError);

    Fixture fixture;
    QVERIFY(fixture.simulate(faults));
    const QString apps = fixture.root.filePath("My Apps");
    // Whether the activity was already there when the first line arrived.
    std::optional<bool> activityFirst;
    connect(&fixture.transcript, &Transcript::messagesAppended, this,
            [&] { activityFirst = activityFirst.value_or(!fixture.activityCenter.activities().isEmpty()); });

    std::atomic<int> followUps = 0;
    const std::function<Result<void>()> work = [&]() -> Result<void> {
        ++followUps;
        return followUp == 2 ? HomebrewError::make(HomebrewError::unableToInstall) : Result<void>();
    };
    const auto result = inBackground([&] {
        return fixture.commands.run({"install", "--cask", "opera"}, {"--appdir", apps}, "Opera", "Install",
                                    followUp ? work : nullptr);
    });
    QVERIFY(result);
    QCOMPARE(result->ok() ? QString() : result->error().description(), expectedError);
    QCOMPARE(followUps.load(), followUp > 0 && expectedError != terminated ? 1 : 0);

    // Every line arrives intact, to the last.
    const QString text = fixture.lines().join(u'\n');
    QVERIFY2(text.endsWith(u'\n' + poured) && !text.contains(QChar::ReplacementCharacter), qPrintable(text));
    QCOMPARE(fixture.brew->invocations().size(), 1);
    QCOMPARE(fixture.brew->invocations().first().arguments,
             (QStringList{"install", "--cask", "opera", "--appdir", apps}));

    QCOMPARE(fixture.activityCenter.activities().size(), 1);
    const ActivityPtr activity = fixture.activityCenter.activities().first();
    QCOMPARE(activity->target() + u' ' + activity->action(), QStringLiteral("Opera Install"));
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
    QTest::addColumn<QByteArray>("script"); // instead of the simulator, when set
    QTest::addColumn<QString>("expectedError");

    const auto row = [](const char* name, const char* mode, const QStringList& arguments, const QJsonObject& faults,
                        const QString& error, const QByteArray& script = {}) {
        QTest::newRow(name) << mode << arguments << faults << script << error;
    };
    const QStringList info{"info", "--installed", "--casks", "--json=v2"};
    const QString failed = describe(RuntimeError::domain(), 0, terminated);
    row("collected", "collect", info, {}, {});
    row("collected, exit 1 after output", "collect", info, {{"exitAfterOutput", 1}}, failed);
    row("silent", "silent", {"cleanup"}, {}, {});
    row("silent, failing command", "silent", {"cleanup"}, {{"failCommands", QJsonArray{"cleanup"}}}, failed);
    row("update", "update", {"update"}, {}, {});
    row("update fails with Homebrew's text", "update", {}, {},
        describe(HomebrewError::domain(), HomebrewError::unableToUpdate, "==> Updating\nError: offline\n"),
        "echo '==> Updating'\necho 'Error: offline' >&2\nexit 1\n");
    row("update fails with text that is not UTF-8", "update", {}, {},
        describe(HomebrewError::domain(), HomebrewError::unknown, "Unknown error"),
        "printf 'Error: \\377\\376\\n' >&2\nexit 1\n");
}

void TestHomebrewCommands::quietModes()
{
    QFETCH(QString, mode);
    QFETCH(QStringList, arguments);
    QFETCH(QJsonObject, faults);
    QFETCH(QByteArray, script);
    QFETCH(QString, expectedError);

    Fixture fixture;
    QVERIFY(script.isEmpty() ? fixture.simulate(faults, {{"casks", QJsonObject{{"opera", "134.0"}}}})
                             : fixture.script(script));
    const auto outcome = inBackground([&]() -> std::pair<QString, QByteArray> {
        if (mode == u"collect") {
            const auto collected = fixture.commands.collect(arguments);
            return {describe(collected), collected ? collected.value() : QByteArray()};
        }
        return {describe(mode == u"silent" ? fixture.commands.runSilently(arguments) : fixture.commands.update()), {}};
    });
    QVERIFY(outcome);
    QCOMPARE(outcome->first, expectedError);
    if (mode == u"collect" && expectedError.isEmpty()) {
        QVERIFY2(outcome->second.contains("\"token\": \"opera\""), outcome->second.constData());
    }
    QVERIFY(fixture.transcript.isEmpty());
    QVERIFY(fixture.activityCenter.activities().isEmpty());
}

void TestHomebrewCommands::refusedBeforeLaunch_data()
{
    QTest::addColumn<QString>("made"); // what exists under the first prefix; a working Homebrew is asked on this thread
    QTest::addColumn<QString>("expected");

    const QString missing =
        describe(HomebrewError::domain(), HomebrewError::processNotAvailable, "Homebrew executable not found");
    QTest::newRow("no prefix at all") << "" << missing;
    QTest::newRow("prefix without bin/brew") << "bin" << missing;
    QTest::newRow("bin/brew is a folder") << "bin/brew" << missing;
    QTest::newRow("on the GUI thread") << "simulator"
                                       << describe(RuntimeError::domain(), 0,
                                                   "Homebrew commands must not run on the GUI thread");
}

void TestHomebrewCommands::refusedBeforeLaunch()
{
    QFETCH(QString, made);
    QFETCH(QString, expected);

    Fixture fixture;
    const bool onGuiThread = made == u"simulator";
    QVERIFY(onGuiThread ? fixture.simulate()
                        : made.isEmpty() || QDir().mkpath(fixture.root.path() + "/opt/homebrew/" + made));
    std::atomic<bool> followedUp = false;
    const auto errors = onGuiThread ? std::optional(fixture.runEveryMode(followedUp))
                                    : inBackground([&] { return fixture.runEveryMode(followedUp); });
    QCoreApplication::sendPostedEvents();
    QVERIFY(errors);
    QCOMPARE(*errors, QStringList(4, expected));
    QVERIFY(!followedUp);
    QVERIFY(!fixture.brew || fixture.brew->invocations().isEmpty());
    QVERIFY(fixture.activityCenter.activities().isEmpty());
    QVERIFY(fixture.transcript.isEmpty());
}

void TestHomebrewCommands::launchFailureIsTheSystems()
{
    Fixture fixture;
    QVERIFY(fixture.script("echo never\n"));
    QVERIFY(QFile::setPermissions(fixture.brewPath(), QFileDevice::ReadOwner | QFileDevice::WriteOwner));
    QProcess reference;
    reference.start(fixture.brewPath(), {});
    QVERIFY(!reference.waitForStarted());

    const auto result = inBackground([&] { return fixture.commands.run({"install", "wget"}, {}, "wget", "Install"); });
    QVERIFY(result);
    QCOMPARE(describe(*result),
             describe(Homebrew::Commands::launchErrorDomain(), QProcess::FailedToStart, reference.errorString()));
    // The activity was posted before the launch was tried.
    QCOMPARE(fixture.activityCenter.activities().size(), 1);
    QVERIFY(fixture.transcript.isEmpty());
}

void TestHomebrewCommands::characterSplitAcrossReadsArrivesIntact()
{
    // The child writes half of the character and the rest only once the first half is in the transcript.
    Fixture fixture;
    const QString gate = fixture.root.filePath("gate");
    QVERIFY(fixture.script("printf '==> Pouring \\360\\237'\nwhile [ ! -e '" + QFile::encodeName(gate) +
                           "' ]; do sleep 0.01; done\nprintf '\\215\\272  wget\\n'\n"));
    connect(&fixture.transcript, &Transcript::messagesAppended, this, [&] { QDir().mkdir(gate); });
    const auto result = inBackground([&] { return fixture.commands.run({"install", "wget"}, {}, "wget", "Install"); });
    QDir().mkdir(gate); // a child still waiting must not outlive the test
    QVERIFY(result && result->ok());
    QCOMPARE(fixture.lines(), (QStringList{"==> Pouring ", u"🍺  wget"_qs}));
}

void TestHomebrewCommands::slowCommandsLeaveTheGuiThreadFree()
{
    Fixture fixture;
    QVERIFY(fixture.simulate({{"delayMs", 150}}));
    int ticks = 0;
    QTimer timer;
    connect(&timer, &QTimer::timeout, this, [&] { ++ticks; });
    timer.start(20);

    QStringList outcomes;
    QObject context;
    for (const QString token : {"wget", "jq", "tmux"}) {
        Threading::runAsync<Result<void>>(
            [&fixture, token] {
                return fixture.commands.run({"install", "--formula", token}, {}, token, "Install");
            },
            &context, [&](const Result<void>& result) { outcomes.append(describe(result)); });
    }
    QTRY_COMPARE_WITH_TIMEOUT(outcomes, QStringList(3, QString()), finishTimeout);
    // The lines of output are 150 ms apart, so the timer had many chances; a blocked GUI thread gets one.
    QVERIFY2(ticks >= 5, qPrintable(QString::number(ticks)));

    // Each command's output is filed under its own activity.
    QCOMPARE(fixture.activityCenter.activities().size(), 3);
    for (const ActivityPtr& activity : fixture.activityCenter.activities()) {
        const auto own = Transcript::shownMessages(fixture.transcript.messages(), activity.get());
        QVERIFY2(!own.isEmpty() && own.last().string().contains("/Cellar/" + activity->target() + u'/'),
                 qPrintable(activity->target()));
    }
}

QTEST_GUILESS_MAIN(TestHomebrewCommands)
#include "TestHomebrewCommands.moc"
