#include "app/CommandLineAlerter.h"

#include "foundation/Threading.h"

CommandLineAlerter::CommandLineAlerter(QTextStream& err, bool confirm)
    : m_err(err)
    , m_confirm(confirm)
{}

void CommandLineAlerter::present(const Alert& alert, std::function<void(AlertResponse)> done)
{
    AlertResponse response;
    // An alert with a single button only reports; one with a choice asks, and its last button is the way out.
    if (alert.buttons.size() < 2) {
        m_reportedFailure = true;
        m_err << "corvel-x: " << alert.message;
        if (!alert.informativeText.isEmpty()) {
            m_err << ": " << alert.informativeText;
        }
        m_err << Qt::endl;
    } else if (!m_confirm) {
        m_declined = true;
        m_err << "corvel-x: " << alert.message;
        if (!alert.informativeText.isEmpty()) {
            m_err << ' ' << alert.informativeText;
        }
        m_err << '\n' << "corvel-x: nothing was done; use --yes to confirm" << Qt::endl;
        response.button = int(alert.buttons.size()) - 1;
    }
    // The suppression checkbox stays unticked: a --yes answers this once, it does not stop the window asking.
    Threading::runOnGuiThread([done = std::move(done), response] { done(response); });
}
