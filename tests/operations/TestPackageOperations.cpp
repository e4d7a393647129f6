#include "HomebrewFixture.h"
#include "LogCapture.h"
#include "ScriptedAlerter.h"
#include "ScriptedFolderChooser.h"
#include "activities/ApplicationState.h"
#include "catalogue/ArrayController.h"
#include "catalogue/Cask.h"
#include "catalogue/CoreDataManager.h"
#include "catalogue/Formula.h"
#include "catalogue/HomebrewSources.h"
#include "catalogue/Predicate.h"
#include "diagnostics/Analytics.h"
#include "foundation/Defaults.h"
#include "foundation/HttpClient.h"
#include "foundation/PreferenceKeys.h"
#include "foundation/PropertyList.h"
#include "operations/AppOperations.h"
#include "operations/OperationTargets.h"
#include "operations/ScriptOperations.h"

#include <QDir>
#include <QHttpServer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QNetworkAccessManager>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using Kind = PackageOperation::Kind;

namespace {

// Every operation runs real brew children; generous, because a loaded machine is not a failure.
constexpr int timeout = 60000;
const QString terminated = u"Process terminated with an error"_s;

struct Record {
    QString entity;
    QString token;
    QString name;
    QStringList artifacts;
    bool installed = false;
    bool outdated = false;
    QString tap;
};

// The catalogue as the tables show it. Tokens are the simulator's sample records.
const QList<Record> records{
    {u"Cask"_s, u"opera"_s, u"Opera"_s, {u"app"_s}, false, false, {}},
    {u"Cask"_s, u"corretto"_s, u"AWS Corretto JDK"_s, {u"pkg"_s}, false, false, {}},
    {u"Cask"_s, u"font-fredoka"_s, u"Fredoka"_s, {u"font"_s}, false, false, u"homebrew/cask-fonts"_s},
    {u"Cask"_s, u"firezone"_s, u"Firezone"_s, {u"app"_s}, true, true, u"homebrew/cask"_s},
    {u"Cask"_s, u"dropbox"_s, u"Dropbox"_s, {u"app"_s}, true, false, {}},
    {u"Cask"_s, u"flameshot"_s, u"Flameshot"_s, {u"app"_s}, true, true, {}},
    {u"Cask"_s, u"font-jost"_s, u"Jost"_s, {u"font"_s}, true, false, {}},
    {u"Formula"_s, u"fzf"_s, u"fzf"_s, {}, false, false, u"homebrew/core"_s},
    {u"Formula"_s, u"bash"_s, u"bash"_s, {}, true, false, {}},
    {u"Formula"_s, u"cmake"_s, u"cmake"_s, {}, true, false, {}},
    {u"Formula"_s, u"gh"_s, u"gh"_s, {}, true, true, {}},
    {u"Formula"_s, u"go"_s, u"go"_s, {}, true, false, {}},
};

// The same machine as brew sees it.
QJsonObject machine(const QJsonObject& faults)
{
    return {
        {"casks", QJsonObject{{"firezone", "1.5.0"}, {"dropbox", "264.0"}, {"flameshot", "13.0"}, {"font-jost", "1"}}},
        {"formulae", QJsonObject{{"bash", "5.1.4"}, {"cmake", "3.24.2"}, {"gh", "2.11.0"}, {"go", "1.19.5"}}},
        {"outdated", QJsonObject{{"casks", QJsonObject{{"firezone", "1.5.18"}, {"flameshot", "14.0"}}},
                                 {"formulae", QJsonObject{{"gh", "2.12.1"}}}}},
        {"faults", faults},
    };
}

bool isCommand(const QStringList& arguments)
{
    static const QStringList commands{u"install"_s, u"uninstall"_s, u"upgrade"_s, u"reinstall"_s};
    return !arguments.isEmpty() && commands.contains(arguments.constFirst());
}

struct Outcome {
    QString token;
    bool succeeded = false;
    QString error;
};

struct Request {
    bool ended = false; // settled, and every command it started has finished
    QStringList started;
    QList<Outcome> outcomes;

    const Outcome* outcome(const QString& token) const
    {
        for (const Outcome& each : outcomes) {
            if (each.token == token) {
                return &each;
            }
        }
        return nullptr;
    }
};

// A store with the records above, preferences, the simulated brew and the operations over them, all throw-away.
struct World : HomebrewFixture {
    QTemporaryDir folder;
    CoreDataManager store{folder.filePath(u"Corvel X.sqlite"_s)};
    Defaults defaults{folder.filePath(u"settings.ini"_s)};
    ApplicationState state{defaults};
    HttpClient httpClient;
    QNetworkAccessManager network;
    Homebrew::Sources sources{commands, QUrl(), httpClient};
    ScriptedAlerter alerter;
    ScriptedFolderChooser folders;
    std::unique_ptr<Analytics> analytics;
    std::unique_ptr<AppOperations> apps;
    std::unique_ptr<ScriptOperations> scripts;

    // info: the keys of the bundle's Info.plist, read when the analytics start.
    bool setUp(const QJsonObject& faults = {}, const QVariantMap& info = {})
    {
        if (!info.isEmpty()) {
            QFile plist(resources.filePath(u"Info.plist"_s));
            const QByteArray content = PropertyList::serialize(info);
            if (!plist.open(QIODevice::WriteOnly) || plist.write(content) != content.size()) {
                return false;
            }
        }
        if (!simulate(machine(faults)) || !seed()) {
            return false;
        }
        analytics = std::make_unique<Analytics>(defaults, bundle, network);
        const PackageOperations::Services services{store, commands, state, defaults, alerter, *analytics};
        apps = std::make_unique<AppOperations>(services, sources, folders);
        scripts = std::make_unique<ScriptOperations>(services);
        return true;
    }

    bool seed()
    {
        Result<std::unique_ptr<ManagedObjectContext>> context = store.newBackgroundContext();
        if (!context) {
            return false;
        }
        for (const QString& entity : {u"Cask"_s, u"Formula"_s}) {
            qsizetype next = 0;
            const Result<QList<ObjectID>> inserted = context.value()->batchInsert(entity, [&](QVariantHash& values) {
                while (next < records.size() && records[next].entity != entity) {
                    ++next;
                }
                if (next == records.size()) {
                    return false;
                }
                const Record& record = records[next++];
                values.insert(u"token"_s, record.token);
                values.insert(u"name"_s, record.name);
                values.insert(u"installed"_s, record.installed);
                values.insert(u"outdated"_s, record.outdated);
                if (!record.tap.isEmpty()) {
                    values.insert(u"tap"_s, record.tap);
                }
                if (entity == u"Cask") {
                    values.insert(u"artifacts"_s, record.artifacts);
                }
                return true;
            });
            if (!inserted) {
                return false;
            }
        }
        return true;
    }

