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

struct Outcome {
    QString token;
    bool succeeded = false;
    QString error;
};

struct Request {
    bool ended = false; // settled, and every command it started has finished
    QStringList started;
    QList<Outcome> outcomes;
};

// The index of the line with text, -1 when there is none.
qsizetype indexOf(const QList<LogCapture::Line>& lines, const QString& text)
{
    const auto found = std::ranges::find(lines, text, &LogCapture::Line::text);
    return found == lines.cend() ? -1 : found - lines.cbegin();
}

const QString applicationsFolder = QDir::homePath() + u"/Applications"_s;
const QString fontsFolder = QDir::homePath() + u"/Library/Fonts"_s;

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
        for (const Record& record : records) {
            ManagedObject* object = context.value()->insertNewObject(record.entity);
            object->setValue(u"token"_s, record.token);
            object->setValue(u"name"_s, record.name);
            object->setValue(u"installed"_s, record.installed);
            object->setValue(u"outdated"_s, record.outdated);
            if (!record.tap.isEmpty()) {
                object->setValue(u"tap"_s, record.tap);
            }
            if (record.entity == u"Cask") {
                object->setValue(u"artifacts"_s, record.artifacts);
            }
        }
        return context.value()->save().ok();
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
        static const QStringList commands{u"install"_s, u"uninstall"_s, u"upgrade"_s, u"reinstall"_s};
        QList<QStringList> result = invocations();
        result.removeIf([](const QStringList& arguments) { return !commands.contains(arguments.value(0)); });
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

    // Starts operation on the records of tokens (all apps or all scripts) as their table would, and waits for it.
    // Upgrade all is given the apps table's arranged records.
    Request perform(const QString& operation, const QStringList& tokens, const Homebrew::Locations& locations = {})
    {
        if (operation == u"upgradeAll") {
            // The apps table as a search leaves it, showing exactly tokens.
            ArrayController table(store.viewContext(), u"Cask"_s);
            table.setFilterPredicate(Predicate::parse(u"token in %@"_s, QVariantList{QVariant(tokens)}).value());
            return table.fetch() ? perform(*apps, [&] { apps->upgradeAll(table); }) : Request();
        }
        const QList<Cask*> casks = all<Cask>(tokens);
        const QList<Formula*> formulae = all<Formula>(tokens);
        using Actions = QHash<QString, std::function<void()>>;
        const Actions actions = casks.constFirst() ? Actions{
            {u"install"_s, [&] { apps->install(casks, locations); }},
            {u"installInFolder"_s, [&] { apps->installInFolder(casks.constFirst()); }},
            {u"uninstall"_s, [&] { apps->uninstall(casks); }},
            {u"upgrade"_s, [&] { apps->upgrade(casks); }},
            {u"reinstall"_s, [&] { apps->reinstall(casks, locations); }},
            {u"move"_s, [&] { apps->moveTo(casks.constFirst()); }},
        } : Actions{
            {u"install"_s, [&] { scripts->install(formulae); }},
            {u"uninstall"_s, [&] { scripts->uninstall(formulae); }},
            {u"upgrade"_s, [&] { scripts->upgrade(formulae); }},
            {u"reinstall"_s, [&] { scripts->reinstall(formulae); }},
        };
        // An unknown operation starts nothing, so the wait fails rather than passing silently.
        return perform(casks.constFirst() ? static_cast<PackageOperations&>(*apps) : *scripts,
                       actions.value(operation, [] {}));
    }
};

} // namespace

