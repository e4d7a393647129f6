#include "foundation/HttpClient.h"

#include <QCoreApplication>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QThread>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>

namespace {

Error networkError(int code, const QString& description)
{
    return Error(HttpClient::errorDomain, code, description);
}

Result<QByteArray> outcomeOf(QNetworkReply& reply, bool timedOut)
{
    if (timedOut) {
        return networkError(QNetworkReply::TimeoutError,
                            QStringLiteral("The request timed out: %1").arg(reply.url().toDisplayString()));
    }
    if (reply.error() != QNetworkReply::NoError) {
        // Some texts ("Connection refused") do not say what was asked for.
        const QString address = reply.url().toDisplayString();
        const QString text = reply.errorString();
        return networkError(reply.error(), text.contains(address) ? text : QStringLiteral("%1: %2").arg(text, address));
    }
    const QVariant status = reply.attribute(QNetworkRequest::HttpStatusCodeAttribute);
    if (status.isValid() && status.toInt() >= 400) {
        return networkError(status.toInt(),
                            QStringLiteral("The server answered %1 %2 for %3")
                                .arg(status.toInt())
                                .arg(reply.attribute(QNetworkRequest::HttpReasonPhraseAttribute).toString(),
                                     reply.url().toDisplayString()));
    }
    return reply.readAll();
}

} // namespace

// What a waiting worker and the client's thread share about one request; whichever side is left last frees it.
struct HttpClient::Exchange {
    std::mutex mutex;
    std::condition_variable changed;
    bool started = false;
    bool abandoned = false;
    std::optional<Result<QByteArray>> outcome;

    void finish(Result<QByteArray> result)
    {
        {
            std::lock_guard lock(mutex);
            if (outcome) {
                return;
            }
            outcome.emplace(std::move(result));
        }
        changed.notify_all();
    }
};

HttpClient::HttpClient(QObject* parent)
    : QObject(parent)
    , m_manager(new QNetworkAccessManager(this))
{}

HttpClient::~HttpClient() = default;

HttpClient& HttpClient::shared()
{
    // Never destroyed: a network manager must not outlive the application object, which static destruction would
    // make it do.
    static HttpClient* const client = [] {
        auto* created = new HttpClient;
        if (QCoreApplication::instance() && created->thread() != QCoreApplication::instance()->thread()) {
            created->moveToThread(QCoreApplication::instance()->thread());
        }
        return created;
    }();
    return *client;
}

std::chrono::milliseconds HttpClient::timeout() const
{
    return std::chrono::milliseconds(m_timeoutMs.load());
}

void HttpClient::setTimeout(std::chrono::milliseconds timeout)
{
    m_timeoutMs.store(timeout.count());
}

Result<QByteArray> HttpClient::get(const QUrl& url)
{
    if (QThread::currentThread() == thread()) {
        return networkError(QNetworkReply::OperationNotImplementedError,
                            QStringLiteral("HttpClient::get() waits for the reply and so cannot run on the thread that "
                                           "carries its requests"));
    }
    if (!url.isValid() || url.isRelative()) {
        return networkError(QNetworkReply::ProtocolUnknownError,
                            QStringLiteral("Not an absolute URL: \"%1\"").arg(url.toString()));
    }

    auto exchange = std::make_shared<Exchange>();
    QMetaObject::invokeMethod(
        this, [this, url, exchange] { start(url, exchange); }, Qt::QueuedConnection);

    const std::chrono::milliseconds waitToStart = timeout();
    std::unique_lock lock(exchange->mutex);
    if (!exchange->changed.wait_for(lock, waitToStart, [&exchange] { return exchange->started; })) {
        exchange->abandoned = true;
        return networkError(
            QNetworkReply::TimeoutError,
            QStringLiteral("The network client did not take up the request for %1 in time").arg(url.toDisplayString()));
    }
    // Once started, the transfer time-out or the reply's destruction ends the wait.
    exchange->changed.wait(lock, [&exchange] { return exchange->outcome.has_value(); });
    return std::move(*exchange->outcome);
}

void HttpClient::start(const QUrl& url, const std::shared_ptr<Exchange>& exchange)
{
    {
        std::lock_guard lock(exchange->mutex);
        if (exchange->abandoned) {
            return;
        }
        exchange->started = true;
    }
    exchange->changed.notify_all();

    QNetworkRequest request(url);
    request.setTransferTimeout(int(m_timeoutMs.load()));
    QNetworkReply* reply = m_manager->get(request);

    // A transfer time-out surfaces as a cancelled operation; nothing else here cancels one.
    connect(reply, &QNetworkReply::finished, reply, [reply, exchange] {
        exchange->finish(outcomeOf(*reply, reply->error() == QNetworkReply::OperationCanceledError));
        reply->deleteLater();
    });
    // The manager takes its replies with it when the client goes away mid-request.
    connect(reply, &QObject::destroyed, [exchange, url] {
        exchange->finish(networkError(QNetworkReply::OperationCanceledError,
                                      QStringLiteral("The request for %1 was cancelled").arg(url.toDisplayString())));
    });
}
