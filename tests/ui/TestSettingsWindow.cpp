// The settings window over real parts (preferences file, store, simulated brew, loopback GitHub): its tab memory,
// the general and advanced tabs, and the repositories tab with its add sheet.
#include "HomebrewFixture.h"
#include "LogCapture.h"
#include "ScriptedAlerter.h"
#include "activities/ApplicationState.h"
#include "catalogue/CoreDataManager.h"
#include "catalogue/HomebrewSources.h"
#include "catalogue/Synchronisation.h"
#include "diagnostics/Analytics.h"
#include "foundation/Defaults.h"
#include "foundation/HttpClient.h"
#include "foundation/PreferenceKeys.h"
#include "operations/Maintenance.h"
#include "operations/Repositories.h"
#include "ui/AddRepositorySheet.h"
#include "ui/AssetIcons.h"
#include "ui/PreferenceCheckBox.h"
#include "ui/SettingsAdvancedViewController.h"
#include "ui/SettingsGeneralSyncViewController.h"
#include "ui/SettingsGeneralViewController.h"
#include "ui/SettingsRepositoriesViewController.h"
#include "ui/SettingsWindowController.h"

#include <QAbstractButton>
#include <QApplication>
#include <QClipboard>
#include <QHttpServer>
#include <QJsonArray>
#include <QJsonObject>
#include <QLabel>
#include <QLineEdit>
#include <QNetworkAccessManager>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QSignalSpy>
#include <QTabBar>
#include <QTabWidget>
#include <QTemporaryDir>
#include <QTest>
#include <QTreeWidget>

namespace {

// brew children and loopback requests; generous, because a loaded machine is not a failure.
constexpr int finishTimeout = 60000;

const QString toolsTap = QStringLiteral("localtest/tools");

// Everything the window works with, real and throw-away. The bundle has no agent definitions, so the maintenance
// tab never reaches the system's service manager here.
struct World : HomebrewFixture {
    QTemporaryDir folder;
    CoreDataManager store{folder.filePath("Corvel X.sqlite")};
    Defaults defaults{folder.filePath("settings.ini")};
    ApplicationState state{defaults};
    HttpClient httpClient;
    Homebrew::Sources sources{commands, QUrl(), httpClient};
    ScriptedAlerter alerter;
    QNetworkAccessManager network;
    Bundle analyticsBundle{folder.path()};
    Analytics analytics{defaults, analyticsBundle, network};
    Repositories repositories;
    Synchronisation synchronisation{store, sources, defaults, activityCenter};
    Maintenance maintenance{commands, defaults, alerter};

    explicit World(const QUrl& githubApi)
        : repositories(store, commands, sources, httpClient, githubApi, state, alerter, analytics)
    {}

    SettingsWindowController::Context context()
    {
        return {defaults, synchronisation, repositories, store.viewContext(), maintenance, bundle, installation};
    }

    // A stored repository record, as a synchronisation leaves it.
    bool seedTap(const QString& name)
    {
        auto context = store.newBackgroundContext();
        if (!context) {
            return false;
        }
        ManagedObject* record = context.value()->insertNewObject("Tap");
        record->setValue(u"token", name);
        record->setValue(u"user", name.section(u'/', 0, 0));
        record->setValue(u"repo", name.section(u'/', 1, 1));
        record->setValue(u"installed", true);
        return context.value()->save().ok();
    }

