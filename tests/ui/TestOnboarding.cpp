#include "HomebrewFixture.h"
#include "LogCapture.h"
#include "ScriptedAlerter.h"
#include "activities/ApplicationState.h"
#include "catalogue/ArrayController.h"
#include "catalogue/CoreDataManager.h"
#include "catalogue/HomebrewSources.h"
#include "catalogue/Synchronisation.h"
#include "diagnostics/Analytics.h"
#include "foundation/Defaults.h"
#include "foundation/HttpClient.h"
#include "foundation/PreferenceKeys.h"
#include "operations/CompanionCommands.h"
#include "operations/HomebrewInstaller.h"
#include "operations/Repositories.h"
#include "operations/SystemPackageOpener.h"
#include "ui/CommandsInstallationProgressView.h"
#include "ui/CorvelCommandsWizardViewController.h"
#include "ui/HomebrewInstallWizardViewController.h"
#include "ui/OnboardingRequirementsViewController.h"
#include "ui/OnboardingSyncViewController.h"
#include "ui/OnboardingWelcomeViewController.h"
#include "ui/OnboardingWindowController.h"
#include "ui/PreferenceCheckBox.h"
#include "ui/SettingsRepositoriesViewController.h"

#include <QDir>
#include <QJsonArray>
#include <QLabel>
#include <QNetworkAccessManager>
#include <QProgressBar>
#include <QPushButton>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <algorithm>

using namespace Qt::StringLiterals;
using Outcome = CommandsInstallation::Outcome;
using LineState = CommandsInstallationProgressView::LineState;

namespace {

constexpr int timeout = 90000;

const QString checkingHomebrew = u"Checking Homebrew installation..."_s;
const QString checkingCommands = u"Checking commands installation..."_s;
const QString installingCommands = u"Installing commands..."_s;

enum class Machine {
    noHomebrew,
    withoutCommands,
    withCommands,
};

// The assistant over a throw-away store, preferences and simulated Homebrew whose catalogue the application reads
// from the simulator's own files, so that a synchronisation has something to find.
struct World : HomebrewFixture {
    QTemporaryDir folder;
    CoreDataManager store{folder.filePath(u"Corvel X.sqlite"_s)};
    Defaults defaults{folder.filePath(u"settings.ini"_s)};
    ApplicationState state{defaults};
    HttpClient httpClient;
    QNetworkAccessManager network;
    ScriptedAlerter alerter;
    SystemPackageOpener opener{u"/nonexistent/opener"_s};
    CompanionCommands companion{installation, commands};
    Homebrew::Installer installer{bundle, network, opener, folder.filePath(u"Installers"_s)};
    std::unique_ptr<Homebrew::Sources> sources;
    std::unique_ptr<Synchronisation> synchronisation;
    std::unique_ptr<OnboardingWindowController> window;
    QList<QUrl> opened;

    bool setUp(Machine machine, const QJsonObject& faults = {})
    {
        if (machine != Machine::noHomebrew) {
            QJsonArray taps{"homebrew/cask", "homebrew/core"};
            if (machine == Machine::withCommands) {
                taps.append(CompanionCommands::tapName);
            }
            const QJsonObject state{{"taps", taps},
                                    {"casks", QJsonObject{{"firezone", "1.5.0"}, {"dropbox", "264.0"}}},
                                    {"formulae", QJsonObject{{"bash", "5.1.4"}}},
                                    {"faults", faults}};
            if (!simulate(state) || !publishSimulatorCatalogue(folder.filePath(u"catalogue/api"_s))) {
                return false;
            }
        }
        defaults.setValue(PreferenceKeys::IsFirstRun, true);
        sources = std::make_unique<Homebrew::Sources>(commands, QUrl::fromLocalFile(folder.filePath(u"catalogue"_s)),
                                                      httpClient);
        synchronisation = std::make_unique<Synchronisation>(store, *sources, defaults, activityCenter);
        window = std::make_unique<OnboardingWindowController>(
            OnboardingWindowController::Context{defaults, installation, companion, alerter, *synchronisation, installer,
                                                CompanionCommands::repositoryPage(QUrl(u"https://github.com"_s))});
        window->requirementsPage()->setUrlOpener([this](const QUrl& url) {
            opened.append(url);
            return true;
        });
        window->show();
        window->activateWindow();
        return QTest::qWaitForWindowActive(window.get());
    }

