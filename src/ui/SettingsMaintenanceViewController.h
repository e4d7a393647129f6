// The maintenance settings tab: one inner tab per maintenance job (update, cleanup, autoremove), each with the
// background agent the bundle defines for it.
#pragma once

#include "operations/MaintenanceJob.h"

#include <QWidget>

class Bundle;
class Defaults;
class Maintenance;
class QTabWidget;
class SettingsMaintenanceJobViewController;

class SettingsMaintenanceViewController : public QWidget {
    Q_OBJECT

public:
    // The agents are this platform's services for the bundle's definitions; bundle must outlive this object and
    // the agent questions it starts.
    SettingsMaintenanceViewController(Maintenance& maintenance, Defaults& defaults, const Bundle& bundle,
                                      QWidget* parent = nullptr);

    QTabWidget* tabWidget() const { return m_tabs; }
    // The tab of Update, Cleanup (also for PruneAll) or Autoremove.
    SettingsMaintenanceJobViewController* jobViewController(MaintenanceJob::Kind kind) const;

private:
    QTabWidget* m_tabs;
};
