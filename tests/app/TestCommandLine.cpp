// Runs the real corvel-x without a window, as a script would, against a simulated Homebrew and a loopback catalogue
// served from this process. The expected answers are worked out here from the served records and the simulator's
// state, not by the application's code.
#include "CorvelProcess.h"
#include "app/CommandLineTool.h"
#include "foundation/Bundle.h"
#include "homebrew/SimulatedHomebrew.h"

#include <QCollator>
#include <QFile>
#include <QHttpServer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QSet>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <optional>

using namespace Qt::StringLiterals;

namespace {

// A whole synchronisation runs a dozen child processes; generous, because a loaded machine is not a failure.
constexpr int finishTimeout = 90000;

QJsonArray readArray(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QJsonDocument::fromJson(file.readAll()).array() : QJsonArray();
}

bool writeFile(const QString& path, const QByteArray& contents)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(contents) == contents.size();
}

// A real record under another identity, so that the search has matches in every field.
QJsonObject caskLike(QJsonObject record, const QString& token, const QString& name, const QString& desc)
{
    record[u"token"_s] = token;
    record[u"full_token"_s] = token;
    record[u"name"_s] = QJsonArray{name};
    record[u"desc"_s] = desc;
    return record;
}

QJsonObject formulaLike(QJsonObject record, const QString& token, const QString& desc)
{
    record[u"name"_s] = token;
    record[u"full_name"_s] = token;
    record[u"desc"_s] = desc;
    return record;
}

QStringList lines(const QString& text)
{
    return text.split(u'\n', Qt::SkipEmptyParts);
}

} // namespace

class TestCommandLine : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void windowOrCommandLine_data();
    void windowOrCommandLine();
    void initTestCase();
    void cleanup();
    void sync_data();
    void sync();
    void search_data();
    void search();
    void list_data();
    void list();
    void helpAndVersion_data();
    void helpAndVersion();
    void usageErrors_data();
    void usageErrors();
    void failingSync_data();
    void failingSync();
    void unusableStore_data();
    void unusableStore();

private:
    using Run = CorvelProcess::Outcome;
    // One record as the listing shows it, plus what the filters look at.
    struct Record {
        QString token;
        QString name;
        QString desc;
        bool installed = false;
        bool outdated = false;
        bool leaf = false;
        QString line() const;
    };

    // dataHome replaces the folder the store lives in, when given.
    void corvel(const QStringList& arguments, Run& run, bool globalOptionsFirst = true,
                const QString& dataHome = QString());
    QList<Record> records(bool scripts) const;
    static QStringList sortedLines(QList<Record> records);

    QTemporaryDir m_home;
    QTemporaryDir m_root;
    std::optional<SimulatedHomebrew> m_brew;
    QJsonObject m_state;
    QHttpServer m_server;
    bool m_catalogueFails = false;
    QJsonArray m_casks;
    QJsonArray m_formulae;
    QString m_config;
};

QString TestCommandLine::Record::line() const
{
    QStringList flags;
    if (installed) {
        flags << u"installed"_s;
    }
    if (outdated) {
        flags << u"outdated"_s;
    }
    if (leaf) {
        flags << u"leaf"_s;
    }
    return token + u'\t' + name + u'\t' + flags.join(u' ');
}

void TestCommandLine::windowOrCommandLine_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<bool>("commandLine");

    QTest::newRow("nothing") << QStringList{} << false;
    QTest::newRow("global options") << QStringList{u"--root"_s, u"/r"_s, u"--config=/c.plist"_s} << false;
    QTest::newRow("Qt's own options") << QStringList{u"-style"_s, u"fusion"_s, u"--platform"_s, u"xcb"_s} << false;
    QTest::newRow("an unknown option alone") << QStringList{u"--bogus"_s} << false;
    QTest::newRow("a command") << QStringList{u"--root"_s, u"/r"_s, u"list"_s} << true;
    QTest::newRow("a command after an unknown option") << QStringList{u"--bogus"_s, u"sync"_s} << true;
    QTest::newRow("help") << QStringList{u"-h"_s} << true;
    QTest::newRow("version") << QStringList{u"--version"_s} << true;
}

