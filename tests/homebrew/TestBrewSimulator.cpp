#include "foundation/RailsJSONDecoder.h"
#include "homebrew/SimulatedHomebrew.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <memory>

namespace {

// The fields of brew's records that the app reads, decoded as the app decodes them.
struct InstalledVersion {
    QString version;
    bool installedAsDependency = false;
    static constexpr auto codingKeys()
    {
        return std::make_tuple(CodingKey("version", &InstalledVersion::version),
                               CodingKey("installedAsDependency", &InstalledVersion::installedAsDependency));
    }
};

struct FormulaRecord {
    QString fullName;
    std::vector<InstalledVersion> installed;
    bool outdated = false;
    static constexpr auto codingKeys()
    {
        return std::make_tuple(CodingKey("fullName", &FormulaRecord::fullName),
                               CodingKey("installed", &FormulaRecord::installed),
                               CodingKey("outdated", &FormulaRecord::outdated));
    }
};

struct CaskRecord {
    QString fullToken;
    QString version;
    std::optional<QString> installed;
    bool outdated = false;
    static constexpr auto codingKeys()
    {
        return std::make_tuple(
            CodingKey("fullToken", &CaskRecord::fullToken), CodingKey("version", &CaskRecord::version),
            CodingKey("installed", &CaskRecord::installed), CodingKey("outdated", &CaskRecord::outdated));
    }
};

// Both keys are required: brew always answers with both.
struct InfoEnvelope {
    std::vector<FormulaRecord> formulae;
    std::vector<CaskRecord> casks;
    static constexpr auto codingKeys()
    {
        return std::make_tuple(CodingKey("formulae", &InfoEnvelope::formulae),
                               CodingKey("casks", &InfoEnvelope::casks));
    }
};

// tap-info's keys are snake case ("formula_names").
struct TapRecord {
    QString name;
    QStringList formulaNames;
    QStringList commandFiles;
    static constexpr auto codingKeys()
    {
        return std::make_tuple(CodingKey("name", &TapRecord::name), CodingKey("formulaNames", &TapRecord::formulaNames),
                               CodingKey("commandFiles", &TapRecord::commandFiles));
    }
};

struct Run {
    int exitCode = -1;
    QByteArray out;
    QByteArray err;
};

template <class Record>
QStringList names(const std::vector<Record>& records, QString Record::*field)
{
    QStringList list;
    for (const Record& record : records) {
        list.append(record.*field);
    }
    return list;
}

} // namespace

class TestBrewSimulator : public QObject {
    Q_OBJECT

    std::unique_ptr<QTemporaryDir> m_root;
    std::optional<SimulatedHomebrew> m_brew;

    bool simulate(const QJsonObject& state = {}, bool secondCandidate = false)
    {
        m_root = std::make_unique<QTemporaryDir>();
        Result<SimulatedHomebrew> created = SimulatedHomebrew::create(m_root->path(), state, secondCandidate);
        if (created) {
            m_brew = std::move(created).value();
        }
        return created.ok();
    }

    // Runs with nothing in the environment but HOME and, when given, SUDO_ASKPASS.
    Run brew(const QStringList& arguments, const QString& askpass = {})
    {
        QProcessEnvironment environment;
        environment.insert(QStringLiteral("HOME"), m_root->path());
        if (!askpass.isEmpty()) {
            environment.insert(QStringLiteral("SUDO_ASKPASS"), askpass);
        }
        QProcess process;
        process.setProcessEnvironment(environment);
        process.start(m_brew->brewPath(), arguments);
        const bool finished = process.waitForFinished(60000) && process.exitStatus() == QProcess::NormalExit;
        return {finished ? process.exitCode() : -1, process.readAllStandardOutput(), process.readAllStandardError()};
    }

    // Standard output and error in one channel, as the app reads them.
    std::unique_ptr<QProcess> startMerged(const QStringList& arguments)
    {
        auto process = std::make_unique<QProcess>();
        process->setProcessChannelMode(QProcess::MergedChannels);
        process->start(m_brew->brewPath(), arguments);
        return process;
    }

    template <class T>
    T decoded(const QByteArray& json)
    {
        Result<T> result = RailsJSONDecoder().decode<T>(json);
        if (!result) {
            qWarning() << result.error().description() << json.left(400);
        }
        return result ? std::move(result).value() : T{};
    }

    InfoEnvelope installed(const QString& kinds)
    {
        return decoded<InfoEnvelope>(brew({"info", "--installed", "--" + kinds, "--json=v2"}).out);
    }

