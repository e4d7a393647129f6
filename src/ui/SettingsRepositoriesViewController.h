// The repositories settings tab: the tapped repositories with their descriptions, adding one through the add sheet,
// removing the selected one (after its confirmation), the official repositories, and what runs meanwhile.
#pragma once

#include "operations/Repositories.h"

#include <QHash>
#include <QSet>
#include <QWidget>
#include <optional>

class AddRepositorySheet;
class Alerter;
class ArrayController;
class CompanionCommands;
class CorvelCommandsWizardViewController;
class ManagedObjectContext;
class QLabel;
class QProgressBar;
class QPushButton;
class QTreeWidget;
class Tap;

namespace Homebrew {
class Installation;
}

class SettingsRepositoriesViewController : public QWidget {
    Q_OBJECT

public:
    // viewContext: the store's view context, whose Tap records are listed.
    SettingsRepositoriesViewController(Repositories& repositories, ManagedObjectContext* viewContext,
                                       QWidget* parent = nullptr);
    ~SettingsRepositoriesViewController() override;

    // Column 0 the name, 1 the description.
    QTreeWidget* repositoriesList() const { return m_list; }
    // Column 0 the name, 1 the description, 2 whether it is tapped.
    QTreeWidget* officialList() const { return m_officialList; }
    QPushButton* addButton() const { return m_addButton; }
    QPushButton* removeButton() const { return m_removeButton; }
    QPushButton* addOfficialButton() const { return m_addOfficialButton; }
    QLabel* progressLabel() const { return m_progressLabel; }
    QProgressBar* progressIndicator() const { return m_progressIndicator; }
    // The sheet while it is open.
    AddRepositorySheet* addSheet() const { return m_addSheet; }

    // Offers "Install Commands..." while the companion commands are missing; without this the button never shows.
    // Everything passed in must outlive the tab.
    void setCommandsInstallation(const Homebrew::Installation& installation, const CompanionCommands& companion,
                                 Alerter& alerter);
    QPushButton* installCommandsButton() const { return m_installCommandsButton; }
    // The commands sheet while it is open.
    CorvelCommandsWizardViewController* commandsWizard() const { return m_commandsWizard; }

    // The tapped repository selected in the list, if any.
    Tap* selectedTap() const;
    // Selects a tapped repository by name; false when it is not listed.
    bool selectRepository(const QString& name);

public Q_SLOTS:
    void showAddSheet();
    void removeSelected();
    void addSelectedOfficial();
    void showCommandsWizard();

protected:
    void showEvent(QShowEvent* event) override;

private:
    void reload();
    void updateButtons();
    QString descriptionOf(const Tap* tap);
    void operationStarted(Repositories::Operation operation, const QString& name);
    void operationEnded(const QString& name);
    // The companion commands may have come or gone (tapped here, in the sheet or in a terminal).
    void updateCommandsButton();

    Repositories& m_repositories;
    ArrayController* m_taps;
    QTreeWidget* m_list;
    QTreeWidget* m_officialList;
    QPushButton* m_addButton;
    QPushButton* m_removeButton;
    QPushButton* m_addOfficialButton;
    QLabel* m_progressLabel;
    QProgressBar* m_progressIndicator;
    AddRepositorySheet* m_addSheet = nullptr;
    QPushButton* m_installCommandsButton;
    const Homebrew::Installation* m_installation = nullptr;
    const CompanionCommands* m_companion = nullptr;
    Alerter* m_alerter = nullptr;
    CorvelCommandsWizardViewController* m_commandsWizard = nullptr;
    // Names whose command runs, each with the text to show while it does.
    QHash<QString, QString> m_running;
    // Descriptions asked of GitHub for repositories that have none of their own; none once it had nothing.
    QHash<QString, std::optional<QString>> m_githubDescriptions;
};
