#include "HomebrewFixture.h"
#include "LogCapture.h"
#include "activities/ActivityCenter.h"
#include "activities/Notifications.h"
#include "catalogue/Cask.h"
#include "catalogue/CoreDataManager.h"
#include "catalogue/Formula.h"
#include "catalogue/HomebrewSources.h"
#include "catalogue/Synchronisation.h"
#include "catalogue/Tap.h"
#include "foundation/Defaults.h"
#include "foundation/HttpClient.h"
#include "foundation/PreferenceKeys.h"

#include <QFile>
#include <QHttpServer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPointer>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QTest>
#include <memory>

using namespace Qt::StringLiterals;

namespace {

// A pass runs about ten brew children and fetches two catalogues; a loaded machine is not a failure.
constexpr int passTimeout = 60000;

const QString otherTap = u"localtest/tools"_s;

QByteArray readTestData(const QString& name)
{
    QFile file(QStringLiteral(CORVEL_TEST_DATA_DIR "/") + name);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// The simulated machine: core packages and some of the repository localtest/tools installed, a few outdated, an
// app installed from somewhere the library does not know, and a formula of that repository named like a core one.
QJsonObject machineState(const QString& formulaCatalogue)
{
    return {
        {"taps", QJsonArray{"homebrew/cask", "homebrew/core", otherTap, "tesselworks/corvel-cmd"}},
        {"catalogue", QJsonObject{{"formulae", formulaCatalogue},
                                  {"casks", QStringLiteral(CORVEL_TEST_DATA_DIR "/catalogue/cask-sample.json")}}},
        {"formulae",
         QJsonObject{
             {"git", "2.40.0"},
             {"curl", QJsonObject{{"version", "8.0.0"}, {"installedOnRequest", false}}},
             {"hello-app",
              QJsonObject{{"version", "1.0"}, {"tap", otherTap}, {"dependencies", QJsonArray{"hello-lib"}}}},
             {"hello-lib", QJsonObject{{"version", "1.0"}, {"tap", otherTap}, {"installedOnRequest", false}}},
             {"wget", QJsonObject{{"version", "1.0"}, {"tap", otherTap}}},
         }},
        {"casks", QJsonObject{{"dropbox", "180.0"},
                              {"flameshot", "12.0"},
                              {"hello-cask", QJsonObject{{"version", "0.9"}, {"tap", otherTap}}},
                              {"ghost-app", "3.0"}}},
        {"outdated", QJsonObject{{"formulae", QJsonObject{{"git", "2.45.0"}, {"hello-app", "1.1"}, {"wget", "1.1"}}},
                                 {"casks", QJsonObject{{"dropbox", "200.0"}, {"hello-cask", "1.0"}}}}},
    };
}

struct PassOutcome {
    bool succeeded = false;
    QString error;
    QList<SyncSteps::Step> steps;
};

// A store, preferences, the simulated brew and a synchronisation over them, all real and all throw-away.
struct World : HomebrewFixture {
    QTemporaryDir folder;
    CoreDataManager store{folder.filePath(u"Corvel X.sqlite"_s)};
    Defaults defaults{folder.filePath(u"settings.ini"_s)};
    HttpClient httpClient;
    std::unique_ptr<Homebrew::Sources> sources;
    std::unique_ptr<Synchronisation> synchronisation;

    // catalogueBase: where the public catalogue is served.
    bool setUp(const QUrl& catalogueBase)
    {
        // brew's own view of the core formulae lacks wget, so that the installed wget is the repository's one.
        QJsonArray formulae;
        for (const QJsonValue& formula :
             QJsonDocument::fromJson(readTestData(u"catalogue/formula-sample.json"_s)).array()) {
            if (formula["name"] != u"wget"_s) {
                formulae.append(formula);
            }
        }
        QFile catalogue(folder.filePath(u"brew-formula.json"_s));
        if (formulae.size() < 50 || !catalogue.open(QIODevice::WriteOnly) ||
            catalogue.write(QJsonDocument(formulae).toJson()) < 0) {
            return false;
        }
        catalogue.close();
        if (!simulate(machineState(catalogue.fileName()))) {
            return false;
        }
        // The repository also provides a wget of its own.
        QJsonObject records = brew->state()["tapRecords"].toObject();
        QJsonObject tools = records[otherTap].toObject();
        QJsonArray tapFormulae = tools["formulae"].toArray();
        QJsonObject wget = tapFormulae.first().toObject();
        wget["name"] = "wget";
        wget["full_name"] = otherTap + u"/wget"_s;
        tapFormulae.append(wget);
        tools["formulae"] = tapFormulae;
        records[otherTap] = tools;
        if (!brew->setStateValue(u"tapRecords"_s, records)) {
            return false;
        }
        sources = std::make_unique<Homebrew::Sources>(commands, catalogueBase, httpClient);
        synchronisation = std::make_unique<Synchronisation>(store, *sources, defaults, activityCenter);
        return true;
    }

    PassOutcome run(Synchronisation::Form form)
    {
        PassOutcome outcome;
        QSignalSpy finished(synchronisation.get(), &Synchronisation::finished);
        QSignalSpy steps(synchronisation.get(), &Synchronisation::stepChanged);
        if (!synchronisation->start(form) || !QTest::qWaitFor([&] { return !finished.isEmpty(); }, passTimeout)) {
            outcome.error = u"the pass did not start or did not end"_s;
            return outcome;
        }
        outcome.succeeded = finished.constFirst().at(0).toBool();
        outcome.error = finished.constFirst().at(1).toString();
        for (const QList<QVariant>& step : std::as_const(steps)) {
            outcome.steps.append(step.at(0).value<SyncSteps::Step>());
        }
        return outcome;
    }

    ManagedObjectContext* view() { return store.viewContext(); }

    // The records of entity with token, as the view context has them.
    QList<ManagedObject*> records(const QString& entity, const QString& token)
    {
        const auto found = view()->fetch(entity, u"token == %@"_s, {token});
        return found ? found.value() : QList<ManagedObject*>();
    }

    // The record of token in tap, or of the core libraries when tap is empty (their records may have no tap).
    ManagedObject* record(const QString& entity, const QString& token, const QString& tap = {})
    {
        const QList<ManagedObject*> found = records(entity, token);
        for (ManagedObject* object : found) {
            if ((object->value(u"tap").toString() == otherTap) == (tap == otherTap)) {
                return object;
            }
        }
        return nullptr;
    }
};

// A record's stored state as one line: its name (a repository's token), the flags that are set and the version.
QString describe(const ManagedObject* object)
{
    if (!object) {
        return u"absent"_s;
    }
    QStringList parts{object->entity().name() == u"Tap" ? object->token() : object->name()};
    for (const char* flag :
         {"installed", "outdated", "isLeaf", "official", "local", "hasFormulas", "hasCasks", "hasCommands"}) {
        if (object->value(QString::fromLatin1(flag)).toBool()) {
            parts.append(QString::fromLatin1(flag));
        }
    }
    if (const QString version = object->value(u"version").toString(); !version.isEmpty()) {
        parts.append(version);
    }
    return parts.join(u' ');
}

// One merge as the view context announced it: the entity, then + inserted, - deleted, ~ updated and the count.
QString describe(const ChangeSet& changes)
{
    QStringList parts;
    const auto add = [&](const QList<ObjectID>& ids, QChar kind) {
        if (!ids.isEmpty()) {
            parts.append(ids.constFirst().entity + u' ' + kind + QString::number(ids.size()));
        }
    };
    add(changes.inserted, u'+');
    add(changes.deleted, u'-');
    add(changes.updated, u'~');
    return parts.join(u", "_s);
}

bool isGone(const QPointer<ManagedObject>& object)
{
    return !object || object->isDeleted();
}

} // namespace

class TestSynchronisation : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanupTestCase();
    void fullPassMergesEachStepBeforeTheNext();
    void records_data();
    void records();
    void fastPassOnlyAddsFlags();
    void failingPass_data();
    void failingPass();
    void secondStartIsRefused();
    void destroyedWhileRunning();

private:
    QUrl catalogueBase() const
    {
        return QUrl(u"http://127.0.0.1:%1"_s.arg(m_server.servers().constFirst()->serverPort()));
    }
    std::unique_ptr<World> makeWorld();
    std::unique_ptr<World> synchronisedWorld(); // after a successful full pass