// Decided before any application object exists: a wrong answer either opens a window for a command or needs a
// display for nothing.
void TestCommandLine::windowOrCommandLine()
{
    QFETCH(QStringList, arguments);
    QFETCH(bool, commandLine);

    QCOMPARE(CommandLineTool::handles(QStringList{u"corvel-x"_s} + arguments), commandLine);
}

void TestCommandLine::initTestCase()
{
    QVERIFY(m_home.isValid() && m_root.isValid());
    const QString executable = QCoreApplication::applicationDirPath() + u"/corvel-x"_s;
    QVERIFY2(QFileInfo(executable).isExecutable(), qPrintable(executable));

    m_casks = readArray(QStringLiteral(CORVEL_TEST_DATA_DIR "/catalogue/cask-sample.json"));
    m_formulae = readArray(QStringLiteral(CORVEL_TEST_DATA_DIR "/catalogue/formula-sample.json"));
    QVERIFY(m_casks.size() > 100 && m_formulae.size() > 50);
    // The real samples have one record about fire; these find it in each field and in other letter cases.
    const QJsonObject cask = m_casks.at(0).toObject();
    m_casks << caskLike(cask, u"campfire-chat"_s, u"Campfire"_s, u"Team chat"_s)
            << caskLike(cask, u"hearth"_s, u"Hearth"_s, u"Keeps a FIRE going in the menu bar"_s)
            << caskLike(cask, u"kiln"_s, u"Wildfire Kiln"_s, u"Pottery planner"_s);
    const QJsonObject formula = m_formulae.at(0).toObject();
    m_formulae << formulaLike(formula, u"firebird-tools"_s, u"Database utilities"_s)
               << formulaLike(formula, u"kindling"_s, u"Starts a Fire from the shell"_s)
               << formulaLike(formula, u"tinder"_s, u"Lights nothing"_s);

    const QString catalogue = m_home.filePath(u"catalogue"_s);
    QVERIFY(QDir().mkpath(catalogue));
    const QByteArray caskJson = QJsonDocument(m_casks).toJson(QJsonDocument::Compact);
    const QByteArray formulaJson = QJsonDocument(m_formulae).toJson(QJsonDocument::Compact);
    QVERIFY(writeFile(catalogue + u"/cask.json"_s, caskJson));
    QVERIFY(writeFile(catalogue + u"/formula.json"_s, formulaJson));
    m_server.route(u"/api/cask.json"_s, [this, caskJson] {
        return m_catalogueFails ? QHttpServerResponse(QHttpServerResponse::StatusCode::InternalServerError)
                                : QHttpServerResponse("application/json", caskJson);
    });
    m_server.route(u"/api/formula.json"_s, [this, formulaJson] {
        return m_catalogueFails ? QHttpServerResponse(QHttpServerResponse::StatusCode::InternalServerError)
                                : QHttpServerResponse("application/json", formulaJson);
    });
    const quint16 port = m_server.listen(QHostAddress::LocalHost);
    QVERIFY(port != 0);

    m_config = m_home.filePath(u"Info.plist"_s);
    QVERIFY(writeFile(m_config, QStringLiteral(R"(<?xml version="1.0" encoding="UTF-8"?>
<plist version="1.0"><dict><key>TW_HOMEBREW_API_URL</key><string>http://127.0.0.1:%1</string></dict></plist>
)")
                                    .arg(port)
                                    .toUtf8()));

    // Installed: three apps (two with an upgrade) and three scripts; kindling needs firebird-tools, which was not
    // asked for, so only kindling and wget are leaves. An upgrade of something not installed is never listed.
    m_state = QJsonObject{
        {u"taps"_s,
         QJsonArray{u"homebrew/cask"_s, u"homebrew/core"_s, u"localtest/tools"_s, u"tesselworks/corvel-cmd"_s}},
        {u"catalogue"_s,
         QJsonObject{{u"casks"_s, catalogue + u"/cask.json"_s}, {u"formulae"_s, catalogue + u"/formula.json"_s}}},
        {u"casks"_s, QJsonObject{{u"firezone"_s, u"1.4.0"_s}, {u"hearth"_s, u"2.0"_s}, {u"1password"_s, u"8.10.0"_s}}},
        {u"formulae"_s,
         QJsonObject{{u"kindling"_s,
                      QJsonObject{{u"version"_s, u"1.0"_s}, {u"dependencies"_s, QJsonArray{u"firebird-tools"_s}}}},
                     {u"firebird-tools"_s, QJsonObject{{u"version"_s, u"3.0"_s}, {u"installedOnRequest"_s, false}}},
                     {u"wget"_s, u"1.21.4"_s}}},
        {u"outdated"_s, QJsonObject{{u"casks"_s, QJsonObject{{u"firezone"_s, u"1.5.0"_s},
                                                             {u"1password"_s, u"8.10.1"_s},
                                                             {u"dropbox"_s, u"300.0"_s}}},
                                    {u"formulae"_s, QJsonObject{{u"firebird-tools"_s, u"3.1"_s}}}}},
    };
    auto created = SimulatedHomebrew::create(m_root.path(), m_state);
    QVERIFY2(created, created ? "" : qPrintable(created.error().description()));
    m_brew.emplace(std::move(created.value()));
    m_state = m_brew->state(); // with the simulator's own additions (tap records)

    // Everything else works on a synchronised catalogue.
    Run run;
    corvel({u"sync"_s}, run);
    QVERIFY2(run.exitCode == 0, qPrintable(run.err));
}

