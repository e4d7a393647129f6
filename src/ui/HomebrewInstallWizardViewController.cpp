#include "ui/HomebrewInstallWizardViewController.h"

#include "foundation/Logging.h"
#include "operations/HomebrewInstaller.h"

#include <QCoreApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QStyle>
#include <QVBoxLayout>

HomebrewInstallWizardViewController::HomebrewInstallWizardViewController(Homebrew::Installer& installer,
                                                                         QWidget* parent)
    : QDialog(parent)
    , m_installer(installer)
    , m_relaunch([] { return Homebrew::Installer::relaunch(); })
    , m_quit([] { QCoreApplication::quit(); })
    , m_guidedInstallationButton(new QPushButton(tr("Guided Installation")))
    , m_checkAndRelaunchButton(new QPushButton(tr("Check and Relaunch")))
    , m_closeButton(new QPushButton(tr("Close")))
    , m_progress(new QProgressBar)
    , m_cautionIcon(new QLabel)
    , m_errorLabel(new QLabel)
{
    setObjectName(QStringLiteral("HomebrewInstallWizardViewController"));
    setWindowTitle(tr("Install Homebrew"));
    setWindowModality(Qt::WindowModal);
    m_guidedInstallationButton->setObjectName(QStringLiteral("guidedInstallationButton"));
    m_checkAndRelaunchButton->setObjectName(QStringLiteral("checkAndRelaunchButton"));
    m_closeButton->setObjectName(QStringLiteral("closeButton"));
    m_progress->setObjectName(QStringLiteral("downloadProgress"));
    m_progress->setRange(0, 100);
    m_cautionIcon->setObjectName(QStringLiteral("cautionIcon"));
    const int iconSize = style()->pixelMetric(QStyle::PM_SmallIconSize);
    m_cautionIcon->setPixmap(style()->standardIcon(QStyle::SP_MessageBoxWarning).pixmap(iconSize, iconSize));
    m_errorLabel->setObjectName(QStringLiteral("errorMessage"));
    m_errorLabel->setWordWrap(true);

    auto* heading = new QLabel(tr("Homebrew is not installed"));
    QFont font = heading->font();
    font.setBold(true);
    heading->setFont(font);
    auto* explanation = new QLabel(
        tr("Corvel X needs Homebrew. The guided installation downloads the installer of Homebrew's latest release "
           "from GitHub and opens it; follow its steps, then choose Check and Relaunch to start Corvel X again."));
    explanation->setWordWrap(true);

    auto* error = new QHBoxLayout;
    error->addWidget(m_cautionIcon, 0, Qt::AlignTop);
    error->addWidget(m_errorLabel, 1);

    auto* buttons = new QHBoxLayout;
    buttons->addWidget(m_closeButton);
    buttons->addStretch();
    buttons->addWidget(m_guidedInstallationButton);
    buttons->addWidget(m_checkAndRelaunchButton);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(heading);
    layout->addWidget(explanation);
    layout->addWidget(m_progress);
    layout->addLayout(error);
    layout->addStretch();
    layout->addLayout(buttons);
    setMinimumWidth(460);

    connect(m_guidedInstallationButton, &QPushButton::clicked, this,
            &HomebrewInstallWizardViewController::guidedInstallation);
    connect(m_checkAndRelaunchButton, &QPushButton::clicked, this,
            &HomebrewInstallWizardViewController::checkAndRelaunch);
    connect(m_closeButton, &QPushButton::clicked, this, &QDialog::reject);
    connect(&m_installer, &Homebrew::Installer::downloadPercentageChanged, this,
            &HomebrewInstallWizardViewController::update);
    connect(&m_installer, &Homebrew::Installer::installingChanged, this, &HomebrewInstallWizardViewController::update);
    connect(&m_installer, &Homebrew::Installer::installedChanged, this, &HomebrewInstallWizardViewController::update);
    connect(&m_installer, &Homebrew::Installer::errorMessageChanged, this,
            &HomebrewInstallWizardViewController::update);
    update();
}

bool HomebrewInstallWizardViewController::isInstalling() const
{
    return m_installer.isInstalling();
}

bool HomebrewInstallWizardViewController::isInstalled() const
{
    return m_installer.isInstalled();
}

QString HomebrewInstallWizardViewController::errorMessage() const
{
    return m_relaunchError.isEmpty() ? m_installer.errorMessage() : m_relaunchError;
}

void HomebrewInstallWizardViewController::setRelaunch(Relaunch relaunch, Quit quit)
{
    m_relaunch = std::move(relaunch);
    m_quit = std::move(quit);
}

void HomebrewInstallWizardViewController::guidedInstallation()
{
    m_relaunchError.clear();
    m_installer.install();
    update();
}

void HomebrewInstallWizardViewController::checkAndRelaunch()
{
    if (m_installer.isInstalling()) {
        return;
    }
    const Result<void> relaunched = m_relaunch();
    if (!relaunched) {
        qCWarning(lcCorvel).noquote() << QStringLiteral("Unable to relaunch: %1").arg(relaunched.error().description());
        m_relaunchError = tr("Impossible to relaunch Corvel X. Open it again yourself.");
        update();
        return;
    }
    // The sheet must not keep the application alive: the new one takes over.
    m_quit();
}

void HomebrewInstallWizardViewController::update()
{
    const bool installing = m_installer.isInstalling();
    m_progress->setVisible(installing);
    m_progress->setValue(qRound(m_installer.downloadPercentage()));
    const QString error = errorMessage();
    m_errorLabel->setText(error);
    m_errorLabel->setVisible(!error.isEmpty());
    m_cautionIcon->setVisible(!error.isEmpty());
    m_guidedInstallationButton->setEnabled(!installing);
    m_checkAndRelaunchButton->setEnabled(!installing);
    // Return goes to the step that comes next.
    m_guidedInstallationButton->setDefault(!m_installer.isInstalled());
    m_checkAndRelaunchButton->setDefault(m_installer.isInstalled());
}
