#include "diagnostics/PKAnalytics.h"

#include "diagnostics/PKAnalyticsError.h"
#include "foundation/Logging.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QMetaObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>

namespace {

QUrl eventEndpoint(const QUrl& serviceURL)
{
    if (!serviceURL.isValid() || serviceURL.isEmpty()) {
        return {};
    }
    QUrl url = serviceURL.adjusted(QUrl::RemoveQuery | QUrl::RemoveFragment);
    QString path = url.path();
    while (path.endsWith(u'/')) {
        path.chop(1);
    }
    url.setPath(path + QStringLiteral("/api/event"));
    return url;
}

} // namespace

PKAnalytics::PKAnalytics(const QString& domain, const QUrl& serviceURL, QNetworkAccessManager& network, QObject* parent)
    : QObject(parent)
    , m_domain(domain)
    , m_eventURL(eventEndpoint(serviceURL))
    , m_network(network)
{}

Result<void> PKAnalytics::trackPageview(const QString& path, const Properties& properties)
{
    if (auto checked = checkDomain(); !checked) {
        return checked;
    }
    send(pageviewEventName, path, properties);
    return {};
}

Result<void> PKAnalytics::trackEvent(const QString& name, const QString& path, const Properties& properties)
{
    if (name == pageviewEventName) {
        return PKAnalyticsError::make(PKAnalyticsError::eventIsPageview);
    }
    if (auto checked = checkDomain(); !checked) {
        return checked;
    }
    send(name, path, properties);
    return {};
}

Result<void> PKAnalytics::checkDomain() const
{
    if (m_domain.isEmpty()) {
        return PKAnalyticsError::make(PKAnalyticsError::domainNotSet);
    }
    // The domain becomes the host of every event's URL, so it must be exactly a host name: no scheme, port, path
    // or credentials smuggled in with it.
    const QUrl probe(QStringLiteral("https://") + m_domain, QUrl::StrictMode);
    if (!probe.isValid() || probe.host().isEmpty() || probe.host() != m_domain.toLower() || probe.port() != -1 ||
        !probe.userInfo().isEmpty() || !probe.path().isEmpty() || probe.hasQuery() || probe.hasFragment()) {
        return PKAnalyticsError::make(PKAnalyticsError::invalidDomain);
    }
    return {};
}

QByteArray PKAnalytics::eventBody(const QString& name, const QString& path, const Properties& properties) const
{
    QUrl pageURL;
    pageURL.setScheme(QStringLiteral("https"));
    pageURL.setHost(m_domain);
    QString component = path;
    while (component.startsWith(u'/')) {
        component.remove(0, 1);
    }
    pageURL.setPath(u'/' + component);

    QJsonObject body{
        {QStringLiteral("name"), name},
        {QStringLiteral("url"), pageURL.toString(QUrl::FullyEncoded)},
        {QStringLiteral("domain"), m_domain},
    };
    // The service treats an empty "props" object differently from none, so it is left out entirely.
    if (!properties.isEmpty()) {
        QJsonObject props;
        for (auto it = properties.cbegin(); it != properties.cend(); ++it) {
            props.insert(it.key(), it.value());
        }
        body.insert(QStringLiteral("props"), props);
    }
    return QJsonDocument(body).toJson(QJsonDocument::Compact);
}

void PKAnalytics::send(const QString& name, const QString& path, const Properties& properties)
{
    if (!m_eventURL.isValid() || m_eventURL.isEmpty()) {
        qCDebug(lcCorvel) << "No analytics service configured; event dropped:" << name;
        return;
    }
    QNetworkRequest request(m_eventURL);
    request.setHeader(QNetworkRequest::ContentTypeHeader, QByteArrayLiteral("application/json"));
    const QByteArray body = eventBody(name, path, properties);

    // The manager belongs to its own thread; from there the call is immediate, from any other it is queued, so the
    // caller never waits. Only the manager is captured, so this client may be gone before the request goes out.
    QNetworkAccessManager* network = &m_network;
    QMetaObject::invokeMethod(
        network,
        [network, request, body] {
            QNetworkReply* reply = network->post(request, body);
            QObject::connect(reply, &QNetworkReply::finished, reply, [reply] {
                // An HTTP status means the service answered; only a failure to reach it is worth a line.
                const bool answered = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).isValid();
                if (reply->error() != QNetworkReply::NoError && !answered) {
                    qCWarning(lcCorvel).noquote()
                        << QStringLiteral("error sending pageview to Plausible: ") + reply->errorString();
                }
                reply->deleteLater();
            });
        },
        Qt::AutoConnection);
}
