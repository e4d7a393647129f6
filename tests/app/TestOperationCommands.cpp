// Runs the real corvel-x on packages, repositories and maintenance jobs, as a script would, against a simulated
// Homebrew and a loopback catalogue served from this process. What ran is read back from the simulator's own log of
// invocations; what is expected is worked out from the simulator's state, not by the application's code.
#include "CorvelProcess.h"
#include "homebrew/SimulatedHomebrew.h"

#include <QFile>
#include <QHttpServer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <optional>

using namespace Qt::StringLiterals;

namespace {

// A command runs a few brew children and may wait on a loaded machine; that is not a failure.
constexpr int finishTimeout = 90000;

const QStringList changingCommands{u"install"_s, u"uninstall"_s, u"upgrade"_s, u"reinstall"_s, u"tap"_s,
                                   u"untap"_s,   u"update"_s,    u"cleanup"_s, u"autoremove"_s};

bool writeFile(const QString& path, const QByteArray& contents)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(contents) == contents.size();
}

QByteArray readFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QStringList lines(const QString& text)
{
    return text.split(u'\n', Qt::SkipEmptyParts);
}

} // namespace

class TestOperationCommands : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup();
    void packages_data();
    void packages();
    void oneTokenFails();
    void upgradeAllApps();
    void unconfirmed_data();
    void unconfirmed();
    void repositoriesAndMaintenance_data();
    void repositoriesAndMaintenance();
    void refused_data();
    void refused();

private:
    struct Run : CorvelProcess::Outcome {
        // The brew commands this run issued that change something, in the order they started.
        QList<QStringList> changes;
    };

    void corvel(const QStringList& arguments, Run& run);
    // Whether the list command of the kind shows token as installed, as read back by a second corvel-x.
    bool listed(bool apps, const QString& token);

    QTemporaryDir m_home;
    QTemporaryDir m_root;
    std::optional<SimulatedHomebrew> m_brew;
    QHttpServer m_server;
    QString m_config;
};

void TestOperationCommands::initTestCase()
{
    QVERIFY(m_home.isValid() && m_root.isValid());
    QVERIFY(QFileInfo(QCoreApplication::applicationDirPath() + u"/corvel-x"_s).isExecutable());

    const QByteArray caskJson = readFile(QStringLiteral(CORVEL_TEST_DATA_DIR "/catalogue/cask-sample.json"));
    const QByteArray formulaJson = readFile(QStringLiteral(CORVEL_TEST_DATA_DIR "/catalogue/formula-sample.json"));
    QVERIFY(!caskJson.isEmpty() && !formulaJson.isEmpty());
    m_server.route(u"/api/cask.json"_s, [caskJson] { return QHttpServerResponse("application/json", caskJson); });
    m_server.route(u"/api/formula.json"_s,
                   [formulaJson] { return QHttpServerResponse("application/json", formulaJson); });
    const quint16 port = m_server.listen(QHostAddress::LocalHost);
    QVERIFY(port != 0);
    m_config = m_home.filePath(u"Info.plist"_s);
    QVERIFY(writeFile(m_config, QStringLiteral(R"(<?xml version="1.0" encoding="UTF-8"?>
<plist version="1.0"><dict><key>TW_HOMEBREW_API_URL</key><string>http://127.0.0.1:%1</string></dict></plist>
)")
                                    .arg(port)
                                    .toUtf8()));

    const QJsonObject state{
        {u"taps"_s,
         QJsonArray{u"homebrew/cask"_s, u"homebrew/core"_s, u"localtest/tools"_s, u"tesselworks/corvel-cmd"_s}},
        {u"catalogue"_s,
         QJsonObject{{u"casks"_s, QStringLiteral(CORVEL_TEST_DATA_DIR "/catalogue/cask-sample.json")},
                     {u"formulae"_s, QStringLiteral(CORVEL_TEST_DATA_DIR "/catalogue/formula-sample.json")}}},
        {u"casks"_s, QJsonObject{{u"1password"_s, u"8.10.0"_s},
                                 {u"dropbox"_s, u"300.0"_s},
                                 {u"cabal"_s, u"1.0"_s},
                                 {u"droid"_s, u"2.0"_s},
                                 {u"bwana"_s, u"1.0"_s}}},
        {u"formulae"_s, QJsonObject{{u"jq"_s, u"1.7"_s}, {u"tmux"_s, u"3.3"_s}, {u"htop"_s, u"3.2"_s}}},
        {u"outdated"_s,
         QJsonObject{{u"casks"_s,
                      QJsonObject{{u"1password"_s, u"8.10.1"_s}, {u"dropbox"_s, u"301.0"_s}, {u"bwana"_s, u"1.1"_s}}},
                     {u"formulae"_s, QJsonObject{{u"tmux"_s, u"3.4"_s}}}}},
    };
    auto created = SimulatedHomebrew::create(m_root.path(), state);
    QVERIFY2(created, created ? "" : qPrintable(created.error().description()));
    m_brew.emplace(std::move(created.value()));

    Run run;
    corvel({u"sync"_s}, run);
    QVERIFY2(run.exitCode == 0, qPrintable(run.err));
}

