#include "HomebrewFixture.h"
#include "ScriptedAlerter.h"
#include "ScriptedFolderChooser.h"
#include "activities/ApplicationState.h"
#include "activities/QuitConfirmation.h"
#include "catalogue/ArrayController.h"
#include "catalogue/Cask.h"
#include "catalogue/CoreDataManager.h"
#include "catalogue/HomebrewSources.h"
#include "catalogue/Synchronisation.h"
#include "diagnostics/Analytics.h"
#include "foundation/Defaults.h"
#include "foundation/HttpClient.h"
#include "foundation/PreferenceKeys.h"
#include "operations/AppOperations.h"
#include "operations/ScriptOperations.h"
#include "search/SGKSuggestionList.h"
#include "search/SearchController.h"
#include "ui/AppsTableViewController.h"
#include "ui/MainWindow.h"
#include "ui/PackageStatusDelegate.h"
#include "ui/PackageTableModel.h"
#include "ui/SGKSuggestionPopup.h"
#include "ui/SGKSuggestionSearchField.h"
#include "ui/ScriptsTableViewController.h"
#include "ui/TranscriptModel.h"
#include "ui/TranscriptPane.h"

#include <QAction>
#include <QComboBox>
#include <QDir>
#include <QJsonArray>
#include <QLabel>
#include <QListView>
#include <QMenu>
#include <QNetworkAccessManager>
#include <QSignalSpy>
#include <QSplitter>
#include <QStackedWidget>
#include <QTableView>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;
using Kind = PackageOperation::Kind;

namespace {

constexpr int timeout = 60000;

// Installed on the simulated machine: three apps (one outdated) and two scripts.
QJsonObject machine(const QJsonObject& faults = {})
{
    return {
        {"taps", QJsonArray{"homebrew/cask", "homebrew/core", "tesselworks/corvel-cmd"}},
        {"casks", QJsonObject{{"firezone", "1.5.0"}, {"dropbox", "264.0"}, {"flameshot", "13.0"}}},
        {"formulae", QJsonObject{{"bash", "5.1.4"}, {"cmake", "3.24.2"}}},
        {"outdated", QJsonObject{{"casks", QJsonObject{{"firezone", "1.5.18"}}}}},
        {"faults", faults},
    };
}

// The real window over a throw-away store, preferences and simulated Homebrew; the catalogue files the application
// reads are the simulator's own, so both sides agree on every record.
struct World : HomebrewFixture {
    QTemporaryDir folder;
    CoreDataManager store{folder.filePath(u"Corvel X.sqlite"_s)};
    Defaults defaults{folder.filePath(u"settings.ini"_s)};
    ApplicationState state{defaults};
    HttpClient httpClient;
    QNetworkAccessManager network;
    std::unique_ptr<Homebrew::Sources> sources;
    ScriptedAlerter alerter;
    ScriptedFolderChooser folders;
    std::unique_ptr<Analytics> analytics;
    std::unique_ptr<AppOperations> apps;
    std::unique_ptr<ScriptOperations> scripts;
    std::unique_ptr<Synchronisation> synchronisation;
    std::unique_ptr<MainWindow> window;

    bool setUp(const QJsonObject& faults = {})
    {
        if (!simulate(machine(faults)) || !publishCatalogue()) {
            return false;
        }
        defaults.setValue(PreferenceKeys::TranscriptPaneVisible, true);
        defaults.setValue(PreferenceKeys::TranscriptPaneThickness, 150.0);
        state.restore();
        sources = std::make_unique<Homebrew::Sources>(commands, QUrl::fromLocalFile(folder.filePath(u"catalogue"_s)),
                                                      httpClient);
        analytics = std::make_unique<Analytics>(defaults, bundle, network);
        const PackageOperations::Services services{store, commands, state, defaults, alerter, *analytics};
        apps = std::make_unique<AppOperations>(services, *sources, folders);
        scripts = std::make_unique<ScriptOperations>(services);
        synchronisation = std::make_unique<Synchronisation>(store, *sources, defaults, activityCenter);
        window = std::make_unique<MainWindow>(MainWindow::Services{
            store, defaults, state, *apps, *scripts, *synchronisation, transcript, activityCenter, alerter});
        window->resize(1100, 700);
        window->show();
        return QTest::qWaitForWindowExposed(window.get());
    }

    bool publishCatalogue() { return publishSimulatorCatalogue(folder.filePath(u"catalogue/api"_s)); }

