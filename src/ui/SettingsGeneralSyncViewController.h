// The synchronisation pane of the general settings: full and fast passes on request (not while one runs), the
// progress of the pass under way, whether a full pass may start at launch, and when the last passes completed.
#pragma once

#include <QDateTime>
#include <QWidget>
#include <optional>

class Defaults;
class PreferenceCheckBox;
class QLabel;
class QProgressBar;
class QPushButton;
class Synchronisation;

class SettingsGeneralSyncViewController : public QWidget {
    Q_OBJECT

public:
    SettingsGeneralSyncViewController(Defaults& defaults, Synchronisation& synchronisation, QWidget* parent = nullptr);

    // Whether a pass runs, as the pane shows it.
    bool isProcessing() const;

    QPushButton* syncButton() const { return m_syncButton; }
    QPushButton* fastSyncButton() const { return m_fastSyncButton; }
    QLabel* progressLabel() const { return m_progressLabel; }
    QProgressBar* progressBar() const { return m_progressBar; }
    PreferenceCheckBox* syncOnLaunchCheckBox() const { return m_syncOnLaunch; }
    QLabel* lastSyncLabel() const { return m_lastSyncLabel; }
    QLabel* lastFastSyncLabel() const { return m_lastFastSyncLabel; }

    // "Never" for no date.
    static QString dateText(const std::optional<QDateTime>& date);

public Q_SLOTS:
    void sync();
    void fastSync();

private:
    void followSynchronisation();
    void showLastSyncTimes();

    Defaults& m_defaults;
    Synchronisation& m_synchronisation;
    QPushButton* m_syncButton;
    QPushButton* m_fastSyncButton;
    QLabel* m_progressLabel;
    QProgressBar* m_progressBar;
    PreferenceCheckBox* m_syncOnLaunch;
    QLabel* m_lastSyncLabel;
    QLabel* m_lastFastSyncLabel;
};
