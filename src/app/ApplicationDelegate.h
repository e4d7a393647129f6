// Starts the application in its fixed order (preferences, state, appearance, password relay, main window, crash
// reporting) and ends it, asking first while a background operation runs.
#pragma once

#include "activities/ApplicationState.h"
#include "activities/QuitConfirmation.h"
#include "diagnostics/CrashCaptureEngine.h"
#include "diagnostics/CrashReporter.h"
#include "homebrew/Askpass.h"
#include "ui/MessageBoxAlerter.h"
#include "ui/PasswordDialog.h"

#include <QObject>
#include <memory>

class Bundle;
class Defaults;
class MainWindow;

class ApplicationDelegate : public QObject {
    Q_OBJECT

public:
    // bundle and defaults must outlive this object.
    ApplicationDelegate(Bundle& bundle, Defaults& defaults, QObject* parent = nullptr);
    ~ApplicationDelegate() override;

    ApplicationState& state() { return m_state; }
    MainWindow* mainWindow() const { return m_mainWindow.get(); }
    CrashReporter& crashReporter() { return m_crashReporter; }

    void applicationDidFinishLaunching();

    // The answer to a request to quit (window closed, Ctrl+Q, SIGTERM): terminates now, later, or not at all.
    void requestTermination(std::function<void(bool terminate)> reply);

private:
    void applicationWillTerminate();

    Bundle& m_bundle;
    Defaults& m_defaults;
    ApplicationState m_state;
    MessageBoxAlerter m_alerter;
    QuitConfirmation m_quitConfirmation;
    PasswordDialog m_passwordDialog;
    Askpass m_askpass;
    CrashCaptureEngine m_crashCaptureEngine;
    CrashReporter m_crashReporter;
    std::unique_ptr<MainWindow> m_mainWindow;
};
