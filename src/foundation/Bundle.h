// The application's resource folder and its Info.plist: version, build number, the configured service endpoints
// and the look-up of shipped resources (DefaultSettings.plist, Askpass, agent definitions).
#pragma once

#include "foundation/Result.h"

#include <QMutex>
#include <QString>
#include <QUrl>
#include <QVariantMap>
#include <optional>

class Bundle {
public:
    // A bundle over the given folder; tests build one over a temporary folder.
    explicit Bundle(const QString& resourceDir);
    Bundle(const Bundle&) = delete;
    Bundle& operator=(const Bundle&) = delete;

    // The bundle of the running executable: <bin>/../share/corvel-x (installed tree and build tree alike),
    // else <bin>/share/corvel-x.
    static Bundle& main();

    QString resourcePath() const;

    // The Info.plist dictionary with any overlay applied; none when the file is missing or not a dictionary.
    // The file is read once.
    std::optional<QVariantMap> infoDictionary() const;

    // Lays the keys of another Info.plist over this one's (corvel-x --config FILE). Without an Info.plist of
    // its own the bundle then uses the overlay alone.
    void overlayInfo(const QVariantMap& keys);
    static Result<QVariantMap> readInfoOverlay(const QString& path);

    // CFBundleShortVersionString, empty when not set.
    QString version() const;
    // CFBundleVersion.
    std::optional<QString> buildNumber() const;

    // TW_SERVICES_URL. A bundle without a usable one was built wrongly, so this ends the process with a fatal
    // message rather than returning.
    QUrl serviceURL() const;

    // A text value of the information dictionary, e.g. one of the endpoint keys (TW_HOMEBREW_API_URL, ...).
    std::optional<QString> infoString(const QString& key) const;

    // The file "name" (type empty) or "name.type" in the resource folder, if it exists.
    std::optional<QString> pathForResource(const QString& name, const QString& type = QString()) const;

private:
    static QString locateMainResourceDir();

    QString m_resourceDir;
    mutable QMutex m_mutex;
    mutable bool m_loaded = false;
    mutable std::optional<QVariantMap> m_info;
    QVariantMap m_overlay;
};
