#include "ui/MainWindow.h"

#include <QCloseEvent>
#include <QPointer>

MainWindow::MainWindow(QWidget* parent)
    : QMainWindow(parent)
{
    setWindowTitle(QStringLiteral("Corvel X"));
    resize(1100, 720);
}

void MainWindow::setCloseRequest(CloseRequest request)
{
    m_closeRequest = std::move(request);
}

void MainWindow::closeEvent(QCloseEvent* event)
{
    if (m_closeApproved || !m_closeRequest) {
        event->accept();
        return;
    }
    // The answer may come later (an alert), so refuse now and close again once approved.
    event->ignore();
    QPointer<MainWindow> self(this);
    m_closeRequest([self](bool approved) {
        if (!self || !approved) {
            return;
        }
        self->m_closeApproved = true;
        self->close();
    });
}