    bool synchronise()
    {
        QSignalSpy finished(synchronisation.get(), &Synchronisation::finished);
        if (!synchronisation->start(Synchronisation::Form::full) || !finished.wait(timeout)) {
            return false;
        }
        if (!finished.constFirst().at(0).toBool()) {
            qWarning().noquote() << "synchronisation failed:" << finished.constFirst().at(1).toString();
            return false;
        }
        return true;
    }

    QTableView* table() const { return window->currentTable()->tableView(); }

    QStringList shownTokens() const
    {
        QStringList tokens;
        for (const ManagedObject* object : window->currentTable()->arrayController().arrangedObjects()) {
            tokens.append(object->token());
        }
        return tokens;
    }

    int rowOf(const QString& token) const { return int(shownTokens().indexOf(token)); }

    // Types text and chooses the first suggestion, the search of every field, as a person would.
    void search(const QString& text)
    {
        SGKSuggestionSearchField* field = window->searchField();
        field->setFocus();
        field->setText(text);
        QTest::keyClick(field, Qt::Key_Down);
        QTest::keyClick(field, Qt::Key_Return);
    }
};

} // namespace

class TestMainWindow : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void subtitleCountsInstalled_data();
    void subtitleCountsInstalled();
    void personaSwitchSwapsTablesAndSuggestions();
    void installFromRowButtonStreamsAndUpdates();
    void actionsFollowSelection_data();
    void actionsFollowSelection();
    void quitWhileBusyAsksAndCancelKeepsRunning();
    void findFocusesSearchField();
    void transcriptPaneStatePersists();
    void synchronisationShowsProgress();
    void debugMenuOffersTheCrashActions();
};

void TestMainWindow::subtitleCountsInstalled_data()
{
    QTest::addColumn<bool>("synchronised");
    QTest::addColumn<int>("persona");
    QTest::addColumn<QString>("subtitle");

    QTest::newRow("empty catalogue, apps") << false << 0 << u"0 installed"_s;
    QTest::newRow("synchronised, scripts") << true << 1 << u"2 installed"_s;
}

void TestMainWindow::subtitleCountsInstalled()
{
    QFETCH(bool, synchronised);
    QFETCH(int, persona);
    QFETCH(QString, subtitle);

    World world;
    QVERIFY(world.setUp());
    if (synchronised) {
        QVERIFY(world.synchronise());
    }
    world.window->changePersona(persona);
    QTRY_COMPARE(world.window->subtitle(), subtitle);
    QVERIFY(world.window->windowTitle().startsWith(subtitle));
}

void TestMainWindow::personaSwitchSwapsTablesAndSuggestions()
{
    World world;
    QVERIFY(world.setUp());
    QVERIFY(world.synchronise());
    const auto groupTitles = [&] {
        QStringList titles;
        for (const SGKSuggestionViewItemPtr& item :
             world.window->searchController()->suggestionList()->suggestionViewItems()) {
            if (item->isGroup()) {
                titles.append(item->label());
            }
        }
        return titles;
    };

    QCOMPARE(world.window->persona(), int(MainWindow::appsPersona));
    world.window->searchField()->setFocus();
    world.window->searchField()->setText(u"f"_s);
    QVERIFY(groupTitles().contains(u"Kind"_s));
    QStringList apps = world.shownTokens();
    apps.sort();
    QCOMPARE(apps, (QStringList{u"dropbox"_s, u"firezone"_s, u"flameshot"_s}));
    // The hidden persona's table (and its fetch of the whole catalogue) waits until it is first shown.
    QVERIFY(!world.window->findChild<ScriptsTableViewController*>());

    world.window->findChild<QAction*>(u"scriptsPersonaAction"_s)->trigger();
    QCOMPARE(world.window->persona(), int(MainWindow::scriptsPersona));
    QCOMPARE(world.defaults.integerValue(PreferenceKeys::PersonasSelectedIndex), 1);
    QCOMPARE(world.window->currentTable(), world.window->scriptsTable());
    QVERIFY(world.window->scriptsTable()->isVisible());
    QVERIFY(!world.window->appsTable()->isVisible());
    QCOMPARE(world.shownTokens(), (QStringList{u"bash"_s, u"cmake"_s}));
    // A switch starts the search afresh, and the scripts' list has no kinds.
    QVERIFY(world.window->searchField()->text().isEmpty());
    world.window->searchField()->setText(u"f"_s);
    QVERIFY(!groupTitles().isEmpty());
    QVERIFY(!groupTitles().contains(u"Kind"_s));
}