    QByteArray stateText() const { return QJsonDocument(m_brew->state()).toJson(); }

private Q_SLOTS:
    void installShowsInQueries_data()
    {
        QTest::addColumn<bool>("secondCandidate");
        QTest::addColumn<QString>("prefixUnderRoot");
        QTest::newRow("first candidate") << false << QStringLiteral("/opt/homebrew");
        QTest::newRow("second candidate") << true << QStringLiteral("/usr/local/homebrew");
    }

    void installShowsInQueries()
    {
        QFETCH(bool, secondCandidate);
        QFETCH(QString, prefixUnderRoot);
        QVERIFY(simulate({}, secondCandidate));
        QCOMPARE(brew({"tap", "localtest/tools"}).exitCode, 0);
        const QByteArray out = brew({"install", "--formula", "hello-app"}).out;
        // The prefix is where the link lives, not where the simulator was built.
        QVERIFY2(out.contains("🍺  " + (m_root->path() + prefixUnderRoot).toUtf8() + "/Cellar/hello-app/1.0: "), out);
        QCOMPARE(brew({"install", "--formula", "bash"}).exitCode, 0);
        QCOMPARE(brew({"install", "--cask", "opera"}).exitCode, 0);

        const InfoEnvelope formulae = installed(QStringLiteral("formulae"));
        QCOMPARE(names(formulae.formulae, &FormulaRecord::fullName),
                 QStringList({"bash", "localtest/tools/hello-app", "localtest/tools/hello-lib"}));
        QVERIFY(!formulae.formulae.at(1).installed.at(0).installedAsDependency);
        QVERIFY(formulae.formulae.at(2).installed.at(0).installedAsDependency);
        const InfoEnvelope casks = installed(QStringLiteral("casks")); // with its empty list of formulae
        QCOMPARE(names(casks.casks, &CaskRecord::fullToken), QStringList{"opera"});
        QCOMPARE(casks.casks.front().installed, std::optional(casks.casks.front().version));
        // Leaves: installed on request and needed by nothing, fully qualified outside the core tap.
        QCOMPARE(brew({"leaves"}).out, QByteArray("bash\nlocaltest/tools/hello-app\n"));
        // A cask that is not installed still answers, with "installed": null.
        const InfoEnvelope other = decoded<InfoEnvelope>(brew({"info", "--cask", "--json=v2", "opera-gx"}).out);
        QCOMPARE(names(other.casks, &CaskRecord::fullToken), QStringList{"opera-gx"});
        QCOMPARE(other.casks.front().installed, std::nullopt);

        // The companion's cask form passes a single blank as its last argument; the log keeps it, and the environment.
        QCOMPARE(brew({"tap", "tesselworks/corvel-cmd"}).exitCode, 0);
        const QStringList caskForm{"corvel-tap-content-info", "--casks", " "};
        const InfoEnvelope tapCasks = decoded<InfoEnvelope>(brew(caskForm, "/nowhere/Askpass").out);
        QCOMPARE(names(tapCasks.casks, &CaskRecord::fullToken), QStringList{"localtest/tools/hello-cask"});
        QCOMPARE(m_brew->invocations().last().arguments, caskForm);
        const QMap<QString, QString> environment{{"SUDO_ASKPASS", "/nowhere/Askpass"}, {"HOME", m_root->path()}};
        QCOMPARE(m_brew->invocations().last().environment, environment);

        const auto taps = decoded<std::vector<TapRecord>>(brew({"tap-info", "--installed", "--json"}).out);
        QCOMPARE(names(taps, &TapRecord::name),
                 QStringList({"homebrew/cask", "homebrew/core", "localtest/tools", "tesselworks/corvel-cmd"}));
        QCOMPARE(taps.at(2).formulaNames.value(0), "localtest/tools/hello-app");
        QCOMPARE(taps.at(3).commandFiles.size(), 1);
    }

    void upgradeClearsOutdated_data()
    {
        QTest::addColumn<bool>("cask");
        QTest::addColumn<QString>("token");
        QTest::addColumn<QByteArray>("outdatedLine");
        QTest::newRow("core formula") << false << "jq" << QByteArray("jq\n");
        QTest::newRow("tap formula, qualified")
            << false << "hello-local" << QByteArray("localtest/tools/hello-local\n");
        QTest::newRow("tap cask, bare token") << true << "hello-cask" << QByteArray("hello-cask\n");
    }