    Package* package(const QString& token)
    {
        for (const QString& entity : {u"Cask"_s, u"Formula"_s}) {
            const Result<QList<ManagedObject*>> found = store.viewContext()->fetch(entity, u"token == %@"_s, {token});
            if (found && !found.value().isEmpty()) {
                return qobject_cast<Package*>(found.value().constFirst());
            }
        }
        return nullptr;
    }
    Cask* app(const QString& token) { return qobject_cast<Cask*>(package(token)); }
    Formula* script(const QString& token) { return qobject_cast<Formula*>(package(token)); }

    template <class Record>
    QList<Record*> all(const QStringList& tokens)
    {
        QList<Record*> result;
        for (const QString& token : tokens) {
            result.append(qobject_cast<Record*>(package(token)));
        }
        return result;
    }

    QList<QStringList> invocations() const
    {
        QList<QStringList> result;
        for (const SimulatedHomebrew::Invocation& invocation : brew->invocations()) {
            result.append(invocation.arguments);
        }
        return result;
    }

    // The install, uninstall, upgrade and reinstall commands brew ran, in a stable order.
    QList<QStringList> commandsRun() const
    {
        QList<QStringList> result = invocations();
        result.removeIf([](const QStringList& arguments) { return !isCommand(arguments); });
        std::sort(result.begin(), result.end());
        return result;
    }

    // Sends request and waits until it has settled and every command it started has finished.
    Request perform(PackageOperations& operations, const std::function<void()>& request)
    {
        QSignalSpy settled(&operations, &PackageOperations::requestSettled);
        QSignalSpy finished(&operations, &PackageOperations::operationFinished);
        request();
        Request result;
        if (!QTest::qWaitFor([&] { return !settled.isEmpty(); }, timeout)) {
            return result;
        }
        result.started = settled.constFirst().at(1).toStringList();
        if (!QTest::qWaitFor([&] { return finished.size() >= result.started.size(); }, timeout)) {
            return result;
        }
        for (const QList<QVariant>& arguments : std::as_const(finished)) {
            result.outcomes.append({arguments.at(1).toString(), arguments.at(2).toBool(), arguments.at(3).toString()});
        }
        result.ended = settled.size() == 1;
        return result;
    }

    PackageOperations& operationsFor(const QString& token)
    {
        return app(token) ? static_cast<PackageOperations&>(*apps) : *scripts;
    }

    // Starts operation on the record of token as its table would.
    void start(const QString& operation, const QString& token, const Homebrew::Locations& locations = {})
    {
        if (Cask* cask = app(token)) {
            if (operation == u"install") {
                apps->install({cask}, locations);
            } else if (operation == u"installInFolder") {
                apps->installInFolder(cask);
            } else if (operation == u"uninstall") {
                apps->uninstall({cask});
            } else if (operation == u"upgrade") {
                apps->upgrade({cask});
            } else if (operation == u"reinstall") {
                apps->reinstall({cask}, locations);
            } else if (operation == u"move") {
                apps->moveTo(cask);
            }
            return;
        }
        Formula* formula = script(token);
        if (operation == u"install") {
            scripts->install({formula});
        } else if (operation == u"uninstall") {
            scripts->uninstall({formula});
        } else if (operation == u"upgrade") {
            scripts->upgrade({formula});
        } else if (operation == u"reinstall") {
            scripts->reinstall({formula});
        }
    }
};

QString applicationsFolder()
{
    return QDir::homePath() + u"/Applications"_s;
}

QString fontsFolder()
{
    return QDir::homePath() + u"/Library/Fonts"_s;
}

Homebrew::Locations locations(const QString& appdir, const QString& fontdir)
{
    Homebrew::Locations result;
    if (!appdir.isEmpty()) {
        result.appsDirectory = appdir;
    }
    if (!fontdir.isEmpty()) {
        result.fontsDirectory = fontdir;
    }
    return result;
}

} // namespace

class TestPackageOperations : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void commands_data();
    void commands();
    void uninstallConfirmation_data();
    void uninstallConfirmation();
    void confirmationTexts_data();
    void confirmationTexts();
    void upgradeAll_data();
    void upgradeAll();
    void dismissedFolderPanel_data();
    void dismissedFolderPanel();
    void suppression_data();
    void suppression();
    void failure_data();
    void failure();
    void independentFailures();
    void overlappingOperations();
    void usageEvents_data();
    void usageEvents();
    void handedOverRecords_data();
    void handedOverRecords();
};

