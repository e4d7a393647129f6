#include "activities/Transcript.h"

#include "activities/TranscriptError.h"

#include <QCoreApplication>
#include <QSaveFile>
#include <QStringEncoder>
#include <QThread>
#include <algorithm>
#include <iterator>

namespace {

bool isLineBreak(QChar c)
{
    const char16_t u = c.unicode();
    return (u >= 0x000A && u <= 0x000D) || u == 0x0085 || u == 0x2028 || u == 0x2029;
}

// File system failures carry the system's own description.
Error fileError(QFileDevice::FileError code, const QString& description)
{
    return Error(QStringLiteral("FileError"), code, description);
}

Error fileError(const QSaveFile& file)
{
    return fileError(file.error(), file.errorString());
}

} // namespace

Transcript::Transcript(QObject* parent)
    : QObject(parent)
{
    if (auto* app = QCoreApplication::instance(); !parent && app && thread() != app->thread()) {
        moveToThread(app->thread());
    }
}

Transcript& Transcript::shared()
{
    static Transcript transcript;
    return transcript;
}

QStringList Transcript::lines(const QString& text)
{
    QStringList result;
    qsizetype start = 0;
    for (qsizetype i = 0; i <= text.size(); ++i) {
        if (i < text.size() && !isLineBreak(text.at(i))) {
            continue;
        }
        // Each break character separates on its own, so "\r\n" leaves an empty component that ends the walk.
        if (i == start) {
            break;
        }
        result.append(text.mid(start, i - start));
        start = i + 1;
    }
    return result;
}

void Transcript::append(const QString& text, ActivityPtr activity)
{
    if (!activity) {
        qWarning("Transcript: ignoring output without an activity");
        return;
    }
    const QStringList chunkLines = lines(text);
    if (chunkLines.isEmpty()) {
        return;
    }
    // Messages are dated here, on the producing thread, when the output was read.
    QList<TranscriptMessage> messages;
    messages.reserve(chunkLines.size());
    for (const QString& line : chunkLines) {
        messages.append(TranscriptMessage(line, activity));
    }
    // Queued events to one receiver are delivered in posting order, which keeps each thread's lines in order.
    QMetaObject::invokeMethod(
        this, [this, messages = std::move(messages)] { appendMessages(messages); }, Qt::QueuedConnection);
}

void Transcript::appendMessages(const QList<TranscriptMessage>& messages)
{
    const bool wasEmpty = m_messages.isEmpty();
    const int first = int(m_messages.size());
    const int last = first + int(messages.size()) - 1;
    Q_EMIT messagesAboutToBeAppended(first, last);
    m_messages.append(messages);
    Q_EMIT messagesAppended(first, last);
    if (wasEmpty) {
        Q_EMIT isEmptyChanged(false);
    }
}

void Transcript::clear()
{
    if (QThread::currentThread() != thread()) {
        QMetaObject::invokeMethod(this, &Transcript::clearMessages, Qt::QueuedConnection);
        return;
    }
    clearMessages();
}

void Transcript::clearMessages()
{
    if (m_messages.isEmpty()) {
        return;
    }
    Q_EMIT aboutToBeCleared();
    m_messages.clear();
    Q_EMIT cleared();
    Q_EMIT isEmptyChanged(true);
}

QList<TranscriptMessage> Transcript::shownMessages(const QList<TranscriptMessage>& messages, const Activity* filter)
{
    QList<TranscriptMessage> shown;
    std::copy_if(messages.cbegin(), messages.cend(), std::back_inserter(shown),
                 [filter](const TranscriptMessage& message) { return !filter || message.activity().get() == filter; });
    std::stable_sort(shown.begin(), shown.end(),
                     [](const TranscriptMessage& a, const TranscriptMessage& b) { return a.date() < b.date(); });
    return shown;
}

Result<void> Transcript::save(const QList<TranscriptMessage>& messages, const QString& path)
{
    QStringList exportLines;
    exportLines.reserve(messages.size());
    for (const TranscriptMessage& message : messages) {
        exportLines.append(message.exportLine());
    }

    // Stateless, so that a high surrogate at the very end counts as an error instead of waiting for more input.
    QStringEncoder encoder(QStringEncoder::Utf8, QStringConverter::Flag::Stateless);
    const QByteArray data = encoder.encode(exportLines.join(u'\n'));
    if (encoder.hasError()) {
        return TranscriptError::make(TranscriptError::unableToWriteData);
    }

    if (path.isEmpty()) {
        return fileError(QFileDevice::OpenError, tr("The file name is empty"));
    }
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly)) {
        return fileError(file);
    }
    if (file.write(data) != data.size()) {
        const Error error = fileError(file);
        file.cancelWriting();
        return error;
    }
    if (!file.commit()) {
        return fileError(file);
    }
    return {};
}
