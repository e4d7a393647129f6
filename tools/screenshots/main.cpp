// Takes the README's screenshots: the real application on the demo machine, drawn without a display.
//   corvel-screenshots OUTPUT_FOLDER
#include "app/ApplicationDelegate.h"
#include "app/DemoEnvironment.h"
#include "catalogue/Cask.h"
#include "catalogue/CoreDataManager.h"
#include "catalogue/Synchronisation.h"
#include "foundation/Bundle.h"
#include "foundation/Defaults.h"
#include "foundation/PreferenceKeys.h"
#include "operations/AppOperations.h"
#include "ui/HomebrewInstallWizardViewController.h"
#include "ui/MainWindow.h"
#include "ui/OnboardingWindowController.h"
#include "ui/SGKSuggestionPopup.h"
#include "ui/SGKSuggestionSearchField.h"
#include "ui/SettingsWindowController.h"
#include "ui/ViewOptionsWindowController.h"

#include <QAction>
#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QMenuBar>
#include <QPainter>
#include <QPushButton>
#include <QTextStream>
#include <QTimer>

namespace {

QTextStream& err()
{
    static QTextStream stream(stderr);
    return stream;
}

// Runs the event loop until done() holds, for at most timeoutMs; false on timeout.
bool waitFor(const std::function<bool()>& done, int timeoutMs = 60000)
{
    QElapsedTimer clock;
    clock.start();
    while (!done()) {
        if (clock.elapsed() > timeoutMs) {
            return false;
        }
        QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
    }
    return true;
}

void settle()
{
    waitFor([] { return false; }, 400);
}

// The window with any popup of its own drawn where it stands on screen.
QImage capture(QWidget* window, const QList<QWidget*>& popups)
{
    QImage image = window->grab().toImage();
    QPainter painter(&image);
    for (QWidget* popup : popups) {
        if (popup && popup->isVisible()) {
            const QPoint offset = popup->mapToGlobal(QPoint()) - window->mapToGlobal(QPoint());
            painter.drawPixmap(offset, popup->grab());
        }
    }
    return image;
}

bool save(const QImage& image, const QString& folder, const QString& name)
{
    const QString path = QDir(folder).filePath(name);
    if (!image.save(path)) {
        err() << "corvel-screenshots: unable to write " << path << Qt::endl;
        return false;
    }
    QTextStream(stdout) << path << Qt::endl;
    return true;
}

void search(MainWindow& window, const QString& text)
{
    SGKSuggestionSearchField* field = window.searchField();
    field->setFocus();
    field->setText(text);
    settle();
}

// The menu command of the main window that the predicate picks, as a person would choose it.
bool triggerMenuCommand(MainWindow& window, const std::function<bool(const QAction*)>& matches)
{
    const QList<QAction*> actions = window.menuBar()->findChildren<QAction*>();
    for (QAction* action : actions) {
        if (matches(action)) {
            action->trigger();
            settle();
            return true;
        }
    }
    err() << "corvel-screenshots: the main window has no such menu command" << Qt::endl;
    return false;
}

// The application opens these windows itself, without a parent: they are found among the top-level widgets.
template <typename Window>
Window* openedWindow()
{
    const QList<QWidget*> windows = QApplication::topLevelWidgets();
    for (QWidget* widget : windows) {
        if (auto* window = qobject_cast<Window*>(widget); window && window->isVisible()) {
            return window;
        }
    }
    err() << "corvel-screenshots: the window did not open" << Qt::endl;
    return nullptr;
}

bool saveSettingsWindows(MainWindow& window, const QString& folder)
{
    bool written = triggerMenuCommand(
        window, [](const QAction* action) { return action->menuRole() == QAction::PreferencesRole; });
    auto* settings = written ? openedWindow<SettingsWindowController>() : nullptr;
    if (!settings) {
        return false;
    }
    const QStringList names{QStringLiteral("settings-general.png"), QStringLiteral("settings-repositories.png"),
                            QStringLiteral("settings-maintenance.png"), QStringLiteral("settings-advanced.png")};
    for (int tab = 0; tab < names.size(); ++tab) {
        settings->setCurrentTab(tab);
        settle();
        written &= save(settings->grab().toImage(), folder, names.at(tab));
    }
    settings->setCurrentTab(SettingsWindowController::GeneralTab);
    settings->close();

    const QString viewOptionsText = MainWindow::tr("View Options...");
    written &= triggerMenuCommand(
        window, [&viewOptionsText](const QAction* action) { return action->text() == viewOptionsText; });
    auto* viewOptions = openedWindow<ViewOptionsWindowController>();
    if (!viewOptions) {
        return false;
    }
    written &= save(viewOptions->grab().toImage(), folder, QStringLiteral("view-options.png"));
    viewOptions->close();
    return written;
}

// Walks the assistant page by page, as a person pressing Continue would, and leaves it finished.
bool saveOnboarding(ApplicationDelegate& delegate, const QString& folder)
{
    OnboardingWindowController* onboarding = delegate.onboardingWindow();
    if (!onboarding) {
        err() << "corvel-screenshots: the first-run assistant did not open" << Qt::endl;
        return false;
    }
    onboarding->resize(720, 520);
    const QStringList names{QStringLiteral("onboarding-welcome.png"), QStringLiteral("onboarding-requirements.png"),
                            QStringLiteral("onboarding-synchronisation.png"), QStringLiteral("onboarding-done.png")};
    bool written = true;
    for (const QString& name : names) {
        QPushButton* next = onboarding->continueButton();
        if (!waitFor([next] { return next->isEnabled(); })) {
            err() << "corvel-screenshots: the first-run page behind " << name << " did not complete" << Qt::endl;
            return false;
        }
        settle();
        written &= save(onboarding->grab().toImage(), folder, name);
        onboarding->goForward();
    }
    return written && waitFor([&delegate] { return delegate.mainWindow() != nullptr; });
}

} // namespace