    int tapCommands() const
    {
        int count = 0;
        if (brew) {
            for (const SimulatedHomebrew::Invocation& invocation : brew->invocations()) {
                count += invocation.arguments.value(0) == u"tap" ? 1 : 0;
            }
        }
        return count;
    }

    int records(const QString& entity)
    {
        ArrayController controller(store.viewContext(), entity);
        return controller.fetch() ? int(controller.arrangedObjects().size()) : -1;
    }

    OnboardingRequirementsViewController* requirements() const { return window->requirementsPage(); }
    OnboardingSyncViewController* sync() const { return window->synchronisationPage(); }
};

QList<LineState> lineStates(const CommandsInstallationProgressView* view)
{
    QList<LineState> states;
    for (int row = 0; row < view->count(); ++row) {
        states.append(view->lineState(row));
    }
    return states;
}

} // namespace

Q_DECLARE_METATYPE(Machine)

class TestOnboarding : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void welcomeBindsPermissions_data();
    void welcomeBindsPermissions();
    void requirements_data();
    void requirements();
    void synchronisation_data();
    void synchronisation();
    void firstRunToTheEnd();
    void leavingAsks_data();
    void leavingAsks();
    void commandsWizard_data();
    void commandsWizard();
};

void TestOnboarding::welcomeBindsPermissions_data()
{
    QTest::addColumn<QString>("key");

    QTest::newRow("usage data") << PreferenceKeys::AllowDataCollection;
    QTest::newRow("crash reports") << PreferenceKeys::AllowAutomaticCrashReportsCollection;
}

void TestOnboarding::welcomeBindsPermissions()
{
    QFETCH(QString, key);

    World world;
    QVERIFY(world.setUp(Machine::noHomebrew));
    auto* box = world.window->welcomePage()->findChild<PreferenceCheckBox*>(key);
    QVERIFY(box);
    QVERIFY(!box->isChecked());
    box->click();
    QVERIFY(world.defaults.isWritten(key));
    QVERIFY(world.defaults.boolValue(key));
    // Written elsewhere (e.g. the settings), the box follows.
    world.defaults.setValue(key, false);
    QVERIFY(!box->isChecked());
    // The welcome page asks nothing of the person: they may go on at once, but not back.
    QVERIFY(world.window->continueButton()->isEnabled());
    QVERIFY(world.window->backButton()->isHidden());
}

void TestOnboarding::requirements_data()
{
    QTest::addColumn<Machine>("machine");
    QTest::addColumn<QJsonObject>("faults");
    QTest::addColumn<QStringList>("expectedLines");
    QTest::addColumn<QList<LineState>>("expectedStates");
    QTest::addColumn<Outcome>("expectedOutcome");
    QTest::addColumn<int>("expectedTaps");

    const auto row = [](const char* name, Machine machine, const QJsonObject& faults, const QList<LineState>& states,
                        Outcome outcome, int taps) {
        const QStringList lines{checkingHomebrew, checkingCommands, installingCommands};
        QTest::newRow(name) << machine << faults << lines.first(states.size()) << states << outcome << taps;
    };
    const auto done = LineState::done;
    const auto failed = LineState::failed;
    row("commands installed now", Machine::withoutCommands, {}, {done, done, done}, Outcome::completed, 1);
    row("Homebrew missing", Machine::noHomebrew, {}, {failed}, Outcome::homebrewMissing, 0);
    row("tap fails", Machine::withoutCommands, {{"failCommands", QJsonArray{"tap"}}}, {done, done, failed},
        Outcome::failed, 1);
}

