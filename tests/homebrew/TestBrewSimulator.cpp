#include "foundation/RailsJSONDecoder.h"
#include "homebrew/SimulatedHomebrew.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QProcess>
#include <QRegularExpression>
#include <QStringDecoder>
#include <QTemporaryDir>
#include <QTest>
#include <algorithm>
#include <memory>

namespace {

// The fields of brew's records that the app reads, decoded as the app decodes them.
struct InstalledVersion {
    QString version;
    bool installedOnRequest = false;
    bool installedAsDependency = false;
    static constexpr auto codingKeys()
    {
        return std::make_tuple(CodingKey("version", &InstalledVersion::version),
                               CodingKey("installedOnRequest", &InstalledVersion::installedOnRequest),
                               CodingKey("installedAsDependency", &InstalledVersion::installedAsDependency));
    }
};

struct Versions {
    QString stable;
    static constexpr auto codingKeys() { return std::make_tuple(CodingKey("stable", &Versions::stable)); }
};

struct FormulaRecord {
    QString token;
    QString fullName;
    QString tap;
    Versions versions;
    std::vector<InstalledVersion> installed;
    bool outdated = false;
    static constexpr auto codingKeys()
    {
        return std::make_tuple(
            CodingKey("name", &FormulaRecord::token), CodingKey("fullName", &FormulaRecord::fullName),
            CodingKey("tap", &FormulaRecord::tap), CodingKey("versions", &FormulaRecord::versions),
            CodingKey("installed", &FormulaRecord::installed), CodingKey("outdated", &FormulaRecord::outdated));
    }
};

struct CaskRecord {
    QString token;
    QString fullToken;
    QString version;
    std::optional<QString> installed;
    bool outdated = false;
    static constexpr auto codingKeys()
    {
        return std::make_tuple(CodingKey("token", &CaskRecord::token), CodingKey("fullToken", &CaskRecord::fullToken),
                               CodingKey("version", &CaskRecord::version),
                               CodingKey("installed", &CaskRecord::installed),
                               CodingKey("outdated", &CaskRecord::outdated));
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

struct TapRecord {
    QString name;
    QString user;
    bool installed = false;
    bool official = false;
    QStringList formulaNames;
    QStringList caskTokens;
    QStringList formulaFiles;
    QStringList caskFiles;
    QStringList commandFiles;
    static constexpr auto codingKeys()
    {
        return std::make_tuple(
            CodingKey("name", &TapRecord::name), CodingKey("user", &TapRecord::user),
            CodingKey("installed", &TapRecord::installed), CodingKey("official", &TapRecord::official),
            CodingKey("formulaNames", &TapRecord::formulaNames), CodingKey("caskTokens", &TapRecord::caskTokens),
            CodingKey("formulaFiles", &TapRecord::formulaFiles), CodingKey("caskFiles", &TapRecord::caskFiles),
            CodingKey("commandFiles", &TapRecord::commandFiles));
    }
};

struct Run {
    int exitCode = -1;
    QByteArray out;
    QByteArray err;
};

QStringList tokens(const std::vector<FormulaRecord>& records)
{
    QStringList list;
    for (const FormulaRecord& record : records) {
        list.append(record.token);
    }
    return list;
}

QStringList tokens(const std::vector<CaskRecord>& records)
{
    QStringList list;
    for (const CaskRecord& record : records) {
        list.append(record.token);
    }
    return list;
}

bool isValidUtf8(const QByteArray& bytes)
{
    QStringDecoder decoder(QStringDecoder::Utf8);
    const QString text = decoder.decode(bytes);
    return !decoder.hasError();
}

} // namespace

class TestBrewSimulator : public QObject {
    Q_OBJECT

private:
    std::unique_ptr<QTemporaryDir> m_root;
    std::optional<SimulatedHomebrew> m_brew;

    bool simulate(const QJsonObject& state = {}, bool secondCandidate = false)
    {
        m_root = std::make_unique<QTemporaryDir>();
        Result<SimulatedHomebrew> created = SimulatedHomebrew::create(m_root->path(), state, secondCandidate);
        if (!created) {
            qWarning() << created.error().description();
            return false;
        }
        m_brew = std::move(created).value();
        return true;
    }

    Run brew(const QStringList& arguments, const QProcessEnvironment& environment = QProcessEnvironment())
    {
        QProcess process;
        QProcessEnvironment childEnvironment = environment;
        if (childEnvironment.isEmpty()) {
            childEnvironment = QProcessEnvironment::systemEnvironment();
            childEnvironment.insert(QStringLiteral("HOME"), m_root->path());
            childEnvironment.remove(QStringLiteral("SUDO_ASKPASS"));
        }
        process.setProcessEnvironment(childEnvironment);
        process.start(m_brew->brewPath(), arguments);
        Run run;
        if (!process.waitForFinished(60000)) {
            process.kill();
            process.waitForFinished();
            return run;
        }
        run.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
        run.out = process.readAllStandardOutput();
        run.err = process.readAllStandardError();
        return run;
    }