void TestOperationCommands::cleanup()
{
    QVERIFY(m_brew->setStateValue(u"faults"_s, QJsonObject()).ok());
}

void TestOperationCommands::corvel(const QStringList& arguments, Run& run)
{
    const qsizetype before = m_brew->invocations().size();
    QVERIFY2(CorvelProcess::run(QStringList{u"--root"_s, m_root.path(), u"--config"_s, m_config} + arguments,
                                CorvelProcess::environment(m_home.path()), run, finishTimeout),
             qPrintable(run.err));
    run.changes.clear();
    for (const SimulatedHomebrew::Invocation& invocation : m_brew->invocations().mid(before)) {
        if (changingCommands.contains(invocation.arguments.value(0))) {
            run.changes.append(invocation.arguments);
        }
    }
}

bool TestOperationCommands::listed(bool apps, const QString& token)
{
    Run run;
    corvel({u"list"_s, apps ? u"--apps"_s : u"--scripts"_s}, run);
    if (run.exitCode != 0) {
        qWarning("list failed: %s", qPrintable(run.err));
        return false;
    }
    for (const QString& line : lines(run.out)) {
        if (line.section(u'\t', 0, 0) == token) {
            return true;
        }
    }
    return false;
}

void TestOperationCommands::packages_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QList<QStringList>>("vectors");
    QTest::addColumn<QStringList>("output"); // brew's own lines first, then the success lines, in this order
    QTest::addColumn<bool>("installedAfter");

    const QString cellar = m_brew->prefix() + u"/Cellar/"_s;
    QTest::newRow("install an app") << QStringList{u"install"_s, u"--cask"_s, u"atext"_s}
                                    << QList<QStringList>{{u"install"_s, u"--cask"_s, u"atext"_s}}
                                    << QStringList{u"==> Installing Cask atext"_s, u"atext app installed"_s} << true;
    QTest::newRow("uninstall a script") << QStringList{u"uninstall"_s, u"--yes"_s, u"--formula"_s, u"htop"_s}
                                        << QList<QStringList>{{u"uninstall"_s, u"--formula"_s, u"htop"_s}}
                                        << QStringList{u"Uninstalling "_s + cellar + u"htop"_s,
                                                       u"htop script uninstalled"_s}
                                        << false;
    QTest::newRow("reinstall an app") << QStringList{u"reinstall"_s, u"--cask"_s, u"--yes"_s, u"droid"_s}
                                      << QList<QStringList>{{u"reinstall"_s, u"--cask"_s, u"droid"_s}}
                                      << QStringList{u"==> Installing Cask droid"_s, u"droid app reinstalled"_s}
                                      << true;
    QTest::newRow("several apps, a repeated token once")
        << QStringList{u"install"_s, u"--cask"_s, u"bzflag"_s, u"cacher"_s, u"bzflag"_s}
        << QList<QStringList>{{u"install"_s, u"--cask"_s, u"bzflag"_s}, {u"install"_s, u"--cask"_s, u"cacher"_s}}
        << QStringList{u"bzflag app installed"_s} << true;
}

