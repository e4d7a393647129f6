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
#include "ui/MainWindow.h"
#include "ui/SGKSuggestionPopup.h"
#include "ui/SGKSuggestionSearchField.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QPainter>
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

    ApplicationDelegate delegate(Bundle::main(), defaults, CoreDataManager::shared());
    delegate.applicationDidFinishLaunching();
    MainWindow* window = delegate.mainWindow();
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

    bool written = true;
    search(*window, QStringLiteral("jit"));
    written &= save(capture(window, {window->searchField()->popup()}), folder, QStringLiteral("main-window-apps.png"));

    window->searchField()->dismissSuggestions();
    window->changePersona(MainWindow::scriptsPersona);
    settle();
    search(*window, QStringLiteral("git"));
    written &=
        save(capture(window, {window->searchField()->popup()}), folder, QStringLiteral("main-window-scripts.png"));
    window->searchField()->dismissSuggestions();
    return written ? 0 : 1;
}