    template <class T>
    T decoded(const QByteArray& json)
    {
        Result<T> result = RailsJSONDecoder().decode<T>(json);
        if (!result) {
            qWarning() << result.error().description() << json.left(400);
            return T{};
        }
        return std::move(result).value();
    }

    QString askpassScript(const QByteArray& body)
    {
        const QString path = m_root->filePath(QStringLiteral("askpass.sh"));
        QFile script(path);
        script.open(QIODevice::WriteOnly);
        script.write("#!/bin/sh\n" + body + '\n');
        script.close();
        script.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        return path;
    }

private Q_SLOTS:
    void prefixLayout_data();
    void prefixLayout();
    void emptyInstallationAnswersEmptyShapes();
    void formulaInstallReflectedInQueries();
    void caskInstallRecordsFolders();
    void upgradeClearsOutdated_data();
    void upgradeClearsOutdated();
    void untapRefusesWhileInstalled();
    void badRequests_data();
    void badRequests();
    void companionCommand();
    void autoremoveAndUninstallDropUnneededDependencies();
    void updateMergesPendingVersions();
    void stagedFailures_data();
    void stagedFailures();
    void exitAfterOutput();
    void stderrOnly();
    void invalidUtf8_data();
    void invalidUtf8();
    void slowOutputArrivesLineByLine();
    void sudo_data();
    void sudo();
    void invocationLog();
    void concurrentInvocations();
    void damagedStateIsReported();
};

void TestBrewSimulator::prefixLayout_data()
{
    QTest::addColumn<bool>("secondCandidate");
    QTest::addColumn<QString>("prefixUnderRoot");
    QTest::newRow("first candidate") << false << QStringLiteral("/opt/homebrew");
    QTest::newRow("second candidate") << true << QStringLiteral("/usr/local/homebrew");
}

void TestBrewSimulator::prefixLayout()
{
    QFETCH(bool, secondCandidate);
    QFETCH(QString, prefixUnderRoot);
    QVERIFY(simulate({{QStringLiteral("homebrewVersion"), QStringLiteral("4.1.2")}}, secondCandidate));

    const QString prefix = QDir(m_root->path()).absolutePath() + prefixUnderRoot;
    QCOMPARE(m_brew->prefix(), prefix);
    QVERIFY(QFileInfo(m_brew->brewPath()).isSymLink());
    QVERIFY(QFileInfo::exists(prefix + QStringLiteral("/.git/refs/tags/4.1.2")));

    const Run version = brew({QStringLiteral("--version")});
    QCOMPARE(version.exitCode, 0);
    QVERIFY(version.out.startsWith("Homebrew 4.1.2\n"));

    // The prefix is where the link lives, not where the simulator was built.
    QVERIFY(brew({QStringLiteral("tap"), QStringLiteral("localtest/tools")}).exitCode == 0);
    const Run install = brew({QStringLiteral("install"), QStringLiteral("--formula"), QStringLiteral("hello-local")});
    QCOMPARE(install.exitCode, 0);
    QVERIFY2(install.out.contains("🍺  " + prefix.toUtf8() + "/Cellar/hello-local/1.0: "), install.out);
}

void TestBrewSimulator::emptyInstallationAnswersEmptyShapes()
{
    QVERIFY(simulate({{QStringLiteral("taps"), QJsonArray()}}));

    for (const QString& kind : {QStringLiteral("--formulae"), QStringLiteral("--casks")}) {
        const Run info =
            brew({QStringLiteral("info"), QStringLiteral("--installed"), kind, QStringLiteral("--json=v2")});
        QCOMPARE(info.exitCode, 0);
        QVERIFY2(RailsJSONDecoder().decode<InfoEnvelope>(info.out).ok(), info.out);
    }
    // brew's own layout for an empty list.
    QCOMPARE(brew({QStringLiteral("tap-info"), QStringLiteral("--installed"), QStringLiteral("--json")}).out,
             QByteArray("[\n\n]\n"));
    const Run leaves = brew({QStringLiteral("leaves")});
    QCOMPARE(leaves.exitCode, 0);
    QCOMPARE(leaves.out, QByteArray());
}

void TestBrewSimulator::formulaInstallReflectedInQueries()
{
    QVERIFY(simulate());
    QCOMPARE(brew({QStringLiteral("tap"), QStringLiteral("localtest/tools")}).exitCode, 0);

    const Run install = brew({QStringLiteral("install"), QStringLiteral("--formula"), QStringLiteral("hello-app")});
    QCOMPARE(install.exitCode, 0);
    const QStringList lines = QString::fromUtf8(install.out).split(QLatin1Char('\n'));
    QVERIFY2(lines.contains(
                 QStringLiteral("==> Installing localtest/tools/hello-app dependency: localtest/tools/hello-lib")),
             install.out);
    QCOMPARE(lines
                 .filter(QRegularExpression(QStringLiteral("^🍺  .*/Cellar/hello-(lib|app)/1\\.0: \\d+ files, "
                                                           "[0-9.]+[KMG]?B, built in 0 seconds$")))
                 .size(),
             2);
    QCOMPARE(brew({QStringLiteral("install"), QStringLiteral("--formula"), QStringLiteral("bash")}).exitCode, 0);

    const InfoEnvelope info = decoded<InfoEnvelope>(brew({QStringLiteral("info"), QStringLiteral("--installed"),
                                                          QStringLiteral("--formulae"), QStringLiteral("--json=v2")})
                                                        .out);
    QCOMPARE(tokens(info.formulae), QStringList({"bash", "hello-app", "hello-lib"}));
    QVERIFY(info.casks.empty());
    const FormulaRecord& bash = info.formulae.at(0);
    QCOMPARE(bash.tap, QStringLiteral("homebrew/core"));
    QCOMPARE(bash.installed.size(), size_t(1));
    QCOMPARE(bash.installed.front().version, bash.versions.stable);
    const FormulaRecord& library = info.formulae.at(2);
    QCOMPARE(library.fullName, QStringLiteral("localtest/tools/hello-lib"));
    QVERIFY(library.installed.front().installedAsDependency);
    QVERIFY(!library.installed.front().installedOnRequest);

    // Leaves: installed on request and needed by nothing, fully qualified outside the core tap.
    QCOMPARE(brew({QStringLiteral("leaves")}).out, QByteArray("bash\nlocaltest/tools/hello-app\n"));
}

void TestBrewSimulator::caskInstallRecordsFolders()
{
    QVERIFY(simulate());
    const QString apps = m_root->filePath(QStringLiteral("Apps"));
    const Run install = brew({QStringLiteral("install"), QStringLiteral("--cask"), QStringLiteral("opera"),
                              QStringLiteral("--appdir"), apps});
    QCOMPARE(install.exitCode, 0);
    QVERIFY2(install.out.contains("==> Moving App 'Opera.app' to '" + apps.toUtf8() + "/Opera.app'"), install.out);
    QVERIFY(install.out.endsWith("🍺  opera was successfully installed!\n"));
    QCOMPARE(m_brew->state()
                 .value(QStringLiteral("casks"))
                 .toObject()
                 .value(QStringLiteral("opera"))
                 .toObject()
                 .value(QStringLiteral("appdir")),
             QJsonValue(apps));

    const InfoEnvelope one = decoded<InfoEnvelope>(
        brew({QStringLiteral("info"), QStringLiteral("--cask"), QStringLiteral("--json=v2"), QStringLiteral("opera")})
            .out);
    QCOMPARE(one.casks.size(), size_t(1));
    QCOMPARE(one.casks.front().installed, std::optional<QString>(one.casks.front().version));
    const InfoEnvelope installed = decoded<InfoEnvelope>(brew({QStringLiteral("info"), QStringLiteral("--installed"),
                                                               QStringLiteral("--casks"), QStringLiteral("--json=v2")})
                                                             .out);
    QCOMPARE(tokens(installed.casks), QStringList{QStringLiteral("opera")});

    // A cask that is not installed still answers, with "installed": null.
    const InfoEnvelope other = decoded<InfoEnvelope>(brew({QStringLiteral("info"), QStringLiteral("--cask"),
                                                           QStringLiteral("--json=v2"), QStringLiteral("opera-gx")})
                                                         .out);
    QCOMPARE(other.casks.size(), size_t(1));
    QCOMPARE(other.casks.front().installed, std::nullopt);
}

void TestBrewSimulator::upgradeClearsOutdated_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QString>("token");
    QTest::addColumn<QString>("oldVersion");
    QTest::addColumn<QByteArray>("outdatedLine");
    QTest::newRow("core formula") << QStringLiteral("--formula") << QStringLiteral("jq") << QStringLiteral("1.5")
                                  << QByteArray("jq\n");
    QTest::newRow("tap formula, fully qualified")
        << QStringLiteral("--formula") << QStringLiteral("hello-local") << QStringLiteral("0.9")
        << QByteArray("localtest/tools/hello-local\n");
    QTest::newRow("tap cask, bare token") << QStringLiteral("--cask") << QStringLiteral("hello-cask")
                                          << QStringLiteral("0.9") << QByteArray("hello-cask\n");
}

void TestBrewSimulator::upgradeClearsOutdated()
{
    QFETCH(QString, kind);
    QFETCH(QString, token);
    QFETCH(QString, oldVersion);
    QFETCH(QByteArray, outdatedLine);
    const bool cask = kind == QStringLiteral("--cask");
    const QString kinds = cask ? QStringLiteral("casks") : QStringLiteral("formulae");
    QVERIFY(simulate({
        {QStringLiteral("taps"), QJsonArray{"homebrew/cask", "homebrew/core", "localtest/tools"}},
        {kinds, QJsonObject{{token, oldVersion}}},
        {QStringLiteral("outdated"), QJsonObject{{kinds, QJsonObject{{token, "9.9"}}}}},
    }));

    const QStringList outdated{QStringLiteral("outdated"), QStringLiteral("--") + kinds, QStringLiteral("--greedy"),
                               QStringLiteral("--quiet")};
    QCOMPARE(brew(outdated).out, outdatedLine);
    const QStringList info{QStringLiteral("info"), QStringLiteral("--installed"), QStringLiteral("--") + kinds,
                           QStringLiteral("--json=v2")};
    const InfoEnvelope before = decoded<InfoEnvelope>(brew(info).out);
    QVERIFY(cask ? before.casks.at(0).outdated : before.formulae.at(0).outdated);

    const Run upgrade = brew({QStringLiteral("upgrade"), kind, token});
    QCOMPARE(upgrade.exitCode, 0);
    QVERIFY2(upgrade.out.contains(oldVersion.toUtf8() + " -> 9.9"), upgrade.out);
    QCOMPARE(brew(outdated).out, QByteArray());
    const InfoEnvelope after = decoded<InfoEnvelope>(brew(info).out);
    if (cask) {
        QCOMPARE(after.casks.at(0).installed, std::optional<QString>(QStringLiteral("9.9")));
        QVERIFY(!after.casks.at(0).outdated);
    } else {
        QCOMPARE(after.formulae.at(0).installed.at(0).version, QStringLiteral("9.9"));
        QVERIFY(!after.formulae.at(0).outdated);
    }
    // Nothing left to upgrade: a warning, not a failure.
    const Run again = brew({QStringLiteral("upgrade"), kind, token});
    QCOMPARE(again.exitCode, 0);
    QVERIFY(again.err.startsWith("Warning: "));
}

void TestBrewSimulator::untapRefusesWhileInstalled()
{
    QVERIFY(simulate());
    const QStringList untap{QStringLiteral("untap"), QStringLiteral("localtest/tools")};
    QCOMPARE(brew({QStringLiteral("tap"), QStringLiteral("localtest/tools")}).exitCode, 0);
    QCOMPARE(brew({QStringLiteral("install"), QStringLiteral("--formula"), QStringLiteral("hello-local")}).exitCode, 0);

    const Run refused = brew(untap);
    QCOMPARE(refused.exitCode, 1);
    QCOMPARE(refused.out, QByteArray());
    QCOMPARE(refused.err, QByteArray("Error: Refusing to untap localtest/tools because it contains the following "
                                     "installed formulae or casks:\nhello-local\n"));

    QCOMPARE(brew({QStringLiteral("uninstall"), QStringLiteral("--formula"), QStringLiteral("hello-local")}).exitCode,
             0);
    const Run untapped = brew(untap);
    QCOMPARE(untapped.exitCode, 0);
    QVERIFY(untapped.err.startsWith("Untapping localtest/tools...\nUntapped 1 cask and 3 formulae ("));
    const auto taps = decoded<std::vector<TapRecord>>(
        brew({QStringLiteral("tap-info"), QStringLiteral("--installed"), QStringLiteral("--json")}).out);
    QCOMPARE(taps.size(), size_t(2));
    QVERIFY(!QFileInfo::exists(m_brew->prefix() + QStringLiteral("/Library/Taps/localtest/homebrew-tools")));
}

void TestBrewSimulator::badRequests_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QByteArray>("error");
    QTest::newRow("unknown formula") << QStringList{"install", "--formula", "nope"}
                                     << QByteArray("Error: No available formula with the name \"nope\".\n");
    QTest::newRow("unknown cask") << QStringList{"install", "--cask", "nope"}
                                  << QByteArray("Error: Cask 'nope' is unavailable: No Cask with this name exists.\n");
    QTest::newRow("info of unknown cask")
        << QStringList{"info", "--cask", "--json=v2", "nope"}
        << QByteArray("Error: Cask 'nope' is unavailable: No Cask with this name exists.\n");
    QTest::newRow("uninstall of what is not installed")
        << QStringList{"uninstall", "--cask", "opera"} << QByteArray("Error: Cask 'opera' is not installed.\n");
    QTest::newRow("companion command without its tap")
        << QStringList{"corvel-tap-content-info", "--formulae", "--json=v2"}
        << QByteArray("Error: Unknown command: corvel-tap-content-info\n");
    QTest::newRow("unknown command") << QStringList{"frobnicate"} << QByteArray("Error: Unknown command: frobnicate\n");
    QTest::newRow("unknown option") << QStringList{"leaves", "--bogus"}
                                    << QByteArray("Error: invalid option: --bogus\n");
    QTest::newRow("malformed tap name") << QStringList{"tap", "no-slash"}
                                        << QByteArray("Error: Invalid tap name: 'no-slash'\n");
    QTest::newRow("untap of what is not tapped")
        << QStringList{"untap", "someone/else"} << QByteArray("Error: No available tap someone/else.\n");
    QTest::newRow("appdir without a folder")
        << QStringList{"install", "--cask", "opera", "--appdir"} << QByteArray("Error: missing argument: --appdir\n");
}