void TestCommandLine::cleanup()
{
    m_catalogueFails = false;
    QVERIFY(m_brew->setStateValue(u"faults"_s, QJsonObject()).ok());
}

void TestCommandLine::corvel(const QStringList& arguments, Run& run, bool globalOptionsFirst, const QString& dataHome)
{
    const QStringList global{u"--root"_s, m_root.path(), u"--config"_s, m_config};
    QVERIFY2(CorvelProcess::run(globalOptionsFirst ? global + arguments : arguments + global,
                                CorvelProcess::environment(m_home.path(), dataHome), run, finishTimeout),
             qPrintable(run.err));
}

QList<TestCommandLine::Record> TestCommandLine::records(bool scripts) const
{
    const QString kind = scripts ? u"formulae"_s : u"casks"_s;
    const QJsonObject installed = m_state.value(kind).toObject();
    const QJsonObject outdated = m_state.value(u"outdated"_s).toObject().value(kind).toObject();

    // The public catalogue plus what the non-core taps bring through the companion command.
    QJsonArray all = scripts ? m_formulae : m_casks;
    const QJsonObject tapRecords = m_state.value(u"tapRecords"_s).toObject();
    for (const QJsonValue& tap : m_state.value(u"taps"_s).toArray()) {
        for (const QJsonValue& record : tapRecords.value(tap.toString()).toObject().value(kind).toArray()) {
            all.append(record);
        }
    }

    QList<Record> result;
    for (const QJsonValue& value : std::as_const(all)) {
        const QJsonObject json = value.toObject();
        Record record;
        record.token = json.value(scripts ? u"name"_s : u"token"_s).toString();
        if (scripts) {
            record.name = json.value(u"full_name"_s).toString();
        } else {
            QStringList parts;
            for (const QJsonValue& part : json.value(u"name"_s).toArray()) {
                parts << part.toString();
            }
            record.name = parts.join(u' ');
        }
        record.desc = json.value(u"desc"_s).toString();
        record.installed = installed.contains(record.token);
        record.outdated = record.installed && outdated.contains(record.token);
        if (scripts && record.installed) {
            const QJsonValue entry = installed.value(record.token);
            bool neededByAnother = false;
            for (const QJsonValue& other : installed) {
                neededByAnother =
                    neededByAnother || other.toObject().value(u"dependencies"_s).toArray().contains(record.token);
            }
            record.leaf = entry.toObject().value(u"installedOnRequest"_s).toBool(true) && !neededByAnother;
        }
        result.append(record);
    }
    return result;
}

