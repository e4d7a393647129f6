// The website icon service: for a website it fetches the page, its manifest and candidate icons asynchronously on the
// thread that owns it, keeps the first candidate (best first for the wanted size) that decodes, and remembers the
// outcome per site on disk. Decoding is injected, so the core needs no image library: the UI passes a QImage reader.
#pragma once

#include "foundation/Error.h"
#include "webicons/WebsiteIconCache.h"
#include "webicons/WebsiteIconCandidate.h"

#include <QByteArray>
#include <QHash>
#include <QObject>
#include <QSize>
#include <QString>
#include <QUrl>
#include <algorithm>
#include <chrono>
#include <deque>
#include <functional>
#include <memory>
#include <optional>

class QNetworkAccessManager;

class WebsiteIcons : public QObject {
    Q_OBJECT

public:
    static inline const QString errorDomain = QStringLiteral("WebsiteIconsError");
    enum ErrorCode {
        invalidWebsite = 1, // not an http or https address with a host
        unreachable,        // the page could not be fetched at all (no answer, timed out, too many redirects)
        noIcon,             // the site answered but no candidate gave an image
    };

    // The pixel size of the image in bytes, none when they are not an image. Called on worker threads, so it must
    // be safe to call from any thread (a QImage-based one is).
    using Decoder = std::function<std::optional<QSize>(const QByteArray& bytes)>;

    explicit WebsiteIcons(Decoder decoder, QString cacheFolder = WebsiteIconCache::defaultFolder(),
                          QObject* parent = nullptr);
    ~WebsiteIcons() override;

    // What results are filed under: the host in lower case (IDNs in their ASCII form), with ":port" when the address
    // names a port other than its scheme's default; empty for an address that is not an http or https website.
    static QString siteOf(const QUrl& website);

    // Asks for the icon of website's site, for display at about size x size pixels. Answers with iconReady or
    // failed, always later (never from inside this call); from the cache when it knows the site. A request for a
    // site already under way joins it, whatever its size.
    void request(const QUrl& website, int size);

    WebsiteIconCache& cache() { return m_cache; }

    // Limits; the defaults suit production.
    void setTimeout(std::chrono::milliseconds timeout) { m_timeout = timeout; }
    std::chrono::milliseconds timeout() const { return m_timeout; }
    void setMaxConcurrentRequests(int count) { m_maxConcurrent = std::max(1, count); }
    int maxConcurrentRequests() const { return m_maxConcurrent; }
    void setMaxRedirects(int count) { m_maxRedirects = std::max(0, count); }
    int maxRedirects() const { return m_maxRedirects; }
    void setPageSizeLimit(qint64 bytes) { m_pageSizeLimit = bytes; }
    void setIconSizeLimit(qint64 bytes) { m_iconSizeLimit = bytes; }

    // HTTP requests started and not yet finished, and those waiting for a free slot.
    int requestsInFlight() const { return m_inFlight; }
    int requestsQueued() const { return int(m_queue.size()); }

Q_SIGNALS:
    void iconReady(const QString& site, const QByteArray& icon);
    void failed(const QString& site, const Error& error);

private:
    struct Fetched {
        QUrl url; // after redirects
        QByteArray body;
        std::optional<Error> error;
        bool answered = false; // an HTTP status came back, even an error status
    };
    using FetchDone = std::function<void(Fetched)>;
    struct PendingFetch {
        QUrl url;
        qint64 limit;
        FetchDone done;
    };
    struct Job {
        QUrl website;
        int size = 0;
        QList<WebsiteIconCandidate> candidates;
        qsizetype next = 0;
    };

    void fetch(const QUrl& url, qint64 limit, FetchDone done);
    void startQueued();
    void start(PendingFetch pending);

    void pageFetched(const QString& site, const Fetched& page);
    void candidatesFound(const QString& site, const QUrl& pageUrl, QList<WebsiteIconCandidate> candidates);
    void tryNextCandidate(const QString& site);
    void succeed(const QString& site, const QByteArray& icon);
    void fail(const QString& site, const Error& error);

    Decoder m_decoder;
    WebsiteIconCache m_cache;
    QNetworkAccessManager* m_manager;
    QHash<QString, std::shared_ptr<Job>> m_jobs;
    std::deque<PendingFetch> m_queue;
    int m_inFlight = 0;

    std::chrono::milliseconds m_timeout{10000};
    int m_maxConcurrent = 4;
    int m_maxRedirects = 3;
    qint64 m_pageSizeLimit = 2 * 1024 * 1024;
    qint64 m_iconSizeLimit = 1024 * 1024;
};