void TestBrewSimulator::badRequests()
{
    QFETCH(QStringList, arguments);
    QFETCH(QByteArray, error);
    QVERIFY(simulate());
    const QByteArray stateBefore = QJsonDocument(m_brew->state()).toJson();

    const Run run = brew(arguments);
    QCOMPARE(run.exitCode, 1);
    QCOMPARE(run.err, error);
    QCOMPARE(run.out, QByteArray());
    QCOMPARE(QJsonDocument(m_brew->state()).toJson(), stateBefore);
}

void TestBrewSimulator::companionCommand()
{
    QVERIFY(simulate({{QStringLiteral("commandsVersion"), QStringLiteral("2.1.0")}}));
    QCOMPARE(brew({QStringLiteral("tap"), QStringLiteral("tesselworks/corvel-cmd")}).exitCode, 0);
    QVERIFY(QFileInfo::exists(m_brew->prefix() +
                              QStringLiteral("/Library/Taps/tesselworks/homebrew-corvel-cmd/.git/refs/tags/2.1.0")));
    QCOMPARE(brew({QStringLiteral("tap"), QStringLiteral("localtest/tools")}).exitCode, 0);
    QCOMPARE(brew({QStringLiteral("install"), QStringLiteral("--formula"), QStringLiteral("hello-local")}).exitCode, 0);

    const InfoEnvelope formulae = decoded<InfoEnvelope>(
        brew({QStringLiteral("corvel-tap-content-info"), QStringLiteral("--formulae"), QStringLiteral("--json=v2")})
            .out);
    QCOMPARE(tokens(formulae.formulae), QStringList({"hello-app", "hello-lib", "hello-local"}));
    QVERIFY(formulae.casks.empty());
    QCOMPARE(formulae.formulae.at(2).installed.size(), size_t(1));
    QVERIFY(formulae.formulae.at(0).installed.empty());

    // The cask form passes a single blank as its last argument.
    const InfoEnvelope casks = decoded<InfoEnvelope>(
        brew({QStringLiteral("corvel-tap-content-info"), QStringLiteral("--casks"), QStringLiteral(" ")}).out);
    QCOMPARE(tokens(casks.casks), QStringList{QStringLiteral("hello-cask")});
    QCOMPARE(casks.casks.front().fullToken, QStringLiteral("localtest/tools/hello-cask"));
    QVERIFY(casks.formulae.empty());

    const auto taps = decoded<std::vector<TapRecord>>(
        brew({QStringLiteral("tap-info"), QStringLiteral("--installed"), QStringLiteral("--json")}).out);
    QCOMPARE(taps.size(), size_t(4));
    const TapRecord& local = taps.at(2);
    QCOMPARE(local.name, QStringLiteral("localtest/tools"));
    QVERIFY(local.installed && !local.official);
    QCOMPARE(local.formulaNames.first(), QStringLiteral("localtest/tools/hello-app"));
    QCOMPARE(local.formulaFiles.size(), 3);
    QCOMPARE(local.caskFiles.size(), 1);
    QVERIFY(local.commandFiles.isEmpty());
    const TapRecord& companion = taps.at(3);
    QCOMPARE(companion.commandFiles.size(), 1);
    QVERIFY(taps.at(1).official);
    QCOMPARE(taps.at(1).user, QStringLiteral("Homebrew"));
}

