#include "ui/SettingsAdvancedViewController.h"

#include "foundation/Alerter.h"
#include "foundation/Threading.h"
#include "homebrew/HomebrewDiagnosticInformation.h"

#include <QApplication>
#include <QClipboard>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QVBoxLayout>

SettingsAdvancedViewController::SettingsAdvancedViewController(Defaults& defaults, const Bundle& bundle,
                                                               const Homebrew::Installation& installation,
                                                               QWidget* parent)
    : QWidget(parent)
    , m_defaults(defaults)
{
    auto* alertsBox = new QGroupBox(tr("Alerts"));
    auto* alertsText = new QLabel(tr("Confirmations you asked not to be shown again can be shown again."));
    alertsText->setWordWrap(true);
    m_restoreAlertsButton = new QPushButton(tr("Restore Alerts"));
    m_restoreAlertsButton->setObjectName(QStringLiteral("restoreAlerts"));
    m_restoreAlertsMessage = new QLabel;
    m_restoreAlertsMessage->setObjectName(QStringLiteral("restoreAlertsMessage"));
    auto* restoreRow = new QHBoxLayout;
    restoreRow->addWidget(m_restoreAlertsButton);
    restoreRow->addWidget(m_restoreAlertsMessage, 1);
    auto* alertsLayout = new QVBoxLayout(alertsBox);
    alertsLayout->addWidget(alertsText);
    alertsLayout->addLayout(restoreRow);
    connect(m_restoreAlertsButton, &QPushButton::clicked, this, &SettingsAdvancedViewController::resetSuppressedAlerts);

    auto* diagnosticsBox = new QGroupBox(tr("Diagnostic Information"));
    m_diagnostics = new QPlainTextEdit;
    m_diagnostics->setObjectName(QStringLiteral("diagnosticInformation"));
    m_diagnostics->setReadOnly(true);
    m_diagnostics->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    m_copyButton = new QPushButton(tr("Copy"));
    m_copyButton->setObjectName(QStringLiteral("copyDiagnosticInformation"));
    m_copyButton->setEnabled(false);
    auto* copyRow = new QHBoxLayout;
    copyRow->addStretch();
    copyRow->addWidget(m_copyButton);
    auto* diagnosticsLayout = new QVBoxLayout(diagnosticsBox);
    diagnosticsLayout->addWidget(m_diagnostics);
    diagnosticsLayout->addLayout(copyRow);
    connect(m_copyButton, &QPushButton::clicked, this, &SettingsAdvancedViewController::copyDiagnosticInformation);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(alertsBox);
    layout->addWidget(diagnosticsBox, 1);

    // Reading the versions means file-system walks inside the Homebrew prefix, which may be on a slow disk.
    const Bundle* bundlePointer = &bundle;
    const Homebrew::Installation* installationPointer = &installation;
    Threading::runAsync<QMap<QString, QString>>(
        [bundlePointer, installationPointer] {
            return Homebrew::DiagnosticInformation::collect(*bundlePointer, *installationPointer);
        },
        this,
        [this](QMap<QString, QString> information) {
            m_diagnostics->setPlainText(diagnosticText(information));
            m_copyButton->setEnabled(true);
            Q_EMIT diagnosticInformationShown();
        });
}

QString SettingsAdvancedViewController::diagnosticText(const QMap<QString, QString>& information)
{
    // The order people read and support staff expect, rather than the map's alphabetical one.
    static const QStringList order{QStringLiteral("Version"),          QStringLiteral("Build"),
                                   QStringLiteral("OS Version"),       QStringLiteral("System Architecture"),
                                   QStringLiteral("Homebrew Version"), QStringLiteral("Homebrew Commands Version")};
    QStringList keys = order;
    for (auto it = information.constBegin(); it != information.constEnd(); ++it) {
        if (!keys.contains(it.key())) {
            keys.append(it.key());
        }
    }
    QStringList lines;
    for (const QString& key : std::as_const(keys)) {
        if (!information.contains(key)) {
            continue;
        }
        const QString value = information.value(key);
        lines.append(key + QStringLiteral(": ") + (value.isEmpty() ? tr("Unknown") : value));
    }
    return lines.join(u'\n');
}

void SettingsAdvancedViewController::resetSuppressedAlerts()
{
    Alerter::restoreSuppressedAlerts(m_defaults);
    m_restoreAlertsMessage->setText(tr("All the alerts have been restored"));
}

void SettingsAdvancedViewController::copyDiagnosticInformation()
{
    QApplication::clipboard()->setText(m_diagnostics->toPlainText());
}
