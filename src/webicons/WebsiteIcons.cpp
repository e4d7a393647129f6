#include "webicons/WebsiteIcons.h"

#include "foundation/Logging.h"
#include "foundation/Threading.h"
#include "webicons/HtmlDocument.h"
#include "webicons/WebsiteIconDiscovery.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QTimer>

namespace {

Error iconsError(WebsiteIcons::ErrorCode code, const QString& description)
{
    return Error(WebsiteIcons::errorDomain, code, description);
}

int defaultPort(const QUrl& url)
{
    return url.scheme() == u"https" ? 443 : 80;
}

} // namespace

WebsiteIcons::WebsiteIcons(Decoder decoder, QString cacheFolder, QObject* parent)
    : QObject(parent)
    , m_decoder(std::move(decoder))
    , m_cache(std::move(cacheFolder))
    , m_manager(new QNetworkAccessManager(this))
{}

WebsiteIcons::~WebsiteIcons()
{
    // The replies die with the manager and must not call back into this half-destroyed object.
    const QList<QNetworkReply*> replies = m_manager->findChildren<QNetworkReply*>();
    for (QNetworkReply* reply : replies) {
        reply->disconnect(this);
    }
    delete m_manager;
}

QString WebsiteIcons::siteOf(const QUrl& website)
{
    if (!website.isValid() || (website.scheme() != u"http" && website.scheme() != u"https")) {
        return QString();
    }
    QString host = website.host(QUrl::FullyEncoded).toLower();
    if (host.isEmpty()) {
        return QString();
    }
    if (host.contains(u':')) {
        // An IPv6 address keeps its brackets, or its port could not be told apart.
        host = u'[' + host + u']';
    }
    const int port = website.port();
    return port == -1 || port == defaultPort(website) ? host : QStringLiteral("%1:%2").arg(host).arg(port);
}

void WebsiteIcons::request(const QUrl& website, int size)
{
    const QString site = siteOf(website);
    if (site.isEmpty()) {
        const Error error =
            iconsError(invalidWebsite, QStringLiteral("Not a website address: \"%1\"").arg(website.toDisplayString()));
        Threading::runOnGuiThread(this, [this, error] { Q_EMIT failed(QString(), error); });
        return;
    }
    if (m_jobs.contains(site)) {
        return;
    }
    if (const std::optional<WebsiteIconCache::Entry> cached = m_cache.lookup(site)) {
        if (cached->icon) {
            Threading::runOnGuiThread(this, [this, site, icon = *cached->icon] { Q_EMIT iconReady(site, icon); });
        } else {
            const Error error = iconsError(noIcon, QStringLiteral("No usable icon for %1 (known since %2)")
                                                       .arg(site, cached->fetched.toString(Qt::ISODate)));
            Threading::runOnGuiThread(this, [this, site, error] { Q_EMIT failed(site, error); });
        }
        return;
    }
    auto job = std::make_shared<Job>();
    job->website = website;
    job->size = size;
    m_jobs.insert(site, job);
    fetch(website, m_pageSizeLimit, [this, site](Fetched page) { pageFetched(site, page); });
}

void WebsiteIcons::pageFetched(const QString& site, const Fetched& page)
{
    const std::shared_ptr<Job> job = m_jobs.value(site);
    if (!job) {
        return;
    }
    if (page.error && !page.answered) {
        fail(site,
             iconsError(unreachable, QStringLiteral("Unable to reach %1: %2").arg(site, page.error->description())));
        return;
    }
    if (page.error) {
        // The site is up but the page is not there: its "/favicon.ico" may still be.
        candidatesFound(site, page.url, {});
        return;
    }
    // Parsing a large page would hold up the GUI thread.
    Threading::runAsync<WebsiteIconDiscovery::PageIcons>(
        [body = page.body, url = page.url] { return WebsiteIconDiscovery::fromPage(HtmlDocument::parse(body), url); },
        this,
        [this, site, pageUrl = page.url](WebsiteIconDiscovery::PageIcons icons) {
            if (icons.manifest.isEmpty()) {
                candidatesFound(site, pageUrl, icons.candidates);
                return;
            }
            const QUrl manifestUrl = icons.manifest;
            fetch(manifestUrl, m_pageSizeLimit,
                  [this, site, pageUrl, candidates = icons.candidates](Fetched manifest) mutable {
                      if (!manifest.error) {
                          Result<QList<WebsiteIconCandidate>> listed =
                              WebsiteIconDiscovery::fromManifest(manifest.body, manifest.url);
                          if (listed) {
                              candidates.append(listed.value());
                          } else {
                              qCDebug(lcCorvel) << "Ignoring the manifest" << manifest.url.toDisplayString()
                                                << listed.error().description();
                          }
                      }
                      candidatesFound(site, pageUrl, std::move(candidates));
                  });
        });
}

void WebsiteIcons::candidatesFound(const QString& site, const QUrl& pageUrl, QList<WebsiteIconCandidate> candidates)
{
    const std::shared_ptr<Job> job = m_jobs.value(site);
    if (!job) {
        return;
    }
    candidates.append(WebsiteIconDiscovery::favicon(pageUrl));
    job->candidates = WebsiteIconDiscovery::rank(std::move(candidates), job->size);
    job->next = 0;
    tryNextCandidate(site);
}

