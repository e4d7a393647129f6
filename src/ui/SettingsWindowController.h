// The settings window: the general, repositories, maintenance and advanced tabs, opening on the tab shown last.
#pragma once

#include <QWidget>

class Alerter;
class Bundle;
class CompanionCommands;
class Defaults;
class Maintenance;
class ManagedObjectContext;
class QTabWidget;
class Repositories;
class SettingsAdvancedViewController;
class SettingsGeneralViewController;
class SettingsMaintenanceViewController;
class SettingsRepositoriesViewController;
class Synchronisation;

namespace Homebrew {
class Installation;
}

class SettingsWindowController : public QWidget {
    Q_OBJECT

public:
    enum Tab { GeneralTab, RepositoriesTab, MaintenanceTab, AdvancedTab };
    Q_ENUM(Tab)

    // What the tabs work with; everything must outlive the window.
    struct Context {
        Defaults& defaults;
        Synchronisation& synchronisation;
        Repositories& repositories;
        // The store's view context, whose repositories are listed.
        ManagedObjectContext* viewContext;
        Maintenance& maintenance;
        // Holds the agent definitions and the application's version.
        const Bundle& bundle;
        const Homebrew::Installation& installation;
    };

    explicit SettingsWindowController(const Context& context, QWidget* parent = nullptr);

    QTabWidget* tabWidget() const { return m_tabs; }
    // Shows the tab (e.g. for screenshots); an index outside the tabs is ignored.
    void setCurrentTab(int index);
    int currentTab() const;
    // The tab's label: "General", "Repositories", "Maintenance", "Advanced".
    QString tabLabel(int index) const;

    // Lets the repositories tab install the companion commands when they are missing. Both must outlive the window.
    void setCompanionCommands(const CompanionCommands& companion, Alerter& alerter);

    SettingsGeneralViewController* generalViewController() const { return m_general; }
    SettingsRepositoriesViewController* repositoriesViewController() const { return m_repositories; }
    SettingsMaintenanceViewController* maintenanceViewController() const { return m_maintenance; }
    SettingsAdvancedViewController* advancedViewController() const { return m_advanced; }

protected:
    void showEvent(QShowEvent* event) override;

private:
    // Selects the remembered tab, and says so, when the preference names one of the tabs.
    void restoreSelectedTab();

    Defaults& m_defaults;
    const Homebrew::Installation& m_installation;
    QTabWidget* m_tabs;
    SettingsGeneralViewController* m_general;
    SettingsRepositoriesViewController* m_repositories;
    SettingsMaintenanceViewController* m_maintenance;
    SettingsAdvancedViewController* m_advanced;
};
