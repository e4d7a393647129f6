#include "ui/SettingsMaintenanceJobViewController.h"

#include "foundation/Defaults.h"
#include "foundation/Logging.h"
#include "foundation/Threading.h"
#include "operations/Maintenance.h"

#include <QCheckBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLocale>
#include <QMetaEnum>
#include <QPushButton>
#include <QVBoxLayout>

namespace {

QString agentText(MaintenanceJob::Kind kind)
{
    switch (kind) {
    case MaintenanceJob::Update:
        return SettingsMaintenanceJobViewController::tr("Update Homebrew automatically every day");
    case MaintenanceJob::Cleanup:
    case MaintenanceJob::PruneAll:
        return SettingsMaintenanceJobViewController::tr("Clean up automatically every day");
    case MaintenanceJob::Autoremove:
        return SettingsMaintenanceJobViewController::tr("Remove unneeded scripts automatically every day");
    }
    return {};
}

QString explanation(MaintenanceJob::Kind kind)
{
    switch (kind) {
    case MaintenanceJob::Update:
        return SettingsMaintenanceJobViewController::tr("Fetches the newest version of Homebrew and of its "
                                                        "repositories' definitions.");
    case MaintenanceJob::Cleanup:
    case MaintenanceJob::PruneAll:
        return SettingsMaintenanceJobViewController::tr("Removes old versions of installed packages and stale "
                                                        "downloads. Prune All also empties the whole download cache.");
    case MaintenanceJob::Autoremove:
        return SettingsMaintenanceJobViewController::tr("Uninstalls scripts that were only installed as "
                                                        "dependencies and that nothing needs any more.");
    }
    return {};
}

QString buttonText(MaintenanceJob::Kind kind)
{
    switch (kind) {
    case MaintenanceJob::Update:
        return SettingsMaintenanceJobViewController::tr("Update Now");
    case MaintenanceJob::Cleanup:
        return SettingsMaintenanceJobViewController::tr("Clean Up Now");
    case MaintenanceJob::PruneAll:
        return SettingsMaintenanceJobViewController::tr("Prune All");
    case MaintenanceJob::Autoremove:
        return SettingsMaintenanceJobViewController::tr("Remove Now");
    }
    return {};
}

} // namespace

SettingsMaintenanceJobViewController::SettingsMaintenanceJobViewController(MaintenanceJob::Kind kind,
                                                                           Maintenance& maintenance, Defaults& defaults,
                                                                           std::shared_ptr<AgentService> agent,
                                                                           QWidget* parent)
    : QWidget(parent)
    , m_kind(kind == MaintenanceJob::PruneAll ? MaintenanceJob::Cleanup : kind)
    , m_maintenance(maintenance)
    , m_defaults(defaults)
    , m_agent(std::move(agent))
{
    auto* about = new QLabel(explanation(m_kind));
    about->setWordWrap(true);

    m_agentCheckBox = new QCheckBox(agentText(m_kind));
    m_agentCheckBox->setObjectName(QStringLiteral("agent"));
    m_agentMessage = new QLabel;
    m_agentMessage->setObjectName(QStringLiteral("agentMessage"));
    m_agentMessage->setWordWrap(true);
    m_agentMessage->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_agentMessage->hide();
    // clicked, not toggled: the box following the system must not register anything.
    connect(m_agentCheckBox, &QCheckBox::clicked, this, &SettingsMaintenanceJobViewController::toggleAgent);

    QList<MaintenanceJob::Kind> jobs{m_kind};
    if (m_kind == MaintenanceJob::Cleanup) {
        jobs.append(MaintenanceJob::PruneAll);
    }
    auto* buttons = new QHBoxLayout;
    for (MaintenanceJob::Kind job : jobs) {
        auto* button = new QPushButton(buttonText(job));
        button->setObjectName(QStringLiteral("perform") +
                              QString::fromLatin1(QMetaEnum::fromType<MaintenanceJob::Kind>().valueToKey(job)));
        connect(button, &QPushButton::clicked, this, [this, job] { perform(job); });
        buttons->addWidget(button);
        m_performButtons.append(button);
    }
    buttons->addStretch();

    m_lastRunLabel = new QLabel;
    m_lastRunLabel->setObjectName(QStringLiteral("lastRun"));
    auto* lastRun = new QFormLayout;
    lastRun->addRow(tr("Last run:"), m_lastRunLabel);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(about);
    layout->addWidget(m_agentCheckBox);
    layout->addWidget(m_agentMessage);
    layout->addLayout(buttons);
    layout->addLayout(lastRun);
    layout->addStretch();

    connect(&m_maintenance, &Maintenance::updatingChanged, this,
            &SettingsMaintenanceJobViewController::updatePerformButtons);
    connect(&m_maintenance, &Maintenance::cleaningUpChanged, this,
            &SettingsMaintenanceJobViewController::updatePerformButtons);
    connect(&m_maintenance, &Maintenance::autoremovingChanged, this,
            &SettingsMaintenanceJobViewController::updatePerformButtons);
    // Jobs store their date on a worker; observe() brings the change here.
    m_defaults.observe(MaintenanceJob::lastRunKey(m_kind), this, [this] { showLastRun(); });
    updatePerformButtons();
    showLastRun();
    refreshAgent();
}

