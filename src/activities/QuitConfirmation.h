// Answers the request to terminate the application: at once while idle, and only after the user confirms while
// a background operation is running.
#pragma once

#include <QCoreApplication>
#include <functional>

class Alerter;
class ApplicationState;

class QuitConfirmation {
    Q_DECLARE_TR_FUNCTIONS(QuitConfirmation)

public:
    // state and alerter must outlive this object.
    QuitConfirmation(ApplicationState& state, Alerter& alerter);

    // Calls reply with true to terminate, false to keep running; immediately when idle, otherwise once the
    // alert has been answered (on the GUI thread). Running children are never touched either way.
    void requestTermination(std::function<void(bool terminate)> reply);

private:
    ApplicationState& m_state;
    Alerter& m_alerter;
};