QStringList TestCommandLine::sortedLines(QList<Record> records)
{
    QCollator collator;
    collator.setCaseSensitivity(Qt::CaseInsensitive);
    std::stable_sort(records.begin(), records.end(),
                     [&](const Record& a, const Record& b) { return collator.compare(a.token, b.token) < 0; });
    QStringList result;
    for (const Record& record : std::as_const(records)) {
        result << record.line();
    }
    return result;
}

void TestCommandLine::sync_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QStringList>("expected");

    QTest::newRow("full") << QStringList{u"sync"_s}
                          << QStringList{u"Synchronising repositories..."_s,    u"Synchronising apps library..."_s,
                                         u"Synchronising installed apps..."_s,  u"Synchronising outdated apps..."_s,
                                         u"Synchronising scripts library..."_s, u"Synchronising installed scripts..."_s,
                                         u"Synchronising source scripts..."_s,  u"Synchronising outdated scripts..."_s,
                                         u"Synchronisation completed"_s};
    QTest::newRow("fast") << QStringList{u"sync"_s, u"--fast"_s}
                          << QStringList{u"Synchronising repositories..."_s,   u"Synchronising installed apps..."_s,
                                         u"Synchronising outdated apps..."_s,  u"Synchronising installed scripts..."_s,
                                         u"Synchronising source scripts..."_s, u"Synchronising outdated scripts..."_s,
                                         u"Synchronisation completed"_s};
}

void TestCommandLine::sync()
{
    QFETCH(QStringList, arguments);
    QFETCH(QStringList, expected);

    Run run;
    corvel(arguments, run);
    QCOMPARE(run.exitStatus, QProcess::NormalExit);
    QCOMPARE(run.err, QString());
    QCOMPARE(run.exitCode, 0);
    QCOMPARE(lines(run.out), expected);
}

void TestCommandLine::search_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<bool>("scripts");
    QTest::addColumn<QString>("field"); // empty: name, token or description
    QTest::addColumn<QString>("state"); // empty: either
    QTest::addColumn<QString>("text");

    QTest::newRow("apps, any field") << QStringList{u"search"_s, u"fire"_s} << false << ""
                                     << ""
                                     << "fire";
    QTest::newRow("scripts, any field") << QStringList{u"search"_s, u"--scripts"_s, u"fire"_s} << true << ""
                                        << ""
                                        << "fire";
    QTest::newRow("letter case and padding") << QStringList{u"search"_s, u"  FiRe "_s} << false << ""
                                             << ""
                                             << "fire";
    QTest::newRow("name only") << QStringList{u"search"_s, u"--name"_s, u"fire"_s} << false << "name"
                               << ""
                               << "fire";
    QTest::newRow("description only, installed")
        << QStringList{u"search"_s, u"--desc"_s, u"--installed"_s, u"fire"_s} << false << "desc"
        << "installed"
        << "fire";
    QTest::newRow("token only, available")
        << QStringList{u"search"_s, u"--available"_s, u"--token"_s, u"fire"_s} << false << "token"
        << "available"
        << "fire";
    QTest::newRow("installed scripts") << QStringList{u"search"_s, u"--scripts"_s, u"--installed"_s, u"i"_s} << true
                                       << ""
                                       << "installed"
                                       << "i";
    QTest::newRow("records of a non-core tap") << QStringList{u"search"_s, u"--scripts"_s, u"hello"_s} << true << ""
                                               << ""
                                               << "hello";
    QTest::newRow("nothing matches") << QStringList{u"search"_s, u"zzqx"_s} << false << ""
                                     << ""
                                     << "zzqx";
}