void TestBrewSimulator::autoremoveAndUninstallDropUnneededDependencies()
{
    QVERIFY(simulate({
        {QStringLiteral("formulae"),
         QJsonObject{{"readline", QJsonObject{{"version", "8.2.1"}, {"installedOnRequest", false}}},
                     {"xz", QJsonObject{{"version", "5.2.7"}, {"installedOnRequest", false}}},
                     {"sqlite", QJsonObject{{"version", "3.35.3"}, {"dependencies", QJsonArray{"readline"}}}}}},
    }));
    QCOMPARE(brew({QStringLiteral("leaves")}).out, QByteArray("sqlite\n"));

    const Run autoremove = brew({QStringLiteral("autoremove")});
    QCOMPARE(autoremove.exitCode, 0);
    QVERIFY2(autoremove.out.startsWith("==> Autoremoving 1 unneeded formula:\nxz\nUninstalling "), autoremove.out);
    QCOMPARE(brew({QStringLiteral("autoremove")}).out, QByteArray());

    // A formula others need is refused; its dependent's uninstall takes it along.
    const Run refused = brew({QStringLiteral("uninstall"), QStringLiteral("--formula"), QStringLiteral("readline")});
    QCOMPARE(refused.exitCode, 1);
    QVERIFY(refused.err.startsWith("Error: Refusing to uninstall "));
    const Run uninstall = brew({QStringLiteral("uninstall"), QStringLiteral("--formula"), QStringLiteral("sqlite")});
    QCOMPARE(uninstall.exitCode, 0);
    QVERIFY2(uninstall.out.contains("==> Autoremoving 1 unneeded formula:\nreadline\n"), uninstall.out);
    QVERIFY(m_brew->state().value(QStringLiteral("formulae")).toObject().isEmpty());
}

