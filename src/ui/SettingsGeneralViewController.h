// The general settings tab: the application's appearance, whether apps show their website's icon, the catalogue
// synchronisation, the permissions for usage data and crash reports, and whether beta releases are offered.
#pragma once

#include "ui/Appearance.h"

#include <QWidget>

class Defaults;
class PreferenceCheckBox;
class QAbstractButton;
class QButtonGroup;
class SettingsGeneralSyncViewController;
class Synchronisation;

class SettingsGeneralViewController : public QWidget {
    Q_OBJECT

public:
    SettingsGeneralViewController(Defaults& defaults, Synchronisation& synchronisation, QWidget* parent = nullptr);

    // The choice's button: Light, Dark or SystemDefault.
    QAbstractButton* appearanceButton(Appearance::Tag tag) const;
    PreferenceCheckBox* websiteIconsCheckBox() const { return m_websiteIcons; }
    SettingsGeneralSyncViewController* syncViewController() const { return m_sync; }
    PreferenceCheckBox* dataCollectionCheckBox() const { return m_dataCollection; }
    PreferenceCheckBox* crashReportsCheckBox() const { return m_crashReports; }
    PreferenceCheckBox* betaUpdatesCheckBox() const { return m_betaUpdates; }

public Q_SLOTS:
    // Applies the appearance to the whole application, logs it and keeps the choice for the next launch.
    void changeAppearance(Appearance::Tag tag);

private:
    void showAppearance();

    Defaults& m_defaults;
    QButtonGroup* m_appearance;
    PreferenceCheckBox* m_websiteIcons;
    SettingsGeneralSyncViewController* m_sync;
    PreferenceCheckBox* m_dataCollection;
    PreferenceCheckBox* m_crashReports;
    PreferenceCheckBox* m_betaUpdates;
};