void TestPackageOperations::commands_data()
{
    QTest::addColumn<QString>("operation");
    QTest::addColumn<QString>("token");
    QTest::addColumn<QStringList>("folders");  // the app and font folders handed to the operation, empty when unset
    QTest::addColumn<QString>("confirmation"); // the confirming button expected, empty when nothing is asked
    QTest::addColumn<QString>("panelStart");   // where the folder panel opens, empty when none is expected
    QTest::addColumn<QStringList>("command");
    QTest::addColumn<QString>("action");
    QTest::addColumn<QStringList>("logLines"); // at the start and at the end
    QTest::addColumn<bool>("refreshedFromBrew");
    QTest::addColumn<QVariantList>("after"); // installed, outdated, and an app's version

    const auto row = [](const char* name, const char* operation, const char* token, const QStringList& folders,
                        const char* confirmation, const QString& panelStart, const QStringList& command,
                        const char* action, const QStringList& logLines, bool refreshed, const QVariantList& after) {
        QTest::newRow(name) << QString(operation) << QString(token) << folders << QString(confirmation) << panelStart
                            << command << QString(action) << logLines << refreshed << after;
    };
    const QStringList none{"", ""};
    const QString apps = applicationsFolder();
    const QString fonts = fontsFolder();
    row("app install", "install", "opera", none, "", "", {"install", "--cask", "opera"}, "Install",
        {"Installing opera", "opera app installed"}, true, {true, false, "134.0.5954.46"});
    row("app install with both folders", "install", "opera", {"/Volumes/My Apps", "/Volumes/Fonts=1"}, "", "",
        {"install", "--cask", "opera", "--appdir", "/Volumes/My Apps", "--fontdir", "/Volumes/Fonts=1"}, "Install",
        {"Installing opera", "opera app installed"}, true, {true, false, "134.0.5954.46"});
    row("app install with a fonts folder only", "install", "opera", {"", "/Volumes/Fonts"}, "", "",
        {"install", "--cask", "opera", "--fontdir", "/Volumes/Fonts"}, "Install",
        {"Installing opera", "opera app installed"}, true, {true, false, "134.0.5954.46"});
    row("app install in a folder", "installInFolder", "opera", none, "", apps,
        {"install", "--cask", "opera", "--appdir", "/chosen"}, "Install", {"Installing opera", "opera app installed"},
        true, {true, false, "134.0.5954.46"});
    row("font install in a folder", "installInFolder", "font-fredoka", none, "", fonts,
        {"install", "--cask", "font-fredoka", "--fontdir", "/chosen"}, "Install",
        {"Installing font-fredoka", "font-fredoka app installed"}, true, {true, false, "latest"});
    row("app uninstall", "uninstall", "dropbox", none, "Uninstall", "", {"uninstall", "--cask", "dropbox"}, "Uninstall",
        {"Uninstalling dropbox", "dropbox app uninstalled"}, false, {false, false, ""});
    row("app upgrade", "upgrade", "firezone", none, "", "", {"upgrade", "--cask", "firezone"}, "Upgrade",
        {"Upgrading firezone", "firezone app upgraded"}, true, {true, false, "1.5.18"});
    row("app reinstall", "reinstall", "dropbox", none, "Reinstall", "", {"reinstall", "--cask", "dropbox"}, "Reinstall",
        {"Reinstalling dropbox", "dropbox app reinstalled"}, true, {true, false, "264.0"});
    row("app reinstall with both folders", "reinstall", "dropbox", {"/A", "/F"}, "Reinstall", "",
        {"reinstall", "--cask", "dropbox", "--appdir", "/A", "--fontdir", "/F"}, "Reinstall",
        {"Reinstalling dropbox", "dropbox app reinstalled"}, true, {true, false, "264.0"});
    row("app move", "move", "firezone", none, "Move", apps, {"reinstall", "--cask", "firezone", "--appdir", "/chosen"},
        "Reinstall", {"Moving firezone", "firezone app moved"}, true, {true, true, "1.5.0"});
    row("font move", "move", "font-jost", none, "Move", fonts,
        {"reinstall", "--cask", "font-jost", "--fontdir", "/chosen"}, "Reinstall",
        {"Moving font-jost", "font-jost app moved"}, true, {true, false, "1"});
    row("script install", "install", "fzf", none, "", "", {"install", "--formula", "fzf"}, "Install",
        {"Installing fzf", "fzf script installed"}, false, {true, false});
    row("script uninstall", "uninstall", "go", none, "Uninstall", "", {"uninstall", "--formula", "go"}, "Uninstall",
        {"Uninstalling go", "go script uninstalled"}, false, {false, false});
    row("script upgrade", "upgrade", "gh", none, "", "", {"upgrade", "--formula", "gh"}, "Upgrade",
        {"Upgrading gh", "gh script upgraded"}, false, {true, false});
    row("script reinstall", "reinstall", "cmake", none, "Reinstall", "", {"reinstall", "--formula", "cmake"},
        "Reinstall", {"Reinstalling cmake", "cmake script reinstalled"}, false, {true, false});
}

// One request for one record: exactly the documented command, then (for apps) the documented re-read, with the
// activity, the transcript, the log lines, the busy marks and the refreshed record to show for it.
void TestPackageOperations::commands()
{
    QFETCH(QString, operation);
    QFETCH(QString, token);
    QFETCH(QStringList, folders);
    QFETCH(QString, confirmation);
    QFETCH(QString, panelStart);
    QFETCH(QStringList, command);
    QFETCH(QString, action);
    QFETCH(QStringList, logLines);
    QFETCH(bool, refreshedFromBrew);
    QFETCH(QVariantList, after);
    const QString startLine = logLines.at(0);
    const QString successLine = logLines.at(1);
    const bool installedAfter = after.at(0).toBool();
    const bool outdatedAfter = after.at(1).toBool();

    World world;
    QVERIFY(world.setUp());
    Package* record = world.package(token);
    QVERIFY(record);
    if (!confirmation.isEmpty()) {
        world.alerter.answerNext(confirmation);
    }
    if (!panelStart.isEmpty()) {
        world.folders.answerNext(u"/chosen"_s);
    }
    LogCapture log;
    QSignalSpy busy(&world.state, &ApplicationState::isBusyChanged);
    QSignalSpy recordChanged(record, &ManagedObject::valueChanged);
    QSignalSpy appUninstalled(world.apps.get(), &AppOperations::appUninstalled);

    const Request request = world.perform(
        world.operationsFor(token), [&] { world.start(operation, token, locations(folders.at(0), folders.at(1))); });
    QVERIFY(request.ended);
    QCOMPARE(request.started, QStringList{token});
    QCOMPARE(request.outcomes.size(), 1);
    QVERIFY2(request.outcomes.constFirst().succeeded, qPrintable(request.outcomes.constFirst().error));

    QList<QStringList> expected{command};
    if (refreshedFromBrew) {
        expected.append({"info", "--cask", "--json=v2", token});
    }
    QCOMPARE(world.invocations(), expected);

    QCOMPARE(world.alerter.shown().size(), confirmation.isEmpty() ? 0 : 1);
    if (!confirmation.isEmpty()) {
        QCOMPARE(world.alerter.shown().constFirst().buttons.value(0), confirmation);
    }
    QCOMPARE(world.folders.asked().size(), panelStart.isEmpty() ? 0 : 1);
    if (!panelStart.isEmpty()) {
        QCOMPARE(world.folders.asked().constFirst().startFolder, panelStart);
    }

    QCOMPARE(world.activityCenter.activities().size(), 1);
    const ActivityPtr activity = world.activityCenter.activities().constFirst();
    QCOMPARE(activity->target(), record->name());
    QCOMPARE(activity->action(), action);
    QVERIFY(!world.transcript.messages().isEmpty());
    for (const TranscriptMessage& message : world.transcript.messages()) {
        QCOMPARE(message.activity(), activity);
    }

    const QList<LogCapture::Line> lines = log.lines();
    const auto at = [&](const QString& text) {
        return std::find_if(lines.cbegin(), lines.cend(), [&](const auto& line) { return line.text == text; });
    };
    QVERIFY2(at(startLine) != lines.cend(), qPrintable(log.texts().join(u'\n')));
    QVERIFY2(at(successLine) != lines.cend(), qPrintable(log.texts().join(u'\n')));
    QVERIFY(at(startLine) < at(successLine));
    QCOMPARE(at(startLine)->type, QtInfoMsg);
    QCOMPARE(at(successLine)->type, QtInfoMsg);

    // Busy from the start to the end, and idle once it is over.
    QCOMPARE(busy.size(), 2);
    QCOMPARE(busy.at(0).at(0).toBool(), true);
    QCOMPARE(busy.at(1).at(0).toBool(), false);
    QVERIFY(recordChanged.contains(QVariantList{u"isBusy"_s}));
    QVERIFY(!record->isBusy());

    QCOMPARE(appUninstalled.size(), operation == u"uninstall" && qobject_cast<Cask*>(record) ? 1 : 0);
    QCOMPARE(record->installed(), installedAfter);
    QCOMPARE(record->outdated(), outdatedAfter);
    if (auto* app = qobject_cast<Cask*>(record)) {
        QCOMPARE(app->version(), after.at(2).toString());
    }
    // What the view shows is what was stored.
    Result<std::unique_ptr<ManagedObjectContext>> reader = world.store.newBackgroundContext();
    QVERIFY(reader);
    const Result<QList<ManagedObject*>> stored =
        reader.value()->fetch(record->entity().name(), u"token == %@"_s, {token});
    QVERIFY(stored && stored.value().size() == 1);
    QCOMPARE(stored.value().constFirst()->value(u"installed").toBool(), installedAfter);
    QCOMPARE(stored.value().constFirst()->value(u"outdated").toBool(), outdatedAfter);
}

