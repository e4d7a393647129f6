// The first-run assistant's requirements page: checks for Homebrew and installs the companion commands, showing each
// step as it happens; offers Homebrew's installation when it is missing, and a retry when the commands fail.
#pragma once

#include "operations/CommandsInstallation.h"
#include "ui/OnboardingPage.h"

#include <QPointer>
#include <QUrl>
#include <functional>
#include <optional>

class Alerter;
class CommandsInstallationProgressView;
class CompanionCommands;
class HomebrewInstallWizardViewController;
class QLabel;
class QProgressBar;
class QPushButton;

namespace Homebrew {
class Installation;
class Installer;
} // namespace Homebrew

class OnboardingRequirementsViewController : public OnboardingPage {
    Q_OBJECT

public:
    // Opens a web page for the person; false when nothing could show it.
    using UrlOpener = std::function<bool(const QUrl&)>;

    // Everything passed in must outlive the page. repositoryPage: the companion repository's page on GitHub.
    OnboardingRequirementsViewController(const Homebrew::Installation& installation, const CompanionCommands& companion,
                                         Alerter& alerter, Homebrew::Installer& homebrewInstaller,
                                         const QUrl& repositoryPage, QWidget* parent = nullptr);

    bool isComplete() const override;
    bool isBusy() const override;
    // Runs the check unless it runs already or has completed.
    void activate() override;

    // By default the desktop's browser (QDesktopServices).
    void setUrlOpener(UrlOpener opener);
    QUrl repositoryPage() const { return m_repositoryPage; }

    // The outcome of the last run; none before one ended.
    std::optional<CommandsInstallation::Outcome> outcome() const { return m_outcome; }

    CommandsInstallation& commandsInstallation() { return m_step; }
    CommandsInstallationProgressView* statusView() const { return m_status; }
    QLabel* messageLabel() const { return m_message; }
    QPushButton* installHomebrewButton() const { return m_installHomebrew; }
    QPushButton* tryAgainButton() const { return m_tryAgain; }
    QPushButton* repositoryButton() const { return m_repositoryButton; }
    // The Homebrew installation sheet while it is open.
    HomebrewInstallWizardViewController* homebrewInstallSheet() const;

public Q_SLOTS:
    void openHomebrewInstallSheet();
    void openRepositoryPage();
    // Runs the check again from its start.
    void retry();

private:
    void finished(CommandsInstallation::Outcome outcome);
    void updateControls();

    CommandsInstallation m_step;
    Homebrew::Installer& m_homebrewInstaller;
    QUrl m_repositoryPage;
    UrlOpener m_urlOpener;
    std::optional<CommandsInstallation::Outcome> m_outcome;
    CommandsInstallationProgressView* m_status;
    QProgressBar* m_busy;
    QLabel* m_message;
    QPushButton* m_installHomebrew;
    QPushButton* m_tryAgain;
    QPushButton* m_repositoryButton;
    QPointer<HomebrewInstallWizardViewController> m_sheet;
};