void TestOperationCommands::packages()
{
    QFETCH(QStringList, arguments);
    QFETCH(QList<QStringList>, vectors);
    QFETCH(QStringList, output);
    QFETCH(bool, installedAfter);

    Run run;
    corvel(arguments, run);
    QCOMPARE(run.exitStatus, QProcess::NormalExit);
    QCOMPARE(run.err, QString());
    QCOMPARE(run.exitCode, 0);
    // Several commands run at once, so only the set of them is fixed.
    std::sort(run.changes.begin(), run.changes.end());
    QCOMPARE(run.changes, vectors);

    const QStringList shown = lines(run.out);
    qsizetype from = 0;
    for (const QString& expected : std::as_const(output)) {
        const auto found = std::find_if(shown.cbegin() + from, shown.cend(),
                                        [&](const QString& line) { return line.startsWith(expected); });
        QVERIFY2(found != shown.cend(), qPrintable(u"'"_s + expected + u"' not in order in:\n"_s + run.out));
        from = found - shown.cbegin() + 1;
    }
    // The record was brought up to date by the operation itself: no synchronisation ran in between.
    const bool apps = arguments.contains(u"--cask"_s);
    QCOMPARE(listed(apps, vectors.constFirst().constLast()), installedAfter);
}

void TestOperationCommands::oneTokenFails()
{
    QVERIFY(m_brew->setStateValue(u"faults"_s, QJsonObject{{u"failTokens"_s, QJsonArray{u"lz4"_s}}}).ok());

    Run run;
    corvel({u"install"_s, u"--formula"_s, u"lz4"_s, u"fzf"_s}, run);
    QCOMPARE(run.exitStatus, QProcess::NormalExit);
    QCOMPARE(run.exitCode, 1);
    QVERIFY2(run.err.contains(u"corvel-x: Unable to install 'lz4': Process terminated with an error"_s),
             qPrintable(run.err));
    QVERIFY(!run.err.contains(u"fzf"_s));
    std::sort(run.changes.begin(), run.changes.end());
    QCOMPARE(run.changes,
             (QList<QStringList>{{u"install"_s, u"--formula"_s, u"fzf"_s}, {u"install"_s, u"--formula"_s, u"lz4"_s}}));
    QVERIFY2(lines(run.out).contains(u"fzf script installed"_s), qPrintable(run.out));
    QVERIFY(!run.out.contains(u"lz4 script installed"_s));
    QVERIFY(listed(false, u"fzf"_s));
    QVERIFY(!listed(false, u"lz4"_s));
}

void TestOperationCommands::upgradeAllApps()
{
    // What the simulator still counts as installed and outdated, whatever earlier cases changed.
    const QJsonObject state = m_brew->state();
    const QJsonObject installed = state.value(u"casks"_s).toObject();
    QList<QStringList> expected;
    for (const QString& token : state.value(u"outdated"_s).toObject().value(u"casks"_s).toObject().keys()) {
        if (installed.contains(token)) {
            expected.append({u"upgrade"_s, u"--cask"_s, token});
        }
    }
    QVERIFY(expected.size() >= 2);

    Run run;
    corvel({u"upgrade"_s, u"--all-apps"_s, u"--yes"_s}, run);
    QCOMPARE(run.err, QString());
    QCOMPARE(run.exitCode, 0);
    std::sort(run.changes.begin(), run.changes.end());
    QCOMPARE(run.changes, expected);

    // Nothing is left to upgrade: the question is still asked and answered, and nothing runs.
    corvel({u"upgrade"_s, u"--all-apps"_s, u"--yes"_s}, run);
    QCOMPARE(run.exitCode, 0);
    QCOMPARE(run.changes, QList<QStringList>());
}

void TestOperationCommands::unconfirmed_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("question");

    QTest::newRow("uninstall") << QStringList{u"uninstall"_s, u"--cask"_s, u"bwana"_s}
                               << "Are you sure you want to uninstall 'Bwana'?";
    QTest::newRow("upgrade all") << QStringList{u"upgrade"_s, u"--all-apps"_s}
                                 << "Are you sure you want to upgrade all the apps?";
    QTest::newRow("untap") << QStringList{u"untap"_s, u"localtest/tools"_s}
                           << "Are you sure you want to uninstall 'localtest/tools'?";
}

void TestOperationCommands::unconfirmed()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, question);

    Run run;
    corvel(arguments, run);
    QCOMPARE(run.exitStatus, QProcess::NormalExit);
    QCOMPARE(run.exitCode, 1);
    QCOMPARE(run.changes, QList<QStringList>());
    QCOMPARE(run.out, QString());
    QVERIFY2(run.err.contains(u"corvel-x: "_s + question) && run.err.contains(u"use --yes"_s), qPrintable(run.err));
}