void TestPackageOperations::uninstallConfirmation_data()
{
    QTest::addColumn<QStringList>("tokens");
    QTest::addColumn<QString>("busyToken");
    QTest::addColumn<QString>("answer");
    QTest::addColumn<QString>("message");
    QTest::addColumn<QStringList>("uninstalled");

    const auto row = [](const char* name, const QStringList& tokens, const char* busy, const char* answer,
                        const char* message, const QStringList& uninstalled) {
        QTest::newRow(name) << tokens << QString(busy) << QString(answer) << QString(message) << uninstalled;
    };
    row("three apps, one busy", {"dropbox", "firezone", "flameshot"}, "firezone", "Uninstall",
        "Are you sure you want to uninstall 2 apps?", {"dropbox", "flameshot"});
    row("three scripts, one busy", {"bash", "cmake", "go"}, "cmake", "Uninstall",
        "Are you sure you want to uninstall 2 scripts?", {"bash", "go"});
    row("one app", {"dropbox"}, "", "Uninstall", "Are you sure you want to uninstall 'Dropbox'?", {"dropbox"});
    row("an app that is not installed is left out", {"opera", "dropbox"}, "", "Uninstall",
        "Are you sure you want to uninstall 'Dropbox'?", {"dropbox"});
    row("cancelled", {"dropbox", "flameshot"}, "", "Cancel", "Are you sure you want to uninstall 2 apps?", {});
}

void TestPackageOperations::uninstallConfirmation()
{
    QFETCH(QStringList, tokens);
    QFETCH(QString, busyToken);
    QFETCH(QString, answer);
    QFETCH(QString, message);
    QFETCH(QStringList, uninstalled);

    World world;
    QVERIFY(world.setUp());
    if (!busyToken.isEmpty()) {
        world.package(busyToken)->setBusy(true);
    }
    world.alerter.answerNext(answer);
    const bool apps = world.app(tokens.constFirst()) != nullptr;
    const Request request = world.perform(world.operationsFor(tokens.constFirst()), [&] {
        if (apps) {
            world.apps->uninstall(world.all<Cask>(tokens));
        } else {
            world.scripts->uninstall(world.all<Formula>(tokens));
        }
    });
    QVERIFY(request.ended);

    QCOMPARE(world.alerter.shown().size(), 1);
    const Alert& alert = world.alerter.shown().constFirst();
    QCOMPARE(alert.message, message);
    QCOMPARE(alert.informativeText, QString());
    QCOMPARE(alert.buttons, (QStringList{"Uninstall", "Cancel"}));
    QCOMPARE(alert.suppressionKey, QString());

    QList<QStringList> expected;
    for (const QString& token : std::as_const(uninstalled)) {
        expected.append({"uninstall", apps ? "--cask" : "--formula", token});
    }
    QCOMPARE(world.commandsRun(), expected);
    QCOMPARE(request.started.size(), uninstalled.size());
    for (const QString& token : std::as_const(tokens)) {
        Package* record = world.package(token);
        QCOMPARE(record->isBusy(), token == busyToken);
        QCOMPARE(record->installed(), token != u"opera" && !uninstalled.contains(token));
    }
    QVERIFY(!world.state.isBusy());
}

void TestPackageOperations::confirmationTexts_data()
{
    QTest::addColumn<QString>("operation");
    QTest::addColumn<QStringList>("tokens");
    QTest::addColumn<QStringList>("texts"); // message, informative text
    QTest::addColumn<QStringList>("buttons");
    QTest::addColumn<QString>("suppressionKey");

    const auto row = [](const char* name, const char* operation, const QStringList& tokens, const QStringList& texts,
                        const QStringList& buttons, const QString& key) {
        QTest::newRow(name) << QString(operation) << tokens << texts << buttons << key;
    };
    const QStringList reinstall{"Reinstall", "Cancel"};
    const QString reinstallKey = PreferenceKeys::SuppressReinstallAlert;
    row("reinstall one app", "reinstall", {"dropbox"}, {"Are you sure you want to reinstall 'Dropbox'?", ""}, reinstall,
        reinstallKey);
    row("reinstall two apps", "reinstall", {"dropbox", "firezone"}, {"Are you sure you want to reinstall 2 apps?", ""},
        reinstall, reinstallKey);
    row("reinstall one script", "reinstall", {"cmake"}, {"Are you sure you want to reinstall 'cmake'?", ""}, reinstall,
        reinstallKey);
    row("reinstall three scripts", "reinstall", {"bash", "cmake", "go"},
        {"Are you sure you want to reinstall 3 scripts?", ""}, reinstall, reinstallKey);
    row("move", "move", {"firezone"},
        {"Are you sure you want to move 'Firezone'?",
         "'Firezone' will be reinstalled in the chosen location. The process may cause loss of data."},
        {"Move", "Cancel"}, PreferenceKeys::SuppressMoveToAlert);
}

