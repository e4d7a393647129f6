#include "activities/QuitConfirmation.h"

#include "activities/ApplicationState.h"
#include "foundation/Alerter.h"

namespace {
constexpr int terminateButton = 1;
}

QuitConfirmation::QuitConfirmation(ApplicationState& state, Alerter& alerter)
    : m_state(state)
    , m_alerter(alerter)
{}

void QuitConfirmation::requestTermination(std::function<void(bool terminate)> reply)
{
    if (!reply) {
        qWarning("QuitConfirmation: a termination request without a reply was ignored");
        return;
    }
    if (!m_state.isBusy()) {
        reply(true);
        return;
    }

    Alert alert;
    alert.style = Alert::Style::Critical;
    alert.message = tr("Background process currently running. Are you sure you want to quit Corvel X?");
    alert.informativeText = tr("Cancel to prevent unexpected issues. Try again later.");
    // "Cancel" comes first so that it is the default button: quitting by accident must not be one key press.
    alert.buttons = {tr("Cancel"), tr("Terminate Anyway")};
    m_alerter.present(
        alert, [reply = std::move(reply)](AlertResponse response) { reply(response.button == terminateButton); });
}