    QList<QStringList> vectors() const
    {
        QList<QStringList> list;
        if (brew) {
            for (const SimulatedHomebrew::Invocation& invocation : brew->invocations()) {
                list.append(invocation.arguments);
            }
        }
        return list;
    }
};

QStringList column(const QTreeWidget* list, int index)
{
    QStringList texts;
    for (int row = 0; row < list->topLevelItemCount(); ++row) {
        texts.append(list->topLevelItem(row)->text(index));
    }
    return texts;
}

QStringList infoLines(const LogCapture& log)
{
    QStringList texts;
    for (const LogCapture::Line& line : log.lines()) {
        if (line.type == QtInfoMsg) {
            texts.append(line.text);
        }
    }
    return texts;
}

// On its box: a check box wider than its text ignores clicks beside the text.
void clickCheckBox(QAbstractButton* box)
{
    QTest::mouseClick(box, Qt::LeftButton, {}, QPoint(4, box->height() / 2));
}

// Shown and exposed, on the given tab when one is named (before exposure, as a restored window would be).
bool exposed(SettingsWindowController& window, int tab = -1)
{
    window.show();
    if (tab >= 0) {
        window.setCurrentTab(tab);
    }
    return QTest::qWaitForWindowExposed(&window);
}

} // namespace

class TestSettingsWindow : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void tabs_data();
    void tabs();
    void unusableTabIndexShowsGeneral_data();
    void unusableTabIndexShowsGeneral();
    void remembersTheChosenTab_data();
    void remembersTheChosenTab();
    void appearance_data();
    void appearance();
    void preferenceCheckBoxes_data();
    void preferenceCheckBoxes();
    void synchronisation_data();
    void synchronisation();
    void restoreAlerts_data();
    void restoreAlerts();
    void diagnosticInformation();
    void addSheetAcceptsOnlyRepositoryNames_data();
    void addSheetAcceptsOnlyRepositoryNames();
    void addsThroughTheSheet();
    void removesAfterConfirmation_data();
    void removesAfterConfirmation();
    void officialRepositories();

private:
    QUrl githubApi() const { return QUrl(QStringLiteral("http://127.0.0.1:%1/github").arg(m_port)); }

    QHttpServer m_github;
    quint16 m_port = 0;
};

void TestSettingsWindow::initTestCase()
{
    m_github.route("/github/repos/<arg>/<arg>", [](const QString& owner, const QString& repository) {
        if (owner == u"localtest" && repository == u"homebrew-tools") {
            return QHttpServerResponse("application/json", R"({"description": "Tools for tests"})");
        }
        return QHttpServerResponse("application/json", R"({"message": "Not Found"})",
                                   QHttpServerResponse::StatusCode::NotFound);
    });
    m_port = m_github.listen(QHostAddress::LocalHost);
    QVERIFY(m_port != 0);
}

void TestSettingsWindow::tabs_data()
{
    QTest::addColumn<int>("index");
    QTest::addColumn<QString>("label"); // the icon is named after it, in lower case

    QTest::newRow("general") << 0 << "General";
    QTest::newRow("repositories") << 1 << "Repositories";
    QTest::newRow("maintenance") << 2 << "Maintenance";
    QTest::newRow("advanced") << 3 << "Advanced";
}

void TestSettingsWindow::tabs()
{
    QFETCH(int, index);
    QFETCH(QString, label);

    World world(githubApi());
    SettingsWindowController window(world.context());
    QCOMPARE(window.tabWidget()->count(), 4);
    QCOMPARE(window.tabLabel(index), label);
    QVERIFY(AssetIcons::contains("Icons/Settings/" + label.toLower()));
    QVERIFY(!window.tabWidget()->tabIcon(index).isNull());
}

void TestSettingsWindow::unusableTabIndexShowsGeneral_data()
{
    QTest::addColumn<QVariant>("stored"); // invalid: never written

    QTest::newRow("never chosen") << QVariant();
    QTest::newRow("one past the tabs") << QVariant(4);
    QTest::newRow("negative") << QVariant(-1);
}

void TestSettingsWindow::unusableTabIndexShowsGeneral()
{
    QFETCH(QVariant, stored);

    World world(githubApi());
    if (stored.isValid()) {
        world.defaults.setValue(PreferenceKeys::SettingsSelectedTabIndex, stored);
    }
    LogCapture log;
    SettingsWindowController window(world.context());
    QVERIFY(exposed(window));

    QCOMPARE(window.currentTab(), 0);
    QCOMPARE(log.texts().filter("Restore settings tab"), QStringList());
    // An ignored index is left as it was, not overwritten by the window.
    QCOMPARE(world.defaults.isWritten(PreferenceKeys::SettingsSelectedTabIndex), stored.isValid());
    if (stored.isValid()) {
        QCOMPARE(world.defaults.integerValue(PreferenceKeys::SettingsSelectedTabIndex), stored.toInt());
    }
}

