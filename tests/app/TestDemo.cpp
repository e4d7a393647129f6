#include "CorvelProcess.h"
#include "activities/Notifications.h"
#include "app/ApplicationDelegate.h"
#include "app/DemoEnvironment.h"
#include "app/StartupProbe.h"
#include "catalogue/ArrayController.h"
#include "catalogue/Cask.h"
#include "catalogue/CoreDataManager.h"
#include "catalogue/Synchronisation.h"
#include "foundation/Bundle.h"
#include "foundation/Defaults.h"
#include "foundation/PreferenceKeys.h"
#include "homebrew/HomebrewInstallation.h"
#include "homebrew/SimulatedHomebrew.h"
#include "operations/AppOperations.h"
#include "ui/AppsTableViewController.h"
#include "ui/MainWindow.h"
#include "ui/SGKSuggestionSearchField.h"

#include <QDir>
#include <QDirIterator>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTableView>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

constexpr int timeout = 90000;

QStringList tokens(const ArrayController& controller)
{
    QStringList result;
    for (const ManagedObject* object : controller.arrangedObjects()) {
        result.append(object->token());
    }
    result.sort();
    return result;
}

} // namespace

class TestDemo : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void opensOnTheSampleMachineAndInstalls();
    void realProgramOpensItsWindow();

private:
    std::unique_ptr<DemoEnvironment> m_demo;
};

void TestDemo::initTestCase()
{
    Result<std::unique_ptr<DemoEnvironment>> demo = DemoEnvironment::create();
    QVERIFY2(demo, qPrintable(demo ? QString() : demo.error().description()));
    m_demo = std::move(demo.value());
    const Result<void> installed = m_demo->install(Bundle::main());
    QVERIFY2(installed, qPrintable(installed ? QString() : installed.error().description()));
    // The sample apps' websites are real ones on the internet, which a test must never contact.
    Defaults::standard().setValue(PreferenceKeys::ShowWebsiteIcons, false);
}

void TestDemo::opensOnTheSampleMachineAndInstalls()
{
    // Everything the application keeps lives in the demo's folder, not the person's.
    QVERIFY(QDir::homePath().startsWith(m_demo->root()));
    QVERIFY(CoreDataManager::defaultStorePath().startsWith(m_demo->root()));
    QVERIFY(Homebrew::Installation::shared().brewPath().value_or(QString()).startsWith(m_demo->root()));

    ApplicationDelegate delegate(Bundle::main(), Defaults::standard(), CoreDataManager::shared());
    QSignalSpy synchronised(&Notifications::instance(), &Notifications::synchronisationFinished);
    delegate.applicationDidFinishLaunching();
    MainWindow* window = delegate.mainWindow();
    QVERIFY(window && QTest::qWaitForWindowExposed(window));
    // A first start synchronises at once.
    QTRY_VERIFY_WITH_TIMEOUT(!synchronised.isEmpty(), timeout);
    QVERIFY2(synchronised.constFirst().at(0).toBool(), qPrintable(synchronised.constFirst().at(1).toString()));

    AppsTableViewController* apps = window->appsTable();
    QTRY_COMPARE(tokens(apps->arrayController()),
                 (QStringList{u"1password"_s, u"corretto"_s, u"dropbox"_s, u"flameshot"_s, u"free-ruler"_s, u"grisbi"_s,
                              u"jitsi-meet"_s, u"material-maker"_s}));
    QCOMPARE(window->subtitle(), u"8 installed"_s);
    int outdated = 0;
    for (const ManagedObject* object : apps->arrayController().arrangedObjects()) {
        outdated += object->value(u"outdated").toBool() ? 1 : 0;
    }
    QCOMPARE(outdated, 4);
    const Result<QList<ManagedObject*>> all = CoreDataManager::shared().viewContext()->fetch(u"Cask"_s);
    QVERIFY(all.value().size() > 200);

    window->searchField()->setFocus();
    window->searchField()->setText(u"atext"_s);
    // The first suggestion searches every field.
    QTest::keyClick(window->searchField(), Qt::Key_Down);
    QTest::keyClick(window->searchField(), Qt::Key_Return);
    QTRY_VERIFY(tokens(apps->arrayController()).contains(u"atext"_s));
    auto* atext = qobject_cast<Cask*>(
        apps->arrayController().arrangedObjects().value(int(tokens(apps->arrayController()).indexOf(u"atext"_s))));
    QVERIFY(atext && atext->token() == u"atext"_s);
    apps->tableView()->selectRow(int(apps->arrayController().arrangedObjects().indexOf(atext)));
    QSignalSpy finished(delegate.appOperations(), &PackageOperations::operationFinished);
    window->perform(PackageOperation::Kind::install);
    QVERIFY(finished.wait(timeout));
    QVERIFY2(finished.constFirst().at(2).toBool(), qPrintable(finished.constFirst().at(3).toString()));
    QTRY_VERIFY(atext->installed());
    QTRY_COMPARE(window->subtitle(), u"9 installed"_s);
}

void TestDemo::realProgramOpensItsWindow()
{
    QTemporaryDir home;
    QProcessEnvironment environment = CorvelProcess::environment(home.path());
    environment.insert(u"QT_QPA_PLATFORM"_s, u"offscreen"_s);
    CorvelProcess::Outcome outcome;
    QVERIFY2(CorvelProcess::run({u"--demo"_s, u"--measure-startup"_s}, environment, outcome, timeout),
             qPrintable(outcome.err));
    QVERIFY2(outcome.exitStatus == QProcess::NormalExit, qPrintable(outcome.err));
    QVERIFY2(outcome.exitCode == 0, qPrintable(outcome.err));
    static const QRegularExpression report(u"^startup: first paint after \\d+ ms, peak memory \\d+ KiB$"_s,
                                           QRegularExpression::MultilineOption);
    QVERIFY2(report.match(outcome.out).hasMatch(), qPrintable(outcome.out + outcome.err));
    // The demo kept to its own folders: nothing was written under the home it was started with.
    QDirIterator written(home.path(), QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    QVERIFY2(!written.hasNext(), qPrintable(written.hasNext() ? written.next() : QString()));
}

QTEST_MAIN(TestDemo)
#include "TestDemo.moc"