void TestOperationCommands::repositoriesAndMaintenance_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QStringList>("vector");
    QTest::addColumn<QString>("shown");

    QTest::newRow("tap") << QStringList{u"tap"_s, u"homebrew/services"_s}
                         << QStringList{u"tap"_s, u"homebrew/services"_s} << "homebrew/services repository installed";
    QTest::newRow("untap") << QStringList{u"untap"_s, u"--yes"_s, u"localtest/tools"_s}
                           << QStringList{u"untap"_s, u"localtest/tools"_s} << "localtest/tools repository uninstalled";
    QTest::newRow("prune all") << QStringList{u"cleanup"_s, u"--prune-all"_s}
                               << QStringList{u"cleanup"_s, u"--prune=all"_s} << "Prune all performed successfully";
}

void TestOperationCommands::repositoriesAndMaintenance()
{
    QFETCH(QStringList, arguments);
    QFETCH(QStringList, vector);
    QFETCH(QString, shown);

    Run run;
    corvel(arguments, run);
    QCOMPARE(run.err, QString());
    QCOMPARE(run.exitCode, 0);
    QCOMPARE(run.changes, QList<QStringList>{vector});
    QVERIFY2(lines(run.out).contains(shown), qPrintable(run.out));
}

void TestOperationCommands::refused_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("message");

    QTest::newRow("unknown app") << QStringList{u"install"_s, u"--cask"_s, u"no-such-app"_s} << 1
                                 << "no app 'no-such-app' in the catalogue";
    QTest::newRow("one unknown script stops all")
        << QStringList{u"install"_s, u"--formula"_s, u"gh"_s, u"nope"_s} << 1 << "no script 'nope' in the catalogue";
    QTest::newRow("an app is not a script") << QStringList{u"uninstall"_s, u"--formula"_s, u"--yes"_s, u"dropbox"_s}
                                            << 1 << "no script 'dropbox' in the catalogue";
    QTest::newRow("already installed") << QStringList{u"install"_s, u"--cask"_s, u"dropbox"_s} << 1
                                       << "the app 'dropbox' is already installed";
    QTest::newRow("not installed") << QStringList{u"uninstall"_s, u"--formula"_s, u"--yes"_s, u"gh"_s} << 1
                                   << "the script 'gh' is not installed";
    QTest::newRow("no upgrade") << QStringList{u"upgrade"_s, u"--formula"_s, u"jq"_s} << 1
                                << "the script 'jq' has no upgrade";
    QTest::newRow("unknown repository") << QStringList{u"untap"_s, u"--yes"_s, u"nobody/nothing"_s} << 1
                                        << "the repository 'nobody/nothing' is not installed";
    QTest::newRow("malformed repository")
        << QStringList{u"tap"_s, u"no-slash"_s} << 1 << "Unable to install 'no-slash': ";
    QTest::newRow("no kind") << QStringList{u"install"_s, u"wget"_s} << 2 << "install: choose --cask or --formula";
    QTest::newRow("both kinds") << QStringList{u"upgrade"_s, u"--cask"_s, u"--formula"_s, u"x"_s} << 2
                                << "--cask and --formula cannot be used together";
    QTest::newRow("no token") << QStringList{u"reinstall"_s, u"--cask"_s} << 2 << "reinstall: missing TOKEN";
    QTest::newRow("all scripts") << QStringList{u"upgrade"_s, u"--all-apps"_s, u"--formula"_s} << 2
                                 << "--all-apps upgrades apps, not scripts";
    QTest::newRow("all apps and a token")
        << QStringList{u"upgrade"_s, u"--all-apps"_s, u"dropbox"_s} << 2 << "--all-apps takes no TOKEN";
    QTest::newRow("tap without a name") << QStringList{u"tap"_s} << 2 << "tap: missing NAME";
    QTest::newRow("cleanup with an argument")
        << QStringList{u"cleanup"_s, u"all"_s} << 2 << "cleanup: unexpected argument 'all'";
    QTest::newRow("yes where nothing asks") << QStringList{u"update"_s, u"--yes"_s} << 2 << "update: Unknown option";
}

void TestOperationCommands::refused()
{
    QFETCH(QStringList, arguments);
    QFETCH(int, exitCode);
    QFETCH(QString, message);

    Run run;
    corvel(arguments, run);
    QCOMPARE(run.exitStatus, QProcess::NormalExit);
    QCOMPARE(run.exitCode, exitCode);
    QCOMPARE(run.changes, QList<QStringList>());
    QCOMPARE(run.out, QString());
    QVERIFY2(run.err.contains(message), qPrintable(run.err));
}

QTEST_GUILESS_MAIN(TestOperationCommands)
#include "TestOperationCommands.moc"