void TestSettingsWindow::remembersTheChosenTab_data()
{
    QTest::addColumn<int>("chosen");
    QTest::addColumn<QString>("label");

    QTest::newRow("repositories") << 1 << "Repositories";
    QTest::newRow("back to general") << 0 << "General";
}

void TestSettingsWindow::remembersTheChosenTab()
{
    QFETCH(int, chosen);
    QFETCH(QString, label);

    World world(githubApi());
    world.defaults.setValue(PreferenceKeys::SettingsSelectedTabIndex, chosen == 0 ? 2 : 0);
    {
        SettingsWindowController window(world.context());
        QVERIFY(exposed(window));
        QTabBar* bar = window.tabWidget()->tabBar();
        QTest::mouseClick(bar, Qt::LeftButton, {}, bar->tabRect(chosen).center());
        QCOMPARE(window.currentTab(), chosen);
        QCOMPARE(world.defaults.integerValue(PreferenceKeys::SettingsSelectedTabIndex), chosen);
    }

    LogCapture log;
    SettingsWindowController reopened(world.context());
    QVERIFY(exposed(reopened));
    QCOMPARE(reopened.currentTab(), chosen);
    QCOMPARE(infoLines(log).filter("Restore settings tab"), QStringList{"Restore settings tab to: " + label});

    // The tab follows the preference while the window is open, too.
    const int other = (chosen + 1) % 4;
    world.defaults.setValue(PreferenceKeys::SettingsSelectedTabIndex, other);
    QTRY_COMPARE(reopened.currentTab(), other);
}

void TestSettingsWindow::appearance_data()
{
    QTest::addColumn<int>("before");
    QTest::addColumn<int>("chosen");
    QTest::addColumn<QString>("logged");
    QTest::addColumn<bool>("darkWindow");

    QTest::newRow("light") << 0 << int(Appearance::Light) << "Changing appearance to: Light Mode" << false;
    QTest::newRow("dark") << 0 << int(Appearance::Dark) << "Changing appearance to: Dark Mode" << true;
    QTest::newRow("system after dark") << int(Appearance::Dark) << int(Appearance::SystemDefault)
                                       << "Changing appearance to: System Default" << false;
}

void TestSettingsWindow::appearance()
{
    QFETCH(int, before);
    QFETCH(int, chosen);
    QFETCH(QString, logged);
    QFETCH(bool, darkWindow);

    World world(githubApi());
    world.defaults.setValue(PreferenceKeys::Appearance, before);
    Appearance::apply(Appearance::fromValue(before));
    SettingsWindowController window(world.context());
    QVERIFY(exposed(window));
    SettingsGeneralViewController* general = window.generalViewController();
    QVERIFY(general->appearanceButton(Appearance::fromValue(before))->isChecked());
    LogCapture log;

    QTest::mouseClick(general->appearanceButton(Appearance::fromValue(chosen)), Qt::LeftButton);

    QCOMPARE(log.texts(), QStringList{logged});
    QCOMPARE(log.lines().first().type, QtInfoMsg);
    QCOMPARE(world.defaults.integerValue(PreferenceKeys::Appearance), chosen);
    QCOMPARE(QApplication::palette().color(QPalette::Window).lightness() < 128, darkWindow);
    QVERIFY(general->appearanceButton(Appearance::fromValue(chosen))->isChecked());

    // The choice is there when the window opens again.
    SettingsWindowController reopened(world.context());
    QVERIFY(reopened.generalViewController()->appearanceButton(Appearance::fromValue(chosen))->isChecked());
    Appearance::apply(Appearance::SystemDefault);
}