void TestBrewSimulator::updateMergesPendingVersions()
{
    QVERIFY(simulate({
        {QStringLiteral("formulae"), QJsonObject{{"jq", "1.6"}}},
        {QStringLiteral("pendingUpdates"), QJsonObject{{"formulae", QJsonObject{{"jq", "1.7"}}}}},
    }));
    QCOMPARE(brew({QStringLiteral("outdated"), QStringLiteral("--formulae"), QStringLiteral("--quiet")}).out,
             QByteArray());

    const Run update = brew({QStringLiteral("update")});
    QCOMPARE(update.exitCode, 0);
    QVERIFY(
        update.err.startsWith("==> Updating Homebrew...\nUpdated 1 tap (homebrew/core).\n==> Outdated Formulae\njq\n"));
    QVERIFY(m_brew->state().contains(QStringLiteral("lastUpdate")));
    QCOMPARE(brew({QStringLiteral("outdated"), QStringLiteral("--formulae"), QStringLiteral("--quiet")}).out,
             QByteArray("jq\n"));

    const Run again = brew({QStringLiteral("update")});
    QCOMPARE(again.out, QByteArray("Already up-to-date.\n"));
}

void TestBrewSimulator::stagedFailures_data()
{
    QTest::addColumn<QJsonObject>("faults");
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QByteArray>("progress");
    QTest::addColumn<QStringList>("unaffected");
    QTest::newRow("failing token") << QJsonObject{{"failTokens", QJsonArray{"jq"}}}
                                   << QStringList{"install", "--formula", "jq"} << QByteArray("==> Fetching jq\n")
                                   << QStringList{"install", "--formula", "bash"};
    QTest::newRow("failing command") << QJsonObject{{"failCommands", QJsonArray{"update"}}} << QStringList{"update"}
                                     << QByteArray() << QStringList{"install", "--formula", "bash"};
    QTest::newRow("failing command of a token")
        << QJsonObject{{"failCommands", QJsonArray{"install"}}} << QStringList{"install", "--cask", "opera"}
        << QByteArray("==> Fetching opera\n") << QStringList{"update"};
}

