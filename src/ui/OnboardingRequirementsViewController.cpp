#include "ui/OnboardingRequirementsViewController.h"

#include "foundation/Logging.h"
#include "operations/CompanionCommands.h"
#include "ui/CommandsInstallationProgressView.h"
#include "ui/HomebrewInstallWizardViewController.h"

#include <QDesktopServices>
#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QVBoxLayout>

OnboardingRequirementsViewController::OnboardingRequirementsViewController(const Homebrew::Installation& installation,
                                                                           const CompanionCommands& companion,
                                                                           Alerter& alerter,
                                                                           Homebrew::Installer& homebrewInstaller,
                                                                           const QUrl& repositoryPage, QWidget* parent)
    : OnboardingPage(tr("Requirements"), parent)
    , m_step(installation, companion, alerter)
    , m_homebrewInstaller(homebrewInstaller)
    , m_repositoryPage(repositoryPage)
    , m_urlOpener([](const QUrl& url) { return QDesktopServices::openUrl(url); })
    , m_status(new CommandsInstallationProgressView(m_step))
    , m_busy(new QProgressBar)
    , m_message(paragraph(QString()))
    , m_installHomebrew(new QPushButton(tr("Install Homebrew...")))
    , m_tryAgain(new QPushButton(tr("Try Again")))
    , m_repositoryButton(new QPushButton(tr("View Commands on GitHub")))
{
    m_busy->setObjectName(QStringLiteral("requirementsProgress"));
    m_busy->setRange(0, 0); // the checks say nothing of how far they are
    m_busy->setTextVisible(false);
    m_busy->setMaximumWidth(160);
    m_message->setObjectName(QStringLiteral("requirementsMessage"));
    m_installHomebrew->setObjectName(QStringLiteral("installHomebrewButton"));
    m_tryAgain->setObjectName(QStringLiteral("tryAgainButton"));
    m_repositoryButton->setObjectName(QStringLiteral("commandsRepositoryButton"));

    QVBoxLayout* layout = contentLayout();
    layout->addWidget(
        paragraph(tr("Corvel X works with Homebrew and with a small repository of its own, %1, which adds the "
                     "command that lists the contents of every repository. It is installed now if it is missing.")
                      .arg(CompanionCommands::tapName)));
    layout->addWidget(m_status, 1);
    layout->addWidget(m_busy);
    layout->addWidget(m_message);
    auto* buttons = new QHBoxLayout;
    buttons->addWidget(m_installHomebrew);
    buttons->addWidget(m_tryAgain);
    buttons->addStretch();
    buttons->addWidget(m_repositoryButton);
    layout->addLayout(buttons);

    connect(&m_step, &CommandsInstallation::runningChanged, this,
            &OnboardingRequirementsViewController::updateControls);
    connect(&m_step, &CommandsInstallation::finished, this, &OnboardingRequirementsViewController::finished);
    connect(m_installHomebrew, &QPushButton::clicked, this,
            &OnboardingRequirementsViewController::openHomebrewInstallSheet);
    connect(m_tryAgain, &QPushButton::clicked, this, &OnboardingRequirementsViewController::retry);
    connect(m_repositoryButton, &QPushButton::clicked, this, &OnboardingRequirementsViewController::openRepositoryPage);
    updateControls();
}

bool OnboardingRequirementsViewController::isComplete() const
{
    return m_outcome == CommandsInstallation::Outcome::completed;
}

bool OnboardingRequirementsViewController::isBusy() const
{
    return m_step.isRunning();
}

void OnboardingRequirementsViewController::activate()
{
    if (!isComplete() && !m_step.isRunning()) {
        retry();
    }
}

void OnboardingRequirementsViewController::setUrlOpener(UrlOpener opener)
{
    m_urlOpener = std::move(opener);
}

HomebrewInstallWizardViewController* OnboardingRequirementsViewController::homebrewInstallSheet() const
{
    return m_sheet;
}

void OnboardingRequirementsViewController::openHomebrewInstallSheet()
{
    if (m_sheet) {
        m_sheet->raise();
        return;
    }
    m_sheet = new HomebrewInstallWizardViewController(m_homebrewInstaller, this);
    m_sheet->setAttribute(Qt::WA_DeleteOnClose);
    // Homebrew may have been installed another way meanwhile: look again once the sheet is gone.
    connect(m_sheet, &QDialog::finished, this, &OnboardingRequirementsViewController::retry);
    m_sheet->open();
}

void OnboardingRequirementsViewController::openRepositoryPage()
{
    if (!m_urlOpener(m_repositoryPage)) {
        qCWarning(lcCorvel).noquote() << QStringLiteral("Unable to open %1").arg(m_repositoryPage.toDisplayString());
    }
}

void OnboardingRequirementsViewController::retry()
{
    if (m_step.isRunning()) {
        return;
    }
    m_outcome.reset();
    m_message->clear();
    m_step.start();
    updateControls();
    Q_EMIT stateChanged();
}

void OnboardingRequirementsViewController::finished(CommandsInstallation::Outcome outcome)
{
    m_outcome = outcome;
    switch (outcome) {
    case CommandsInstallation::Outcome::completed:
        m_message->setText(tr("Everything Corvel X needs is in place."));
        break;
    case CommandsInstallation::Outcome::homebrewMissing:
        m_message->setText(tr("Homebrew is not installed. Corvel X can download Homebrew's installer and open it "
                              "for you; once it has finished, Corvel X starts again and finds it."));
        break;
    case CommandsInstallation::Outcome::failed:
        m_message->setText(tr("The commands could not be installed. Check your network connection and try again."));
        break;
    }
    updateControls();
    Q_EMIT stateChanged();
}

void OnboardingRequirementsViewController::updateControls()
{
    const bool running = m_step.isRunning();
    m_busy->setVisible(running);
    m_installHomebrew->setVisible(!running && m_outcome == CommandsInstallation::Outcome::homebrewMissing);
    m_tryAgain->setVisible(!running && m_outcome && m_outcome != CommandsInstallation::Outcome::completed);
    m_message->setVisible(!running && m_outcome.has_value());
}
