#include "ui/SettingsRepositoriesViewController.h"

#include "catalogue/ArrayController.h"
#include "catalogue/ManagedObjectContext.h"
#include "catalogue/Tap.h"
#include "foundation/Logging.h"
#include "operations/CompanionCommands.h"
#include "operations/DefaultTaps.h"
#include "ui/AddRepositorySheet.h"
#include "ui/CorvelCommandsWizardViewController.h"

#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QShowEvent>
#include <QTreeWidget>
#include <QVBoxLayout>

namespace {

QTreeWidget* makeList(const QStringList& headers, const QString& name)
{
    auto* list = new QTreeWidget;
    list->setObjectName(name);
    list->setRootIsDecorated(false);
    list->setUniformRowHeights(true);
    list->setHeaderLabels(headers);
    list->setSelectionMode(QAbstractItemView::SingleSelection);
    list->header()->setSectionResizeMode(0, QHeaderView::ResizeToContents);
    list->header()->setStretchLastSection(true);
    return list;
}

} // namespace

SettingsRepositoriesViewController::SettingsRepositoriesViewController(Repositories& repositories,
                                                                       ManagedObjectContext* viewContext,
                                                                       QWidget* parent)
    : QWidget(parent)
    , m_repositories(repositories)
    , m_taps(new ArrayController(viewContext, QStringLiteral("Tap"), this))
{
    m_list = makeList({tr("Repository"), tr("Description")}, QStringLiteral("repositories"));
    m_addButton = new QPushButton(tr("Add..."));
    m_addButton->setObjectName(QStringLiteral("addRepository"));
    m_removeButton = new QPushButton(tr("Remove"));
    m_removeButton->setObjectName(QStringLiteral("removeRepository"));
    m_progressLabel = new QLabel;
    m_progressLabel->setObjectName(QStringLiteral("repositoriesProgress"));
    m_progressIndicator = new QProgressBar;
    m_progressIndicator->setRange(0, 0); // busy: brew says nothing of how far it is
    m_progressIndicator->setMaximumWidth(120);
    m_progressLabel->hide();
    m_progressIndicator->hide();
    m_installCommandsButton = new QPushButton(tr("Install Commands..."));
    m_installCommandsButton->setObjectName(QStringLiteral("installCommands"));
    m_installCommandsButton->hide();

    m_officialList =
        makeList({tr("Repository"), tr("Description"), tr("Added")}, QStringLiteral("officialRepositories"));
    m_officialList->header()->setStretchLastSection(false);
    m_officialList->header()->setSectionResizeMode(1, QHeaderView::Stretch);
    for (const DefaultTaps::Entry& entry : DefaultTaps::all()) {
        new QTreeWidgetItem(m_officialList, {entry.name, entry.description, QString()});
    }
    m_addOfficialButton = new QPushButton(tr("Add Selected"));
    m_addOfficialButton->setObjectName(QStringLiteral("addOfficialRepository"));

    auto* buttons = new QHBoxLayout;
    buttons->addWidget(m_addButton);
    buttons->addWidget(m_removeButton);
    buttons->addWidget(m_installCommandsButton);
    buttons->addStretch();
    buttons->addWidget(m_progressIndicator);
    buttons->addWidget(m_progressLabel);

    auto* officialButtons = new QHBoxLayout;
    officialButtons->addStretch();
    officialButtons->addWidget(m_addOfficialButton);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(new QLabel(tr("Added repositories:")));
    layout->addWidget(m_list, 2);
    layout->addLayout(buttons);
    layout->addWidget(new QLabel(tr("Official repositories:")));
    layout->addWidget(m_officialList, 1);
    layout->addLayout(officialButtons);

    connect(m_addButton, &QPushButton::clicked, this, &SettingsRepositoriesViewController::showAddSheet);
    connect(m_removeButton, &QPushButton::clicked, this, &SettingsRepositoriesViewController::removeSelected);
    connect(m_addOfficialButton, &QPushButton::clicked, this, &SettingsRepositoriesViewController::addSelectedOfficial);
    connect(m_installCommandsButton, &QPushButton::clicked, this,
            &SettingsRepositoriesViewController::showCommandsWizard);
    connect(m_list, &QTreeWidget::itemSelectionChanged, this, &SettingsRepositoriesViewController::updateButtons);
    connect(m_officialList, &QTreeWidget::itemSelectionChanged, this,
            &SettingsRepositoriesViewController::updateButtons);

    connect(&m_repositories, &Repositories::started, this, &SettingsRepositoriesViewController::operationStarted);
    connect(&m_repositories, &Repositories::finished, this, [this](Repositories::Operation, const QString& name) {
        operationEnded(name);
        updateCommandsButton();
    });
    connect(&m_repositories, &Repositories::cancelled, this, &SettingsRepositoriesViewController::operationEnded);

    m_taps->setFilterPredicate(Predicate::parse(QStringLiteral("installed == YES")).value());
    m_taps->setSortDescriptors({SortDescriptor{QStringLiteral("token"), true}});
    connect(m_taps, &ArrayController::arrangedObjectsChanged, this, &SettingsRepositoriesViewController::reload);
    connect(m_taps, &ArrayController::arrangedObjectValueChanged, this, [this](ManagedObject*, const QString& key) {
        if (key == u"isBusy" || key == u"desc") {
            reload();
        }
    });
    if (auto fetched = m_taps->fetch(); !fetched) {
        qCWarning(lcCorvel).noquote() << "Unable to read the repositories: " + fetched.error().description();
    }
    reload();
}