void TestMainWindow::installFromRowButtonStreamsAndUpdates()
{
    World world;
    QVERIFY(world.setUp());
    QVERIFY(world.synchronise());
    world.search(u"opera"_s);
    QTRY_VERIFY(world.rowOf(u"opera"_s) >= 0);
    const int row = world.rowOf(u"opera"_s);
    QTableView* table = world.table();
    const QModelIndex index =
        table->model()->index(row, world.window->appsTable()->model()->columnOf(PackageTableModel::Column::status));
    table->scrollTo(index);
    QSignalSpy finished(world.apps.get(), &PackageOperations::operationFinished);

    QStyleOptionViewItem option;
    option.initFrom(table->viewport());
    option.rect = table->visualRect(index);
    option.widget = table;
    auto* delegate = qobject_cast<PackageStatusDelegate*>(table->itemDelegateForIndex(index));
    QVERIFY(delegate);
    const QRect button = delegate->buttonRect(option, index);
    QVERIFY(!button.isEmpty());
    QTest::mouseClick(table->viewport(), Qt::LeftButton, {}, button.center());

    QVERIFY(finished.wait(timeout));
    QCOMPARE(finished.constFirst().at(1).toString(), u"opera"_s);
    QVERIFY(finished.constFirst().at(2).toBool());
    bool ranInstall = false;
    for (const SimulatedHomebrew::Invocation& invocation : world.brew->invocations()) {
        ranInstall |= invocation.arguments == QStringList{u"install"_s, u"--cask"_s, u"opera"_s};
    }
    QVERIFY(ranInstall);

    // The output streamed into the pane, under an activity the sources offer first.
    TranscriptPane* pane = world.window->transcriptPane();
    QTRY_VERIFY(pane->model()->rowCount() > 0);
    QCOMPARE(pane->sourcesBox()->count(), 2 + world.activityCenter.activities().size());
    QCOMPARE(pane->sourcesBox()->itemText(2), world.activityCenter.activities().constLast()->title());
    QVERIFY(pane->sourcesBox()->itemText(2).endsWith(u"(Install)"_s));
    // The row follows the store: installed now, so it offers no install.
    auto* opera = qobject_cast<Package*>(
        world.window->appsTable()->arrayController().arrangedObjects().value(world.rowOf(u"opera"_s)));
    QVERIFY(opera);
    QTRY_VERIFY(opera->installed());
    QTRY_COMPARE(world.window->subtitle(), u"4 installed"_s);
}

void TestMainWindow::actionsFollowSelection_data()
{
    QTest::addColumn<QString>("token");
    QTest::addColumn<QString>("search");
    QTest::addColumn<QList<Kind>>("enabled");

    QTest::newRow("installed and outdated")
        << u"firezone"_s << QString() << QList<Kind>{Kind::uninstall, Kind::upgrade, Kind::reinstall, Kind::move};
    QTest::newRow("available") << u"opera"_s << u"opera"_s << QList<Kind>{Kind::install, Kind::installInFolder};
}

void TestMainWindow::actionsFollowSelection()
{
    QFETCH(QString, token);
    QFETCH(QString, search);
    QFETCH(QList<Kind>, enabled);

    World world;
    QVERIFY(world.setUp());
    QVERIFY(world.synchronise());
    if (!search.isEmpty()) {
        world.search(search);
    }
    QTRY_VERIFY(world.rowOf(token) >= 0);
    world.table()->selectRow(world.rowOf(token));
    for (const Kind kind :
         {Kind::install, Kind::installInFolder, Kind::uninstall, Kind::upgrade, Kind::reinstall, Kind::move}) {
        QVERIFY2(world.window->action(kind)->isEnabled() == enabled.contains(kind),
                 qPrintable(world.window->action(kind)->text()));
    }
    QVERIFY(world.window->upgradeAllAction()->isEnabled());
}

void TestMainWindow::quitWhileBusyAsksAndCancelKeepsRunning()
{
    World world;
    QVERIFY(world.setUp());
    QVERIFY(world.synchronise());
    // Slow enough that the question comes while the child still runs.
    QVERIFY(world.brew->setStateValue(u"faults"_s, QJsonObject{{"delayMs", 150}}));
    QuitConfirmation confirmation(world.state, world.alerter);
    world.window->setCloseRequest(
        [&confirmation](std::function<void(bool)> reply) { confirmation.requestTermination(std::move(reply)); });

    world.search(u"opera"_s);
    QTRY_VERIFY(world.rowOf(u"opera"_s) >= 0);
    world.table()->selectRow(world.rowOf(u"opera"_s));
    QSignalSpy finished(world.apps.get(), &PackageOperations::operationFinished);
    world.window->action(Kind::install)->trigger();
    QVERIFY(world.state.isBusy());

    world.alerter.answerNext(u"Cancel"_s);
    QVERIFY(!world.window->close());
    QCOMPARE(world.alerter.shown().size(), 1);
    QCOMPARE(world.alerter.shown().constFirst().message,
             u"Background process currently running. Are you sure you want to quit Corvel X?"_s);
    QVERIFY(world.window->isVisible());

    // The child was left alone and ends on its own.
    QVERIFY(finished.wait(timeout));
    QVERIFY(finished.constFirst().at(2).toBool());
    QVERIFY(!world.state.isBusy());
    QVERIFY(world.window->close());
    QCOMPARE(world.alerter.shown().size(), 1);
}

