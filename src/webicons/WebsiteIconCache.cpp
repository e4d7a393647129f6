#include "webicons/WebsiteIconCache.h"

#include "foundation/JsonReader.h"
#include "foundation/Logging.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>
#include <QStandardPaths>
#include <QUrl>

namespace {

Error cacheError(const QString& description)
{
    return Error(WebsiteIconCache::errorDomain, WebsiteIconCache::unwritable, description);
}

Result<void> writeFile(const QString& path, const QByteArray& contents)
{
    // Written aside and renamed, so that a crash never leaves half an icon or half an index.
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(contents) != contents.size() || !file.commit()) {
        return cacheError(QStringLiteral("Unable to write %1: %2").arg(path, file.errorString()));
    }
    return {};
}

} // namespace

QString WebsiteIconCache::defaultFolder()
{
    return QStandardPaths::writableLocation(QStandardPaths::CacheLocation) + QStringLiteral("/WebsiteIcons");
}

WebsiteIconCache::WebsiteIconCache(QString folder)
    : m_folder(std::move(folder))
{}

QString WebsiteIconCache::iconPath(const QString& site) const
{
    // Percent-encoding leaves no "/" in the name, so no site can name a file outside the folder.
    return m_folder + u'/' + QString::fromLatin1(QUrl::toPercentEncoding(site)) + QStringLiteral(".icon");
}

std::optional<WebsiteIconCache::Entry> WebsiteIconCache::lookup(const QString& site, const QDateTime& now)
{
    loadIndex();
    const auto found = m_index.constFind(site);
    if (found == m_index.constEnd()) {
        return std::nullopt;
    }
    const std::chrono::seconds lifetime = found->found ? m_iconLifetime : m_failureLifetime;
    if (found->fetched.addSecs(lifetime.count()) <= now) {
        return std::nullopt;
    }
    if (!found->found) {
        return Entry{found->fetched, std::nullopt};
    }
    QFile file(iconPath(site));
    if (!file.open(QIODevice::ReadOnly)) {
        // Someone cleared the folder behind the index: ask the site again.
        return std::nullopt;
    }
    return Entry{found->fetched, file.readAll()};
}

Result<void> WebsiteIconCache::storeIcon(const QString& site, const QByteArray& icon, const QDateTime& now)
{
    if (site.isEmpty()) {
        return cacheError(QStringLiteral("A site is needed to cache an icon"));
    }
    if (!QDir().mkpath(m_folder)) {
        return cacheError(QStringLiteral("Unable to create the folder %1").arg(m_folder));
    }
    if (Result<void> written = writeFile(iconPath(site), icon); !written) {
        return written;
    }
    return store(site, {now, true});
}

Result<void> WebsiteIconCache::storeFailure(const QString& site, const QDateTime& now)
{
    QFile::remove(iconPath(site));
    return store(site, {now, false});
}

Result<void> WebsiteIconCache::store(const QString& site, const Record& record)
{
    if (site.isEmpty()) {
        return cacheError(QStringLiteral("A site is needed to cache an icon"));
    }
    loadIndex();
    m_index.insert(site, record);
    return saveIndex();
}

void WebsiteIconCache::loadIndex()
{
    if (m_loaded) {
        return;
    }
    m_loaded = true;
    QFile file(m_folder + u'/' + indexFileName);
    if (!file.open(QIODevice::ReadOnly)) {
        return;
    }
    // An array of records rather than an object keyed by site: keys would be converted from snake case on reading.
    QHash<QString, Record> index;
    const Result<void> read = JsonReader::readDocument(file.readAll(), [&index](JsonReader& root) {
        return root.readObject([&index](std::string_view key, JsonReader& value) {
            if (key != "sites") {
                return true;
            }
            return value.readArray([&index](JsonReader& element) {
                QString site, fetched;
                Record record;
                const bool ok = element.readObject([&](std::string_view field, JsonReader& fieldValue) {
                    if (field == "site") {
                        return fieldValue.readString(site);
                    } else if (field == "fetched") {
                        return fieldValue.readString(fetched);
                    } else if (field == "found") {
                        return fieldValue.readBool(record.found);
                    }
                    return true;
                });
                record.fetched = QDateTime::fromString(fetched, Qt::ISODateWithMs);
                if (ok && !site.isEmpty() && record.fetched.isValid()) {
                    index.insert(site, record);
                }
                return ok || element.recover();
            });
        });
    });
    if (!read) {
        // The index is only a cache: start over rather than fail.
        qCWarning(lcCorvel) << "Ignoring the website icon index" << file.fileName() << read.error().description();
        return;
    }
    m_index = std::move(index);
}

Result<void> WebsiteIconCache::saveIndex()
{
    if (!QDir().mkpath(m_folder)) {
        return cacheError(QStringLiteral("Unable to create the folder %1").arg(m_folder));
    }
    QJsonArray sites;
    for (auto it = m_index.constBegin(); it != m_index.constEnd(); ++it) {
        sites.append(QJsonObject{{QStringLiteral("site"), it.key()},
                                 {QStringLiteral("fetched"), it->fetched.toUTC().toString(Qt::ISODateWithMs)},
                                 {QStringLiteral("found"), it->found}});
    }
    const QJsonObject index{{QStringLiteral("sites"), sites}};
    return writeFile(m_folder + u'/' + indexFileName, QJsonDocument(index).toJson(QJsonDocument::Compact));
}