SettingsRepositoriesViewController::~SettingsRepositoriesViewController() = default;

Tap* SettingsRepositoriesViewController::selectedTap() const
{
    const QList<QTreeWidgetItem*> selected = m_list->selectedItems();
    if (selected.isEmpty()) {
        return nullptr;
    }
    const QString name = selected.first()->text(0);
    for (ManagedObject* object : m_taps->arrangedObjects()) {
        if (object->token() == name) {
            return qobject_cast<Tap*>(object);
        }
    }
    return nullptr;
}

bool SettingsRepositoriesViewController::selectRepository(const QString& name)
{
    const QList<QTreeWidgetItem*> found = m_list->findItems(name, Qt::MatchExactly, 0);
    if (found.isEmpty()) {
        return false;
    }
    m_list->setCurrentItem(found.first());
    return true;
}

void SettingsRepositoriesViewController::showAddSheet()
{
    if (m_addSheet) {
        m_addSheet->raise();
        return;
    }
    m_addSheet = new AddRepositorySheet(m_repositories, this);
    connect(m_addSheet, &QDialog::finished, m_addSheet, &QObject::deleteLater);
    connect(m_addSheet, &QObject::destroyed, this, [this] { m_addSheet = nullptr; });
    m_addSheet->open();
}

void SettingsRepositoriesViewController::setCommandsInstallation(const Homebrew::Installation& installation,
                                                                 const CompanionCommands& companion, Alerter& alerter)
{
    m_installation = &installation;
    m_companion = &companion;
    m_alerter = &alerter;
    updateCommandsButton();
}

void SettingsRepositoriesViewController::showCommandsWizard()
{
    if (!m_companion) {
        return;
    }
    if (m_commandsWizard) {
        m_commandsWizard->raise();
        return;
    }
    m_commandsWizard = new CorvelCommandsWizardViewController(*m_installation, *m_companion, *m_alerter, this);
    connect(m_commandsWizard, &CorvelCommandsWizardViewController::commandsInstalled, this,
            &SettingsRepositoriesViewController::updateCommandsButton);
    connect(m_commandsWizard, &QDialog::finished, m_commandsWizard, &QObject::deleteLater);
    connect(m_commandsWizard, &QObject::destroyed, this, [this] {
        m_commandsWizard = nullptr;
        updateCommandsButton();
    });
    m_commandsWizard->open();
}

