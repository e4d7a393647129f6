// A small client of the Plausible analytics service: page views and custom events of one site domain, each POSTed
// as a JSON event to the service's /api/event without waiting for the answer.
#pragma once

#include "foundation/Result.h"

#include <QByteArray>
#include <QMap>
#include <QObject>
#include <QString>
#include <QUrl>

class QNetworkAccessManager;

class PKAnalytics : public QObject {
    Q_OBJECT

public:
    using Properties = QMap<QString, QString>;

    static inline const QString pageviewEventName = QStringLiteral("pageview");

    // serviceURL is the service's base (scheme, host, optional port and path prefix); domain is the site under
    // which the service files the events. Requests go out on network's thread.
    PKAnalytics(const QString& domain, const QUrl& serviceURL, QNetworkAccessManager& network,
                QObject* parent = nullptr);

    QString domain() const { return m_domain; }
    // The service's event endpoint: the base URL with "/api/event" appended to its path.
    QUrl PlausibleAPIEventURL() const { return m_eventURL; }

    // Sends the event "pageview" for path. PKAnalyticsError::domainNotSet when the domain is empty,
    // PKAnalyticsError::invalidDomain when it cannot be a host name; nothing is sent then.
    Result<void> trackPageview(const QString& path, const Properties& properties = {});

    // Sends the custom event name for path. PKAnalyticsError::eventIsPageview for the name "pageview", and the
    // domain errors of trackPageview; nothing is sent then.
    Result<void> trackEvent(const QString& name, const QString& path, const Properties& properties = {});

    // The JSON body of an event: "name", "url" ("https://" + domain + path), "domain", and "props" only when there
    // are properties.
    QByteArray eventBody(const QString& name, const QString& path, const Properties& properties) const;

private:
    Result<void> checkDomain() const;
    // Callable from any thread; never waits for the request to go out or to be answered.
    void send(const QString& name, const QString& path, const Properties& properties);

    QString m_domain;
    QUrl m_eventURL;
    QNetworkAccessManager& m_network;
};
