// An Alerter that answers from a script of responses set up before the action, and records what it was shown.
#pragma once

#include "foundation/Alerter.h"

#include <QList>
#include <QQueue>

class ScriptedAlerter : public Alerter {
public:
    // Queues the answer to the next alert: the title of the button to choose, and the suppression checkbox.
    void answerNext(const QString& buttonTitle, bool suppress = false);

    void present(const Alert& alert, std::function<void(AlertResponse)> done) override;

    const QList<Alert>& shown() const { return m_shown; }

private:
    struct Answer {
        QString button;
        bool suppress;
    };
    QQueue<Answer> m_answers;
    QList<Alert> m_shown;
};
