#include "ui/SettingsGeneralSyncViewController.h"

#include "catalogue/Synchronisation.h"
#include "foundation/Defaults.h"
#include "foundation/PreferenceKeys.h"
#include "ui/PreferenceCheckBox.h"

#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLocale>
#include <QProgressBar>
#include <QPushButton>
#include <QVBoxLayout>
#include <cmath>

namespace {

// The bar counts in thousandths of a pass.
constexpr int progressScale = 1000;

} // namespace

SettingsGeneralSyncViewController::SettingsGeneralSyncViewController(Defaults& defaults,
                                                                     Synchronisation& synchronisation, QWidget* parent)
    : QWidget(parent)
    , m_defaults(defaults)
    , m_synchronisation(synchronisation)
{
    m_syncButton = new QPushButton(tr("Sync Now"));
    m_syncButton->setObjectName(QStringLiteral("syncNow"));
    m_fastSyncButton = new QPushButton(tr("Fast Sync"));
    m_fastSyncButton->setObjectName(QStringLiteral("fastSync"));
    m_progressLabel = new QLabel;
    m_progressLabel->setObjectName(QStringLiteral("syncProgressLabel"));
    m_progressBar = new QProgressBar;
    m_progressBar->setRange(0, progressScale);
    m_progressBar->setTextVisible(false);
    m_syncOnLaunch = new PreferenceCheckBox(tr("Synchronise when the application starts"), defaults,
                                            PreferenceKeys::SyncOnAppLaunch);
    m_lastSyncLabel = new QLabel;
    m_lastSyncLabel->setObjectName(QStringLiteral("lastSyncTime"));
    m_lastFastSyncLabel = new QLabel;
    m_lastFastSyncLabel->setObjectName(QStringLiteral("lastFastSyncTime"));

    auto* buttons = new QHBoxLayout;
    buttons->addWidget(m_syncButton);
    buttons->addWidget(m_fastSyncButton);
    buttons->addStretch();

    auto* dates = new QFormLayout;
    dates->addRow(tr("Last full synchronisation:"), m_lastSyncLabel);
    dates->addRow(tr("Last synchronisation:"), m_lastFastSyncLabel);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addLayout(buttons);
    layout->addWidget(m_progressLabel);
    layout->addWidget(m_progressBar);
    layout->addWidget(m_syncOnLaunch);
    layout->addLayout(dates);

    connect(m_syncButton, &QPushButton::clicked, this, &SettingsGeneralSyncViewController::sync);
    connect(m_fastSyncButton, &QPushButton::clicked, this, &SettingsGeneralSyncViewController::fastSync);
    // Passes started elsewhere (at launch, from the menu) show here as well.
    connect(&m_synchronisation, &Synchronisation::stepChanged, this,
            &SettingsGeneralSyncViewController::followSynchronisation);
    connect(&m_synchronisation, &Synchronisation::finished, this,
            &SettingsGeneralSyncViewController::followSynchronisation);
    m_defaults.observe(PreferenceKeys::LastSyncTime, this, [this] { showLastSyncTimes(); });
    m_defaults.observe(PreferenceKeys::LastFastSyncTime, this, [this] { showLastSyncTimes(); });
    followSynchronisation();
    showLastSyncTimes();
}

bool SettingsGeneralSyncViewController::isProcessing() const
{
    return m_synchronisation.isRunning();
}

QString SettingsGeneralSyncViewController::dateText(const std::optional<QDateTime>& date)
{
    return date ? QLocale().toString(date->toLocalTime(), QLocale::ShortFormat) : tr("Never");
}

void SettingsGeneralSyncViewController::sync()
{
    m_synchronisation.start(Synchronisation::Form::full);
}

void SettingsGeneralSyncViewController::fastSync()
{
    m_synchronisation.start(Synchronisation::Form::fast);
}

void SettingsGeneralSyncViewController::followSynchronisation()
{
    const bool processing = m_synchronisation.isRunning();
    m_syncButton->setEnabled(!processing);
    m_fastSyncButton->setEnabled(!processing);
    m_progressLabel->setText(m_synchronisation.progressLabel());
    m_progressBar->setValue(static_cast<int>(std::lround(m_synchronisation.progress() * progressScale)));
}

void SettingsGeneralSyncViewController::showLastSyncTimes()
{
    m_lastSyncLabel->setText(dateText(m_defaults.dateValue(PreferenceKeys::LastSyncTime)));
    m_lastFastSyncLabel->setText(dateText(m_defaults.dateValue(PreferenceKeys::LastFastSyncTime)));
}
