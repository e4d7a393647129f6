// The application's main window: for now an empty frame titled "Corvel X" that asks before quitting while busy.
#pragma once

#include <QMainWindow>
#include <functional>

class MainWindow : public QMainWindow {
    Q_OBJECT

public:
    // closeRequest decides whether the window may close; it answers through the callback, possibly later.
    using CloseRequest = std::function<void(std::function<void(bool)>)>;

    explicit MainWindow(QWidget* parent = nullptr);

    void setCloseRequest(CloseRequest request);

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    CloseRequest m_closeRequest;
    bool m_closeApproved = false;
};
