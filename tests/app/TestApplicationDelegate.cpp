#include "LogCapture.h"
#include "app/ApplicationDelegate.h"
#include "catalogue/CoreDataManager.h"
#include "catalogue/Synchronisation.h"
#include "foundation/Bundle.h"
#include "foundation/Defaults.h"
#include "foundation/PreferenceKeys.h"
#include "foundation/PropertyList.h"
#include "ui/HomebrewInstallWizardViewController.h"
#include "ui/MainWindow.h"
#include "ui/OnboardingWindowController.h"
#include "ui/SettingsWindowController.h"
#include "ui/ViewOptionsWindowController.h"

#include <QAction>
#include <QApplication>
#include <QFile>
#include <QMessageBox>
#include <QPushButton>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <algorithm>

class TestApplicationDelegate : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void startsInOrderWithDefaultsAndState();
    void menusOpenSettingsAndViewOptions();
    void firstRunShowsOnboarding_data();
    void firstRunShowsOnboarding();
    void helpMenuOpensHomebrewInstallation();
    void busyQuitAsksThroughAMessageBox();

private:
    static QMessageBox* openMessageBox();

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<Bundle> m_bundle;
    std::unique_ptr<Defaults> m_defaults;
    std::unique_ptr<CoreDataManager> m_store;
};

void TestApplicationDelegate::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
    const QDir resources(m_dir->filePath(QStringLiteral("share")));
    QVERIFY(QDir().mkpath(resources.path()));
    auto write = [&](const QString& name, const QVariantMap& content) {
        QFile file(resources.filePath(name));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(PropertyList::serialize(content));
    };
    write(QStringLiteral("Info.plist"), {{QStringLiteral("TW_SERVICES_URL"), QStringLiteral("http://127.0.0.1:1")}});
    write(QStringLiteral("DefaultSettings.plist"),
          {{PreferenceKeys::TranscriptPaneVisible, true}, {PreferenceKeys::TranscriptPaneThickness, 180.5}});
    m_bundle = std::make_unique<Bundle>(resources.path());
    m_defaults = std::make_unique<Defaults>(m_dir->filePath(QStringLiteral("settings.conf")));
    m_store = std::make_unique<CoreDataManager>(m_dir->filePath(QStringLiteral("Corvel X.sqlite")));
}

void TestApplicationDelegate::cleanup()
{
    m_store.reset();
    m_defaults.reset();
    m_bundle.reset();
    m_dir.reset();
}

QMessageBox* TestApplicationDelegate::openMessageBox()
{
    const auto widgets = QApplication::topLevelWidgets();
    for (QWidget* widget : widgets) {
        if (auto* box = qobject_cast<QMessageBox*>(widget); box && box->isVisible()) {
            return box;
        }
    }
    return nullptr;
}

void TestApplicationDelegate::startsInOrderWithDefaultsAndState()
{
    LogCapture log;
    ApplicationDelegate delegate(*m_bundle, *m_defaults, *m_store);
    delegate.applicationDidFinishLaunching();

    QCOMPARE(log.texts(),
             (QStringList{QStringLiteral("Launching Corvel X..."), QStringLiteral("Loading default settings"),
                          QStringLiteral("Restoring custom appearance"),
                          QStringLiteral("Registering askpass message port")}));
    // The transcript pane state comes from the registered defaults, restored before any window exists.
    QVERIFY(delegate.state().transcriptPaneVisible());
    QCOMPARE(delegate.state().transcriptPaneThickness(), 180.5);
    QVERIFY(!m_defaults->isWritten(PreferenceKeys::TranscriptPaneVisible));

    MainWindow* window = delegate.mainWindow();
    QVERIFY(window);
    QVERIFY(QTest::qWaitForWindowExposed(window));
    // An empty catalogue: nothing installed.
    QCOMPARE(window->windowTitle(), QStringLiteral("0 installed"));
}

void TestApplicationDelegate::menusOpenSettingsAndViewOptions()
{
    ApplicationDelegate delegate(*m_bundle, *m_defaults, *m_store);
    delegate.applicationDidFinishLaunching();
    MainWindow* window = delegate.mainWindow();
    QVERIFY(QTest::qWaitForWindowExposed(window));
    const auto trigger = [window](const QString& text) {
        for (QAction* action : window->findChildren<QAction*>()) {
            if (action->text() == text) {
                action->trigger();
                return true;
            }
        }
        return false;
    };
    QVERIFY(trigger(QStringLiteral("Settings...")));
    QTRY_VERIFY(std::ranges::any_of(QApplication::topLevelWidgets(), [](QWidget* w) {
        return w->isVisible() && qobject_cast<SettingsWindowController*>(w);
    }));
    QVERIFY(trigger(QStringLiteral("View Options...")));
    QTRY_VERIFY(std::ranges::any_of(QApplication::topLevelWidgets(), [](QWidget* w) {
        return w->isVisible() && qobject_cast<ViewOptionsWindowController*>(w);
    }));
}