// The questions as asked; cancelling any of them leaves everything as it was.
void TestPackageOperations::confirmationTexts()
{
    QFETCH(QString, operation);
    QFETCH(QStringList, tokens);
    QFETCH(QStringList, texts);
    QFETCH(QStringList, buttons);
    QFETCH(QString, suppressionKey);

    World world;
    QVERIFY(world.setUp());
    world.alerter.answerNext(u"Cancel"_s);
    const bool apps = world.app(tokens.constFirst()) != nullptr;
    const Request request = world.perform(world.operationsFor(tokens.constFirst()), [&] {
        if (operation == u"move") {
            world.apps->moveTo(world.app(tokens.constFirst()));
        } else if (apps) {
            world.apps->reinstall(world.all<Cask>(tokens));
        } else {
            world.scripts->reinstall(world.all<Formula>(tokens));
        }
    });
    QVERIFY(request.ended);
    QVERIFY(request.started.isEmpty());
    QCOMPARE(world.alerter.shown().size(), 1);
    const Alert& alert = world.alerter.shown().constFirst();
    QCOMPARE(alert.message, texts.at(0));
    QCOMPARE(alert.informativeText, texts.at(1));
    QCOMPARE(alert.buttons, buttons);
    QCOMPARE(alert.suppressionKey, suppressionKey);
    QVERIFY(world.invocations().isEmpty());
    QVERIFY(!world.defaults.isWritten(suppressionKey));
}

void TestPackageOperations::upgradeAll_data()
{
    QTest::addColumn<QString>("filter");
    QTest::addColumn<QVariantList>("filterArguments");
    QTest::addColumn<bool>("suppressed");
    QTest::addColumn<QString>("answer");
    QTest::addColumn<QStringList>("upgraded");

    QTest::newRow("the installed apps") << "installed == YES" << QVariantList() << false << "Upgrade All"
                                        << QStringList{"firezone", "flameshot"};
    QTest::newRow("a search shows one outdated app")
        << "name CONTAINS[c] %@" << QVariantList{"fire"} << false << "Upgrade All" << QStringList{"firezone"};
    QTest::newRow("nothing outdated is shown")
        << "token in %@" << QVariantList{QStringList{"dropbox", "opera", "font-jost"}} << false << "Upgrade All"
        << QStringList();
    QTest::newRow("cancelled") << "installed == YES" << QVariantList() << false << "Cancel" << QStringList();
    QTest::newRow("suppressed") << "installed == YES" << QVariantList() << true << ""
                                << QStringList{"firezone", "flameshot"};
}

// Upgrade all acts on what the apps table arranges at that moment, never on what its search hides.
void TestPackageOperations::upgradeAll()
{
    QFETCH(QString, filter);
    QFETCH(QVariantList, filterArguments);
    QFETCH(bool, suppressed);
    QFETCH(QString, answer);
    QFETCH(QStringList, upgraded);

    World world;
    QVERIFY(world.setUp());
    ArrayController table(world.store.viewContext(), u"Cask"_s);
    const Result<Predicate> predicate = Predicate::parse(filter, filterArguments);
    QVERIFY(predicate);
    table.setFilterPredicate(predicate.value());
    QVERIFY(table.fetch());
    QVERIFY(!table.arrangedObjects().isEmpty());
    if (suppressed) {
        world.defaults.setValue(PreferenceKeys::SuppressUpgradeAllAlert, true);
    } else {
        world.alerter.answerNext(answer);
    }

    const Request request = world.perform(*world.apps, [&] { world.apps->upgradeAll(table); });
    QVERIFY(request.ended);
    QCOMPARE(world.alerter.shown().size(), suppressed ? 0 : 1);
    if (!suppressed) {
        const Alert& alert = world.alerter.shown().constFirst();
        QCOMPARE(alert.message, u"Are you sure you want to upgrade all the apps?"_s);
        QCOMPARE(alert.buttons, (QStringList{"Upgrade All", "Cancel"}));
        QCOMPARE(alert.suppressionKey, PreferenceKeys::SuppressUpgradeAllAlert);
    }
    QList<QStringList> expected;
    for (const QString& token : std::as_const(upgraded)) {
        expected.append({"upgrade", "--cask", token});
    }
    QCOMPARE(world.commandsRun(), expected);
    QCOMPARE(request.outcomes.size(), upgraded.size());
    for (const Outcome& outcome : request.outcomes) {
        QVERIFY2(outcome.succeeded, qPrintable(outcome.error));
        QVERIFY(!world.app(outcome.token)->outdated());
    }
    // The hidden outdated app stays outdated.
    QCOMPARE(world.app(u"flameshot"_s)->outdated(), !upgraded.contains(u"flameshot"_s));
}

void TestPackageOperations::dismissedFolderPanel_data()
{
    QTest::addColumn<QString>("operation");
    QTest::addColumn<QString>("token");
    QTest::addColumn<QString>("panelStart");
    QTest::addColumn<bool>("emptyAnswer"); // a path of nothing instead of a dismissal

    QTest::newRow("install an app in a folder") << "installInFolder"
                                                << "opera" << applicationsFolder() << false;
    QTest::newRow("install a font in a folder") << "installInFolder"
                                                << "font-fredoka" << fontsFolder() << false;
    QTest::newRow("move an app") << "move"
                                 << "firezone" << applicationsFolder() << false;
    QTest::newRow("move a font") << "move"
                                 << "font-jost" << fontsFolder() << false;
    QTest::newRow("an empty answer") << "installInFolder"
                                     << "opera" << applicationsFolder() << true;
}

void TestPackageOperations::dismissedFolderPanel()
{
    QFETCH(QString, operation);
    QFETCH(QString, token);
    QFETCH(QString, panelStart);
    QFETCH(bool, emptyAnswer);

    World world;
    QVERIFY(world.setUp());
    Package* record = world.package(token);
    const bool wasInstalled = record->installed();
    if (operation == u"move") {
        world.alerter.answerNext(u"Move"_s);
    }
    world.folders.answerNext(emptyAnswer ? std::optional<QString>(QString()) : std::nullopt);
    QSignalSpy busy(&world.state, &ApplicationState::isBusyChanged);
    QSignalSpy recordChanged(record, &ManagedObject::valueChanged);

    const Request request = world.perform(*world.apps, [&] { world.start(operation, token); });
    QVERIFY(request.ended);
    QVERIFY(request.started.isEmpty());
    QCOMPARE(world.folders.asked().size(), 1);
    QCOMPARE(world.folders.asked().constFirst().startFolder, panelStart);
    QVERIFY(world.invocations().isEmpty());
    QVERIFY(world.activityCenter.activities().isEmpty());
    QVERIFY(busy.isEmpty());
    QVERIFY(!recordChanged.contains(QVariantList{u"isBusy"_s}));
    QCOMPARE(record->installed(), wasInstalled);
}