    QHttpServer m_server;
    QByteArray m_formulae;
    QByteArray m_casks;
    int m_catalogueRequests = 0;
    // records() checks one synchronised machine row by row.
    std::unique_ptr<World> m_synchronised;
};

void TestSynchronisation::initTestCase()
{
    m_server.route(u"/api/formula.json"_s, [this] {
        ++m_catalogueRequests;
        return QHttpServerResponse("application/json", m_formulae);
    });
    m_server.route(u"/api/cask.json"_s, [this] {
        ++m_catalogueRequests;
        return QHttpServerResponse("application/json", m_casks);
    });
    QVERIFY(m_server.listen(QHostAddress::LocalHost) != 0);
}

void TestSynchronisation::init()
{
    m_formulae = readTestData(u"catalogue/formula-sample.json"_s);
    m_casks = readTestData(u"catalogue/cask-sample.json"_s);
    QVERIFY(!m_formulae.isEmpty() && !m_casks.isEmpty());
}

void TestSynchronisation::cleanupTestCase()
{
    m_synchronised.reset();
}

std::unique_ptr<World> TestSynchronisation::makeWorld()
{
    auto world = std::make_unique<World>();
    return world->setUp(catalogueBase()) ? std::move(world) : nullptr;
}

std::unique_ptr<World> TestSynchronisation::synchronisedWorld()
{
    auto world = makeWorld();
    const PassOutcome outcome = world ? world->run(Synchronisation::Form::full) : PassOutcome();
    if (!outcome.succeeded) {
        qWarning("the first full pass failed: %s", qPrintable(outcome.error));
        return nullptr;
    }
    return world;
}