QString SettingsMaintenanceJobViewController::title(MaintenanceJob::Kind kind)
{
    switch (kind) {
    case MaintenanceJob::Update:
        return tr("Update");
    case MaintenanceJob::Cleanup:
    case MaintenanceJob::PruneAll:
        return tr("Cleanup");
    case MaintenanceJob::Autoremove:
        return tr("Autoremove");
    }
    return {};
}

void SettingsMaintenanceJobViewController::refreshAgent()
{
    askAgent([](AgentService& agent) { return AgentOutcome{agent.status(), std::nullopt}; });
}

void SettingsMaintenanceJobViewController::toggleAgent(bool on)
{
    askAgent([on](AgentService& agent) {
        AgentOutcome outcome;
        if (on) {
            qCInfo(lcCorvel) << "Registering agent";
            if (Result<void> registered = agent.registerAgent()) {
                qCInfo(lcCorvel) << "Agent registered";
            } else {
                qCWarning(lcCorvel).noquote() << "Unable to register agent: " + registered.error().description();
                outcome.error = registered.error();
            }
        } else {
            qCInfo(lcCorvel) << "Unregistering agent";
            if (Result<void> unregistered = agent.unregisterAgent()) {
                qCInfo(lcCorvel) << "Agent unregistered";
            } else {
                qCWarning(lcCorvel).noquote() << "Unable to unregister agent: " + unregistered.error().description();
                outcome.error = unregistered.error();
            }
        }
        // Whatever happened, the box shows what the system says now.
        outcome.status = agent.status();
        return outcome;
    });
}

void SettingsMaintenanceJobViewController::askAgent(std::function<AgentOutcome(AgentService&)> question)
{
    if (m_agentBusy) {
        return;
    }
    m_agentBusy = true;
    m_agentCheckBox->setEnabled(false);
    std::shared_ptr<AgentService> agent = m_agent;
    Threading::runAsync<AgentOutcome>([agent, question = std::move(question)] { return question(*agent); }, this,
                                      [this](AgentOutcome outcome) { showAgent(outcome); });
}

void SettingsMaintenanceJobViewController::showAgent(const AgentOutcome& outcome)
{
    m_agentBusy = false;
    const bool found = outcome.status != AgentService::Status::NotFound;
    m_agentCheckBox->setChecked(outcome.status == AgentService::Status::Enabled);
    m_agentCheckBox->setEnabled(found);
    QString message;
    if (outcome.error) {
        message = tr("The agent could not be changed: %1").arg(outcome.error->description());
    } else if (!found) {
        message = tr("This installation of the application lacks the agent %1.").arg(m_agent->plistName());
    }
    m_agentMessage->setText(message);
    m_agentMessage->setVisible(!message.isEmpty());
    Q_EMIT agentStatusShown(outcome.status);
}

void SettingsMaintenanceJobViewController::perform(MaintenanceJob::Kind kind)
{
    m_maintenance.perform(kind);
}

void SettingsMaintenanceJobViewController::updatePerformButtons()
{
    const bool running = m_maintenance.isRunning(m_kind);
    for (QPushButton* button : std::as_const(m_performButtons)) {
        button->setEnabled(!running);
    }
}

void SettingsMaintenanceJobViewController::showLastRun()
{
    const std::optional<QDateTime> date = m_defaults.dateValue(MaintenanceJob::lastRunKey(m_kind));
    m_lastRunLabel->setText(date ? QLocale().toString(date->toLocalTime(), QLocale::ShortFormat) : tr("Never"));
}
