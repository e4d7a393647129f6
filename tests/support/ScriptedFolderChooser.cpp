#include "ScriptedFolderChooser.h"

#include <QTest>

void ScriptedFolderChooser::answerNext(std::optional<QString> folder)
{
    m_answers.enqueue(std::move(folder));
}

std::optional<QString> ScriptedFolderChooser::chooseFolder(const QString& title, const QString& message,
                                                           const QString& startFolder)
{
    m_asked.append({title, message, startFolder});
    if (m_answers.isEmpty()) {
        QTest::qFail("A folder was asked for that the test did not expect", __FILE__, __LINE__);
        return std::nullopt;
    }
    return m_answers.dequeue();
}
