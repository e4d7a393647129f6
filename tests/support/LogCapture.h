// Captures the lines emitted through the application's log category while it lives, so tests can assert the
// exact documented texts. Safe to log from any thread while capturing.
#pragma once

#include <QList>
#include <QMutex>
#include <QString>
#include <QStringList>
#include <QtGlobal>

class LogCapture {
public:
    struct Line {
        QtMsgType type;
        QString text;
    };

    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    QList<Line> lines() const;
    QStringList texts() const;
    bool contains(const QString& text) const;
    void clear();

private:
    static void handler(QtMsgType type, const QMessageLogContext& context, const QString& message);

    mutable QMutex m_mutex;
    QList<Line> m_lines;
    QtMessageHandler m_previous = nullptr;
};