void TestSettingsWindow::preferenceCheckBoxes_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<bool>("registered");

    QTest::newRow("sync at launch, on by default") << PreferenceKeys::SyncOnAppLaunch << true;
    QTest::newRow("usage data") << PreferenceKeys::AllowDataCollection << false;
    QTest::newRow("crash reports") << PreferenceKeys::AllowAutomaticCrashReportsCollection << false;
    QTest::newRow("beta updates, on by default") << PreferenceKeys::ReceiveBetaUpdates << true;
}

void TestSettingsWindow::preferenceCheckBoxes()
{
    QFETCH(QString, key);
    QFETCH(bool, registered);

    World world(githubApi());
    world.defaults.registerDefaults({{key, registered}});
    SettingsWindowController window(world.context());
    QVERIFY(exposed(window));
    auto* box = window.generalViewController()->findChild<PreferenceCheckBox*>(key);
    QVERIFY(box);
    QCOMPARE(box->isChecked(), registered);

    clickCheckBox(box);
    QVERIFY(world.defaults.isWritten(key));
    QCOMPARE(world.defaults.boolValue(key), !registered);
    clickCheckBox(box);
    QCOMPARE(world.defaults.boolValue(key), registered);

    world.defaults.setValue(key, !registered);
    QTRY_COMPARE(box->isChecked(), !registered);
}

void TestSettingsWindow::synchronisation_data()
{
    QTest::addColumn<QJsonObject>("faults");
    QTest::addColumn<QString>("endLabel");

    QTest::newRow("fast pass") << QJsonObject() << "Synchronisation completed";
    QTest::newRow("failing pass") << QJsonObject{{"failCommands", QJsonArray{"leaves"}}} << "Unable to synchronise";
}

void TestSettingsWindow::synchronisation()
{
    QFETCH(QJsonObject, faults);
    QFETCH(QString, endLabel);

    World world(githubApi());
    QVERIFY(world.simulate(QJsonObject{{"faults", faults}}));
    SettingsWindowController window(world.context());
    QVERIFY(exposed(window));
    SettingsGeneralSyncViewController* sync = window.generalViewController()->syncViewController();
    const auto buttonsEnabled = [sync] {
        return std::pair(sync->syncButton()->isEnabled(), sync->fastSyncButton()->isEnabled());
    };
    QCOMPARE(buttonsEnabled(), std::pair(true, true));
    QCOMPARE(sync->lastSyncLabel()->text(), "Never");
    QCOMPARE(sync->lastFastSyncLabel()->text(), "Never");
    QSignalSpy finished(&world.synchronisation, &Synchronisation::finished);

    QTest::mouseClick(sync->fastSyncButton(), Qt::LeftButton);

    // No second pass can be asked for while one runs.
    QVERIFY(sync->isProcessing());
    QCOMPARE(buttonsEnabled(), std::pair(false, false));
    QCOMPARE(sync->progressLabel()->text(), "Synchronising repositories...");

    QVERIFY(finished.wait(finishTimeout));
    QCOMPARE(buttonsEnabled(), std::pair(true, true));
    QCOMPARE(sync->progressLabel()->text(), endLabel);
    const bool succeeded = faults.isEmpty();
    QCOMPARE(sync->progressBar()->value(), sync->progressBar()->maximum());
    // A fast pass dates only the last synchronisation of either form; a failed one dates nothing.
    QCOMPARE(sync->lastSyncLabel()->text(), "Never");
    QTRY_COMPARE(sync->lastFastSyncLabel()->text() != "Never", succeeded);
    if (succeeded) {
        QCOMPARE(sync->lastFastSyncLabel()->text(), SettingsGeneralSyncViewController::dateText(
                                                        world.defaults.dateValue(PreferenceKeys::LastFastSyncTime)));
    }
}