void TestApplicationDelegate::firstRunShowsOnboarding_data()
{
    QTest::addColumn<bool>("firstRun");

    QTest::newRow("first run") << true;
    QTest::newRow("later run") << false;
}

void TestApplicationDelegate::firstRunShowsOnboarding()
{
    QFETCH(bool, firstRun);

    m_defaults->setValue(PreferenceKeys::IsFirstRun, firstRun);
    // Old enough that a later run synchronises at launch.
    m_defaults->setValue(PreferenceKeys::LastFastSyncTime, QDateTime::currentDateTime().addDays(-2));
    ApplicationDelegate delegate(*m_bundle, *m_defaults, *m_store);
    delegate.applicationDidFinishLaunching();

    QCOMPARE(delegate.onboardingWindow() != nullptr, firstRun);
    QCOMPARE(delegate.mainWindow() != nullptr, !firstRun);
    // The assistant runs the first synchronisation itself, when the person gets there.
    QCOMPARE(delegate.synchronisation()->isRunning(), !firstRun);
    QSignalSpy synchronised(delegate.synchronisation(), &Synchronisation::finished);
    if (!firstRun) {
        QTRY_VERIFY_WITH_TIMEOUT(!synchronised.isEmpty(), 60000);
        return;
    }
    OnboardingWindowController* onboarding = delegate.onboardingWindow();
    QVERIFY(QTest::qWaitForWindowExposed(onboarding));
    QCOMPARE(onboarding->currentPage(), int(OnboardingWindowController::WelcomePage));

    onboarding->showPage(OnboardingWindowController::DonePage);
    onboarding->continueButton()->click();
    QVERIFY(delegate.mainWindow());
    QVERIFY(QTest::qWaitForWindowExposed(delegate.mainWindow()));
    QCOMPARE(m_defaults->value(PreferenceKeys::IsFirstRun).toBool(), false);
    QTRY_VERIFY(!delegate.onboardingWindow());
    QVERIFY(synchronised.isEmpty());
}

void TestApplicationDelegate::helpMenuOpensHomebrewInstallation()
{
    ApplicationDelegate delegate(*m_bundle, *m_defaults, *m_store);
    delegate.applicationDidFinishLaunching();
    MainWindow* window = delegate.mainWindow();
    QVERIFY(QTest::qWaitForWindowExposed(window));
    QAction* install = nullptr;
    for (QAction* action : window->findChildren<QAction*>()) {
        if (action->text() == QStringLiteral("Install Homebrew...")) {
            install = action;
        }
    }
    QVERIFY(install);
    install->trigger();
    HomebrewInstallWizardViewController* sheet = delegate.homebrewInstallSheet();
    QVERIFY(sheet);
    QTRY_VERIFY(sheet->isVisible());
    QCOMPARE(sheet->parentWidget(), window);
    // Asked again, the one sheet comes forward.
    install->trigger();
    QCOMPARE(delegate.homebrewInstallSheet(), sheet);
    sheet->closeButton()->click();
    QTRY_VERIFY(!delegate.homebrewInstallSheet());
}

// Closing while busy asks through a real message box; the answers themselves belong to QuitConfirmation.
void TestApplicationDelegate::busyQuitAsksThroughAMessageBox()
{
    ApplicationDelegate delegate(*m_bundle, *m_defaults, *m_store);
    delegate.applicationDidFinishLaunching();
    MainWindow* window = delegate.mainWindow();
    QVERIFY(QTest::qWaitForWindowExposed(window));
    delegate.state().setBusy(true);

    window->close();
    QTRY_VERIFY(openMessageBox());
    QMessageBox* box = openMessageBox();
    QCOMPARE(box->icon(), QMessageBox::Critical);
    QCOMPARE(box->text(),
             QStringLiteral("Background process currently running. Are you sure you want to quit Corvel X?"));
    const auto buttons = box->buttons();
    const auto terminate = std::ranges::find_if(
        buttons, [](QAbstractButton* button) { return button->text() == QStringLiteral("Terminate Anyway"); });
    QVERIFY(terminate != buttons.end());
    (*terminate)->click();
    QTRY_VERIFY(!window->isVisible());
    QVERIFY(!openMessageBox());
}

QTEST_MAIN(TestApplicationDelegate)
#include "TestApplicationDelegate.moc"