    void upgradeClearsOutdated()
    {
        QFETCH(bool, cask);
        QFETCH(QString, token);
        QFETCH(QByteArray, outdatedLine);
        const QString kind = cask ? QStringLiteral("casks") : QStringLiteral("formulae");
        QVERIFY(simulate({{"taps", QJsonArray{"homebrew/cask", "homebrew/core", "localtest/tools"}},
                          {kind, QJsonObject{{token, "0.9"}}},
                          {"outdated", QJsonObject{{kind, QJsonObject{{token, "9.9"}}}}}}));
        const QStringList outdated{"outdated", "--" + kind, "--greedy", "--quiet"};
        // The installed version and whether info calls it outdated.
        const auto version = [&] {
            const InfoEnvelope info = installed(kind);
            return cask ? std::pair(info.casks.at(0).installed.value_or(""), info.casks.at(0).outdated)
                        : std::pair(info.formulae.at(0).installed.at(0).version, info.formulae.at(0).outdated);
        };
        QCOMPARE(brew(outdated).out, outdatedLine);
        QCOMPARE(version(), std::pair(QStringLiteral("0.9"), true));

        const Run upgrade = brew({"upgrade", "--" + kind, token});
        QVERIFY2(upgrade.exitCode == 0 && upgrade.out.contains("0.9 -> 9.9"), upgrade.out);
        QCOMPARE(brew(outdated).out, QByteArray());
        QCOMPARE(version(), std::pair(QStringLiteral("9.9"), false));
    }

    void failures_data()
    {
        QTest::addColumn<QJsonObject>("faults");
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QByteArray>("outStart"); // empty: nothing on standard output
        QTest::addColumn<QByteArray>("errPart");
        QTest::addColumn<bool>("onlyThat"); // a different command still succeeds and changes the state

        const auto row = [](const char* name, const QJsonObject& faults, const QStringList& arguments, int exitCode,
                            const QByteArray& out, const QByteArray& err, bool onlyThat = false) {
            QTest::newRow(name) << faults << arguments << exitCode << out << err << onlyThat;
        };
        row("unknown formula", {}, {"install", "--formula", "nope"}, 1, {},
            "Error: No available formula with the name \"nope\".\n");
        row("unknown cask", {}, {"info", "--cask", "--json=v2", "nope"}, 1, {},
            "Error: Cask 'nope' is unavailable: No Cask with this name exists.\n");
        row("unknown option", {}, {"leaves", "--bogus"}, 1, {}, "Error: invalid option: --bogus\n");
        row("untap while installed", {}, {"untap", "localtest/tools"}, 1, {},
            "Error: Refusing to untap localtest/tools because it contains the following installed formulae or "
            "casks:\nhello-local\n");
        row("failing token", {{"failTokens", QJsonArray{"jq"}}}, {"install", "jq"}, 1, "==> Fetching jq\n",
            "Error: jq: Failed", true);
        row("failing command", {{"failCommands", QJsonArray{"update"}}}, {"update"}, 1, {}, "\nError: ", true);
        row("exit after output", {{"exitAfterOutput", 3}}, {"leaves"}, 3, "localtest/tools/hello-local\n", {});
        row("stderr only", {{"stderrOnly", true}}, {"leaves"}, 0, {}, "localtest/tools/hello-local\n");
    }

    // Refusals and staged faults: the answer brew would give, and the state left as it was.
    void failures()
    {
        QFETCH(QJsonObject, faults);
        QFETCH(QStringList, arguments);
        QFETCH(int, exitCode);
        QFETCH(QByteArray, outStart);
        QFETCH(QByteArray, errPart);
        QFETCH(bool, onlyThat);
        QVERIFY(simulate({{"taps", QJsonArray{"homebrew/core", "localtest/tools"}},
                          {"formulae", QJsonObject{{"hello-local", "1.0"}}},
                          {"faults", faults}}));
        const QByteArray before = stateText();

        const Run run = brew(arguments);
        QCOMPARE(run.exitCode, exitCode);
        QVERIFY2(run.out.startsWith(outStart) && run.out.isEmpty() == outStart.isEmpty(), run.out);
        QVERIFY2(run.err.contains(errPart), run.err);
        QCOMPARE(stateText(), before);
        if (onlyThat) {
            QCOMPARE(brew({"install", "bash"}).exitCode, 0);
            QVERIFY(stateText() != before);
        }
    }

