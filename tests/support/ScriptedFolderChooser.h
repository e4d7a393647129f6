// A FolderChooser that answers from a script of folders set up before the action, and records what it was asked.
#pragma once

#include "operations/FolderChooser.h"

#include <QList>
#include <QQueue>

class ScriptedFolderChooser : public FolderChooser {
public:
    struct Question {
        QString title;
        QString message;
        QString startFolder;
    };

    // Queues the answer to the next question: a folder, or nullopt for a dismissed panel.
    void answerNext(std::optional<QString> folder);

    // A question without a scripted answer fails the running test and is dismissed.
    std::optional<QString> chooseFolder(const QString& title, const QString& message,
                                        const QString& startFolder) override;

    const QList<Question>& asked() const { return m_asked; }

private:
    QQueue<std::optional<QString>> m_answers;
    QList<Question> m_asked;
};
