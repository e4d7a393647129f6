// The first-run assistant: welcome, requirements, first synchronisation and done, one page at a time with Back and
// Continue. Finishing records that the first run is over; the application then opens its main window.
#pragma once

#include <QList>
#include <QUrl>
#include <QWidget>

class Alerter;
class CompanionCommands;
class Defaults;
class OnboardingDoneViewController;
class OnboardingPage;
class OnboardingRequirementsViewController;
class OnboardingSyncViewController;
class OnboardingWelcomeViewController;
class QLabel;
class QPushButton;
class QStackedWidget;
class Synchronisation;

namespace Homebrew {
class Installation;
class Installer;
} // namespace Homebrew

class OnboardingWindowController : public QWidget {
    Q_OBJECT

public:
    enum Page { WelcomePage, RequirementsPage, SynchronisationPage, DonePage };
    Q_ENUM(Page)

    // What the pages work with; everything must outlive the window.
    struct Context {
        Defaults& defaults;
        const Homebrew::Installation& installation;
        const CompanionCommands& companion;
        // Asks before the person leaves the setup, and reports a failed installation of the commands.
        Alerter& alerter;
        Synchronisation& synchronisation;
        Homebrew::Installer& homebrewInstaller;
        // The companion repository's page on GitHub.
        QUrl commandsRepositoryPage;
    };

    explicit OnboardingWindowController(const Context& context, QWidget* parent = nullptr);

    // Shows the page (e.g. for screenshots) without asking whether the one before is complete, and starts its work;
    // an index outside the pages is ignored.
    void showPage(int index);
    int currentPage() const;
    int pageCount() const;
    OnboardingPage* page(int index) const;

    OnboardingWelcomeViewController* welcomePage() const { return m_welcome; }
    OnboardingRequirementsViewController* requirementsPage() const { return m_requirements; }
    OnboardingSyncViewController* synchronisationPage() const { return m_synchronisation; }
    OnboardingDoneViewController* donePage() const { return m_done; }
    QPushButton* backButton() const { return m_back; }
    // "Continue", and "Start Using Corvel X" on the last page.
    QPushButton* continueButton() const { return m_continue; }

    // Whether the assistant has been finished.
    bool isFinished() const { return m_finished; }
    // The application is ending for another reason (a termination signal, a quit already agreed to): closing the
    // window must not ask again, or the quit would be refused.
    void allowClosing() { m_quitConfirmed = true; }

public Q_SLOTS:
    // The next page when the current one is complete; on the last page, finishes the assistant.
    void goForward();
    void goBack();

Q_SIGNALS:
    // The assistant is done and "IsFirstRun" is false.
    void finished();
    // The person chose to quit before the end; the assistant comes back at the next start.
    void quitRequested();

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    void updateButtons();
    void finish();

    Defaults& m_defaults;
    Alerter& m_alerter;
    QStackedWidget* m_pages;
    OnboardingWelcomeViewController* m_welcome;
    OnboardingRequirementsViewController* m_requirements;
    OnboardingSyncViewController* m_synchronisation;
    OnboardingDoneViewController* m_done;
    QList<QLabel*> m_stepLabels;
    QPushButton* m_back;
    QPushButton* m_continue;
    bool m_finished = false;
    bool m_quitConfirmed = false;
    bool m_asking = false;
};