// Every batch reaches the view context before the next step is announced, and the pass is one activity.
void TestSynchronisation::fullPassMergesEachStepBeforeTheNext()
{
    const auto world = makeWorld();
    QVERIFY(world);
    LogCapture log;
    QStringList events;
    QList<double> progress;
    // Each merge names the last brew command run by then: the next step's command must not have started.
    connect(world->view(), &ManagedObjectContext::objectsDidChange, this, [&](const ChangeSet& changes) {
        events.append(describe(changes) + u" after "_s +
                      world->brew->invocations().constLast().arguments.mid(0, 2).join(u' '));
    });
    connect(world->synchronisation.get(), &Synchronisation::stepChanged, this, [&](SyncSteps::Step step, double at) {
        events.append(u"> "_s + SyncSteps::label(step));
        progress.append(at);
    });
    QSignalSpy hubSteps(&Notifications::instance(), &Notifications::synchronisationStepChanged);
    QSignalSpy hubFinished(&Notifications::instance(), &Notifications::synchronisationFinished);

    const PassOutcome outcome = world->run(Synchronisation::Form::full);
    QVERIFY2(outcome.succeeded, qPrintable(outcome.error));
    QCOMPARE(events, (QStringList{
                         "> Synchronising repositories...",
                         "Tap +4 after tap-info --installed",
                         "> Synchronising apps library...",
                         "Cask +212 after corvel-tap-content-info --casks",
                         // dropbox, flameshot, hello-cask; ghost-app is in no library
                         "> Synchronising installed apps...",
                         "Cask ~3 after info --installed",
                         "> Synchronising outdated apps...",
                         "Cask ~2 after outdated --casks",
                         // 63 of the public catalogue, 4 of localtest/tools
                         "> Synchronising scripts library...",
                         "Formula +67 after corvel-tap-content-info --formulae",
                         "> Synchronising installed scripts...",
                         "Formula ~5 after info --installed",
                         "> Synchronising source scripts...",
                         "Formula ~3 after leaves",
                         "> Synchronising outdated scripts...",
                         "Formula ~3 after outdated --formulae",
                         "> Synchronisation completed",
                     }));
    QCOMPARE(progress.constFirst(), 0.0);
    QCOMPARE(progress.constLast(), 1.0);
    QVERIFY(std::adjacent_find(progress.cbegin(), progress.cend(), std::greater_equal<double>()) == progress.cend());
    QCOMPARE(hubSteps.size(), progress.size());
    QCOMPARE(hubFinished.size(), 1);
    QCOMPARE(hubFinished.constFirst(), (QList<QVariant>{true, QString()}));

    QCOMPARE(world->synchronisation->progressLabel(), "Synchronisation completed");
    QVERIFY(!world->synchronisation->isRunning());
    QVERIFY(world->defaults.dateValue(PreferenceKeys::LastSyncTime).has_value());
    QCOMPARE(world->defaults.dateValue(PreferenceKeys::LastFastSyncTime),
             world->defaults.dateValue(PreferenceKeys::LastSyncTime));
    QTRY_COMPARE(world->activityCenter.activities().size(), 1);
    const auto& activity = world->activityCenter.activities().constFirst();
    QCOMPARE(activity->target() + u' ' + activity->action(), "Catalogue Synchronise");
    QCOMPARE(log.texts(), QStringList());
}