void TestPackageOperations::suppression_data()
{
    QTest::addColumn<QString>("operation");
    QTest::addColumn<QString>("token");
    QTest::addColumn<QStringList>("keysSet");
    QTest::addColumn<QString>("answer"); // empty: no alert may be shown
    QTest::addColumn<bool>("ticked");
    QTest::addColumn<QString>("alertKey");
    QTest::addColumn<bool>("runs");
    QTest::addColumn<QStringList>("keysAfter");

    const auto row = [](const char* name, const char* operation, const char* token, const QStringList& keysSet,
                        const char* answer, bool ticked, const QString& alertKey, bool runs,
                        const QStringList& keysAfter) {
        QTest::newRow(name) << QString(operation) << QString(token) << keysSet << QString(answer) << ticked << alertKey
                            << runs << keysAfter;
    };
    const QString reinstall = PreferenceKeys::SuppressReinstallAlert;
    const QString upgradeAll = PreferenceKeys::SuppressUpgradeAllAlert;
    const QString move = PreferenceKeys::SuppressMoveToAlert;
    row("reinstall an app, suppressed", "reinstall", "dropbox", {reinstall}, "", false, "", true, {reinstall});
    row("reinstall a script, suppressed by the same key", "reinstall", "cmake", {reinstall}, "", false, "", true,
        {reinstall});
    row("upgrade all, suppressed", "upgradeAll", "", {upgradeAll}, "", false, "", true, {upgradeAll});
    row("move, suppressed", "move", "firezone", {move}, "", false, "", true, {move});
    row("reinstall an app, ticked", "reinstall", "dropbox", {}, "Reinstall", true, reinstall, true, {reinstall});
    row("reinstall a script, ticked", "reinstall", "cmake", {}, "Reinstall", true, reinstall, true, {reinstall});
    row("upgrade all, ticked", "upgradeAll", "", {}, "Upgrade All", true, upgradeAll, true, {upgradeAll});
    row("move, ticked", "move", "firezone", {}, "Move", true, move, true, {move});
    row("reinstall, not ticked", "reinstall", "dropbox", {}, "Reinstall", false, reinstall, true, {});
    row("reinstall, ticked but cancelled", "reinstall", "dropbox", {}, "Cancel", true, reinstall, false, {});
    row("move, ticked but cancelled", "move", "firezone", {}, "Cancel", true, move, false, {});
    row("uninstall asks whatever is suppressed", "uninstall", "dropbox", {reinstall, upgradeAll, move}, "Uninstall",
        true, "", true, {reinstall, upgradeAll, move});
}

void TestPackageOperations::suppression()
{
    QFETCH(QString, operation);
    QFETCH(QString, token);
    QFETCH(QStringList, keysSet);
    QFETCH(QString, answer);
    QFETCH(bool, ticked);
    QFETCH(QString, alertKey);
    QFETCH(bool, runs);
    QFETCH(QStringList, keysAfter);

    World world;
    QVERIFY(world.setUp());
    for (const QString& key : std::as_const(keysSet)) {
        world.defaults.setValue(key, true);
    }
    if (!answer.isEmpty()) {
        world.alerter.answerNext(answer, ticked);
    }
    if (operation == u"move" && runs) {
        world.folders.answerNext(u"/Users/me/Apps"_s);
    }
    ArrayController table(world.store.viewContext(), u"Cask"_s);
    table.setFilterPredicate(Predicate::parse(u"installed == YES"_s, {}).value());
    QVERIFY(table.fetch());

    PackageOperations& operations = token.isEmpty() ? *world.apps : world.operationsFor(token);
    const Request request = world.perform(operations, [&] {
        if (operation == u"upgradeAll") {
            world.apps->upgradeAll(table);
        } else {
            world.start(operation, token);
        }
    });
    QVERIFY(request.ended);
    QCOMPARE(world.alerter.shown().size(), answer.isEmpty() ? 0 : 1);
    if (!answer.isEmpty()) {
        QCOMPARE(world.alerter.shown().constFirst().suppressionKey, alertKey);
    }
    QCOMPARE(!world.commandsRun().isEmpty(), runs);
    for (const Outcome& outcome : request.outcomes) {
        QVERIFY2(outcome.succeeded, qPrintable(outcome.error));
    }
    for (const QString& key : Alerter::suppressedAlerts()) {
        QCOMPARE(world.defaults.boolValue(key), keysAfter.contains(key));
    }
}

void TestPackageOperations::failure_data()
{
    QTest::addColumn<QString>("operation");
    QTest::addColumn<QString>("token");
    QTest::addColumn<QJsonObject>("faults");
    QTest::addColumn<bool>("homebrewMissing");
    QTest::addColumn<QString>("answer");
    QTest::addColumn<QString>("logLine");
    QTest::addColumn<QString>("message");
    QTest::addColumn<QString>("description");

    const auto row = [](const char* name, const char* operation, const char* token, const QJsonObject& faults,
                        const char* answer, const char* verb, const QString& description = terminated) {
        QTest::newRow(name) << QString(operation) << QString(token) << faults << (description != terminated)
                            << QString(answer) << u"Unable to %1 %2: %3"_s.arg(verb, token, description)
                            << u"Unable to %1 '%2'"_s.arg(verb, token) << description;
    };
    const auto failing = [](const char* token) { return QJsonObject{{"failTokens", QJsonArray{token}}}; };
    const QJsonObject exitAfterOutput{{"exitAfterOutput", 1}};
    row("app install", "install", "opera", failing("opera"), "", "install");
    row("app install in a folder", "installInFolder", "opera", failing("opera"), "", "install");
    row("app uninstall", "uninstall", "firezone", failing("firezone"), "Uninstall", "uninstall");
    row("app upgrade after output", "upgrade", "firezone", exitAfterOutput, "", "upgrade");
    row("app reinstall", "reinstall", "firezone", failing("firezone"), "Reinstall", "reinstall");
    row("app move", "move", "firezone", failing("firezone"), "Move", "move");
    row("script install", "install", "fzf", failing("fzf"), "", "install");
    row("script upgrade after output", "upgrade", "gh", exitAfterOutput, "", "upgrade");
    row("script uninstall without Homebrew", "uninstall", "go", {}, "Uninstall", "uninstall",
        u"Homebrew executable not found"_s);
}

