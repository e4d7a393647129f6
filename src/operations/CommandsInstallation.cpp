#include "operations/CommandsInstallation.h"

#include "foundation/Alerter.h"
#include "foundation/Logging.h"
#include "foundation/Threading.h"
#include "homebrew/HomebrewInstallation.h"
#include "operations/CompanionCommands.h"

#include <QFileInfo>

CommandsInstallation::CommandsInstallation(const Homebrew::Installation& installation,
                                           const CompanionCommands& companion, Alerter& alerter, QObject* parent)
    : QObject(parent)
    , m_installation(installation)
    , m_companion(companion)
    , m_alerter(alerter)
{}

bool CommandsInstallation::start()
{
    if (m_running) {
        return false;
    }
    m_running = true;
    Q_EMIT runningChanged(true);

    setStatusText(tr("Checking Homebrew installation..."));
    const std::optional<QString> brew = m_installation.brewPath();
    if (!brew || !QFileInfo(*brew).isFile()) {
        finish(Outcome::homebrewMissing);
        return true;
    }

    setStatusText(tr("Checking commands installation..."));
    if (m_companion.installed()) {
        finish(Outcome::completed);
        return true;
    }

    setStatusText(tr("Installing commands..."));
    const CompanionCommands* companion = &m_companion;
    Threading::runAsync<Result<void>>([companion] { return companion->install(); }, this,
                                      [this](const Result<void>& installed) {
                                          if (installed) {
                                              qCInfo(lcCorvel, "Homebrew commands installed");
                                              finish(Outcome::completed);
                                              return;
                                          }
                                          qCWarning(lcCorvel, "Failed to install Homebrew commands");
                                          Alert alert;
                                          alert.style = Alert::Style::Critical;
                                          alert.message = tr("Impossible to install commands");
                                          alert.informativeText = installed.error().description();
                                          alert.buttons = {tr("OK")};
                                          m_alerter.present(alert, [](AlertResponse) {});
                                          finish(Outcome::failed);
                                      });
    return true;
}

void CommandsInstallation::setStatusText(const QString& text)
{
    m_statusText = text;
    Q_EMIT statusTextChanged(text);
}

void CommandsInstallation::finish(Outcome outcome)
{
    m_running = false;
    Q_EMIT runningChanged(false);
    Q_EMIT finished(outcome);
}
