// Turns SIGINT and SIGTERM into a Qt signal on the GUI thread, so that Ctrl+C in a terminal or a session
// logout takes the same quit path as closing the main window.
#pragma once

#include <QObject>

class QSocketNotifier;

class TerminationSignals : public QObject {
    Q_OBJECT

public:
    explicit TerminationSignals(QObject* parent = nullptr);
    ~TerminationSignals() override;

Q_SIGNALS:
    void terminationRequested();

private:
    static void handle(int signal);

    QSocketNotifier* m_notifier = nullptr;
};