void TestOnboarding::requirements()
{
    QFETCH(Machine, machine);
    QFETCH(QJsonObject, faults);
    QFETCH(QStringList, expectedLines);
    QFETCH(QList<LineState>, expectedStates);
    QFETCH(Outcome, expectedOutcome);
    QFETCH(int, expectedTaps);

    World world;
    QVERIFY(world.setUp(machine, faults));
    if (expectedOutcome == Outcome::failed) {
        world.alerter.answerNext(u"OK"_s);
    }
    // Every line the step shows, as it shows it.
    QStringList seen;
    connect(
        world.requirements()->statusView()->model(), &QAbstractItemModel::rowsInserted, this,
        [&](const QModelIndex&, int first) { seen.append(world.requirements()->statusView()->item(first)->text()); });
    QTest::keyClick(world.window.get(), Qt::Key_Return);
    QCOMPARE(world.window->currentPage(), int(OnboardingWindowController::RequirementsPage));
    QTRY_VERIFY_WITH_TIMEOUT(world.requirements()->outcome().has_value(), timeout);

    const bool complete = expectedOutcome == Outcome::completed;
    QCOMPARE(*world.requirements()->outcome(), expectedOutcome);
    QCOMPARE(seen, expectedLines);
    QCOMPARE(world.requirements()->statusView()->lines(), expectedLines);
    QCOMPARE(lineStates(world.requirements()->statusView()), expectedStates);
    QCOMPARE(world.tapCommands(), expectedTaps);
    QCOMPARE(world.requirements()->isComplete(), complete);
    QCOMPARE(world.window->continueButton()->isEnabled(), complete);
    QVERIFY(world.window->backButton()->isEnabled());
    QCOMPARE(world.requirements()->installHomebrewButton()->isVisibleTo(world.window.get()),
             expectedOutcome == Outcome::homebrewMissing);
    QCOMPARE(world.requirements()->tryAgainButton()->isVisibleTo(world.window.get()), !complete);
    QCOMPARE(world.alerter.shown().size(), expectedOutcome == Outcome::failed ? 1 : 0);

    // The companion repository's page opens in the browser from here, whatever the outcome.
    world.requirements()->repositoryButton()->click();
    QCOMPARE(world.opened, QList<QUrl>{QUrl(u"https://github.com/tesselworks/homebrew-corvel-cmd"_s)});

    if (!complete) {
        // Return does not skip an unfinished step.
        QTest::keyClick(world.window.get(), Qt::Key_Return);
        QCOMPARE(world.window->currentPage(), int(OnboardingWindowController::RequirementsPage));
    }
    if (expectedOutcome == Outcome::homebrewMissing) {
        // The offered installation is a sheet over the window.
        world.requirements()->installHomebrewButton()->click();
        HomebrewInstallWizardViewController* sheet = world.requirements()->homebrewInstallSheet();
        QVERIFY(sheet);
        QTRY_VERIFY(sheet->isVisible());
        QCOMPARE(sheet->windowModality(), Qt::WindowModal);
        QCOMPARE(&sheet->installer(), &world.installer);
        QVERIFY(sheet->guidedInstallationButton()->isEnabled());

        // Homebrew arrives another way while the sheet is open; closing it looks again and finds it.
        QVERIFY(world.simulate(QJsonObject{{"taps", QJsonArray{"homebrew/core", CompanionCommands::tapName}}}));
        sheet->closeButton()->click();
        QTRY_VERIFY(!world.requirements()->homebrewInstallSheet());
        QTRY_VERIFY_WITH_TIMEOUT(world.requirements()->isComplete(), timeout);
        QCOMPARE(world.requirements()->statusView()->lines(), (QStringList{checkingHomebrew, checkingCommands}));
        QVERIFY(world.window->continueButton()->isEnabled());
        QVERIFY(world.requirements()->installHomebrewButton()->isHidden());
        return;
    }
    if (!complete) {
        return;
    }
    // Back and forth again does not run the step a second time.
    QTest::mouseClick(world.window->backButton(), Qt::LeftButton);
    QCOMPARE(world.window->currentPage(), int(OnboardingWindowController::WelcomePage));
    world.window->goForward();
    QCOMPARE(world.window->currentPage(), int(OnboardingWindowController::RequirementsPage));
    QVERIFY(!world.requirements()->commandsInstallation().isRunning());
    QCOMPARE(world.requirements()->statusView()->lines(), expectedLines);
    QCOMPARE(world.tapCommands(), expectedTaps);
}

void TestOnboarding::synchronisation_data()
{
    QTest::addColumn<QJsonObject>("faults");

    QTest::newRow("completes") << QJsonObject();
    QTest::newRow("fails, then tried again") << QJsonObject{{"failCommands", QJsonArray{"outdated"}}};
}

