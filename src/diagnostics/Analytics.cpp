#include "diagnostics/Analytics.h"

#include "foundation/Bundle.h"
#include "foundation/Defaults.h"
#include "foundation/Logging.h"
#include "foundation/PreferenceKeys.h"

#include <QCoreApplication>
#include <QNetworkAccessManager>
#include <QThread>

namespace {

QUrl configuredServiceURL(const Bundle& bundle)
{
    const auto text = bundle.infoString(QStringLiteral("TW_ANALYTICS_URL"));
    if (!text) {
        return {};
    }
    const QUrl url(*text, QUrl::StrictMode);
    const bool usable = url.isValid() && !url.host().isEmpty() &&
                        (url.scheme() == QStringLiteral("https") || url.scheme() == QStringLiteral("http"));
    return usable ? url : QUrl();
}

template <class T>
T* onApplicationThread(T* object)
{
    if (auto* app = QCoreApplication::instance(); app && object->thread() != app->thread()) {
        object->moveToThread(app->thread());
    }
    return object;
}

} // namespace

Analytics::Analytics(Defaults& defaults, const Bundle& bundle, QNetworkAccessManager& network, QObject* parent)
    : PKAnalytics(bundle.infoString(QStringLiteral("TW_ANALYTICS_DOMAIN")).value_or(QString()),
                  configuredServiceURL(bundle), network, parent)
    , m_defaults(defaults)
{}

Analytics& Analytics::shared()
{
    // Never destroyed, like the shared HTTP client: a network manager must not outlive the application object.
    static Analytics* const analytics = [] {
        auto* network = onApplicationThread(new QNetworkAccessManager);
        return onApplicationThread(new Analytics(Defaults::standard(), Bundle::main(), *network));
    }();
    return *analytics;
}

void Analytics::appEvent(const QString& verb, const QString& token, const std::optional<QString>& tap)
{
    Properties properties{{tap == fontsRepository ? fontProperty : appProperty, token}};
    if (tap) {
        properties.insert(repositoryProperty, *tap);
    }
    sendIfAllowed(verb, appsPath, properties);
}

void Analytics::scriptEvent(const QString& verb, const QString& token, const std::optional<QString>& tap)
{
    Properties properties{{scriptProperty, token}};
    if (tap) {
        properties.insert(repositoryProperty, *tap);
    }
    sendIfAllowed(verb, scriptsPath, properties);
}

void Analytics::repositoryEvent(const QString& verb, const QString& name)
{
    sendIfAllowed(verb, repositoriesPath, {{repositoryProperty, name}});
}

void Analytics::sendIfAllowed(const QString& verb, const QString& path, const Properties& properties)
{
    // Asked afresh each time: withdrawing consent takes effect with the very next event.
    if (!m_defaults.boolValue(PreferenceKeys::AllowDataCollection)) {
        return;
    }
    if (const auto sent = trackEvent(verb, path, properties); !sent) {
        qCDebug(lcCorvel).noquote() << "Usage event" << verb << "not sent:" << sent.error().description();
    }
}
