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
QJsonObject like(QJsonObject record, bool cask, const QString& token, const QString& name, const QString& desc)
{
    record[cask ? u"token"_s : u"name"_s] = token;
    record[cask ? u"full_token"_s : u"full_name"_s] = token;
    if (cask) {
        record[u"name"_s] = QJsonArray{name};
    }
    record[u"desc"_s] = desc;
    return record;
}

QStringList lines(const QString& text)
{
    return text.split(u'\n', Qt::SkipEmptyParts);
}

// One record as the listing shows it, plus what the filters look at.
struct Record {
    QString token;
    QString name;
    QString desc;
    bool installed = false;
    bool outdated = false;
    bool leaf = false;
};

QStringList sortedLines(QList<Record> records)
{
    QCollator collator;
    collator.setCaseSensitivity(Qt::CaseInsensitive);
    std::stable_sort(records.begin(), records.end(),
                     [&](const Record& a, const Record& b) { return collator.compare(a.token, b.token) < 0; });
    QStringList result;
    for (const Record& record : std::as_const(records)) {
        QStringList flags{record.installed ? u"installed"_s : QString(), record.outdated ? u"outdated"_s : QString(),
                          record.leaf ? u"leaf"_s : QString()};
        flags.removeAll(QString());
        result << record.token + u'\t' + record.name + u'\t' + flags.join(u' ');
    }
    return result;
}

} // namespace

class TestCommandLine : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void windowOrCommandLine_data();
    void windowOrCommandLine();
    void initTestCase();
    void cleanup();
    void succeeds_data();
    void succeeds();
    void fails_data();
    void fails();

private:
    using Run = CorvelProcess::Outcome;
    // dataHome replaces the folder the store lives in, when given.
    void corvel(const QStringList& arguments, Run& run, bool globalOptionsFirst = true,
                const QString& dataHome = QString());
    QList<Record> records(bool scripts) const;

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
    m_casks << like(cask, true, u"campfire-chat"_s, u"Campfire"_s, u"Team chat"_s)
            << like(cask, true, u"hearth"_s, u"Hearth"_s, u"Keeps a FIRE going in the menu bar"_s)
            << like(cask, true, u"kiln"_s, u"Wildfire Kiln"_s, u"Pottery planner"_s);
    const QJsonObject formula = m_formulae.at(0).toObject();
    m_formulae << like(formula, false, u"firebird-tools"_s, {}, u"Database utilities"_s)
               << like(formula, false, u"kindling"_s, {}, u"Starts a Fire from the shell"_s)
               << like(formula, false, u"tinder"_s, {}, u"Lights nothing"_s);

    const QString catalogue = m_home.filePath(u"catalogue"_s);
    QVERIFY(QDir().mkpath(catalogue));
    for (const auto& [name, records] : {std::pair{u"cask"_s, m_casks}, {u"formula"_s, m_formulae}}) {
        const QByteArray json = QJsonDocument(records).toJson(QJsonDocument::Compact);
        QVERIFY(writeFile(catalogue + u'/' + name + u".json"_s, json));
        m_server.route(u"/api/"_s + name + u".json"_s, [this, json] {
            return m_catalogueFails ? QHttpServerResponse(QHttpServerResponse::StatusCode::InternalServerError)
                                    : QHttpServerResponse("application/json", json);
        });
    }
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
        {"taps", QJsonArray{"homebrew/cask", "homebrew/core", "localtest/tools", "tesselworks/corvel-cmd"}},
        {"catalogue",
         QJsonObject{{"casks", catalogue + u"/cask.json"_s}, {"formulae", catalogue + u"/formula.json"_s}}},
        {"casks", QJsonObject{{"firezone", "1.4.0"}, {"hearth", "2.0"}, {"1password", "8.10.0"}}},
        {"formulae",
         QJsonObject{{"kindling", QJsonObject{{"version", "1.0"}, {"dependencies", QJsonArray{"firebird-tools"}}}},
                     {"firebird-tools", QJsonObject{{"version", "3.0"}, {"installedOnRequest", false}}},
                     {"wget", "1.21.4"}}},
        {"outdated",
         QJsonObject{{"casks", QJsonObject{{"firezone", "1.5.0"}, {"1password", "8.10.1"}, {"dropbox", "300.0"}}},
                     {"formulae", QJsonObject{{"firebird-tools", "3.1"}}}}},
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

