// The in-memory log of everything the brew children wrote, one message per output line, each filed under its
// activity. Any thread may append; the messages change and are read on the GUI thread only.
#pragma once

#include "activities/Activity.h"
#include "activities/TranscriptMessage.h"
#include "foundation/Result.h"

#include <QList>
#include <QObject>

class Transcript : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool isEmpty READ isEmpty NOTIFY isEmptyChanged)

public:
    explicit Transcript(QObject* parent = nullptr);

    // The process-wide transcript.
    static Transcript& shared();

    // GUI thread only; in order of arrival.
    const QList<TranscriptMessage>& messages() const { return m_messages; }
    bool isEmpty() const { return m_messages.isEmpty(); }

    // Callable from any thread. Splits text into lines and files each under activity, in order; the walk stops
    // at the first empty line, so a blank line, a CR+LF pair or a leading line break drop the rest of the chunk.
    void append(const QString& text, ActivityPtr activity);

    // Empties the transcript; immediately on the GUI thread, queued from any other.
    void clear();

    // The lines append() keeps from a chunk of output.
    static QStringList lines(const QString& text);

    // The messages of filter's activity (all when null), oldest first: what the transcript pane shows and saves.
    static QList<TranscriptMessage> shownMessages(const QList<TranscriptMessage>& messages, const Activity* filter);

    // Writes the export lines joined by "\n" as UTF-8, replacing path. Text that cannot be encoded fails with
    // TranscriptError::unableToWriteData, a file system failure with the system's description.
    static Result<void> save(const QList<TranscriptMessage>& messages, const QString& path);

Q_SIGNALS:
    // Rows first..last (inclusive) are about to be added / were added at the end of messages().
    void messagesAboutToBeAppended(int first, int last);
    void messagesAppended(int first, int last);
    void aboutToBeCleared();
    void cleared();
    void isEmptyChanged(bool isEmpty);

private:
    void appendMessages(const QList<TranscriptMessage>& messages);
    void clearMessages();

    QList<TranscriptMessage> m_messages;
};
