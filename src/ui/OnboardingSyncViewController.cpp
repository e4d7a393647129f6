#include "ui/OnboardingSyncViewController.h"

#include "catalogue/Synchronisation.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QVBoxLayout>

OnboardingSyncViewController::OnboardingSyncViewController(Synchronisation& synchronisation, QWidget* parent)
    : OnboardingPage(tr("Synchronisation"), parent)
    , m_synchronisation(synchronisation)
    , m_progress(new QProgressBar)
    , m_progressLabel(new QLabel)
    , m_error(paragraph(QString()))
    , m_tryAgain(new QPushButton(tr("Try Again")))
{
    m_progress->setObjectName(QStringLiteral("progress"));
    m_progress->setRange(0, 100);
    m_progress->setValue(0);
    m_progressLabel->setObjectName(QStringLiteral("progressLabel"));
    m_error->setObjectName(QStringLiteral("synchronisationError"));
    m_tryAgain->setObjectName(QStringLiteral("tryAgainButton"));
    m_error->hide();
    m_tryAgain->hide();

    QVBoxLayout* layout = contentLayout();
    layout->addWidget(
        paragraph(tr("Corvel X now reads the catalogue of every app and script that Homebrew offers, and finds out "
                     "what is installed on this machine. This takes a minute the first time; later synchronisations "
                     "run in the background.")));
    layout->addSpacing(12);
    layout->addWidget(m_progressLabel);
    layout->addWidget(m_progress);
    layout->addWidget(m_error);
    auto* buttons = new QHBoxLayout;
    buttons->addWidget(m_tryAgain);
    buttons->addStretch();
    layout->addLayout(buttons);
    layout->addStretch();

    connect(m_tryAgain, &QPushButton::clicked, this, &OnboardingSyncViewController::retry);
}

void OnboardingSyncViewController::activate()
{
    if (!m_complete && !m_synchronisation.isRunning() && !m_failed) {
        start();
    } else if (m_synchronisation.isRunning()) {
        follow();
    }
}

bool OnboardingSyncViewController::isProcessing() const
{
    return m_followed && m_synchronisation.isRunning();
}

void OnboardingSyncViewController::retry()
{
    if (!m_complete && !m_synchronisation.isRunning()) {
        start();
    }
}

void OnboardingSyncViewController::start()
{
    m_failed = false;
    m_error->hide();
    m_tryAgain->hide();
    follow();
    m_synchronisation.start(Synchronisation::Form::full);
    Q_EMIT processingChanged(isProcessing());
    Q_EMIT stateChanged();
}

void OnboardingSyncViewController::follow()
{
    if (m_followed) {
        return;
    }
    m_followed = true;
    connect(&m_synchronisation, &Synchronisation::stepChanged, this, [this](SyncSteps::Step, double share) {
        m_progressLabel->setText(m_synchronisation.progressLabel());
        m_progress->setValue(qRound(share * 100));
    });
    connect(&m_synchronisation, &Synchronisation::finished, this, &OnboardingSyncViewController::finished);
    m_progressLabel->setText(m_synchronisation.progressLabel());
    m_progress->setValue(qRound(m_synchronisation.progress() * 100));
}

void OnboardingSyncViewController::finished(bool succeeded, const QString& errorDescription)
{
    m_progressLabel->setText(m_synchronisation.progressLabel());
    if (succeeded) {
        m_complete = true;
        m_progress->setValue(100);
    } else {
        m_failed = true;
        m_error->setText(errorDescription);
        m_error->setVisible(!errorDescription.isEmpty());
        m_tryAgain->show();
    }
    Q_EMIT processingChanged(false);
    Q_EMIT stateChanged();
}