void TestSynchronisation::records_data()
{
    QTest::addColumn<QString>("entity");
    QTest::addColumn<QString>("token");
    QTest::addColumn<QString>("tap");
    QTest::addColumn<QString>("expected");

    const auto row = [](const char* name, const char* entity, const char* token, const QString& tap,
                        const char* expected) { QTest::newRow(name) << entity << token << tap << expected; };
    row("core app, installed and outdated", "Cask", "dropbox", {}, "Dropbox installed outdated 180.0");
    row("core app, not installed", "Cask", "1password", {}, "1Password");
    // brew lists outdated casks by bare token whatever their repository.
    row("app of a repository", "Cask", "hello-cask", otherTap, "Hello Cask installed outdated 0.9");
    row("installed app in no library", "Cask", "ghost-app", {}, "absent");

    row("core script, leaf and outdated", "Formula", "git", {}, "git installed outdated isLeaf");
    row("core script, dependency", "Formula", "curl", {}, "curl installed");
    // brew lists the leaves and outdated formulae of other repositories as owner/repository/token.
    row("repository script, leaf and outdated", "Formula", "hello-app", otherTap,
        "localtest/tools/hello-app installed outdated isLeaf");
    row("repository script, not installed", "Formula", "hello-local", otherTap, "localtest/tools/hello-local");
    row("repository namesake of a core script", "Formula", "wget", otherTap,
        "localtest/tools/wget installed outdated isLeaf");
    row("core script with an installed namesake", "Formula", "wget", {}, "wget");

    // tap-info gives no "local": such a repository counts as local.
    row("core repository", "Tap", "homebrew/core", {}, "homebrew/core installed official local hasFormulas");
    row("repository with packages", "Tap", otherTap.toLatin1().constData(), {},
        "localtest/tools installed local hasFormulas hasCasks");
    row("companion repository", "Tap", "tesselworks/corvel-cmd", {},
        "tesselworks/corvel-cmd installed local hasCommands");
}

