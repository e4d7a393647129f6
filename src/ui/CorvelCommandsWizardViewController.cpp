#include "ui/CorvelCommandsWizardViewController.h"

#include "operations/CompanionCommands.h"
#include "ui/CommandsInstallationProgressView.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QShowEvent>
#include <QVBoxLayout>

CorvelCommandsWizardViewController::CorvelCommandsWizardViewController(const Homebrew::Installation& installation,
                                                                       const CompanionCommands& companion,
                                                                       Alerter& alerter, QWidget* parent)
    : QDialog(parent)
    , m_step(installation, companion, alerter)
    , m_status(new CommandsInstallationProgressView(m_step))
    , m_busy(new QProgressBar)
    , m_message(new QLabel)
    , m_tryAgain(new QPushButton(tr("Try Again")))
    , m_close(new QPushButton(tr("Close")))
{
    setObjectName(QStringLiteral("CorvelCommandsWizardViewController"));
    setWindowTitle(tr("Install Commands"));
    setWindowModality(Qt::WindowModal);
    m_busy->setRange(0, 0);
    m_busy->setTextVisible(false);
    m_message->setObjectName(QStringLiteral("commandsMessage"));
    m_message->setWordWrap(true);
    m_tryAgain->setObjectName(QStringLiteral("tryAgainButton"));
    m_close->setObjectName(QStringLiteral("closeButton"));
    m_close->setDefault(true);

    auto* explanation =
        new QLabel(tr("Corvel X synchronises the contents of your repositories with the command of its companion "
                      "repository, %1.")
                       .arg(CompanionCommands::tapName));
    explanation->setWordWrap(true);

    auto* buttons = new QHBoxLayout;
    buttons->addWidget(m_tryAgain);
    buttons->addStretch();
    buttons->addWidget(m_close);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(explanation);
    layout->addWidget(m_status, 1);
    layout->addWidget(m_busy);
    layout->addWidget(m_message);
    layout->addLayout(buttons);
    setMinimumSize(440, 260);

    connect(&m_step, &CommandsInstallation::runningChanged, this, &CorvelCommandsWizardViewController::updateControls);
    connect(&m_step, &CommandsInstallation::finished, this, &CorvelCommandsWizardViewController::finished);
    connect(m_tryAgain, &QPushButton::clicked, this, &CorvelCommandsWizardViewController::start);
    connect(m_close, &QPushButton::clicked, this, &QDialog::accept);
    updateControls();
}

void CorvelCommandsWizardViewController::start()
{
    if (m_step.isRunning()) {
        return;
    }
    m_started = true;
    m_outcome.reset();
    m_step.start();
    updateControls();
}

void CorvelCommandsWizardViewController::showEvent(QShowEvent* event)
{
    QDialog::showEvent(event);
    if (!m_started) {
        start();
    }
}

void CorvelCommandsWizardViewController::finished(CommandsInstallation::Outcome outcome)
{
    m_outcome = outcome;
    switch (outcome) {
    case CommandsInstallation::Outcome::completed:
        m_message->setText(tr("The commands are installed."));
        Q_EMIT commandsInstalled();
        break;
    case CommandsInstallation::Outcome::homebrewMissing:
        m_message->setText(tr("Homebrew is not installed. Install Homebrew first, from the Help menu."));
        break;
    case CommandsInstallation::Outcome::failed:
        m_message->setText(tr("The commands could not be installed. Check your network connection and try again."));
        break;
    }
    updateControls();
}

void CorvelCommandsWizardViewController::updateControls()
{
    const bool running = m_step.isRunning();
    m_busy->setVisible(running);
    m_message->setVisible(!running && m_outcome.has_value());
    m_tryAgain->setVisible(!running && m_outcome == CommandsInstallation::Outcome::failed);
}
