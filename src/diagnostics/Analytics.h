// The application's usage events: what happened to an app, a script or a repository, sent to the analytics service
// of the bundle (TW_ANALYTICS_URL, site domain TW_ANALYTICS_DOMAIN) only while the user allows data collection.
//
// Events and their properties:
//   app operations          path "/main/apps", event = the verb ("Install", "Move", "Uninstall", ...);
//                           "App" (or "Font" for casks of "homebrew/cask-fonts") = the cask's token,
//                           "Repository" = the cask's tap, when known.
//   script operations       path "/main/scripts", event = the verb;
//                           "Script" = the formula's token, "Repository" = its tap, when known.
//   repository operations   path "/settings/repositories", event = the verb ("Install" when added,
//                           "Uninstall" when removed); "Repository" = the tap's name.
#pragma once

#include "diagnostics/PKAnalytics.h"

#include <optional>

class Bundle;
class Defaults;

class Analytics : public PKAnalytics {
    Q_OBJECT

public:
    static inline const QString appsPath = QStringLiteral("/main/apps");
    static inline const QString scriptsPath = QStringLiteral("/main/scripts");
    static inline const QString repositoriesPath = QStringLiteral("/settings/repositories");
    static inline const QString fontsRepository = QStringLiteral("homebrew/cask-fonts");

    static inline const QString appProperty = QStringLiteral("App");
    static inline const QString fontProperty = QStringLiteral("Font");
    static inline const QString scriptProperty = QStringLiteral("Script");
    static inline const QString repositoryProperty = QStringLiteral("Repository");

    // Reads the service and the site domain from the bundle once; without them events are dropped.
    Analytics(Defaults& defaults, const Bundle& bundle, QNetworkAccessManager& network, QObject* parent = nullptr);

    // Over the user's preferences and the main bundle, with a network manager of the application's thread.
    static Analytics& shared();

    // Each sends only while "AllowDataCollection" is true at the moment of the call; never blocks; any thread.
    void appEvent(const QString& verb, const QString& token, const std::optional<QString>& tap);
    void scriptEvent(const QString& verb, const QString& token, const std::optional<QString>& tap);
    void repositoryEvent(const QString& verb, const QString& name);

private:
    void sendIfAllowed(const QString& verb, const QString& path, const Properties& properties);

    Defaults& m_defaults;
};
