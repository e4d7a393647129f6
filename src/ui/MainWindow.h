// The application's main window: for now an empty frame titled "Corvel X" that asks before quitting while busy.
#pragma once

#include <QMainWindow>
#include <functional>

class QMenu;

class MainWindow : public QMainWindow {
    Q_OBJECT

public:
    // closeRequest decides whether the window may close; it answers through the callback, possibly later.
    using CloseRequest = std::function<void(std::function<void(bool)>)>;

    explicit MainWindow(QWidget* parent = nullptr);

    void setCloseRequest(CloseRequest request);

    // What the Debug menu offers developers: crash reporting tried out without a real crash.
    struct DebugActions {
        std::function<void()> showTestCrashReport;
        std::function<void()> sendTestCrashReport;
        std::function<void()> crash;
    };
    // Adds the Debug menu when debugMenuEnabled(); otherwise does nothing.
    void setDebugActions(DebugActions actions);
    // True in debug builds, and in any build started with CORVEL_DEBUG_MENU=1.
    static bool debugMenuEnabled();

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    CloseRequest m_closeRequest;
    bool m_closeApproved = false;
    QMenu* m_debugMenu = nullptr;
};
