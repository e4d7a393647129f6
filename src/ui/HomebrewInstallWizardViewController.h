// The sheet that installs Homebrew when it is missing: the guided installation downloads Homebrew's installer
// package with progress and opens it; check and relaunch then starts Corvel X again so that it finds Homebrew.
#pragma once

#include "foundation/Result.h"

#include <QDialog>
#include <functional>

class QLabel;
class QProgressBar;
class QPushButton;

namespace Homebrew {
class Installer;
}

class HomebrewInstallWizardViewController : public QDialog {
    Q_OBJECT
    Q_PROPERTY(bool installing READ isInstalling)
    Q_PROPERTY(bool installed READ isInstalled)
    Q_PROPERTY(QString errorMessage READ errorMessage)

public:
    // Starts the application again once this one has ended; the error says why it could not.
    using Relaunch = std::function<Result<void>()>;
    // Ends this application.
    using Quit = std::function<void()>;

    // installer must outlive the sheet; it keeps working (and the sheet shows where it is when opened again) after
    // the sheet is closed. Window-modal to parent's window.
    explicit HomebrewInstallWizardViewController(Homebrew::Installer& installer, QWidget* parent = nullptr);

    Homebrew::Installer& installer() const { return m_installer; }
    bool isInstalling() const;
    bool isInstalled() const;
    // The installer's message, or why the relaunch failed; empty otherwise.
    QString errorMessage() const;

    // By default Homebrew::Installer::relaunch() and QCoreApplication::quit().
    void setRelaunch(Relaunch relaunch, Quit quit);

    QPushButton* guidedInstallationButton() const { return m_guidedInstallationButton; }
    QPushButton* checkAndRelaunchButton() const { return m_checkAndRelaunchButton; }
    QPushButton* closeButton() const { return m_closeButton; }
    // The download's progress, shown while installing.
    QProgressBar* downloadProgress() const { return m_progress; }
    QLabel* cautionIcon() const { return m_cautionIcon; }
    QLabel* errorLabel() const { return m_errorLabel; }

public Q_SLOTS:
    void guidedInstallation();
    // Also before Homebrew is installed: the new start simply shows the requirements again.
    void checkAndRelaunch();

private:
    void update();

    Homebrew::Installer& m_installer;
    Relaunch m_relaunch;
    Quit m_quit;
    QString m_relaunchError;
    QPushButton* m_guidedInstallationButton;
    QPushButton* m_checkAndRelaunchButton;
    QPushButton* m_closeButton;
    QProgressBar* m_progress;
    QLabel* m_cautionIcon;
    QLabel* m_errorLabel;
};