void TestOnboarding::synchronisation()
{
    QFETCH(QJsonObject, faults);

    World world;
    QVERIFY(world.setUp(Machine::withCommands, faults));
    OnboardingSyncViewController* page = world.sync();
    QList<int> values;
    connect(page->progress(), &QProgressBar::valueChanged, this, [&](int value) { values.append(value); });
    QSignalSpy processing(page, &OnboardingSyncViewController::processingChanged);

    world.window->showPage(OnboardingWindowController::SynchronisationPage);
    QVERIFY(page->isProcessing());
    QVERIFY(page->property("processing").toBool());
    QVERIFY(!world.window->continueButton()->isEnabled());
    QVERIFY(!world.window->backButton()->isEnabled());
    QTRY_VERIFY_WITH_TIMEOUT(!page->isProcessing(), timeout);
    QVERIFY(!processing.isEmpty());
    QCOMPARE(processing.constLast().at(0).toBool(), false);

    if (!faults.isEmpty()) {
        QCOMPARE(page->progressLabel()->text(), u"Unable to synchronise"_s);
        QCOMPARE(page->errorLabel()->text(), u"Process terminated with an error"_s);
        QVERIFY(page->errorLabel()->isVisibleTo(world.window.get()));
        QVERIFY(page->tryAgainButton()->isVisibleTo(world.window.get()));
        QVERIFY(!page->isComplete());
        QVERIFY(!world.window->continueButton()->isEnabled());
        // Coming back to the page does not start a pass by itself; Try Again does.
        world.window->goBack();
        world.window->goForward();
        QVERIFY(!page->isProcessing());
        QVERIFY(world.brew->setStateValue(u"faults"_s, QJsonObject()));
        values.clear();
        page->tryAgainButton()->click();
        QVERIFY(page->isProcessing());
        QVERIFY(page->errorLabel()->isHidden());
        QTRY_VERIFY_WITH_TIMEOUT(!page->isProcessing(), timeout);
    }

    QVERIFY(page->isComplete());
    QCOMPARE(page->progressLabel()->text(), u"Synchronisation completed"_s);
    QCOMPARE(page->progress()->value(), 100);
    QVERIFY(page->tryAgainButton()->isHidden());
    QVERIFY(world.window->continueButton()->isEnabled());
    // The bar went forward step by step, never back.
    QVERIFY(values.size() >= 3);
    QVERIFY(std::ranges::is_sorted(values));
    QCOMPARE(values.constLast(), 100);
    // The catalogue is there for the main window.
    QVERIFY(world.records(u"Cask"_s) > 0);
    QVERIFY(world.records(u"Formula"_s) > 0);
    QVERIFY(world.defaults.dateValue(PreferenceKeys::LastSyncTime).has_value());
}

void TestOnboarding::firstRunToTheEnd()
{
    World world;
    QVERIFY(world.setUp(Machine::withoutCommands));
    QSignalSpy finished(world.window.get(), &OnboardingWindowController::finished);

    QTest::keyClick(world.window.get(), Qt::Key_Return);
    QTRY_VERIFY_WITH_TIMEOUT(world.requirements()->isComplete(), timeout);
    QTest::keyClick(world.window.get(), Qt::Key_Return);
    QCOMPARE(world.window->currentPage(), int(OnboardingWindowController::SynchronisationPage));
    // The commands installed a moment ago are what the synchronisation needs.
    QTRY_VERIFY_WITH_TIMEOUT(world.sync()->isComplete(), timeout);
    QTest::keyClick(world.window.get(), Qt::Key_Return);
    QCOMPARE(world.window->currentPage(), int(OnboardingWindowController::DonePage));
    QCOMPARE(world.window->continueButton()->text(), u"Start Using Corvel X"_s);
    QVERIFY(world.defaults.boolValue(PreferenceKeys::IsFirstRun));
    QVERIFY(finished.isEmpty());

    world.window->continueButton()->click();
    QCOMPARE(finished.size(), 1);
    QVERIFY(world.defaults.isWritten(PreferenceKeys::IsFirstRun));
    QCOMPARE(world.defaults.value(PreferenceKeys::IsFirstRun).toBool(), false);
    QVERIFY(world.window->isFinished());
    QVERIFY(!world.window->isVisible());
    QVERIFY(world.alerter.shown().isEmpty());
}

