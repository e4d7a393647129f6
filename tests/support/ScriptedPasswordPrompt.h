// A PasswordPrompt for tests: answers from a script set up before the action, or keeps the question open until
// the test answers it, and counts the questions asked.
#pragma once

#include "homebrew/PasswordPrompt.h"

#include <QObject>
#include <QQueue>

// A QObject only so that a scripted answer still queued when the prompt goes away is dropped.
class ScriptedPasswordPrompt : public QObject, public PasswordPrompt {
public:
    // Queues the answer to the next question: the password typed, or nullopt for Cancel.
    void answerNext(std::optional<QString> password);

    // Answers from the script, from the event loop as a dialog would; without a scripted answer the question
    // stays open. Asking while another question is open is recorded as an overlap.
    void askPassword(std::function<void(std::optional<QString> password)> done) override;

    bool isOpen() const { return bool(m_open); }
    // Answers the open question.
    void answerOpen(std::optional<QString> password);

    int asked() const { return m_asked; }
    // How many questions were asked while another one was still open.
    int overlaps() const { return m_overlaps; }

private:
    QQueue<std::optional<QString>> m_script;
    std::function<void(std::optional<QString>)> m_open;
    int m_asked = 0;
    int m_overlaps = 0;
};
