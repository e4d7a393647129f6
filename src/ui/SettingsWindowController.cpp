#include "ui/SettingsWindowController.h"

#include "foundation/Defaults.h"
#include "foundation/Logging.h"
#include "foundation/PreferenceKeys.h"
#include "ui/AssetIcons.h"
#include "ui/SettingsAdvancedViewController.h"
#include "ui/SettingsGeneralViewController.h"
#include "ui/SettingsMaintenanceViewController.h"
#include "ui/SettingsRepositoriesViewController.h"

#include <QShowEvent>
#include <QTabWidget>
#include <QVBoxLayout>

SettingsWindowController::SettingsWindowController(const Context& context, QWidget* parent)
    : QWidget(parent, Qt::Window)
    , m_defaults(context.defaults)
    , m_installation(context.installation)
    , m_tabs(new QTabWidget)
{
    setWindowTitle(tr("Settings"));
    m_tabs->setObjectName(QStringLiteral("settingsTabs"));
    m_tabs->setIconSize(QSize(24, 24));

    m_general = new SettingsGeneralViewController(context.defaults, context.synchronisation);
    m_repositories = new SettingsRepositoriesViewController(context.repositories, context.viewContext);
    m_maintenance = new SettingsMaintenanceViewController(context.maintenance, context.defaults, context.bundle);
    m_advanced = new SettingsAdvancedViewController(context.defaults, context.bundle, context.installation);
    m_tabs->addTab(m_general, AssetIcons::icon(QStringLiteral("Icons/Settings/general")), tr("General"));
    m_tabs->addTab(m_repositories, AssetIcons::icon(QStringLiteral("Icons/Settings/repositories")), tr("Repositories"));
    m_tabs->addTab(m_maintenance, AssetIcons::icon(QStringLiteral("Icons/Settings/maintenance")), tr("Maintenance"));
    m_tabs->addTab(m_advanced, AssetIcons::icon(QStringLiteral("Icons/Settings/advanced")), tr("Advanced"));

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(m_tabs);
    resize(640, 560);

    // The selected tab and the preference follow each other both ways.
    connect(m_tabs, &QTabWidget::currentChanged, this, [this](int index) {
        if (index >= 0) {
            m_defaults.setValue(PreferenceKeys::SettingsSelectedTabIndex, index);
        }
    });
    m_defaults.observe(PreferenceKeys::SettingsSelectedTabIndex, this, [this] {
        setCurrentTab(static_cast<int>(m_defaults.integerValue(PreferenceKeys::SettingsSelectedTabIndex)));
    });
}

void SettingsWindowController::setCurrentTab(int index)
{
    if (index >= 0 && index < m_tabs->count()) {
        m_tabs->setCurrentIndex(index);
    }
}

int SettingsWindowController::currentTab() const
{
    return m_tabs->currentIndex();
}

QString SettingsWindowController::tabLabel(int index) const
{
    return m_tabs->tabText(index);
}

void SettingsWindowController::setCompanionCommands(const CompanionCommands& companion, Alerter& alerter)
{
    m_repositories->setCommandsInstallation(m_installation, companion, alerter);
}

void SettingsWindowController::showEvent(QShowEvent* event)
{
    // Spontaneous shows come from the window system (e.g. un-minimising), not from opening the window.
    if (!event->spontaneous()) {
        restoreSelectedTab();
    }
    QWidget::showEvent(event);
}

void SettingsWindowController::restoreSelectedTab()
{
    if (!m_defaults.value(PreferenceKeys::SettingsSelectedTabIndex).isValid()) {
        return;
    }
    const qint64 index = m_defaults.integerValue(PreferenceKeys::SettingsSelectedTabIndex);
    if (index < 0 || index >= m_tabs->count()) {
        return;
    }
    m_tabs->setCurrentIndex(static_cast<int>(index));
    qCInfo(lcCorvel).noquote() << QStringLiteral("Restore settings tab to: ") + tabLabel(static_cast<int>(index));
}