void TestBrewSimulator::stagedFailures()
{
    QFETCH(QJsonObject, faults);
    QFETCH(QStringList, arguments);
    QFETCH(QByteArray, progress);
    QFETCH(QStringList, unaffected);
    QVERIFY(simulate({{QStringLiteral("faults"), faults}}));
    const QByteArray stateBefore = QJsonDocument(m_brew->state()).toJson();

    const Run run = brew(arguments);
    QCOMPARE(run.exitCode, 1);
    QVERIFY2(run.out.startsWith(progress), run.out);
    QVERIFY2(run.err.contains("\nError: ") || run.err.startsWith("Error: "), run.err);
    QCOMPARE(QJsonDocument(m_brew->state()).toJson(), stateBefore);
    // Only what is staged fails.
    QCOMPARE(brew(unaffected).exitCode, 0);
    QVERIFY(QJsonDocument(m_brew->state()).toJson() != stateBefore);
}

void TestBrewSimulator::exitAfterOutput()
{
    QVERIFY(simulate({{QStringLiteral("formulae"), QJsonObject{{"bash", "5.1.4"}}},
                      {QStringLiteral("faults"), QJsonObject{{"exitAfterOutput", 3}}}}));
    const Run leaves = brew({QStringLiteral("leaves")});
    QCOMPARE(leaves.exitCode, 3);
    QCOMPARE(leaves.out, QByteArray("bash\n"));
}