void TestOnboarding::leavingAsks_data()
{
    QTest::addColumn<bool>("escape"); // Escape, else the window's close button

    QTest::newRow("Escape") << true;
    QTest::newRow("closed") << false;
}

// Continue Setup keeps the window open, so that leaving asks again; Quit then leaves.
void TestOnboarding::leavingAsks()
{
    QFETCH(bool, escape);

    World world;
    QVERIFY(world.setUp(Machine::noHomebrew));
    QSignalSpy quit(world.window.get(), &OnboardingWindowController::quitRequested);
    const auto leave = [&] {
        if (escape) {
            QTest::keyClick(world.window.get(), Qt::Key_Escape);
        } else {
            world.window->close();
        }
    };
    world.alerter.answerNext(u"Continue Setup"_s);
    leave();
    QCOMPARE(world.alerter.shown().size(), 1);
    world.alerter.answerNext(u"Quit"_s);
    QTRY_VERIFY((leave(), world.alerter.shown().size() == 2));
    QVERIFY(world.window->isVisible());
    QVERIFY(quit.isEmpty());
    for (const Alert& alert : world.alerter.shown()) {
        QCOMPARE(alert.message, u"Are you sure you want to quit Corvel X?"_s);
        QCOMPARE(alert.buttons, (QStringList{u"Continue Setup"_s, u"Quit"_s}));
    }
    QTRY_COMPARE(quit.size(), 1);
    QVERIFY(!world.window->isVisible());
    // Leaving early keeps the first run for next time.
    QVERIFY(world.defaults.boolValue(PreferenceKeys::IsFirstRun));
    QVERIFY(!world.window->isFinished());
}

void TestOnboarding::commandsWizard_data()
{
    QTest::addColumn<Machine>("machine");
    QTest::addColumn<QStringList>("expectedLines");
    QTest::addColumn<Outcome>("expectedOutcome");

    QTest::newRow("installs the commands")
        << Machine::withoutCommands << QStringList{checkingHomebrew, checkingCommands, installingCommands}
        << Outcome::completed;
    QTest::newRow("Homebrew missing") << Machine::noHomebrew << QStringList{checkingHomebrew}
                                      << Outcome::homebrewMissing;
}

// From the repositories settings, while the commands are missing.
void TestOnboarding::commandsWizard()
{
    QFETCH(Machine, machine);
    QFETCH(QStringList, expectedLines);
    QFETCH(Outcome, expectedOutcome);

    World world;
    QVERIFY(world.setUp(machine));
    Analytics analytics(world.defaults, world.bundle, world.network);
    Repositories repositories(world.store, world.commands, *world.sources, world.httpClient, QUrl(), world.state,
                              world.alerter, analytics);
    SettingsRepositoriesViewController tab(repositories, world.store.viewContext());
    tab.show();
    QVERIFY(QTest::qWaitForWindowExposed(&tab));
    QVERIFY(tab.installCommandsButton()->isHidden());
    tab.setCommandsInstallation(world.installation, world.companion, world.alerter);
    QVERIFY(tab.installCommandsButton()->isVisible());

    tab.installCommandsButton()->click();
    CorvelCommandsWizardViewController* wizard = tab.commandsWizard();
    QVERIFY(wizard);
    QSignalSpy installed(wizard, &CorvelCommandsWizardViewController::commandsInstalled);
    QTRY_VERIFY_WITH_TIMEOUT(wizard->outcome().has_value(), timeout);
    QCOMPARE(*wizard->outcome(), expectedOutcome);
    QCOMPARE(wizard->statusView()->lines(), expectedLines);
    const bool completed = expectedOutcome == Outcome::completed;
    QCOMPARE(wizard->statusView()->lineState(int(expectedLines.size()) - 1),
             completed ? LineState::done : LineState::failed);
    QCOMPARE(installed.size(), completed ? 1 : 0);
    QVERIFY(wizard->messageLabel()->isVisible());
    QCOMPARE(world.companion.installed(), completed);
    // Installed, the tab no longer offers it.
    QCOMPARE(tab.installCommandsButton()->isVisible(), !completed);

    wizard->closeButton()->click();
    QTRY_VERIFY(!tab.commandsWizard());
    QCOMPARE(tab.installCommandsButton()->isVisible(), !completed);
}

QTEST_MAIN(TestOnboarding)
#include "TestOnboarding.moc"