void TestCommandLine::search()
{
    QFETCH(QStringList, arguments);
    QFETCH(bool, scripts);
    QFETCH(QString, field);
    QFETCH(QString, state);
    QFETCH(QString, text);

    QList<Record> expected = records(scripts);
    expected.removeIf([&](const Record& record) {
        const bool name = record.name.contains(text, Qt::CaseInsensitive);
        const bool token = record.token.contains(text, Qt::CaseInsensitive);
        const bool desc = record.desc.contains(text, Qt::CaseInsensitive);
        const bool matches = field == u"name"_s    ? name
                             : field == u"token"_s ? token
                             : field == u"desc"_s  ? desc
                                                   : name || token || desc;
        const bool inState = state.isEmpty() || record.installed == (state == u"installed"_s);
        return !(matches && inState);
    });
    if (text != u"zzqx"_s) {
        QVERIFY2(!expected.isEmpty(), "the data gives this row nothing to find");
    }

    Run run;
    corvel(arguments, run);
    QCOMPARE(run.err, QString());
    QCOMPARE(run.exitCode, 0);
    QCOMPARE(lines(run.out), sortedLines(expected));
}

void TestCommandLine::list_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<bool>("scripts");
    QTest::addColumn<bool>("outdated");
    QTest::addColumn<bool>("globalOptionsFirst");

    QTest::newRow("apps") << QStringList{u"list"_s, u"--apps"_s} << false << false << true;
    QTest::newRow("outdated apps") << QStringList{u"list"_s, u"--apps"_s, u"--outdated"_s} << false << true << true;
    QTest::newRow("scripts") << QStringList{u"list"_s, u"--scripts"_s} << true << false << true;
    QTest::newRow("outdated scripts") << QStringList{u"list"_s, u"--outdated"_s, u"--scripts"_s} << true << true
                                      << true;
    QTest::newRow("global options after the command")
        << QStringList{u"list"_s, u"--apps"_s, u"--outdated"_s} << false << true << false;
}

void TestCommandLine::list()
{
    QFETCH(QStringList, arguments);
    QFETCH(bool, scripts);
    QFETCH(bool, outdated);
    QFETCH(bool, globalOptionsFirst);

    QList<Record> expected = records(scripts);
    expected.removeIf([&](const Record& record) { return !record.installed || (outdated && !record.outdated); });
    QVERIFY(!expected.isEmpty());

    Run run;
    corvel(arguments, run, globalOptionsFirst);
    QCOMPARE(run.err, QString());
    QCOMPARE(run.exitCode, 0);
    QCOMPARE(lines(run.out), sortedLines(expected));
}

void TestCommandLine::helpAndVersion_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QStringList>("shown");

    const QString version = Bundle(QStringLiteral(CORVEL_RESOURCES_SOURCE_DIR)).version();
    QTest::newRow("help") << QStringList{u"--help"_s}
                          << QStringList{u"sync [--fast]"_s,
                                         u"search [--scripts]"_s,
                                         u"--installed | --available"_s,
                                         u"--name | --desc | --token"_s,
                                         u"list (--apps | --scripts) [--outdated]"_s,
                                         u"--root DIR"_s,
                                         u"--config FILE"_s};
    QTest::newRow("help of a command") << QStringList{u"search"_s, u"--help"_s} << QStringList{u"Commands:"_s};
    QTest::newRow("version") << QStringList{u"--version"_s} << QStringList{u"Corvel X "_s + version + u'\n'};
}

void TestCommandLine::helpAndVersion()
{
    QFETCH(QStringList, arguments);
    QFETCH(QStringList, shown);

    Run run;
    corvel(arguments, run);
    QCOMPARE(run.exitCode, 0);
    QCOMPARE(run.err, QString());
    for (const QString& text : std::as_const(shown)) {
        QVERIFY2(run.out.contains(text), qPrintable(run.out));
    }
}