// A failed command is logged and reported in an alert; the record keeps what it had and is idle again.
void TestPackageOperations::failure()
{
    QFETCH(QString, operation);
    QFETCH(QString, token);
    QFETCH(QJsonObject, faults);
    QFETCH(bool, homebrewMissing);
    QFETCH(QString, answer);
    QFETCH(QString, logLine);
    QFETCH(QString, message);
    QFETCH(QString, description);

    World world;
    QVERIFY(world.setUp(faults));
    if (homebrewMissing) {
        QVERIFY(QFile::remove(world.brew->brewPath()));
    }
    Package* record = world.package(token);
    const bool installed = record->installed();
    const bool outdated = record->outdated();
    if (!answer.isEmpty()) {
        world.alerter.answerNext(answer);
    }
    if (operation == u"installInFolder" || operation == u"move") {
        world.folders.answerNext(u"/Users/me/Apps"_s);
    }
    world.alerter.answerNext(u"OK"_s);
    LogCapture log;

    const Request request = world.perform(world.operationsFor(token), [&] { world.start(operation, token); });
    QVERIFY(request.ended);
    QCOMPARE(request.outcomes.size(), 1);
    QVERIFY(!request.outcomes.constFirst().succeeded);
    QCOMPARE(request.outcomes.constFirst().error, description);

    const QList<LogCapture::Line> lines = log.lines();
    const auto line =
        std::find_if(lines.cbegin(), lines.cend(), [&](const auto& each) { return each.text == logLine; });
    QVERIFY2(line != lines.cend(), qPrintable(log.texts().join(u'\n')));
    QCOMPARE(line->type, QtWarningMsg);
    QVERIFY(std::none_of(lines.cbegin(), lines.cend(), [&](const auto& each) {
        return each.text.startsWith(token + u" app "_s) || each.text.startsWith(token + u" script "_s);
    }));

    const Alert& alert = world.alerter.shown().constLast();
    QCOMPARE(alert.message, message);
    QCOMPARE(alert.informativeText, description);
    QCOMPARE(alert.buttons, QStringList{u"OK"_s});

    // No re-read, no change to the record, nothing busy.
    for (const QStringList& arguments : world.invocations()) {
        QVERIFY2(arguments.value(0) != u"info", qPrintable(arguments.join(u' ')));
    }
    QCOMPARE(record->installed(), installed);
    QCOMPARE(record->outdated(), outdated);
    QVERIFY(!record->isBusy());
    QVERIFY(!world.state.isBusy());
}

// Several records give several commands, and one that fails stops none of the others.
void TestPackageOperations::independentFailures()
{
    World world;
    QVERIFY(world.setUp({{"failTokens", QJsonArray{"opera"}}}));
    world.alerter.answerNext(u"OK"_s);
    const QStringList tokens{u"corretto"_s, u"opera"_s, u"font-fredoka"_s};

    const Request request = world.perform(*world.apps, [&] { world.apps->install(world.all<Cask>(tokens)); });
    QVERIFY(request.ended);
    QCOMPARE(request.started, tokens);
    QCOMPARE(world.commandsRun(), (QList<QStringList>{{"install", "--cask", "corretto"},
                                                      {"install", "--cask", "font-fredoka"},
                                                      {"install", "--cask", "opera"}}));
    QCOMPARE(world.activityCenter.activities().size(), 3);
    QVERIFY(request.outcome(u"corretto"_s) && request.outcome(u"corretto"_s)->succeeded);
    QVERIFY(request.outcome(u"font-fredoka"_s) && request.outcome(u"font-fredoka"_s)->succeeded);
    QVERIFY(request.outcome(u"opera"_s) && !request.outcome(u"opera"_s)->succeeded);
    QCOMPARE(world.alerter.shown().size(), 1);
    QCOMPARE(world.alerter.shown().constFirst().message, u"Unable to install 'opera'"_s);
    QVERIFY(world.app(u"corretto"_s)->installed());
    QVERIFY(world.app(u"font-fredoka"_s)->installed());
    QVERIFY(!world.app(u"opera"_s)->installed());
    for (const QString& token : tokens) {
        QVERIFY(!world.package(token)->isBusy());
    }
    QVERIFY(!world.state.isBusy());
}

// The application's busy mark is one flag: the first operation to end clears it while another still runs.
void TestPackageOperations::overlappingOperations()
{
    World world;
    // The upgrade asks for a password through an askpass program that answers only once the gate is written to,
    // so it runs until the test lets it end.
    const QString gate = world.folder.filePath(u"gate"_s);
    QCOMPARE(mkfifo(QFile::encodeName(gate).constData(), 0600), 0);
    QFile askpass(world.resources.filePath(u"Askpass"_s));
    QVERIFY(askpass.open(QIODevice::WriteOnly));
    askpass.write("#!/bin/sh\nread answer < '" + QFile::encodeName(gate) + "'\necho secret\n");
    askpass.close();
    QVERIFY(askpass.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner));
    QVERIFY(world.setUp({{"sudo", QJsonArray{"upgrade"}}}));

    QSignalSpy finished(world.apps.get(), &PackageOperations::operationFinished);
    Cask* slow = world.app(u"firezone"_s);
    Cask* quick = world.app(u"opera"_s);
    world.apps->upgrade({slow});
    world.apps->install({quick});
    QVERIFY(slow->isBusy() && quick->isBusy() && world.state.isBusy());

    QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 1, timeout);
    QCOMPARE(finished.constFirst().at(1).toString(), u"opera"_s);
    QVERIFY(finished.constFirst().at(2).toBool());
    QVERIFY(!quick->isBusy());
    QVERIFY(slow->isBusy());
    QVERIFY(!world.state.isBusy());

    // Opens once the askpass program reads the gate.
    int writer = -1;
    QTRY_VERIFY_WITH_TIMEOUT((writer = ::open(QFile::encodeName(gate).constData(), O_WRONLY | O_NONBLOCK)) >= 0,
                             timeout);
    QCOMPARE(::write(writer, "go\n", 3), ssize_t(3));
    ::close(writer);

    QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 2, timeout);
    QCOMPARE(finished.at(1).at(1).toString(), u"firezone"_s);
    QVERIFY2(finished.at(1).at(2).toBool(), qPrintable(finished.at(1).at(3).toString()));
    QVERIFY(!slow->isBusy());
    QVERIFY(!slow->outdated());
    QVERIFY(!world.state.isBusy());
}