void TestMainWindow::findFocusesSearchField()
{
    World world;
    QVERIFY(world.setUp());
    world.table()->setFocus();
    QTest::keyClick(world.window.get(), Qt::Key_F, Qt::ControlModifier);
    QTRY_VERIFY(world.window->searchField()->hasFocus());
}

void TestMainWindow::transcriptPaneStatePersists()
{
    World world;
    QVERIFY(world.setUp());
    TranscriptPane* pane = world.window->transcriptPane();
    QVERIFY(pane->isVisible());

    world.window->transcriptAction()->trigger();
    QVERIFY(!pane->isVisible());
    QCOMPARE(world.defaults.value(PreferenceKeys::TranscriptPaneVisible).toBool(), false);
    world.window->transcriptAction()->trigger();
    QVERIFY(pane->isVisible());
    QCOMPARE(world.defaults.value(PreferenceKeys::TranscriptPaneVisible).toBool(), true);

    QSplitter* splitter = world.window->splitter();
    QList<int> sizes = splitter->sizes();
    const int total = sizes.at(0) + sizes.at(1);
    splitter->setSizes({total - 240, 240});
    // setSizes does not tell anyone; a person dragging the handle does.
    Q_EMIT splitter->splitterMoved(total - 240, 1);
    QCOMPARE(world.defaults.value(PreferenceKeys::TranscriptPaneThickness).toDouble(), double(splitter->sizes().at(1)));
}

void TestMainWindow::synchronisationShowsProgress()
{
    World world;
    QVERIFY(world.setUp(QJsonObject{{"delayMs", 20}}));
    auto* progress = world.window->findChild<QWidget*>(u"syncProgress"_s);
    auto* label = world.window->findChild<QLabel*>(u"syncLabel"_s);
    QVERIFY(progress && label);
    QVERIFY(!progress->isVisible());

    QSignalSpy finished(world.synchronisation.get(), &Synchronisation::finished);
    world.window->findChild<QAction*>(u"syncAction"_s)->trigger();
    QVERIFY(world.synchronisation->isRunning());
    QVERIFY(progress->isVisible());
    QVERIFY(!label->text().isEmpty());
    QVERIFY(!world.window->findChild<QAction*>(u"fastSyncAction"_s)->isEnabled());
    QVERIFY(finished.wait(timeout));
    QVERIFY(!progress->isVisible());
    QVERIFY(world.window->findChild<QAction*>(u"fastSyncAction"_s)->isEnabled());
}

void TestMainWindow::debugMenuOffersTheCrashActions()
{
    if (!MainWindow::debugMenuEnabled()) {
        QSKIP("A release build shows the Debug menu only with CORVEL_DEBUG_MENU=1");
    }
    World world;
    QVERIFY(world.setUp());
    MainWindow& window = *world.window;
    QStringList called;
    window.setDebugActions({[&called] { called.append("show"); }, [&called] { called.append("send"); },
                            [&called] { called.append("crash"); }});
    auto* menu = window.findChild<QMenu*>("debugMenu");
    QVERIFY(menu);
    QStringList texts;
    const auto actions = menu->actions();
    for (QAction* action : actions) {
        if (!action->isSeparator()) {
            texts.append(action->text());
            action->trigger();
        }
    }
    QCOMPARE(texts, (QStringList{"Show Crash Reporter Window", "Send Test Crash Report", "Crash Deliberately"}));
    QCOMPARE(called, (QStringList{"show", "send", "crash"}));

    // Given again, the actions replace the first ones rather than adding a second menu.
    window.setDebugActions({[] {}, [] {}, [] {}});
    QCOMPARE(window.findChildren<QMenu*>("debugMenu").size(), 1);
    QCOMPARE(window.findChild<QMenu*>("debugMenu")->actions().size(), 4);
}

QTEST_MAIN(TestMainWindow)
#include "TestMainWindow.moc"