void TestSettingsWindow::restoreAlerts_data()
{
    QTest::addColumn<QStringList>("suppressed");

    QTest::newRow("none suppressed") << QStringList();
    QTest::newRow("all three") << QStringList{PreferenceKeys::SuppressReinstallAlert,
                                              PreferenceKeys::SuppressUpgradeAllAlert,
                                              PreferenceKeys::SuppressMoveToAlert};
}

void TestSettingsWindow::restoreAlerts()
{
    QFETCH(QStringList, suppressed);

    World world(githubApi());
    for (const QString& key : suppressed) {
        world.defaults.setValue(key, true);
    }
    world.defaults.setValue(PreferenceKeys::AllowDataCollection, true);
    SettingsWindowController window(world.context());
    QVERIFY(exposed(window, SettingsWindowController::AdvancedTab));
    SettingsAdvancedViewController* advanced = window.advancedViewController();
    QCOMPARE(advanced->restoreAlertsMessage()->text(), QString());

    QTest::mouseClick(advanced->restoreAlertsButton(), Qt::LeftButton);

    for (const QString& key : {PreferenceKeys::SuppressReinstallAlert, PreferenceKeys::SuppressUpgradeAllAlert,
                               PreferenceKeys::SuppressMoveToAlert}) {
        QVERIFY2(!world.defaults.isWritten(key), qPrintable(key));
        QVERIFY(!world.defaults.boolValue(key));
    }
    QCOMPARE(advanced->restoreAlertsMessage()->text(), "All the alerts have been restored");
    QVERIFY(advanced->restoreAlertsMessage()->isVisible());
    // Other preferences are none of its business.
    QVERIFY(world.defaults.boolValue(PreferenceKeys::AllowDataCollection));
}

void TestSettingsWindow::diagnosticInformation()
{
    World world(githubApi());
    QVERIFY(world.simulate());
    SettingsWindowController window(world.context());
    SettingsAdvancedViewController* advanced = window.advancedViewController();
    QSignalSpy shown(advanced, &SettingsAdvancedViewController::diagnosticInformationShown);
    QVERIFY(exposed(window));
    QVERIFY(shown.count() == 1 || shown.wait(finishTimeout));

    QPlainTextEdit* view = advanced->diagnosticInformationView();
    QVERIFY(view->isReadOnly());
    const QStringList lines = view->toPlainText().split(u'\n');
    QStringList keys;
    for (const QString& line : lines) {
        keys.append(line.section(QStringLiteral(": "), 0, 0));
    }
    QCOMPARE(keys, (QStringList{"Version", "Build", "OS Version", "System Architecture", "Homebrew Version",
                                "Homebrew Commands Version"}));
    // The bundle of the test has no version: said so rather than left blank.
    QCOMPARE(lines.first(), "Version: Unknown");
    const std::optional<QString> homebrewVersion = world.installation.homebrewVersion();
    QVERIFY(homebrewVersion);
    QVERIFY(lines.contains("Homebrew Version: " + *homebrewVersion));

    QApplication::clipboard()->clear();
    QVERIFY(advanced->copyButton()->isEnabled());
    QTest::mouseClick(advanced->copyButton(), Qt::LeftButton);
    QCOMPARE(QApplication::clipboard()->text(), view->toPlainText());
}

void TestSettingsWindow::addSheetAcceptsOnlyRepositoryNames_data()
{
    QTest::addColumn<QString>("typed");
    QTest::addColumn<bool>("accepted");

    QTest::newRow("dashes and underscores") << "some-owner/my_tap2" << true;
    QTest::newRow("surrounding blanks") << "  localtest/tools " << true;
    QTest::newRow("name only") << "tools" << false;
    QTest::newRow("url") << "https://github.com/a/b" << false;
    QTest::newRow("accented") << "ówner/tools" << false;
}

