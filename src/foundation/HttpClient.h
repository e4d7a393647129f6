// The application's one door to HTTP: a QNetworkAccessManager on the thread that owns the client (the GUI thread for
// the shared one), with a blocking get() for the worker threads that fetch catalogues and repository details.
#pragma once

#include "foundation/Result.h"

#include <QByteArray>
#include <QObject>
#include <QString>
#include <QUrl>
#include <atomic>
#include <chrono>
#include <memory>

class QNetworkAccessManager;

class HttpClient : public QObject {
    Q_OBJECT

public:
    // The family of every error get() gives; codes are QNetworkReply::NetworkError values, or the HTTP status for
    // an error status the network layer let through.
    static inline const QString errorDomain = QStringLiteral("TFNetworkError");

    explicit HttpClient(QObject* parent = nullptr);
    ~HttpClient() override;

    // Lives on the thread of the application object, whichever thread asks for it first.
    static HttpClient& shared();

    // How long a request may go without receiving anything; also how long get() waits for this client's thread
    // to take the request up.
    std::chrono::milliseconds timeout() const;
    void setTimeout(std::chrono::milliseconds timeout);

    // The body of url (http, https or file). Blocks until the reply is complete, so it must be called from another
    // thread than this client's, whose event loop carries the request; called on that thread it fails at once
    // rather than dead-locking. An HTTP status of 400 or above is an error.
    Result<QByteArray> get(const QUrl& url);

private:
    struct Exchange;

    void start(const QUrl& url, const std::shared_ptr<Exchange>& exchange);

    QNetworkAccessManager* m_manager;
    std::atomic<qint64> m_timeoutMs{60000};
};