void TestBrewSimulator::stderrOnly()
{
    QVERIFY(simulate({{QStringLiteral("formulae"), QJsonObject{{"bash", "5.1.4"}}},
                      {QStringLiteral("faults"), QJsonObject{{"stderrOnly", true}}}}));
    const Run info = brew({QStringLiteral("info"), QStringLiteral("--installed"), QStringLiteral("--formulae"),
                           QStringLiteral("--json=v2")});
    QCOMPARE(info.exitCode, 0);
    QCOMPARE(info.out, QByteArray());
    QCOMPARE(tokens(decoded<InfoEnvelope>(info.err).formulae), QStringList{QStringLiteral("bash")});
}

void TestBrewSimulator::invalidUtf8_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<bool>("streamed");
    QTest::newRow("install") << QStringList{"install", "--formula", "jq"} << true;
    QTest::newRow("untap") << QStringList{"untap", "homebrew/cask"} << true;
    QTest::newRow("collected list") << QStringList{"leaves"} << false;
}

void TestBrewSimulator::invalidUtf8()
{
    QFETCH(QStringList, arguments);
    QFETCH(bool, streamed);
    QVERIFY(simulate({{QStringLiteral("formulae"), QJsonObject{{"bash", "5.1.4"}}},
                      {QStringLiteral("faults"), QJsonObject{{"invalidUtf8", true}}}}));

    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(m_brew->brewPath(), arguments);
    QVERIFY(process.waitForFinished(60000));
    QCOMPARE(process.exitCode(), 0);
    const QList<QByteArray> lines = process.readAll().split('\n');
    const auto invalid =
        std::find_if(lines.begin(), lines.end(), [](const QByteArray& line) { return !isValidUtf8(line); });
    QCOMPARE(invalid != lines.end(), streamed);
    if (streamed) {
        // Valid lines on both sides of the bad chunk.
        QVERIFY(invalid != lines.begin() && isValidUtf8(*(invalid - 1)) && !(invalid - 1)->isEmpty());
        QVERIFY(invalid + 1 != lines.end() && !(invalid + 1)->isEmpty());
    }
}

void TestBrewSimulator::slowOutputArrivesLineByLine()
{
    QVERIFY(simulate({{QStringLiteral("faults"), QJsonObject{{"delayMs", 1000}}}}));
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(m_brew->brewPath(), {QStringLiteral("install"), QStringLiteral("--formula"), QStringLiteral("jq")});
    // The first line is there while the rest is still being written: each line is flushed on its own.
    QTRY_VERIFY_WITH_TIMEOUT(process.canReadLine(), 10000);
    QCOMPARE(process.state(), QProcess::Running);
    QCOMPARE(process.readLine(), QByteArray("==> Fetching jq\n"));
    QVERIFY(process.waitForFinished(60000));
    QCOMPARE(process.exitCode(), 0);
}

void TestBrewSimulator::sudo_data()
{
    QTest::addColumn<QByteArray>("askpass");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<std::optional<QString>>("password");
    QTest::newRow("password given") << QByteArray("printf 'pa ss\\n'") << 0 << std::optional<QString>("pa ss");
    QTest::newRow("empty password") << QByteArray("echo") << 0 << std::optional<QString>(QString());
    QTest::newRow("cancelled") << QByteArray("exit 1") << 1 << std::optional<QString>();
    QTest::newRow("no helper") << QByteArray() << 1 << std::optional<QString>();
}