QList<Record> TestCommandLine::records(bool scripts) const
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
        record.name = scripts ? json.value(u"full_name"_s).toString()
                              : json.value(u"name"_s).toVariant().toStringList().join(u' ');
        record.desc = json.value(u"desc"_s).toString();
        record.installed = installed.contains(record.token);
        record.outdated = record.installed && outdated.contains(record.token);
        if (scripts && record.installed) {
            const bool neededByAnother = std::any_of(installed.begin(), installed.end(), [&](const QJsonValue& other) {
                return other.toObject().value(u"dependencies"_s).toArray().contains(record.token);
            });
            record.leaf = installed.value(record.token).toObject().value(u"installedOnRequest"_s).toBool(true) &&
                          !neededByAnother;
        }
        result.append(record);
    }
    return result;
}

void TestCommandLine::succeeds_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QStringList>("expected");
    QTest::addColumn<bool>("globalOptionsFirst");
    QTest::addColumn<bool>("partial"); // expected lines are parts of the output rather than all of it

    const QString version = Bundle(QStringLiteral(CORVEL_RESOURCES_SOURCE_DIR)).version();
    QTest::newRow("help") << QStringList{u"--help"_s}
                          << QStringList{u"sync [--fast]"_s,
                                         u"search [--scripts]"_s,
                                         u"--installed | --available"_s,
                                         u"--name | --desc | --token"_s,
                                         u"list (--apps | --scripts) [--outdated]"_s,
                                         u"--root DIR"_s,
                                         u"--config FILE"_s}
                          << true << true;
    QTest::newRow("help of a command") << QStringList{u"search"_s, u"--help"_s} << QStringList{u"Commands:"_s} << true
                                       << true;
    QTest::newRow("version") << QStringList{u"--version"_s} << QStringList{u"Corvel X "_s + version + u'\n'} << true
                             << true;
    const QStringList repositories{u"Synchronising repositories..."_s};
    const QStringList apps{u"Synchronising installed apps..."_s, u"Synchronising outdated apps..."_s};
    const QStringList scripts{u"Synchronising installed scripts..."_s, u"Synchronising source scripts..."_s,
                              u"Synchronising outdated scripts..."_s, u"Synchronisation completed"_s};
    QTest::newRow("sync") << QStringList{u"sync"_s}
                          << repositories + QStringList{u"Synchronising apps library..."_s} + apps +
                                 QStringList{u"Synchronising scripts library..."_s} + scripts
                          << true << false;
    QTest::newRow("sync, fast") << QStringList{u"sync"_s, u"--fast"_s} << repositories + apps + scripts << true
                                << false;

    // What a search or a listing shows, read off its options; the text searched for is the last argument.
    const auto expected = [this](const QStringList& options, bool listing) {
        const auto has = [&](const char* option) { return options.contains(QString::fromLatin1(option)); };
        const QString text = options.constLast().trimmed();
        QList<Record> shown = records(has("--scripts"));
        shown.removeIf([&](const Record& record) {
            if (listing) {
                return !record.installed || (has("--outdated") && !record.outdated);
            }
            const bool name = record.name.contains(text, Qt::CaseInsensitive);
            const bool token = record.token.contains(text, Qt::CaseInsensitive);
            const bool desc = record.desc.contains(text, Qt::CaseInsensitive);
            const bool matches = has("--name")    ? name
                                 : has("--token") ? token
                                 : has("--desc")  ? desc
                                                  : name || token || desc;
            return !matches || (has("--installed") && !record.installed) || (has("--available") && record.installed);
        });
        return sortedLines(shown);
    };
    const auto search = [&](const char* tag, const QStringList& options) {
        QTest::newRow(tag) << QStringList{u"search"_s} + options << expected(options, false) << true << false;
    };
    search("search apps, any field", {u"fire"_s});
    search("search, letter case and padding", {u"  FiRe "_s});
    search("search name only", {u"--name"_s, u"fire"_s});
    search("search description only, installed", {u"--desc"_s, u"--installed"_s, u"fire"_s});
    search("search token only, available", {u"--available"_s, u"--token"_s, u"fire"_s});
    search("search records of a non-core tap", {u"--scripts"_s, u"hello"_s});
    search("search, nothing matches", {u"zzqx"_s});
    const auto list = [&](const char* tag, const QStringList& options, bool globalOptionsFirst = true) {
        QTest::newRow(tag) << QStringList{u"list"_s} + options << expected(options, true) << globalOptionsFirst
                           << false;
    };
    list("list apps", {u"--apps"_s});
    list("list outdated apps", {u"--apps"_s, u"--outdated"_s});
    list("list scripts", {u"--scripts"_s});
    list("list, global options after the command", {u"--apps"_s, u"--outdated"_s}, false);
}