void TestCommandLine::usageErrors_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("message");

    QTest::newRow("unknown command") << QStringList{u"frobnicate"_s} << "unknown command 'frobnicate'";
    QTest::newRow("unknown option") << QStringList{u"search"_s, u"--bogus"_s, u"x"_s} << "search: Unknown option";
    QTest::newRow("missing text") << QStringList{u"search"_s} << "search: missing TEXT";
    QTest::newRow("blank text") << QStringList{u"search"_s, u" \t"_s} << "search: missing TEXT";
    QTest::newRow("two texts") << QStringList{u"search"_s, u"fire"_s, u"fox"_s} << "unexpected argument 'fox'";
    QTest::newRow("installed and available") << QStringList{u"search"_s, u"--installed"_s, u"--available"_s, u"x"_s}
                                             << "--installed and --available cannot be used together";
    QTest::newRow("two fields") << QStringList{u"search"_s, u"--name"_s, u"--token"_s, u"x"_s}
                                << "--name and --token cannot be used together";
    QTest::newRow("list without a kind") << QStringList{u"list"_s} << "list: choose --apps or --scripts";
    QTest::newRow("list of both kinds") << QStringList{u"list"_s, u"--apps"_s, u"--scripts"_s}
                                        << "--apps and --scripts cannot be used together";
    QTest::newRow("sync with an argument") << QStringList{u"sync"_s, u"now"_s} << "unexpected argument 'now'";
    QTest::newRow("root that is no folder")
        << QStringList{u"list"_s, u"--apps"_s, u"--root"_s, u"/nonexistent/corvel"_s} << "is not a directory";
}

void TestCommandLine::usageErrors()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, message);

    Run run;
    corvel(arguments, run);
    QCOMPARE(run.exitStatus, QProcess::NormalExit);
    QCOMPARE(run.exitCode, 2);
    QCOMPARE(run.out, QString());
    QVERIFY2(run.err.contains(message), qPrintable(run.err));
}

void TestCommandLine::failingSync_data()
{
    QTest::addColumn<QJsonObject>("faults");
    QTest::addColumn<bool>("catalogueFails");
    QTest::addColumn<QString>("lastStep");
    QTest::addColumn<QString>("message");

    QTest::newRow("brew fails") << QJsonObject{{u"failCommands"_s, QJsonArray{u"outdated"_s}}} << false
                                << "Synchronising outdated apps..."
                                << "Unable to synchronise: Process terminated with an error";
    QTest::newRow("catalogue unavailable") << QJsonObject() << true << "Synchronising apps library..."
                                           << "Unable to synchronise: ";
}

void TestCommandLine::failingSync()
{
    QFETCH(QJsonObject, faults);
    QFETCH(bool, catalogueFails);
    QFETCH(QString, lastStep);
    QFETCH(QString, message);

    QVERIFY(m_brew->setStateValue(u"faults"_s, faults).ok());
    m_catalogueFails = catalogueFails;

    Run run;
    corvel({u"sync"_s}, run);
    QCOMPARE(run.exitStatus, QProcess::NormalExit);
    QCOMPARE(run.exitCode, 1);
    QVERIFY2(run.err.contains(message), qPrintable(run.err));
    QCOMPARE(lines(run.out).value(lines(run.out).size() - 1), lastStep);
    QVERIFY(!run.out.contains(u"Synchronisation completed"_s));
}

void TestCommandLine::unusableStore_data()
{
    QTest::addColumn<QStringList>("arguments");

    QTest::newRow("search") << QStringList{u"search"_s, u"fire"_s};
    QTest::newRow("list") << QStringList{u"list"_s, u"--scripts"_s};
    QTest::newRow("sync") << QStringList{u"sync"_s, u"--fast"_s};
}

void TestCommandLine::unusableStore()
{
    QFETCH(QStringList, arguments);

    // A file where the store's folder should be: the store cannot be created, which is a failure, not a crash.
    const QString blocked = m_home.filePath(u"blocked"_s);
    QVERIFY(writeFile(blocked, "not a folder"));

    Run run;
    corvel(arguments, run, true, blocked);
    QCOMPARE(run.exitStatus, QProcess::NormalExit);
    QCOMPARE(run.exitCode, 1);
    QCOMPARE(run.out, QString());
    QVERIFY2(run.err.contains(u"corvel-x: Unable to open the catalogue: "_s), qPrintable(run.err));
}

QTEST_GUILESS_MAIN(TestCommandLine)
#include "TestCommandLine.moc"