void SettingsRepositoriesViewController::showEvent(QShowEvent* event)
{
    QWidget::showEvent(event);
    updateCommandsButton();
}

void SettingsRepositoriesViewController::updateCommandsButton()
{
    m_installCommandsButton->setVisible(m_companion && !m_companion->installed());
}

void SettingsRepositoriesViewController::removeSelected()
{
    if (Tap* tap = selectedTap()) {
        m_repositories.uninstall(tap);
    }
}

void SettingsRepositoriesViewController::addSelectedOfficial()
{
    const QList<QTreeWidgetItem*> selected = m_officialList->selectedItems();
    if (!selected.isEmpty() && m_addOfficialButton->isEnabled()) {
        m_repositories.install(selected.first()->text(0));
    }
}

void SettingsRepositoriesViewController::reload()
{
    const QString selected = m_list->selectedItems().isEmpty() ? QString() : m_list->selectedItems().first()->text(0);
    QSet<QString> tapped;
    m_list->clear();
    for (ManagedObject* object : m_taps->arrangedObjects()) {
        const auto* tap = qobject_cast<const Tap*>(object);
        if (!tap) {
            continue;
        }
        tapped.insert(tap->token());
        auto* item = new QTreeWidgetItem(m_list, {tap->token(), descriptionOf(tap)});
        item->setDisabled(tap->isBusy());
        if (tap->token() == selected) {
            item->setSelected(true);
            m_list->setCurrentItem(item);
        }
    }
    for (int row = 0; row < m_officialList->topLevelItemCount(); ++row) {
        QTreeWidgetItem* item = m_officialList->topLevelItem(row);
        item->setText(2, tapped.contains(item->text(0)) ? tr("Yes") : QString());
    }
    updateButtons();
}

QString SettingsRepositoriesViewController::descriptionOf(const Tap* tap)
{
    if (!tap->desc().isEmpty()) {
        return tap->desc();
    }
    const QString name = tap->token();
    if (const std::optional<QString> official = DefaultTaps::description(name)) {
        return *official;
    }
    if (m_githubDescriptions.contains(name)) {
        return m_githubDescriptions.value(name).value_or(QString());
    }
    // Asked once per repository while the tab lives; an unanswered request leaves the description empty.
    m_githubDescriptions.insert(name, std::nullopt);
    m_repositories.fetchDescription(name, this, [this, name](std::optional<QString> description) {
        if (description && !description->isEmpty()) {
            m_githubDescriptions.insert(name, description);
            const QList<QTreeWidgetItem*> items = m_list->findItems(name, Qt::MatchExactly, 0);
            for (QTreeWidgetItem* item : items) {
                item->setText(1, *description);
            }
        }
    });
    return {};
}

void SettingsRepositoriesViewController::updateButtons()
{
    const Tap* tap = selectedTap();
    m_removeButton->setEnabled(tap && tap->uninstallable());
    const QList<QTreeWidgetItem*> official = m_officialList->selectedItems();
    m_addOfficialButton->setEnabled(!official.isEmpty() && official.first()->text(2).isEmpty() &&
                                    !m_running.contains(official.first()->text(0)));
}

void SettingsRepositoriesViewController::operationStarted(Repositories::Operation operation, const QString& name)
{
    m_running.insert(name, Repositories::progressText(operation));
    m_progressLabel->setText(m_running.value(name));
    m_progressLabel->show();
    m_progressIndicator->show();
    updateButtons();
}

void SettingsRepositoriesViewController::operationEnded(const QString& name)
{
    m_running.remove(name);
    if (m_running.isEmpty()) {
        m_progressLabel->clear();
        m_progressLabel->hide();
        m_progressIndicator->hide();
    } else {
        m_progressLabel->setText(m_running.constBegin().value());
    }
    updateButtons();
}