void TestCommandLine::succeeds()
{
    QFETCH(QStringList, arguments);
    QFETCH(QStringList, expected);
    QFETCH(bool, globalOptionsFirst);
    QFETCH(bool, partial);
    if (!QByteArray(QTest::currentDataTag()).endsWith("nothing matches")) {
        QVERIFY2(!expected.isEmpty(), "the data gives this row nothing to find");
    }

    Run run;
    corvel(arguments, run, globalOptionsFirst);
    QCOMPARE(run.exitStatus, QProcess::NormalExit);
    QCOMPARE(run.err, QString());
    QCOMPARE(run.exitCode, 0);
    if (!partial) {
        QCOMPARE(lines(run.out), expected);
    }
    for (const QString& text : std::as_const(expected)) {
        QVERIFY2(run.out.contains(text), qPrintable(run.out));
    }
}

void TestCommandLine::fails_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("message");
    QTest::addColumn<QString>("lastStep"); // the last line out; empty: nothing printed
    QTest::addColumn<QJsonObject>("faults");
    QTest::addColumn<bool>("catalogueFails");
    QTest::addColumn<bool>("storeBlocked");

    const auto usage = [](const char* tag, const QStringList& arguments, const QString& message) {
        QTest::newRow(tag) << arguments << 2 << message << QString() << QJsonObject() << false << false;
    };
    usage("unknown command", {u"frobnicate"_s}, u"unknown command 'frobnicate'"_s);
    usage("unknown option", {u"search"_s, u"--bogus"_s, u"x"_s}, u"search: Unknown option"_s);
    usage("missing text", {u"search"_s}, u"search: missing TEXT"_s);
    usage("blank text", {u"search"_s, u" \t"_s}, u"search: missing TEXT"_s);
    usage("two texts", {u"search"_s, u"fire"_s, u"fox"_s}, u"unexpected argument 'fox'"_s);
    usage("installed and available", {u"search"_s, u"--installed"_s, u"--available"_s, u"x"_s},
          u"--installed and --available cannot be used together"_s);
    usage("two fields", {u"search"_s, u"--name"_s, u"--token"_s, u"x"_s},
          u"--name and --token cannot be used together"_s);
    usage("list without a kind", {u"list"_s}, u"list: choose --apps or --scripts"_s);
    usage("list of both kinds", {u"list"_s, u"--apps"_s, u"--scripts"_s},
          u"--apps and --scripts cannot be used together"_s);
    usage("sync with an argument", {u"sync"_s, u"now"_s}, u"unexpected argument 'now'"_s);
    usage("root that is no folder", {u"list"_s, u"--apps"_s, u"--root"_s, u"/nonexistent/corvel"_s},
          u"is not a directory"_s);

    QTest::newRow("brew fails") << QStringList{u"sync"_s} << 1
                                << u"Unable to synchronise: Process terminated with an error"_s
                                << u"Synchronising outdated apps..."_s
                                << QJsonObject{{"failCommands", QJsonArray{"outdated"}}} << false << false;
    QTest::newRow("catalogue unavailable") << QStringList{u"sync"_s} << 1 << u"Unable to synchronise: "_s
                                           << u"Synchronising apps library..."_s << QJsonObject() << true << false;
    // A file where the store's folder should be: the store cannot be created, which is a failure, not a crash.
    for (const QStringList& arguments :
         {QStringList{u"search"_s, u"fire"_s}, QStringList{u"list"_s, u"--scripts"_s}, {u"sync"_s, u"--fast"_s}}) {
        QTest::addRow("unusable store, %s", qPrintable(arguments.constFirst()))
            << arguments << 1 << u"corvel-x: Unable to open the catalogue: "_s << QString() << QJsonObject() << false
            << true;
    }
}

void TestCommandLine::fails()
{
    QFETCH(QStringList, arguments);
    QFETCH(int, exitCode);
    QFETCH(QString, message);
    QFETCH(QString, lastStep);
    QFETCH(QJsonObject, faults);
    QFETCH(bool, catalogueFails);
    QFETCH(bool, storeBlocked);

    QVERIFY(m_brew->setStateValue(u"faults"_s, faults).ok());
    m_catalogueFails = catalogueFails;
    const QString blocked = m_home.filePath(u"blocked"_s);
    QVERIFY(!storeBlocked || writeFile(blocked, "not a folder"));

    Run run;
    corvel(arguments, run, true, storeBlocked ? blocked : QString());
    QCOMPARE(run.exitStatus, QProcess::NormalExit);
    QCOMPARE(run.exitCode, exitCode);
    QVERIFY2(run.err.contains(message), qPrintable(run.err));
    QCOMPARE(lastStep.isEmpty() ? run.out : lines(run.out).value(lines(run.out).size() - 1), lastStep);
    QVERIFY(!run.out.contains(u"Synchronisation completed"_s));
}

QTEST_GUILESS_MAIN(TestCommandLine)
#include "TestCommandLine.moc"