void TestSynchronisation::records()
{
    QFETCH(QString, entity);
    QFETCH(QString, token);
    QFETCH(QString, tap);
    QFETCH(QString, expected);

    if (!m_synchronised) {
        m_synchronised = synchronisedWorld();
        QVERIFY(m_synchronised);
    }
    const ManagedObject* object = m_synchronised->record(entity, token, tap);
    QCOMPARE(describe(object), expected);
    const qsizetype namesakes = m_synchronised->records(entity, token).size();
    QCOMPARE(namesakes, entity == u"Formula" && token == u"wget" ? 2 : object ? 1 : 0);
}

// The fast form keeps the libraries and their objects, adds flags, and clears none: a formula uninstalled behind the
// application's back stays marked until the next full pass rebuilds the library.
void TestSynchronisation::fastPassOnlyAddsFlags()
{
    const auto world = synchronisedWorld();
    QVERIFY(world);
    const std::optional<QDateTime> fullDate = world->defaults.dateValue(PreferenceKeys::LastSyncTime);
    QVERIFY(fullDate);

    // Objects the tables hold, fetched once and never again.
    const QPointer<ManagedObject> git = world->record(u"Formula"_s, u"git"_s);
    const QPointer<ManagedObject> helloLocal = world->record(u"Formula"_s, u"hello-local"_s, otherTap);
    const QPointer<ManagedObject> flameshot = world->record(u"Cask"_s, u"flameshot"_s);
    const QPointer<ManagedObject> core = world->record(u"Tap"_s, u"homebrew/core"_s);
    QVERIFY(git && helloLocal && flameshot && core);

    QJsonObject state = world->brew->state();
    QJsonObject formulae = state["formulae"].toObject();
    formulae.remove(u"git"_s);
    formulae["hello-local"] = QJsonObject{{"version", "1.0"}, {"tap", otherTap}};
    state["formulae"] = formulae;
    state["outdated"] = QJsonObject{{"casks", QJsonObject{{"flameshot", "13.0"}}}};
    QVERIFY(world->brew->setState(state));
    const int requestsBefore = m_catalogueRequests;
    const qsizetype invocationsBefore = world->brew->invocations().size();
    QSignalSpy viewChanges(world->view(), &ManagedObjectContext::objectsDidChange);

    PassOutcome outcome = world->run(Synchronisation::Form::fast);
    QVERIFY2(outcome.succeeded, qPrintable(outcome.error));
    QCOMPARE(outcome.steps, (QList<SyncSteps::Step>{SyncSteps::taps, SyncSteps::installedApps, SyncSteps::outdatedApps,
                                                    SyncSteps::installedScripts, SyncSteps::sourceScripts,
                                                    SyncSteps::outdatedScripts, SyncSteps::completed}));
    QCOMPARE(m_catalogueRequests, requestsBefore);
    QStringList commands;
    const QList<SimulatedHomebrew::Invocation> invocations = world->brew->invocations().mid(invocationsBefore);
    for (const SimulatedHomebrew::Invocation& invocation : invocations) {
        commands.append(invocation.arguments.constFirst());
    }
    QCOMPARE(commands, (QStringList{"tap-info", "info", "outdated", "info", "leaves", "outdated"}));

    // Without a fetch of their own, the held objects show the new flags; the stale ones stay.
    QVERIFY(!isGone(git) && !isGone(helloLocal) && !isGone(flameshot));
    QCOMPARE(describe(git), "git installed outdated isLeaf");
    QCOMPARE(describe(helloLocal), "localtest/tools/hello-local installed isLeaf");
    QCOMPARE(describe(flameshot), "Flameshot installed outdated 12.0");
    QVERIFY(isGone(core));
    QVERIFY(!viewChanges.isEmpty());
    QCOMPARE(world->defaults.dateValue(PreferenceKeys::LastSyncTime), fullDate);
    QVERIFY(world->defaults.dateValue(PreferenceKeys::LastFastSyncTime) >= fullDate);

    outcome = world->run(Synchronisation::Form::full);
    QVERIFY2(outcome.succeeded, qPrintable(outcome.error));
    QVERIFY(isGone(git));
    QCOMPARE(describe(world->record(u"Formula"_s, u"git"_s)), "git");
}