void TestSettingsWindow::addSheetAcceptsOnlyRepositoryNames()
{
    QFETCH(QString, typed);
    QFETCH(bool, accepted);

    World world(githubApi());
    QWidget owner;
    owner.show();
    QVERIFY(QTest::qWaitForWindowExposed(&owner));
    AddRepositorySheet sheet(world.repositories, &owner);
    QCOMPARE(sheet.windowModality(), Qt::WindowModal);
    sheet.open();
    QVERIFY(QTest::qWaitForWindowExposed(&sheet));
    QVERIFY(!sheet.addButton()->isEnabled());
    QSignalSpy started(&world.repositories, &Repositories::started);
    QSignalSpy finished(&world.repositories, &Repositories::finished);

    // Pasted, as names usually arrive (typing cannot produce every character here).
    sheet.nameField()->insert(typed);
    QCOMPARE(sheet.addButton()->isEnabled(), accepted);
    if (accepted) {
        // The real brew is never asked: without a simulated Homebrew the tap fails at once and says so.
        world.alerter.answerNext("OK");
    }
    QTest::keyClick(sheet.nameField(), Qt::Key_Return);

    QCOMPARE(sheet.isVisible(), !accepted);
    QCOMPARE(started.size(), accepted ? 1 : 0);
    if (accepted) {
        QCOMPARE(started.first().at(1).toString(), typed.trimmed());
        QVERIFY(finished.wait(finishTimeout));
    } else {
        QCOMPARE(finished.size(), 0);
    }
}

void TestSettingsWindow::addsThroughTheSheet()
{
    World world(githubApi());
    QVERIFY(world.simulate());
    SettingsWindowController window(world.context());
    QVERIFY(exposed(window, SettingsWindowController::RepositoriesTab));
    SettingsRepositoriesViewController* tab = window.repositoriesViewController();
    QCOMPARE(column(tab->repositoriesList(), 0), QStringList());
    QVERIFY(tab->progressLabel()->isHidden());

    QTest::mouseClick(tab->addButton(), Qt::LeftButton);
    AddRepositorySheet* sheet = tab->addSheet();
    QVERIFY(sheet);
    QVERIFY(QTest::qWaitForWindowExposed(sheet));
    QTest::keyClicks(sheet->nameField(), toolsTap);
    QSignalSpy finished(&world.repositories, &Repositories::finished);
    QTest::mouseClick(sheet->addButton(), Qt::LeftButton);

    QCOMPARE(tab->progressLabel()->text(), "Adding repository...");
    QVERIFY(tab->progressLabel()->isVisible());
    QVERIFY(tab->progressIndicator()->isVisible());
    QTRY_VERIFY(!tab->addSheet());

    QVERIFY(finished.wait(finishTimeout));
    QVERIFY2(finished.first().at(2).toBool(), qPrintable(finished.first().at(3).toString()));
    QVERIFY(tab->progressLabel()->isHidden());
    QVERIFY(tab->progressIndicator()->isHidden());
    QCOMPARE(world.vectors().first(), (QStringList{"tap", toolsTap}));
    QTRY_COMPARE(column(tab->repositoriesList(), 0), QStringList{toolsTap});
    // Without a description of its own, the repository is described as on GitHub.
    QTRY_COMPARE_WITH_TIMEOUT(column(tab->repositoriesList(), 1), QStringList{"Tools for tests"}, finishTimeout);
}

void TestSettingsWindow::removesAfterConfirmation_data()
{
    QTest::addColumn<QString>("answer");

    QTest::newRow("confirmed") << "Uninstall";
    QTest::newRow("declined") << "Cancel";
}

