#include "ui/MainWindow.h"

#include <QAction>
#include <QCloseEvent>
#include <QMenuBar>
#include <QPointer>

MainWindow::MainWindow(QWidget* parent)
    : QMainWindow(parent)
{
    setWindowTitle(QStringLiteral("Corvel X"));
    resize(1100, 720);

    QMenu* fileMenu = menuBar()->addMenu(tr("&File"));
    QAction* quit = fileMenu->addAction(tr("&Quit Corvel X"), this, &QWidget::close);
    quit->setShortcut(QKeySequence::Quit);
    quit->setMenuRole(QAction::QuitRole);
}

void MainWindow::setCloseRequest(CloseRequest request)
{
    m_closeRequest = std::move(request);
}

bool MainWindow::debugMenuEnabled()
{
#ifndef NDEBUG
    return true;
#else
    return qEnvironmentVariable("CORVEL_DEBUG_MENU") == QLatin1String("1");
#endif
}

void MainWindow::setDebugActions(DebugActions actions)
{
    if (!debugMenuEnabled()) {
        return;
    }
    if (!m_debugMenu) {
        m_debugMenu = menuBar()->addMenu(tr("&Debug"));
        m_debugMenu->setObjectName(QStringLiteral("debugMenu"));
    }
    m_debugMenu->clear();
    m_debugMenu->addAction(tr("Show Crash Reporter Window"), this, std::move(actions.showTestCrashReport));
    m_debugMenu->addAction(tr("Send Test Crash Report"), this, std::move(actions.sendTestCrashReport));
    m_debugMenu->addSeparator();
    m_debugMenu->addAction(tr("Crash Deliberately"), this, std::move(actions.crash));
}

void MainWindow::closeEvent(QCloseEvent* event)
{
    if (m_closeApproved || !m_closeRequest) {
        event->accept();
        return;
    }
    // The answer may come at once or later (after an alert). A later approval closes the window again.
    QPointer<MainWindow> self(this);
    auto pending = std::make_shared<bool>(true);
    auto approvedNow = std::make_shared<bool>(false);
    m_closeRequest([self, pending, approvedNow](bool approved) {
        if (*pending) {
            *approvedNow = approved;
            return;
        }
        if (!self || !approved) {
            return;
        }
        self->m_closeApproved = true;
        self->close();
    });
    *pending = false;
    if (*approvedNow) {
        m_closeApproved = true;
        event->accept();
    } else {
        event->ignore();
    }
}
