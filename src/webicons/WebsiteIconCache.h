// Remembers each site's icon, or that it has none, across runs: one file per site and a small JSON index with the
// date of each fetch, in the user's cache folder. Found icons and failures expire after their own lifetimes, so a
// dead site is not asked again at every start and a changed icon is picked up eventually.
#pragma once

#include "foundation/Result.h"

#include <QByteArray>
#include <QDateTime>
#include <QHash>
#include <QString>
#include <chrono>
#include <optional>

class WebsiteIconCache {
public:
    static inline const QString errorDomain = QStringLiteral("WebsiteIconCacheError");
    enum ErrorCode { unwritable = 1 };

    struct Entry {
        QDateTime fetched;
        std::optional<QByteArray> icon; // none: the site was asked and gave no usable icon
    };

    // The index's file name inside the folder.
    static inline const QString indexFileName = QStringLiteral("index.json");

    // QStandardPaths::CacheLocation + "/WebsiteIcons".
    static QString defaultFolder();

    explicit WebsiteIconCache(QString folder = defaultFolder());

    const QString& folder() const { return m_folder; }

    std::chrono::seconds iconLifetime() const { return m_iconLifetime; }
    void setIconLifetime(std::chrono::seconds lifetime) { m_iconLifetime = lifetime; }
    std::chrono::seconds failureLifetime() const { return m_failureLifetime; }
    void setFailureLifetime(std::chrono::seconds lifetime) { m_failureLifetime = lifetime; }

    // The entry of site if one is stored and has not expired at now.
    std::optional<Entry> lookup(const QString& site, const QDateTime& now = QDateTime::currentDateTimeUtc());

    Result<void> storeIcon(const QString& site, const QByteArray& icon,
                           const QDateTime& now = QDateTime::currentDateTimeUtc());
    Result<void> storeFailure(const QString& site, const QDateTime& now = QDateTime::currentDateTimeUtc());

    // The file that holds the icon of site (whether or not it exists): the site's name, percent-encoded.
    QString iconPath(const QString& site) const;

private:
    struct Record {
        QDateTime fetched;
        bool found = false;
    };

    void loadIndex();
    Result<void> saveIndex();
    Result<void> store(const QString& site, const Record& record);

    QString m_folder;
    std::chrono::seconds m_iconLifetime = std::chrono::days(7);
    std::chrono::seconds m_failureLifetime = std::chrono::days(1);
    bool m_loaded = false;
    QHash<QString, Record> m_index;
};