void TestSettingsWindow::removesAfterConfirmation()
{
    QFETCH(QString, answer);

    World world(githubApi());
    QVERIFY(world.simulate(QJsonObject{{"taps", QJsonArray{"homebrew/core", "homebrew/cask", toolsTap}}}));
    QVERIFY(world.seedTap(toolsTap));
    QVERIFY(world.seedTap("homebrew/core"));
    SettingsWindowController window(world.context());
    QVERIFY(exposed(window, SettingsWindowController::RepositoriesTab));
    SettingsRepositoriesViewController* tab = window.repositoriesViewController();
    QCOMPARE(column(tab->repositoriesList(), 0), (QStringList{"homebrew/core", toolsTap}));
    // An official repository is described by the program itself.
    QCOMPARE(tab->repositoriesList()->topLevelItem(0)->text(1), "Primary scripts library");
    QVERIFY(!tab->removeButton()->isEnabled());
    QVERIFY(tab->selectRepository(toolsTap));
    QVERIFY(tab->removeButton()->isEnabled());
    QSignalSpy finished(&world.repositories, &Repositories::finished);
    QSignalSpy cancelled(&world.repositories, &Repositories::cancelled);
    // What the tab shows the moment the command starts (it hears of it first): the command may be over by the time
    // a poll would look.
    QStringList progressWhileRunning;
    connect(&world.repositories, &Repositories::started, tab, [&] {
        progressWhileRunning.append(tab->progressLabel()->isVisible() ? tab->progressLabel()->text() : "(hidden)");
    });
    world.alerter.answerNext(answer);

    QTest::mouseClick(tab->removeButton(), Qt::LeftButton);

    QCOMPARE(world.alerter.shown().size(), 1);
    QCOMPARE(world.alerter.shown().first().message, "Are you sure you want to uninstall '" + toolsTap + "'?");
    if (answer == "Cancel") {
        QVERIFY(cancelled.wait(finishTimeout));
        QVERIFY(tab->progressLabel()->isHidden());
        QCOMPARE(column(tab->repositoriesList(), 0), (QStringList{"homebrew/core", toolsTap}));
        QVERIFY(tab->removeButton()->isEnabled());
        QCOMPARE(progressWhileRunning, QStringList());
        QCOMPARE(world.vectors(), QList<QStringList>());
        return;
    }
    QVERIFY(finished.wait(finishTimeout));
    QCOMPARE(progressWhileRunning, QStringList{"Uninstalling repository..."});
    QVERIFY2(finished.first().at(2).toBool(), qPrintable(finished.first().at(3).toString()));
    QVERIFY(tab->progressLabel()->isHidden());
    QTRY_COMPARE(column(tab->repositoriesList(), 0), QStringList{"homebrew/core"});
    QCOMPARE(world.vectors(), QList<QStringList>{(QStringList{"untap", toolsTap})});
}

void TestSettingsWindow::officialRepositories()
{
    World world(githubApi());
    QVERIFY(world.simulate());
    QVERIFY(world.seedTap("homebrew/core"));
    SettingsWindowController window(world.context());
    QVERIFY(exposed(window, SettingsWindowController::RepositoriesTab));
    SettingsRepositoriesViewController* tab = window.repositoriesViewController();
    QTreeWidget* official = tab->officialList();

    QCOMPARE(column(official, 0), (QStringList{"homebrew/core", "homebrew/cask", "homebrew/cask-fonts",
                                               "homebrew/services", "homebrew/bundle"}));
    QCOMPARE(column(official, 1).first(), "Primary scripts library");
    QCOMPARE(column(official, 1).last(), "Command to generate a backup file of everything installed");
    QCOMPARE(column(official, 2), (QStringList{"Yes", "", "", "", ""}));

    // What is tapped already cannot be added again.
    official->setCurrentItem(official->topLevelItem(0));
    QVERIFY(!tab->addOfficialButton()->isEnabled());
    official->setCurrentItem(official->topLevelItem(3));
    QVERIFY(tab->addOfficialButton()->isEnabled());

    QSignalSpy finished(&world.repositories, &Repositories::finished);
    QTest::mouseClick(tab->addOfficialButton(), Qt::LeftButton);
    QCOMPARE(tab->progressLabel()->text(), "Adding repository...");
    QVERIFY(!tab->addOfficialButton()->isEnabled());
    QVERIFY(finished.wait(finishTimeout));
    QCOMPARE(world.vectors().first(), (QStringList{"tap", "homebrew/services"}));
}

QTEST_MAIN(TestSettingsWindow)
#include "TestSettingsWindow.moc"
