#include "foundation/Bundle.h"

#include "foundation/Logging.h"
#include "foundation/PropertyList.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QMutexLocker>

Bundle::Bundle(const QString& resourceDir)
    : m_resourceDir(QDir::cleanPath(resourceDir))
{}

Bundle& Bundle::main()
{
    static Bundle bundle(locateMainResourceDir());
    return bundle;
}

QString Bundle::locateMainResourceDir()
{
    const QString bin = QCoreApplication::applicationDirPath();
    const QStringList candidates = {bin + QStringLiteral("/../share/corvel-x"),
                                    bin + QStringLiteral("/share/corvel-x")};
    for (const QString& candidate : candidates) {
        if (QFileInfo(candidate).isDir()) {
            return QDir::cleanPath(candidate);
        }
    }
    // Neither exists: keep the installed location so that look-ups fail with a meaningful path.
    return QDir::cleanPath(candidates.first());
}

QString Bundle::resourcePath() const
{
    return m_resourceDir;
}

std::optional<QVariantMap> Bundle::infoDictionary() const
{
    QMutexLocker lock(&m_mutex);
    if (!m_loaded) {
        m_loaded = true;
        const QString path = m_resourceDir + QStringLiteral("/Info.plist");
        if (QFileInfo::exists(path)) {
            const auto read = PropertyList::read(path);
            if (!read) {
                qCWarning(lcCorvel).noquote() << read.error().description();
            } else if (read.value().typeId() == QMetaType::QVariantMap) {
                m_info = read.value().toMap();
            }
        }
    }
    if (!m_info && m_overlay.isEmpty()) {
        return std::nullopt;
    }
    QVariantMap merged = m_info.value_or(QVariantMap());
    merged.insert(m_overlay);
    return merged;
}

void Bundle::overlayInfo(const QVariantMap& keys)
{
    QMutexLocker lock(&m_mutex);
    m_overlay.insert(keys);
}

Result<QVariantMap> Bundle::readInfoOverlay(const QString& path)
{
    auto read = PropertyList::read(path);
    if (!read) {
        return read.error();
    }
    if (read.value().typeId() != QMetaType::QVariantMap) {
        return Error(PropertyList::errorDomain, PropertyList::InvalidStructure,
                     QStringLiteral("%1: the configuration must be a dictionary").arg(path));
    }
    return read.value().toMap();
}

QString Bundle::version() const
{
    return infoString(QStringLiteral("CFBundleShortVersionString")).value_or(QString());
}

std::optional<QString> Bundle::buildNumber() const
{
    return infoString(QStringLiteral("CFBundleVersion"));
}

QUrl Bundle::serviceURL() const
{
    const auto info = infoDictionary();
    if (!info) {
        qFatal("Plist not found");
    }
    const QVariant value = info->value(QStringLiteral("TW_SERVICES_URL"));
    if (value.typeId() != QMetaType::QString) {
        qFatal("Services URL not set in plist");
    }
    const QString text = value.toString();
    const QUrl url(text, QUrl::StrictMode);
    if (text.isEmpty() || !url.isValid()) {
        qFatal("Services URL is invalid");
    }
    return url;
}

std::optional<QString> Bundle::infoString(const QString& key) const
{
    const auto info = infoDictionary();
    if (!info) {
        return std::nullopt;
    }
    const QVariant value = info->value(key);
    if (value.typeId() != QMetaType::QString) {
        return std::nullopt;
    }
    return value.toString();
}

std::optional<QString> Bundle::pathForResource(const QString& name, const QString& type) const
{
    if (name.isEmpty()) {
        return std::nullopt;
    }
    const QString fileName = type.isEmpty() ? name : name + u'.' + type;
    const QString path = m_resourceDir + u'/' + fileName;
    if (!QFileInfo(path).isFile()) {
        return std::nullopt;
    }
    return path;
}
