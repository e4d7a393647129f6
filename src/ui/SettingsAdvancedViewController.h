// The advanced settings tab: asking every suppressed confirmation again, and the facts about this installation
// (application, system, Homebrew and companion commands versions) to read and copy into a support request.
#pragma once

#include <QMap>
#include <QWidget>

class Bundle;
class Defaults;
class QLabel;
class QPlainTextEdit;
class QPushButton;

namespace Homebrew {
class Installation;
}

class SettingsAdvancedViewController : public QWidget {
    Q_OBJECT

public:
    // bundle and installation must outlive this object and the reading it starts on a worker.
    SettingsAdvancedViewController(Defaults& defaults, const Bundle& bundle, const Homebrew::Installation& installation,
                                   QWidget* parent = nullptr);

    QPushButton* restoreAlertsButton() const { return m_restoreAlertsButton; }
    // Says "All the alerts have been restored" once they are.
    QLabel* restoreAlertsMessage() const { return m_restoreAlertsMessage; }
    QPlainTextEdit* diagnosticInformationView() const { return m_diagnostics; }
    QPushButton* copyButton() const { return m_copyButton; }

    // One "key: value" line per fact, in the keys' order; unknown values read "Unknown".
    static QString diagnosticText(const QMap<QString, QString>& information);

public Q_SLOTS:
    void resetSuppressedAlerts();
    void copyDiagnosticInformation();

Q_SIGNALS:
    // The diagnostic information is on screen.
    void diagnosticInformationShown();

private:
    Defaults& m_defaults;
    QPushButton* m_restoreAlertsButton;
    QLabel* m_restoreAlertsMessage;
    QPlainTextEdit* m_diagnostics;
    QPushButton* m_copyButton;
};