class TestPackageOperations : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void commands_data();
    void commands();
    void confirmation_data();
    void confirmation();
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
    QTest::addColumn<QStringList>("folders"); // the app and font folders handed to the operation, empty when unset
    QTest::addColumn<QString>("panelStart");  // where the folder panel opens, empty when none is expected
    QTest::addColumn<QStringList>("command");
    QTest::addColumn<QVariantList>("after"); // installed, outdated, and an app's version

    const auto row = [](const char* name, const char* operation, const char* token, const QStringList& folders,
                        const QString& panelStart, const QStringList& command, const QVariantList& after) {
        QTest::newRow(name) << QString(operation) << QString(token) << folders << panelStart << command << after;
    };
    const QStringList none{"", ""};
    const QString apps = applicationsFolder;
    const QString fonts = fontsFolder;
    const QVariantList opera{true, false, "134.0.5954.46"};
    const QVariantList dropbox{true, false, "264.0"};
    row("app install", "install", "opera", none, "", {"install", "--cask", "opera"}, opera);
    row("app install with both folders", "install", "opera", {"/Volumes/My Apps", "/Volumes/Fonts=1"}, "",
        {"install", "--cask", "opera", "--appdir", "/Volumes/My Apps", "--fontdir", "/Volumes/Fonts=1"}, opera);
    row("app install in a folder", "installInFolder", "opera", none, apps,
        {"install", "--cask", "opera", "--appdir", "/chosen"}, opera);
    row("font install in a folder", "installInFolder", "font-fredoka", none, fonts,
        {"install", "--cask", "font-fredoka", "--fontdir", "/chosen"}, {true, false, "latest"});
    row("app uninstall", "uninstall", "dropbox", none, "", {"uninstall", "--cask", "dropbox"}, {false, false, ""});
    row("app upgrade", "upgrade", "firezone", none, "", {"upgrade", "--cask", "firezone"}, {true, false, "1.5.18"});
    row("app reinstall with both folders", "reinstall", "dropbox", {"/A", "/F"}, "",
        {"reinstall", "--cask", "dropbox", "--appdir", "/A", "--fontdir", "/F"}, dropbox);
    row("app move", "move", "firezone", none, apps, {"reinstall", "--cask", "firezone", "--appdir", "/chosen"},
        {true, true, "1.5.0"});
    row("font move", "move", "font-jost", none, fonts, {"reinstall", "--cask", "font-jost", "--fontdir", "/chosen"},
        {true, false, "1"});
    row("script install", "install", "fzf", none, "", {"install", "--formula", "fzf"}, {true, false});
    row("script uninstall", "uninstall", "go", none, "", {"uninstall", "--formula", "go"}, {false, false});
    row("script upgrade", "upgrade", "gh", none, "", {"upgrade", "--formula", "gh"}, {true, false});
    row("script reinstall", "reinstall", "cmake", none, "", {"reinstall", "--formula", "cmake"}, {true, false});
}