void WebsiteIcons::tryNextCandidate(const QString& site)
{
    const std::shared_ptr<Job> job = m_jobs.value(site);
    if (!job) {
        return;
    }
    if (job->next >= job->candidates.size()) {
        fail(site, iconsError(noIcon, QStringLiteral("No usable icon found for %1").arg(site)));
        return;
    }
    const QUrl url = job->candidates[job->next++].url;
    fetch(url, m_iconSizeLimit, [this, site](Fetched icon) {
        if (icon.error) {
            qCDebug(lcCorvel) << "No icon at" << icon.url.toDisplayString() << icon.error->description();
            tryNextCandidate(site);
            return;
        }
        Threading::runAsync<std::optional<QSize>>(
            [decoder = m_decoder, bytes = icon.body] { return decoder(bytes); }, this,
            [this, site, bytes = icon.body, url = icon.url](std::optional<QSize> decoded) {
                if (decoded && !decoded->isEmpty()) {
                    succeed(site, bytes);
                } else {
                    qCDebug(lcCorvel) << "Not an image:" << url.toDisplayString();
                    tryNextCandidate(site);
                }
            });
    });
}

void WebsiteIcons::succeed(const QString& site, const QByteArray& icon)
{
    m_jobs.remove(site);
    if (const Result<void> stored = m_cache.storeIcon(site, icon); !stored) {
        qCWarning(lcCorvel) << stored.error().description();
    }
    Q_EMIT iconReady(site, icon);
}

void WebsiteIcons::fail(const QString& site, const Error& error)
{
    m_jobs.remove(site);
    if (const Result<void> stored = m_cache.storeFailure(site); !stored) {
        qCWarning(lcCorvel) << stored.error().description();
    }
    Q_EMIT failed(site, error);
}

void WebsiteIcons::fetch(const QUrl& url, qint64 limit, FetchDone done)
{
    m_queue.push_back({url, limit, std::move(done)});
    startQueued();
}

void WebsiteIcons::startQueued()
{
    while (m_inFlight < m_maxConcurrent && !m_queue.empty()) {
        PendingFetch next = std::move(m_queue.front());
        m_queue.pop_front();
        ++m_inFlight;
        start(std::move(next));
    }
}

void WebsiteIcons::start(PendingFetch pending)
{
    QNetworkRequest request(pending.url);
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::NoLessSafeRedirectPolicy);
    request.setMaximumRedirectsAllowed(m_maxRedirects);
    // Some sites refuse clients that do not name themselves.
    request.setHeader(QNetworkRequest::UserAgentHeader, QStringLiteral("Mozilla/5.0 (compatible; Corvel X)"));
    QNetworkReply* reply = m_manager->get(request);

    // Why this side ended the transfer, when it did.
    auto abandoned = std::make_shared<std::optional<Error>>();
    auto body = std::make_shared<QByteArray>();
    const qint64 limit = pending.limit;
    const QUrl url = pending.url;

    // The whole request is bounded, not only its silences: a site that trickles must not hold a slot for ever.
    auto* deadline = new QTimer(reply);
    deadline->setSingleShot(true);
    connect(deadline, &QTimer::timeout, reply, [reply, abandoned, url, timeout = m_timeout] {
        *abandoned = iconsError(
            unreachable,
            QStringLiteral("The request for %1 timed out after %2 ms").arg(url.toDisplayString()).arg(timeout.count()));
        reply->abort();
    });
    deadline->start(m_timeout);

    connect(reply, &QNetworkReply::readyRead, reply, [reply, abandoned, body, limit, url] {
        if (*abandoned) {
            return;
        }
        body->append(reply->readAll());
        if (body->size() > limit) {
            *abandoned =
                iconsError(noIcon, QStringLiteral("%1 is larger than %2 bytes").arg(url.toDisplayString()).arg(limit));
            reply->abort();
        }
    });

    connect(
        reply, &QNetworkReply::finished, this, [this, reply, abandoned, body, limit, done = std::move(pending.done)] {
            Fetched fetched;
            fetched.url = reply->url();
            const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
            if (*abandoned) {
                fetched.error = **abandoned;
                // A timed-out site may be down; one that sent too much is up.
                fetched.answered = status.isValid() && (*abandoned)->code() != unreachable;
            } else if (reply->error() != QNetworkReply::NoError) {
                fetched.error = iconsError(
                    unreachable, QStringLiteral("%1 (%2)").arg(reply->errorString(), reply->url().toDisplayString()));
                fetched.answered = status.isValid() && reply->error() != QNetworkReply::TooManyRedirectsError;
            } else {
                body->append(reply->readAll());
                fetched.answered = true;
                if (body->size() > limit) {
                    fetched.error = iconsError(
                        noIcon,
                        QStringLiteral("%1 is larger than %2 bytes").arg(reply->url().toDisplayString()).arg(limit));
                } else {
                    fetched.body = std::move(*body);
                }
            }
            reply->deleteLater();
            --m_inFlight;
            done(std::move(fetched));
            startQueued();
        });
}
