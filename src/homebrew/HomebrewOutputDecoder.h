// Turns the byte chunks a brew child writes into text for the transcript, carrying a character cut by a chunk
// boundary over to the next chunk and dropping a chunk that is otherwise not UTF-8.
#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QString>
#include <optional>

namespace Homebrew {

class OutputDecoder {
public:
    // The text of everything complete so far; empty when the chunk was dropped or holds only part of a character.
    QString decode(QByteArrayView chunk);

    // Bytes held back for the next chunk (at most three: a character cut short).
    qsizetype pendingSize() const { return m_pending.size(); }

private:
    std::optional<QString> decodeComplete(QByteArrayView data);
    // The length of a cut-short character at the end of data: a lead byte and the continuation bytes it allows,
    // fewer than it needs. Zero when data ends with a whole character or with bytes no character can start with.
    static qsizetype incompleteTailLength(QByteArrayView data);

    QByteArray m_pending;
};

} // namespace Homebrew
