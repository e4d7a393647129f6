#include "ScriptedAlerter.h"

#include "foundation/Threading.h"

#include <QTest>

void ScriptedAlerter::answerNext(const QString& buttonTitle, bool suppress)
{
    m_answers.enqueue({buttonTitle, suppress});
}

void ScriptedAlerter::present(const Alert& alert, std::function<void(AlertResponse)> done)
{
    m_shown.append(alert);
    if (m_answers.isEmpty()) {
        QTest::qFail("An alert was shown that the test did not expect", __FILE__, __LINE__);
        return;
    }
    const Answer answer = m_answers.dequeue();
    const int index = alert.buttons.indexOf(answer.button);
    if (index < 0) {
        QTest::qFail(qPrintable(QStringLiteral("The alert has no button '%1'").arg(answer.button)), __FILE__, __LINE__);
        return;
    }
    // A real alert answers later, from the event loop; so does this one.
    Threading::runOnGuiThread([done = std::move(done), index, suppress = answer.suppress] { done({index, suppress}); });
}