    void invalidUtf8_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<bool>("streamed");
        QTest::newRow("install") << QStringList{"install", "--formula", "jq"} << true;
        QTest::newRow("collected list") << QStringList{"leaves"} << false;
    }

    void invalidUtf8()
    {
        QFETCH(QStringList, arguments);
        QFETCH(bool, streamed);
        QVERIFY(
            simulate({{"formulae", QJsonObject{{"git", "2.40.0"}}}, {"faults", QJsonObject{{"invalidUtf8", true}}}}));
        const auto process = startMerged(arguments);
        QVERIFY(process->waitForFinished(60000));
        QCOMPARE(process->exitCode(), 0);
        const QList<QByteArray> lines = process->readAll().split('\n');
        const auto invalid = std::find_if_not(lines.begin(), lines.end(), std::mem_fn(&QByteArray::isValidUtf8));
        QCOMPARE(invalid != lines.end(), streamed);
        // Valid lines on both sides of the bad chunk.
        QVERIFY(!streamed || (invalid != lines.begin() && !(invalid - 1)->isEmpty() && invalid + 1 != lines.end() &&
                              !(invalid + 1)->isEmpty()));
    }

    void slowOutputArrivesLineByLine()
    {
        QVERIFY(simulate({{"faults", QJsonObject{{"delayMs", 1000}}}}));
        const auto process = startMerged({"install", "--formula", "jq"});
        // The first line is there while the rest is still being written: each line is flushed on its own.
        QTRY_VERIFY_WITH_TIMEOUT(process->canReadLine(), 10000);
        QCOMPARE(process->state(), QProcess::Running);
        QCOMPARE(process->readLine(), QByteArray("==> Fetching jq\n"));
        QVERIFY(process->waitForFinished(60000));
        QCOMPARE(process->exitCode(), 0);
    }

    void sudo_data()
    {
        QTest::addColumn<QByteArray>("askpass");
        QTest::addColumn<std::optional<QString>>("password"); // none: sudo fails
        QTest::newRow("password given") << QByteArray("printf 'pa ss\\n'") << std::optional<QString>("pa ss");
        QTest::newRow("empty password") << QByteArray("echo") << std::optional<QString>(QString());
        QTest::newRow("cancelled") << QByteArray("exit 1") << std::optional<QString>();
        QTest::newRow("no helper") << QByteArray() << std::optional<QString>();
    }

    void sudo()
    {
        QFETCH(QByteArray, askpass);
        QFETCH(std::optional<QString>, password);
        QVERIFY(simulate({{"faults", QJsonObject{{"sudo", QJsonArray{"install"}}}}}));
        QString helper;
        if (!askpass.isEmpty()) {
            helper = m_root->filePath(QStringLiteral("askpass.sh"));
            QFile script(helper);
            QVERIFY(script.open(QIODevice::WriteOnly) && script.write("#!/bin/sh\n" + askpass + '\n') > 0);
            QVERIFY(script.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
        }

        const Run run = brew({"install", "--cask", "corretto"}, helper);
        QCOMPARE(run.exitCode, password ? 0 : 1);
        QCOMPARE(run.err.contains("sudo: a password is required\n"), !password);
        QCOMPARE(m_brew->state().value("casks").toObject().contains("corretto"), password.has_value());
        QCOMPARE(m_brew->invocations().value(0).sudoPassword, password);

        // Commands not staged for sudo never run the helper.
        QCOMPARE(brew({"leaves"}, helper).exitCode, 0);
        QCOMPARE(m_brew->invocations().size(), 2);
        QCOMPARE(m_brew->invocations().last().sudoPassword, std::nullopt);
    }

    void concurrentInvocations()
    {
        QVERIFY(simulate());
        const QStringList casks{"0-ad", "atext", "drivedx", "firezone", "jitsi-meet", "opera", "praat", "wooshy"};
        std::vector<std::unique_ptr<QProcess>> processes;
        for (const QString& cask : casks) {
            processes.push_back(startMerged({"install", "--cask", cask}));
        }
        for (const auto& process : processes) {
            QVERIFY(process->waitForFinished(60000));
            QCOMPARE(process->exitCode(), 0);
        }

        // No change lost to a concurrent one, and one whole log line per invocation (broken lines are not read).
        QCOMPARE(m_brew->state().value("casks").toObject().keys(), casks);
        QCOMPARE(m_brew->invocations().size(), casks.size());
    }

    void damagedStateIsReported()
    {
        QVERIFY(simulate());
        QFile state(m_brew->stateFilePath());
        QVERIFY(state.open(QIODevice::WriteOnly) && state.write("{ \"formulae\": ") > 0);
        state.close();
        const Run damaged = brew({"leaves"});
        QCOMPARE(damaged.exitCode, 1);
        QVERIFY2(damaged.err.startsWith("Error: brew-simulator: "), damaged.err);
        QCOMPARE(m_brew->invocations().size(), 1);
    }
};

QTEST_GUILESS_MAIN(TestBrewSimulator)
#include "TestBrewSimulator.moc"