void TestSynchronisation::failingPass_data()
{
    QTest::addColumn<Synchronisation::Form>("form");
    QTest::addColumn<QJsonObject>("change"); // top-level keys of the simulator's state
    QTest::addColumn<QByteArray>("casks");   // the public cask catalogue, unchanged when empty
    QTest::addColumn<QString>("error");      // part of the error
    QTest::addColumn<SyncSteps::Step>("failedIn");
    QTest::addColumn<bool>("appsRebuilt");
    QTest::addColumn<bool>("scriptsRebuilt");
    QTest::addColumn<QString>("dropbox"); // the app's record afterwards
    QTest::addColumn<QString>("git");     // the script's record afterwards

    const QJsonObject failOutdated{{"faults", QJsonObject{{"failCommands", QJsonArray{"outdated"}}}}};
    const QString brewFailed = u"Process terminated with an error"_s;
    const auto full = Synchronisation::Form::full;
    const auto fast = Synchronisation::Form::fast;
    // The earlier pass left dropbox outdated and git a leaf; a rebuilt library starts without flags.
    const QString dropboxBefore = u"Dropbox installed outdated 180.0"_s;
    const QString gitBefore = u"git installed outdated isLeaf"_s;

    QTest::newRow("outdated fails, full")
        << full << failOutdated << QByteArray() << brewFailed << SyncSteps::outdatedApps << true << false
        << "Dropbox installed 180.0" << gitBefore;
    QTest::newRow("outdated fails, fast") << fast << failOutdated << QByteArray() << brewFailed
                                          << SyncSteps::outdatedApps << false << false << dropboxBefore << gitBefore;
    QTest::newRow("leaves fails, full") << full
                                        << QJsonObject{{"faults", QJsonObject{{"failCommands", QJsonArray{"leaves"}}}}}
                                        << QByteArray() << brewFailed << SyncSteps::sourceScripts << true << true
                                        << dropboxBefore << "git installed";
    QTest::newRow("catalogue not JSON") << full << QJsonObject() << QByteArray(R"([{"token": "dropbox", "name": [)")
                                        << u"not valid JSON"_s << SyncSteps::appsCore << false << false << dropboxBefore
                                        << gitBefore;
    // Without the companion repository brew does not know the content command.
    QTest::newRow("content command missing")
        << full << QJsonObject{{"taps", QJsonArray{"homebrew/cask", "homebrew/core", otherTap}}} << QByteArray()
        << brewFailed << SyncSteps::appsCore << false << false << dropboxBefore << gitBefore;
}