int main(int argc, char* argv[])
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
    }
    Result<std::unique_ptr<DemoEnvironment>> demo = DemoEnvironment::create();
    if (!demo) {
        err() << "corvel-screenshots: " << demo.error().description() << Qt::endl;
        return 1;
    }
    QApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("Corvel X"));
    QCoreApplication::setOrganizationDomain(QStringLiteral("tessel.works"));
    QApplication::setApplicationDisplayName(QStringLiteral("Corvel X"));
    QApplication::setQuitOnLastWindowClosed(false);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() != 2) {
        err() << "usage: corvel-screenshots OUTPUT_FOLDER" << Qt::endl;
        return 2;
    }
    const QString folder = arguments.at(1);
    QDir().mkpath(folder);
    if (Result<void> installed = demo.value()->install(Bundle::main()); !installed) {
        err() << "corvel-screenshots: " << installed.error().description() << Qt::endl;
        return 1;
    }
    Defaults& defaults = Defaults::standard();
    defaults.setValue(PreferenceKeys::PersonasSelectedIndex, 0);
    defaults.setValue(PreferenceKeys::TranscriptPaneVisible, true);
    defaults.setValue(PreferenceKeys::TranscriptPaneThickness, 210.0);
    // The pictures must not depend on which websites answer today.
    defaults.setValue(PreferenceKeys::ShowWebsiteIcons, false);
    // The first-run assistant comes first: its synchronisation fills the catalogue the main window shows.
    defaults.setValue(PreferenceKeys::IsFirstRun, true);

    ApplicationDelegate delegate(Bundle::main(), defaults, CoreDataManager::shared());
    delegate.applicationDidFinishLaunching();
    bool written = saveOnboarding(delegate, folder);
    MainWindow* window = delegate.mainWindow();
    if (!window) {
        err() << "corvel-screenshots: the main window did not open" << Qt::endl;
        return 1;
    }
    window->resize(1280, 820);
    Synchronisation* sync = delegate.synchronisation();
    if (!waitFor([sync] { return !sync->isRunning(); })) {
        err() << "corvel-screenshots: the demo's synchronisation did not finish" << Qt::endl;
        return 1;
    }

    // Something for the transcript to show: one real install on the simulated machine.
    const Result<QList<ManagedObject*>> found = CoreDataManager::shared().viewContext()->fetch(
        QStringLiteral("Cask"), QStringLiteral("token == %@"), {QStringLiteral("atext")});
    if (found && !found.value().isEmpty()) {
        auto* app = qobject_cast<Cask*>(found.value().constFirst());
        bool finished = false;
        QObject::connect(delegate.appOperations(), &PackageOperations::operationFinished, window,
                         [&finished] { finished = true; });
        delegate.appOperations()->install({app});
        waitFor([&finished] { return finished; });
    }
    settle();

    search(*window, QStringLiteral("jit"));
    written &= save(capture(window, {window->searchField()->popup()}), folder, QStringLiteral("main-window-apps.png"));

    window->searchField()->dismissSuggestions();
    window->changePersona(MainWindow::scriptsPersona);
    settle();
    search(*window, QStringLiteral("git"));
    written &=
        save(capture(window, {window->searchField()->popup()}), folder, QStringLiteral("main-window-scripts.png"));
    window->searchField()->dismissSuggestions();

    written &= saveSettingsWindows(*window, folder);

    delegate.showHomebrewInstallation();
    settle();
    if (HomebrewInstallWizardViewController* sheet = delegate.homebrewInstallSheet()) {
        written &= save(sheet->grab().toImage(), folder, QStringLiteral("install-homebrew.png"));
        sheet->close();
    } else {
        err() << "corvel-screenshots: the Homebrew installation sheet did not open" << Qt::endl;
        written = false;
    }
    return written ? 0 : 1;
}
