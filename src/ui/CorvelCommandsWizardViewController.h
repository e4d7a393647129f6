// The sheet that installs the companion commands after the first run, e.g. when they were removed: checks for
// Homebrew, installs the commands when missing, and shows each step as it happens.
#pragma once

#include "operations/CommandsInstallation.h"

#include <QDialog>
#include <optional>

class Alerter;
class CommandsInstallationProgressView;
class CompanionCommands;
class QLabel;
class QProgressBar;
class QPushButton;

namespace Homebrew {
class Installation;
}

class CorvelCommandsWizardViewController : public QDialog {
    Q_OBJECT

public:
    // Everything passed in must outlive the sheet. Window-modal to parent's window; the installation starts when the
    // sheet is first shown.
    CorvelCommandsWizardViewController(const Homebrew::Installation& installation, const CompanionCommands& companion,
                                       Alerter& alerter, QWidget* parent = nullptr);

    // The outcome of the last run; none before one ended.
    std::optional<CommandsInstallation::Outcome> outcome() const { return m_outcome; }

    CommandsInstallation& commandsInstallation() { return m_step; }
    CommandsInstallationProgressView* statusView() const { return m_status; }
    QLabel* messageLabel() const { return m_message; }
    QPushButton* tryAgainButton() const { return m_tryAgain; }
    QPushButton* closeButton() const { return m_close; }

public Q_SLOTS:
    void start();

Q_SIGNALS:
    // The commands are there now.
    void commandsInstalled();

protected:
    void showEvent(QShowEvent* event) override;

private:
    void finished(CommandsInstallation::Outcome outcome);
    void updateControls();

    CommandsInstallation m_step;
    std::optional<CommandsInstallation::Outcome> m_outcome;
    bool m_started = false;
    CommandsInstallationProgressView* m_status;
    QProgressBar* m_busy;
    QLabel* m_message;
    QPushButton* m_tryAgain;
    QPushButton* m_close;
};
