#include "LogCapture.h"

#include <QMutexLocker>
#include <atomic>
#include <cstring>

namespace {
std::atomic<LogCapture*> current{nullptr};
}

LogCapture::LogCapture()
{
    current.store(this);
    m_previous = qInstallMessageHandler(&LogCapture::handler);
}

LogCapture::~LogCapture()
{
    qInstallMessageHandler(m_previous);
    current.store(nullptr);
}

void LogCapture::handler(QtMsgType type, const QMessageLogContext& context, const QString& message)
{
    LogCapture* capture = current.load();
    if (!capture) {
        return;
    }
    if (context.category && std::strcmp(context.category, "works.tessel.corvel") == 0) {
        QMutexLocker lock(&capture->m_mutex);
        capture->m_lines.append({type, message});
        return;
    }
    if (capture->m_previous) {
        capture->m_previous(type, context, message);
    }
}

QList<LogCapture::Line> LogCapture::lines() const
{
    QMutexLocker lock(&m_mutex);
    return m_lines;
}

QStringList LogCapture::texts() const
{
    QStringList result;
    const auto all = lines();
    for (const auto& line : all) {
        result.append(line.text);
    }
    return result;
}

bool LogCapture::contains(const QString& text) const
{
    return texts().contains(text);
}

void LogCapture::clear()
{
    QMutexLocker lock(&m_mutex);
    m_lines.clear();
}