// A failing step ends the pass there: what earlier steps wrote stays, nothing later runs, no date is written.
void TestSynchronisation::failingPass()
{
    QFETCH(Synchronisation::Form, form);
    QFETCH(QJsonObject, change);
    QFETCH(QByteArray, casks);
    QFETCH(QString, error);
    QFETCH(SyncSteps::Step, failedIn);
    QFETCH(bool, appsRebuilt);
    QFETCH(bool, scriptsRebuilt);
    QFETCH(QString, dropbox);
    QFETCH(QString, git);

    const auto world = synchronisedWorld();
    QVERIFY(world);
    world->defaults.remove(PreferenceKeys::LastSyncTime);
    world->defaults.remove(PreferenceKeys::LastFastSyncTime);
    const QPointer<ManagedObject> heldApp = world->record(u"Cask"_s, u"dropbox"_s);
    const QPointer<ManagedObject> heldScript = world->record(u"Formula"_s, u"git"_s);
    QVERIFY(heldApp && heldScript);

    for (auto it = change.constBegin(); it != change.constEnd(); ++it) {
        QVERIFY(world->brew->setStateValue(it.key(), it.value()));
    }
    if (!casks.isEmpty()) {
        m_casks = casks;
    }
    LogCapture log;
    const PassOutcome outcome = world->run(form);

    QVERIFY(!outcome.succeeded);
    QVERIFY2(outcome.error.contains(error), qPrintable(outcome.error));
    QCOMPARE(outcome.steps.constLast(), SyncSteps::failed);
    QCOMPARE(outcome.steps.value(outcome.steps.size() - 2), failedIn);
    QCOMPARE(world->synchronisation->currentStep(), SyncSteps::failed);
    QCOMPARE(world->synchronisation->progressLabel(), "Unable to synchronise");
    QVERIFY(log.contains(u"Unable to synchronise: "_s + outcome.error));
    QCOMPARE(log.contains(u"Unable to fetch core: "_s + outcome.error), !casks.isEmpty());
    QVERIFY(!world->defaults.dateValue(PreferenceKeys::LastSyncTime) &&
            !world->defaults.dateValue(PreferenceKeys::LastFastSyncTime));

    QCOMPARE(isGone(heldApp), appsRebuilt);
    QCOMPARE(isGone(heldScript), scriptsRebuilt);
    QCOMPARE(world->records(u"Cask"_s, u"dropbox"_s).size(), 1);
    QCOMPARE(describe(world->record(u"Cask"_s, u"dropbox"_s)), dropbox);
    QCOMPARE(describe(world->record(u"Formula"_s, u"git"_s)), git);
    // Either library is whole: rebuilt or as it was.
    const auto apps = world->view()->fetch(u"Cask"_s);
    const auto scripts = world->view()->fetch(u"Formula"_s);
    QVERIFY(apps && scripts);
    QCOMPARE(apps.value().size(), 212);
    QCOMPARE(scripts.value().size(), 67);
}

void TestSynchronisation::secondStartIsRefused()
{
    const auto world = makeWorld();
    QVERIFY(world);
    Synchronisation& synchronisation = *world->synchronisation;
    QCOMPARE(synchronisation.progressLabel(), QString());
    QSignalSpy finished(&synchronisation, &Synchronisation::finished);

    QVERIFY(synchronisation.start(Synchronisation::Form::fast));
    QVERIFY(synchronisation.isRunning());
    QCOMPARE(synchronisation.progressLabel(), "Synchronising repositories...");
    QVERIFY(!synchronisation.start(Synchronisation::Form::full));
    QVERIFY(!synchronisation.start(Synchronisation::Form::fast));
    QVERIFY(QTest::qWaitFor([&] { return !finished.isEmpty(); }, passTimeout));
    QVERIFY2(finished.constFirst().at(0).toBool(), qPrintable(finished.constFirst().at(1).toString()));
    QCOMPARE(world->activityCenter.activities().size(), 1);
    QCOMPARE(world->activityCenter.activities().constFirst()->action(), "Fast synchronise");

    // Once it has ended, another may start.
    QVERIFY(synchronisation.start(Synchronisation::Form::fast));
    QVERIFY(QTest::qWaitFor([&] { return finished.size() == 2; }, passTimeout));
}

// Going away mid-pass waits for the brew command under way, then the pass stops without running another step.
void TestSynchronisation::destroyedWhileRunning()
{
    const auto world = makeWorld();
    QVERIFY(world);
    // Slow output, so that the first command is likely still under way.
    QVERIFY(world->brew->setStateValue(u"faults"_s, QJsonObject{{"delayMs", 20}}));
    LogCapture log;
    QSignalSpy finished(world->synchronisation.get(), &Synchronisation::finished);
    QVERIFY(world->synchronisation->start(Synchronisation::Form::full));
    world->synchronisation.reset();

    QVERIFY(finished.isEmpty());
    QVERIFY(world->brew->invocations().size() <= 1);
    QVERIFY(log.contains(u"Unable to synchronise: The synchronisation was stopped before it ended"_s));
}

QTEST_GUILESS_MAIN(TestSynchronisation)
#include "TestSynchronisation.moc"
