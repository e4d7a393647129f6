#include "ScriptedPasswordPrompt.h"

#include "foundation/Threading.h"

#include <QTest>

void ScriptedPasswordPrompt::answerNext(std::optional<QString> password)
{
    m_script.enqueue(std::move(password));
}

void ScriptedPasswordPrompt::askPassword(std::function<void(std::optional<QString> password)> done)
{
    ++m_asked;
    if (m_open) {
        ++m_overlaps;
    }
    m_open = std::move(done);
    if (!m_script.isEmpty()) {
        Threading::runOnGuiThread(this, [this, password = m_script.dequeue()] { answerOpen(password); });
    }
}

void ScriptedPasswordPrompt::answerOpen(std::optional<QString> password)
{
    if (!m_open) {
        QTest::qFail("No password question is open", __FILE__, __LINE__);
        return;
    }
    std::exchange(m_open, nullptr)(std::move(password));
}
