// Answers alerts on a terminal without ever waiting for one: a confirmation gets its default button when the person
// gave --yes and is cancelled otherwise; a failure report is written to standard error.
#pragma once

#include "foundation/Alerter.h"

#include <QTextStream>

class CommandLineAlerter : public Alerter {
public:
    // err must outlive this object. confirm is whether --yes was given.
    CommandLineAlerter(QTextStream& err, bool confirm);

    // Answers from the event loop, as a window's alert would, never before present() returns.
    void present(const Alert& alert, std::function<void(AlertResponse)> done) override;

    // Whether a confirmation was cancelled for want of --yes.
    bool declined() const { return m_declined; }
    // Whether a report of a failure was shown.
    bool reportedFailure() const { return m_reportedFailure; }

private:
    QTextStream& m_err;
    const bool m_confirm;
    bool m_declined = false;
    bool m_reportedFailure = false;
};