void TestPackageOperations::usageEvents_data()
{
    QTest::addColumn<QString>("operation");
    QTest::addColumn<QString>("token");
    QTest::addColumn<bool>("allowed");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("path");
    QTest::addColumn<QJsonObject>("props");

    QTest::newRow("app install") << "install"
                                 << "opera" << true << "Install"
                                 << "/main/apps" << QJsonObject{{"App", "opera"}};
    QTest::newRow("font install") << "installInFolder"
                                  << "font-fredoka" << true << "Install"
                                  << "/main/apps"
                                  << QJsonObject{{"Font", "font-fredoka"}, {"Repository", "homebrew/cask-fonts"}};
    QTest::newRow("app move") << "move"
                              << "firezone" << true << "Move"
                              << "/main/apps" << QJsonObject{{"App", "firezone"}, {"Repository", "homebrew/cask"}};
    QTest::newRow("app upgrade") << "upgrade"
                                 << "firezone" << true << "Upgrade"
                                 << "/main/apps" << QJsonObject{{"App", "firezone"}, {"Repository", "homebrew/cask"}};
    QTest::newRow("script install") << "install"
                                    << "fzf" << true << "Install"
                                    << "/main/scripts"
                                    << QJsonObject{{"Script", "fzf"}, {"Repository", "homebrew/core"}};
    QTest::newRow("not allowed") << "install"
                                 << "opera" << false << ""
                                 << "" << QJsonObject();
}

// After a success the usage event goes out, only with the person's consent.
void TestPackageOperations::usageEvents()
{
    QFETCH(QString, operation);
    QFETCH(QString, token);
    QFETCH(bool, allowed);
    QFETCH(QString, name);
    QFETCH(QString, path);
    QFETCH(QJsonObject, props);

    QHttpServer server;
    QList<QJsonObject> events;
    server.route("/api/event", [&](const QHttpServerRequest& request) {
        events.append(QJsonDocument::fromJson(request.body()).object());
        return QHttpServerResponse(QHttpServerResponse::StatusCode::Accepted);
    });
    const quint16 port = server.listen(QHostAddress::LocalHost);
    QVERIFY(port != 0);

    World world;
    QVERIFY(world.setUp(
        {}, {{"TW_ANALYTICS_URL", u"http://127.0.0.1:%1"_s.arg(port)}, {"TW_ANALYTICS_DOMAIN", "corvel.test"}}));
    world.defaults.setValue(PreferenceKeys::AllowDataCollection, allowed);
    if (operation == u"move") {
        world.alerter.answerNext(u"Move"_s);
    }
    if (operation == u"move" || operation == u"installInFolder") {
        world.folders.answerNext(u"/Users/me/Place"_s);
    }
    const Request request = world.perform(world.operationsFor(token), [&] { world.start(operation, token); });
    QVERIFY(request.ended);
    QVERIFY(request.outcomes.constFirst().succeeded);

    if (!allowed) {
        // A later allowed event is the witness that nothing was sent before it.
        world.defaults.setValue(PreferenceKeys::AllowDataCollection, true);
        world.analytics->appEvent(u"Witness"_s, u"opera"_s, std::nullopt);
        QTRY_COMPARE_WITH_TIMEOUT(events.size(), 1, timeout);
        QCOMPARE(events.constFirst()["name"].toString(), u"Witness"_s);
        return;
    }
    QTRY_COMPARE_WITH_TIMEOUT(events.size(), 1, timeout);
    const QJsonObject event = events.constFirst();
    QCOMPARE(event["name"].toString(), name);
    QCOMPARE(event["url"].toString(), u"https://corvel.test"_s + path);
    QCOMPARE(event["props"].toObject(), props);
}

void TestPackageOperations::handedOverRecords_data()
{
    QTest::addColumn<Kind>("kind");
    QTest::addColumn<QString>("sender");
    QTest::addColumn<QString>("row");
    QTest::addColumn<QStringList>("designated");
    QTest::addColumn<QStringList>("fallback");
    QTest::addColumn<QStringList>("busy");
    QTest::addColumn<QStringList>("expected");

    const auto row = [](const char* name, Kind kind, const char* sender, const char* row, const QStringList& designated,
                        const QStringList& fallback, const QStringList& busy, const QStringList& expected) {
        QTest::newRow(name) << kind << QString(sender) << QString(row) << designated << fallback << busy << expected;
    };
    row("install button of a row", Kind::install, "InstallTableButton", "opera", {"corretto", "dropbox"}, {}, {},
        {"opera"});
    row("upgrade button of a row", Kind::upgrade, "UpgradeTableButton", "firezone", {"flameshot"}, {}, {},
        {"firezone"});
    row("toolbar: designated records that offer it", Kind::uninstall, "", "", {"opera", "dropbox", "firezone"},
        {"flameshot"}, {}, {"dropbox", "firezone"});
    row("toolbar: the second list when the first is empty", Kind::install, "", "", {}, {"opera", "dropbox", "corretto"},
        {}, {"opera", "corretto"});
    row("toolbar: busy records are left out", Kind::reinstall, "", "", {"dropbox", "firezone"}, {}, {"firezone"},
        {"dropbox"});
    row("menu: install in a folder, applications and fonts only", Kind::installInFolder, "", "",
        {"opera", "corretto", "font-fredoka", "dropbox"}, {}, {}, {"opera", "font-fredoka"});
    row("menu: move, installed applications and fonts only", Kind::move, "", "",
        {"opera", "firezone", "font-jost", "corretto"}, {}, {}, {"firezone", "font-jost"});
    row("menu: upgrade, outdated only", Kind::upgrade, "", "", {"dropbox", "flameshot"}, {}, {}, {"flameshot"});
}

void TestPackageOperations::handedOverRecords()
{
    QFETCH(Kind, kind);
    QFETCH(QString, sender);
    QFETCH(QString, row);
    QFETCH(QStringList, designated);
    QFETCH(QStringList, fallback);
    QFETCH(QStringList, busy);
    QFETCH(QStringList, expected);

    World world;
    QVERIFY(world.setUp());
    for (const QString& token : std::as_const(busy)) {
        world.package(token)->setBusy(true);
    }
    const QList<Cask*> selected = OperationTargets::select<Cask>(
        kind, sender, row.isEmpty() ? nullptr : world.app(row), world.all<Cask>(designated), world.all<Cask>(fallback));
    QStringList tokens;
    for (const Cask* app : selected) {
        tokens.append(app->token());
    }
    QCOMPARE(tokens, expected);
}

QTEST_GUILESS_MAIN(TestPackageOperations)
#include "TestPackageOperations.moc"
