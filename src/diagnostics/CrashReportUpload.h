// One POST of a crash report over HTTP/1.1 (TLS for https). It writes the request target exactly as given, because
// the service expects the build number's dots percent-encoded and QUrl would decode them back.
#pragma once

#include "foundation/Result.h"

#include <QByteArray>
#include <QObject>
#include <QUrl>
#include <chrono>
#include <functional>

class QTcpSocket;
class QTimer;

class CrashReportUpload : public QObject {
    Q_OBJECT

public:
    struct Answer {
        int status = 0;
        QByteArray body;
    };

    // target is the encoded path that goes on the request line as is; host and port come from server.
    CrashReportUpload(const QUrl& server, QByteArray target, QByteArray body, std::chrono::milliseconds timeout,
                      QObject* parent = nullptr);

    // Starts the exchange; completion runs once, on this object's thread, with an answer of any status or the
    // transport's error (family HttpClient::errorDomain). The object then deletes itself.
    void start(std::function<void(const Result<Answer>&)> completion);

private:
    void finish(const Result<Answer>& answer);
    bool answerComplete() const;
    Result<Answer> parseAnswer() const;

    QUrl m_server;
    QByteArray m_target;
    QByteArray m_body;
    QTcpSocket* m_socket = nullptr;
    QTimer* m_timer = nullptr;
    QByteArray m_received;
    std::function<void(const Result<Answer>&)> m_completion;
    bool m_done = false;
};
