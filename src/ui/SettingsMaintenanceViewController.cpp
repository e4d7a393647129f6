#include "ui/SettingsMaintenanceViewController.h"

#include "operations/AgentService.h"
#include "ui/SettingsMaintenanceJobViewController.h"

#include <QTabWidget>
#include <QVBoxLayout>

SettingsMaintenanceViewController::SettingsMaintenanceViewController(Maintenance& maintenance, Defaults& defaults,
                                                                     const Bundle& bundle, QWidget* parent)
    : QWidget(parent)
    , m_tabs(new QTabWidget)
{
    for (MaintenanceJob::Kind kind : {MaintenanceJob::Update, MaintenanceJob::Cleanup, MaintenanceJob::Autoremove}) {
        std::shared_ptr<AgentService> agent =
            AgentService::agentServiceWithPlistName(MaintenanceJob::agentPlistName(kind), bundle);
        m_tabs->addTab(new SettingsMaintenanceJobViewController(kind, maintenance, defaults, std::move(agent)),
                       SettingsMaintenanceJobViewController::title(kind));
    }
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(m_tabs);
}

SettingsMaintenanceJobViewController*
SettingsMaintenanceViewController::jobViewController(MaintenanceJob::Kind kind) const
{
    const MaintenanceJob::Kind tab = kind == MaintenanceJob::PruneAll ? MaintenanceJob::Cleanup : kind;
    for (int index = 0; index < m_tabs->count(); ++index) {
        auto* job = qobject_cast<SettingsMaintenanceJobViewController*>(m_tabs->widget(index));
        if (job && job->kind() == tab) {
            return job;
        }
    }
    return nullptr;
}