void TestBrewSimulator::sudo()
{
    QFETCH(QByteArray, askpass);
    QFETCH(int, exitCode);
    QFETCH(std::optional<QString>, password);
    QVERIFY(simulate({{QStringLiteral("faults"), QJsonObject{{"sudo", QJsonArray{"install"}}}}}));

    QProcessEnvironment environment;
    environment.insert(QStringLiteral("HOME"), m_root->path());
    if (!askpass.isEmpty()) {
        environment.insert(QStringLiteral("SUDO_ASKPASS"), askpassScript(askpass));
    }
    const Run run =
        brew({QStringLiteral("install"), QStringLiteral("--cask"), QStringLiteral("corretto")}, environment);
    QCOMPARE(run.exitCode, exitCode);
    QCOMPARE(run.err.contains("sudo: a password is required\n"), exitCode != 0);
    QCOMPARE(m_brew->state().value(QStringLiteral("casks")).toObject().contains(QStringLiteral("corretto")),
             exitCode == 0);
    const QList<SimulatedHomebrew::Invocation> invocations = m_brew->invocations();
    QCOMPARE(invocations.size(), 1);
    QCOMPARE(invocations.first().sudoPassword, password);

    // Commands not staged for sudo never run the helper.
    QCOMPARE(brew({QStringLiteral("leaves")}, environment).exitCode, 0);
    QCOMPARE(m_brew->invocations().last().sudoPassword, std::nullopt);
}

void TestBrewSimulator::invocationLog()
{
    QVERIFY(simulate());
    QProcessEnvironment environment;
    environment.insert(QStringLiteral("SUDO_ASKPASS"), QStringLiteral("/nowhere/Askpass"));
    environment.insert(QStringLiteral("HOME"), m_root->path());
    const QStringList first{QStringLiteral("corvel-tap-content-info"), QStringLiteral("--casks"), QStringLiteral(" ")};
    const QStringList second{QStringLiteral("info"), QStringLiteral("--cask"), QStringLiteral("--json=v2"),
                             QStringLiteral("opera")};
    QCOMPARE(brew(first, environment).exitCode, 1);
    QCOMPARE(brew(second, environment).exitCode, 0);

    const QList<SimulatedHomebrew::Invocation> invocations = m_brew->invocations();
    QCOMPARE(invocations.size(), 2);
    QCOMPARE(invocations.at(0).arguments, first);
    QCOMPARE(invocations.at(1).arguments, second);
    const QMap<QString, QString> expected{{QStringLiteral("SUDO_ASKPASS"), QStringLiteral("/nowhere/Askpass")},
                                          {QStringLiteral("HOME"), m_root->path()}};
    QCOMPARE(invocations.at(1).environment, expected);
}

void TestBrewSimulator::concurrentInvocations()
{
    QVERIFY(simulate());
    const QStringList casks{"0-ad", "atext", "drivedx", "firezone", "jitsi-meet", "opera", "praat", "wooshy"};
    std::vector<std::unique_ptr<QProcess>> processes;
    for (const QString& cask : casks) {
        auto& process = processes.emplace_back(std::make_unique<QProcess>());
        process->start(m_brew->brewPath(), {QStringLiteral("install"), QStringLiteral("--cask"), cask});
    }
    for (const auto& process : processes) {
        QVERIFY(process->waitForFinished(60000));
        QCOMPARE(process->exitCode(), 0);
    }

    // No change lost to a concurrent one, and one whole log line per invocation.
    QCOMPARE(m_brew->state().value(QStringLiteral("casks")).toObject().keys(), casks);
    QCOMPARE(m_brew->invocations().size(), casks.size());
    QFile log(m_brew->logFilePath());
    QVERIFY(log.open(QIODevice::ReadOnly));
    const QList<QByteArray> lines = log.readAll().trimmed().split('\n');
    QCOMPARE(lines.size(), casks.size());
    for (const QByteArray& line : lines) {
        QVERIFY(QJsonDocument::fromJson(line).isObject());
    }
}

void TestBrewSimulator::damagedStateIsReported()
{
    QVERIFY(simulate());
    QFile state(m_brew->stateFilePath());
    QVERIFY(state.open(QIODevice::WriteOnly));
    state.write("{ \"formulae\": ");
    state.close();
    const Run damaged = brew({QStringLiteral("leaves")});
    QCOMPARE(damaged.exitCode, 1);
    QVERIFY2(damaged.err.startsWith("Error: brew-simulator: "), damaged.err);
    QCOMPARE(m_brew->invocations().size(), 1);

    QVERIFY(m_brew->setState({{QStringLiteral("catalogue"), QJsonObject{{"formulae", "/nowhere/formula.json"}}}}));
    const Run missing =
        brew({QStringLiteral("info"), QStringLiteral("--formula"), QStringLiteral("--json=v2"), QStringLiteral("jq")});
    QCOMPARE(missing.exitCode, 1);
    QVERIFY2(missing.err.contains("/nowhere/formula.json"), missing.err);
}

QTEST_GUILESS_MAIN(TestBrewSimulator)
#include "TestBrewSimulator.moc"
