#include "ui/SettingsGeneralViewController.h"

#include "foundation/Defaults.h"
#include "foundation/Logging.h"
#include "foundation/PreferenceKeys.h"
#include "ui/AssetIcons.h"
#include "ui/PreferenceCheckBox.h"
#include "ui/SettingsGeneralSyncViewController.h"

#include <QButtonGroup>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QRadioButton>
#include <QVBoxLayout>

SettingsGeneralViewController::SettingsGeneralViewController(Defaults& defaults, Synchronisation& synchronisation,
                                                             QWidget* parent)
    : QWidget(parent)
    , m_defaults(defaults)
{
    auto* appearanceBox = new QGroupBox(tr("Appearance"));
    auto* appearanceLayout = new QHBoxLayout(appearanceBox);
    m_appearance = new QButtonGroup(this);
    const struct {
        Appearance::Tag tag;
        QString text;
        QString icon;
        QString name;
    } choices[] = {
        {Appearance::Light, tr("Light"), QStringLiteral("Appearance/light"), QStringLiteral("appearanceLight")},
        {Appearance::Dark, tr("Dark"), QStringLiteral("Appearance/dark"), QStringLiteral("appearanceDark")},
        {Appearance::SystemDefault, tr("System"), QStringLiteral("Appearance/automatic"),
         QStringLiteral("appearanceSystem")},
    };
    for (const auto& choice : choices) {
        auto* button = new QRadioButton(choice.text);
        button->setObjectName(choice.name);
        button->setIcon(AssetIcons::icon(choice.icon));
        button->setIconSize(QSize(48, 32));
        m_appearance->addButton(button, choice.tag);
        appearanceLayout->addWidget(button);
    }
    appearanceLayout->addStretch();
    connect(m_appearance, &QButtonGroup::idClicked, this,
            [this](int id) { changeAppearance(Appearance::fromValue(id)); });

    auto* appsBox = new QGroupBox(tr("Apps"));
    m_websiteIcons =
        new PreferenceCheckBox(tr("Show website icons for apps"), defaults, PreferenceKeys::ShowWebsiteIcons);
    // Said plainly, as it is what makes the application contact the apps' own websites.
    m_websiteIcons->setToolTip(tr("Fetches each app's icon from its website; without it apps show their kind's icon."));
    (new QVBoxLayout(appsBox))->addWidget(m_websiteIcons);

    auto* syncBox = new QGroupBox(tr("Synchronisation"));
    m_sync = new SettingsGeneralSyncViewController(defaults, synchronisation);
    (new QVBoxLayout(syncBox))->addWidget(m_sync);

    auto* permissionsBox = new QGroupBox(tr("Permissions"));
    auto* permissionsLayout = new QVBoxLayout(permissionsBox);
    m_dataCollection =
        new PreferenceCheckBox(tr("Send anonymous usage data"), defaults, PreferenceKeys::AllowDataCollection);
    m_crashReports = new PreferenceCheckBox(tr("Send crash reports automatically"), defaults,
                                            PreferenceKeys::AllowAutomaticCrashReportsCollection);
    permissionsLayout->addWidget(m_dataCollection);
    permissionsLayout->addWidget(m_crashReports);

    auto* updatesBox = new QGroupBox(tr("Updates"));
    m_betaUpdates = new PreferenceCheckBox(tr("Receive beta updates"), defaults, PreferenceKeys::ReceiveBetaUpdates);
    (new QVBoxLayout(updatesBox))->addWidget(m_betaUpdates);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(appearanceBox);
    layout->addWidget(appsBox);
    layout->addWidget(syncBox);
    layout->addWidget(permissionsBox);
    layout->addWidget(updatesBox);
    layout->addStretch();

    showAppearance();
    m_defaults.observe(PreferenceKeys::Appearance, this, [this] { showAppearance(); });
}

QAbstractButton* SettingsGeneralViewController::appearanceButton(Appearance::Tag tag) const
{
    return m_appearance->button(tag);
}

void SettingsGeneralViewController::changeAppearance(Appearance::Tag tag)
{
    qCInfo(lcCorvel).noquote() << QStringLiteral("Changing appearance to: ") + Appearance::label(tag);
    Appearance::apply(tag);
    m_defaults.setValue(PreferenceKeys::Appearance, static_cast<int>(tag));
}

void SettingsGeneralViewController::showAppearance()
{
    const Appearance::Tag tag = Appearance::fromValue(m_defaults.integerValue(PreferenceKeys::Appearance));
    if (QAbstractButton* button = m_appearance->button(tag)) {
        button->setChecked(true);
    }
}