// One request for one record: exactly the documented command, then (for apps) the documented re-read, with the
// activity, the transcript, the log lines, the busy marks and the refreshed record to show for it.
void TestPackageOperations::commands()
{
    QFETCH(QString, operation);
    QFETCH(QString, token);
    QFETCH(QStringList, folders);
    QFETCH(QString, panelStart);
    QFETCH(QStringList, command);
    QFETCH(QVariantList, after);

    // Per operation: the activity's action, the confirming button (empty when nothing is asked), and the log
    // lines' verbs at the start and at the end.
    const QHash<QString, QStringList> words{
        {u"install"_s, {"Install", "", "Installing", "installed"}},
        {u"installInFolder"_s, {"Install", "", "Installing", "installed"}},
        {u"uninstall"_s, {"Uninstall", "Uninstall", "Uninstalling", "uninstalled"}},
        {u"upgrade"_s, {"Upgrade", "", "Upgrading", "upgraded"}},
        {u"reinstall"_s, {"Reinstall", "Reinstall", "Reinstalling", "reinstalled"}},
        {u"move"_s, {"Reinstall", "Move", "Moving", "moved"}},
    };
    const QString action = words.value(operation).value(0);
    const QString confirmation = words.value(operation).value(1);

    World world;
    QVERIFY(world.setUp());
    Package* record = world.package(token);
    Cask* app = qobject_cast<Cask*>(record);
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
    const auto folder = [&](int i) { return folders.at(i).isEmpty() ? std::nullopt : std::optional(folders.at(i)); };

    const Request request = world.perform(operation, {token}, {folder(0), folder(1)});
    QVERIFY(request.ended);
    QCOMPARE(request.started, QStringList{token});
    QCOMPARE(request.outcomes.size(), 1);
    QVERIFY2(request.outcomes.constFirst().succeeded, qPrintable(request.outcomes.constFirst().error));

    // Apps are re-read from brew after anything that leaves them installed.
    QList<QStringList> expected{command};
    if (app && operation != u"uninstall") {
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

    const QList<LogCapture::Line> lines = log.lines();
    const QString kind = app ? u"app"_s : u"script"_s;
    const qsizetype begun = indexOf(lines, words.value(operation).value(2) + u' ' + token);
    const qsizetype done = indexOf(lines, u"%1 %2 %3"_s.arg(token, kind, words.value(operation).value(3)));
    QVERIFY2(begun >= 0 && begun < done, qPrintable(log.texts().join(u'\n')));
    QCOMPARE(lines.at(begun).type, QtInfoMsg);
    QCOMPARE(lines.at(done).type, QtInfoMsg);

    // Busy from the start to the end, and idle once it is over.
    QCOMPARE(static_cast<QList<QVariantList>>(busy), (QList<QVariantList>{{true}, {false}}));
    QVERIFY(recordChanged.contains(QVariantList{u"isBusy"_s}));
    QVERIFY(!record->isBusy());

    QCOMPARE(appUninstalled.size(), operation == u"uninstall" && app ? 1 : 0);
    if (app) {
        QCOMPARE(app->version(), after.at(2).toString());
    }
    // What the view shows is what was stored.
    Result<std::unique_ptr<ManagedObjectContext>> reader = world.store.newBackgroundContext();
    QVERIFY(reader);
    const Result<QList<ManagedObject*>> stored =
        reader.value()->fetch(record->entity().name(), u"token == %@"_s, {token});
    QVERIFY(stored && stored.value().size() == 1);
    for (ManagedObject* shown : {static_cast<ManagedObject*>(record), stored.value().constFirst()}) {
        QCOMPARE(shown->value(u"installed").toBool(), after.at(0).toBool());
        QCOMPARE(shown->value(u"outdated").toBool(), after.at(1).toBool());
    }
}

void TestPackageOperations::confirmation_data()
{
    QTest::addColumn<QString>("operation");
    QTest::addColumn<QStringList>("tokens");
    QTest::addColumn<QString>("busyToken");
    QTest::addColumn<QStringList>("keysSet");
    QTest::addColumn<QString>("answer"); // empty: no question may be asked
    QTest::addColumn<bool>("ticked");
    QTest::addColumn<QStringList>("texts"); // message, informative text
    QTest::addColumn<QVariant>("folder");   // the folder panel's answer: a path, or null when dismissed
    QTest::addColumn<QStringList>("run");   // the records a command runs for
    QTest::addColumn<QStringList>("keysAfter");

    const auto row = [](const char* name, const char* operation, const QStringList& tokens, const char* busy,
                        const QStringList& keysSet, const char* answer, bool ticked, const QStringList& texts,
                        const QStringList& run, const QStringList& keysAfter, const QVariant& folder = u"/chosen"_s) {
        QTest::newRow(name) << QString(operation) << tokens << QString(busy) << keysSet << QString(answer) << ticked
                            << texts << folder << run << keysAfter;
    };
    const QString reinstall = PreferenceKeys::SuppressReinstallAlert;
    const QString upgradeAll = PreferenceKeys::SuppressUpgradeAllAlert;
    const QString move = PreferenceKeys::SuppressMoveToAlert;
    const QStringList all{reinstall, upgradeAll, move};
    const QStringList installedApps{"firezone", "dropbox", "flameshot", "font-jost"};
    const QStringList upgradeAllText{"Are you sure you want to upgrade all the apps?"};
    const QStringList moveText{"Are you sure you want to move 'Firezone'?",
                               "'Firezone' will be reinstalled in the chosen location. The process may cause loss "
                               "of data."};

    row("uninstall three apps, one busy", "uninstall", {"dropbox", "firezone", "flameshot"}, "firezone", {},
        "Uninstall", false, {"Are you sure you want to uninstall 2 apps?"}, {"dropbox", "flameshot"}, {});
    row("uninstall three scripts, one busy", "uninstall", {"bash", "cmake", "go"}, "cmake", {}, "Uninstall", false,
        {"Are you sure you want to uninstall 2 scripts?"}, {"bash", "go"}, {});
    row("uninstall leaves out an app that is not installed", "uninstall", {"opera", "dropbox"}, "", {}, "Uninstall",
        false, {"Are you sure you want to uninstall 'Dropbox'?"}, {"dropbox"}, {});
    row("uninstall asks whatever is suppressed", "uninstall", {"dropbox"}, "", all, "Uninstall", true,
        {"Are you sure you want to uninstall 'Dropbox'?"}, {"dropbox"}, all);
    row("uninstall cancelled", "uninstall", {"dropbox", "flameshot"}, "", {}, "Cancel", false,
        {"Are you sure you want to uninstall 2 apps?"}, {}, {});
    row("reinstall two apps, not ticked", "reinstall", {"dropbox", "firezone"}, "", {}, "Reinstall", false,
        {"Are you sure you want to reinstall 2 apps?"}, {"dropbox", "firezone"}, {});
    row("reinstall a script, ticked", "reinstall", {"cmake"}, "", {}, "Reinstall", true,
        {"Are you sure you want to reinstall 'cmake'?"}, {"cmake"}, {reinstall});
    row("reinstall three scripts, ticked but cancelled", "reinstall", {"bash", "cmake", "go"}, "", {}, "Cancel", true,
        {"Are you sure you want to reinstall 3 scripts?"}, {}, {});
    row("reinstall an app, suppressed", "reinstall", {"dropbox"}, "", {reinstall}, "", false, {}, {"dropbox"},
        {reinstall});
    row("reinstall a script, suppressed by the same key", "reinstall", {"cmake"}, "", {reinstall}, "", false, {},
        {"cmake"}, {reinstall});
    row("move, ticked", "move", {"firezone"}, "", {}, "Move", true, moveText, {"firezone"}, {move});
    row("move, ticked but cancelled", "move", {"firezone"}, "", {}, "Cancel", true, moveText, {}, {});
    row("move, suppressed", "move", {"firezone"}, "", {move}, "", false, {}, {"firezone"}, {move});
    row("move, folder panel dismissed", "move", {"firezone"}, "", {}, "Move", false, moveText, {}, {}, QVariant());
    row("install in a folder, panel dismissed", "installInFolder", {"opera"}, "", {}, "", false, {}, {}, {},
        QVariant());
    row("install in a folder, empty answer", "installInFolder", {"font-fredoka"}, "", {}, "", false, {}, {}, {},
        QString());
    // Upgrade all acts on what the apps table arranges at that moment, never on what its search hides.
    row("upgrade all, ticked", "upgradeAll", installedApps, "", {}, "Upgrade All", true, upgradeAllText,
        {"firezone", "flameshot"}, {upgradeAll});
    row("upgrade all, a search shows one outdated app", "upgradeAll", {"firezone", "dropbox"}, "", {}, "Upgrade All",
        false, upgradeAllText, {"firezone"}, {});
    row("upgrade all, nothing outdated is shown", "upgradeAll", {"dropbox", "opera", "font-jost"}, "", {},
        "Upgrade All", false, upgradeAllText, {}, {});
    row("upgrade all, suppressed", "upgradeAll", installedApps, "", {upgradeAll}, "", false, {},
        {"firezone", "flameshot"}, {upgradeAll});
}

// The questions asked before a request, and what their answers, their remembered suppressions and the folder
// panel let run: busy records are left out, and cancelling or dismissing leaves everything as it was.
void TestPackageOperations::confirmation()
{
    QFETCH(QString, operation);
    QFETCH(QStringList, tokens);
    QFETCH(QString, busyToken);
    QFETCH(QStringList, keysSet);
    QFETCH(QString, answer);
    QFETCH(bool, ticked);
    QFETCH(QStringList, texts);
    QFETCH(QVariant, folder);
    QFETCH(QStringList, run);
    QFETCH(QStringList, keysAfter);

    const QHash<QString, QStringList> buttons{{u"uninstall"_s, {"Uninstall", "Cancel"}},
                                              {u"reinstall"_s, {"Reinstall", "Cancel"}},
                                              {u"move"_s, {"Move", "Cancel"}},
                                              {u"upgradeAll"_s, {"Upgrade All", "Cancel"}}};
    const QHash<QString, QString> alertKeys{{u"reinstall"_s, PreferenceKeys::SuppressReinstallAlert},
                                            {u"move"_s, PreferenceKeys::SuppressMoveToAlert},
                                            {u"upgradeAll"_s, PreferenceKeys::SuppressUpgradeAllAlert}};
    const QHash<QString, QStringList> command{{u"uninstall"_s, {"uninstall"}},
                                              {u"reinstall"_s, {"reinstall"}},
                                              {u"move"_s, {"reinstall", "--appdir", "/chosen"}},
                                              {u"upgradeAll"_s, {"upgrade"}}};

    World world;
    QVERIFY(world.setUp());
    if (!busyToken.isEmpty()) {
        world.package(busyToken)->setBusy(true);
    }
    for (const QString& key : std::as_const(keysSet)) {
        world.defaults.setValue(key, true);
    }
    if (!answer.isEmpty()) {
        world.alerter.answerNext(answer, ticked);
    }
    if (operation == u"move" || operation == u"installInFolder") {
        world.folders.answerNext(folder.isNull() ? std::nullopt : std::optional(folder.toString()));
    }
    QSignalSpy busy(&world.state, &ApplicationState::isBusyChanged);

    const Request request = world.perform(operation, tokens);
    QVERIFY(request.ended);
    QCOMPARE(world.alerter.shown().size(), texts.isEmpty() ? 0 : 1);
    if (!texts.isEmpty()) {
        const Alert& alert = world.alerter.shown().constFirst();
        QCOMPARE(alert.message, texts.at(0));
        QCOMPARE(alert.informativeText, texts.value(1));
        QCOMPARE(alert.buttons, buttons.value(operation));
        QCOMPARE(alert.suppressionKey, alertKeys.value(operation));
    }
    if (answer == u"Cancel") {
        QVERIFY(!world.defaults.isWritten(alertKeys.value(operation)));
    }
    for (const QString& key : Alerter::suppressedAlerts()) {
        QCOMPARE(world.defaults.boolValue(key), keysAfter.contains(key));
    }

    QList<QStringList> expected;
    for (const QString& token : std::as_const(run)) {
        const QStringList name = command.value(operation);
        expected.append(QStringList{name.at(0), world.app(token) ? "--cask" : "--formula", token} + name.mid(1));
    }
    std::sort(expected.begin(), expected.end());
    QCOMPARE(world.commandsRun(), expected);
    QCOMPARE(request.outcomes.size(), run.size());
    for (const Outcome& outcome : request.outcomes) {
        QVERIFY2(outcome.succeeded, qPrintable(outcome.error));
    }
    const bool folderAsked = (operation == u"move" || operation == u"installInFolder") && answer != u"Cancel";
    QCOMPARE(world.folders.asked().size(), folderAsked ? 1 : 0);
    if (run.isEmpty()) {
        QVERIFY(world.activityCenter.activities().isEmpty());
        QVERIFY(busy.isEmpty());
    }
    // Only what ran changed, hidden records included; an uninstalled or upgraded record is no longer outdated.
    for (const Record& record : records) {
        const bool ran = run.contains(record.token);
        QCOMPARE(world.package(record.token)->isBusy(), record.token == busyToken);
        QCOMPARE(world.package(record.token)->installed(), record.installed && !(ran && operation == u"uninstall"));
        QCOMPARE(world.package(record.token)->outdated(),
                 record.outdated && !(ran && operation != u"reinstall" && operation != u"move"));
    }
    QVERIFY(!world.state.isBusy());
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
    row("app uninstall", "uninstall", "firezone", failing("firezone"), "Uninstall", "uninstall");
    row("app upgrade after output", "upgrade", "firezone", exitAfterOutput, "", "upgrade");
    row("app reinstall", "reinstall", "firezone", failing("firezone"), "Reinstall", "reinstall");
    row("app move", "move", "firezone", failing("firezone"), "Move", "move");
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

    const Request request = world.perform(operation, {token});
    QVERIFY(request.ended);
    QCOMPARE(request.outcomes.size(), 1);
    QVERIFY(!request.outcomes.constFirst().succeeded);
    QCOMPARE(request.outcomes.constFirst().error, description);

    const QList<LogCapture::Line> lines = log.lines();
    const qsizetype line = indexOf(lines, logLine);
    QVERIFY2(line >= 0, qPrintable(log.texts().join(u'\n')));
    QCOMPARE(lines.at(line).type, QtWarningMsg);
    QVERIFY(std::ranges::none_of(lines, [&](const LogCapture::Line& each) {
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
    QVERIFY(!record->isBusy() && !world.state.isBusy());
}

// Several records give several commands, and one that fails stops none of the others.
void TestPackageOperations::independentFailures()
{
    World world;
    QVERIFY(world.setUp({{"failTokens", QJsonArray{"opera"}}}));
    world.alerter.answerNext(u"OK"_s);
    const QStringList tokens{u"corretto"_s, u"opera"_s, u"font-fredoka"_s};

    const Request request = world.perform(u"install"_s, tokens);
    QVERIFY(request.ended);
    QCOMPARE(request.started, tokens);
    QCOMPARE(world.commandsRun(), (QList<QStringList>{{"install", "--cask", "corretto"},
                                                      {"install", "--cask", "font-fredoka"},
                                                      {"install", "--cask", "opera"}}));
    QCOMPARE(world.activityCenter.activities().size(), 3);
    QCOMPARE(request.outcomes.size(), 3);
    for (const Outcome& outcome : request.outcomes) {
        QCOMPARE(outcome.succeeded, outcome.token != u"opera");
        QCOMPARE(world.app(outcome.token)->installed(), outcome.succeeded);
        QVERIFY(!world.app(outcome.token)->isBusy());
    }
    QCOMPARE(world.alerter.shown().size(), 1);
    QCOMPARE(world.alerter.shown().constFirst().message, u"Unable to install 'opera'"_s);
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
    QVERIFY(!quick->isBusy() && slow->isBusy() && !world.state.isBusy());

    // Opens once the askpass program reads the gate.
    int writer = -1;
    QTRY_VERIFY_WITH_TIMEOUT((writer = ::open(QFile::encodeName(gate).constData(), O_WRONLY | O_NONBLOCK)) >= 0,
                             timeout);
    QCOMPARE(::write(writer, "go\n", 3), ssize_t(3));
    ::close(writer);

    QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 2, timeout);
    QCOMPARE(finished.at(1).at(1).toString(), u"firezone"_s);
    QVERIFY2(finished.at(1).at(2).toBool(), qPrintable(finished.at(1).at(3).toString()));
    QVERIFY(!slow->isBusy() && !slow->outdated() && !world.state.isBusy());
}

void TestPackageOperations::usageEvents_data()
{
    QTest::addColumn<QString>("operation");
    QTest::addColumn<QString>("token");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("path");
    QTest::addColumn<QJsonObject>("props");

    const QJsonObject firezone{{"App", "firezone"}, {"Repository", "homebrew/cask"}};
    QTest::newRow("app move") << u"move"_s << u"firezone"_s << u"Move"_s << u"/main/apps"_s << firezone;
    QTest::newRow("app upgrade") << u"upgrade"_s << u"firezone"_s << u"Upgrade"_s << u"/main/apps"_s << firezone;
    QTest::newRow("script install") << u"install"_s << u"fzf"_s << u"Install"_s << u"/main/scripts"_s
                                    << QJsonObject{{"Script", "fzf"}, {"Repository", "homebrew/core"}};
}

// After a success the operation's usage event goes out.
void TestPackageOperations::usageEvents()
{
    QFETCH(QString, operation);
    QFETCH(QString, token);
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
    world.defaults.setValue(PreferenceKeys::AllowDataCollection, true);
    if (operation == u"move") {
        world.alerter.answerNext(u"Move"_s);
        world.folders.answerNext(u"/Users/me/Place"_s);
    }
    const Request request = world.perform(operation, {token});
    QVERIFY(request.ended);
    QVERIFY(request.outcomes.constFirst().succeeded);

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
