#include "foundation/Defaults.h"

#include "foundation/Logging.h"

#include <QCoreApplication>
#include <QMutexLocker>
#include <QStandardPaths>

// The INI file keeps every scalar as text, so a value read back after a restart is a string even when a bool or a
// number was written. QVariant's conversions and its comparison of text with numbers take care of that: "false"
// reads false, "3" reads 3, and writing 3 over a "3" read from disk is no change.

Defaults::Defaults(const QString& filePath, QObject* parent)
    : QObject(parent)
    , m_settings(std::make_unique<QSettings>(filePath, QSettings::IniFormat))
{}

Defaults::~Defaults() = default;

Defaults& Defaults::standard()
{
    static Defaults instance(standardFilePath());
    static const bool onGuiThread = [] {
        // Whichever thread asks first, the instance belongs with the rest of the application state, and its
        // settings object needs an event loop for the periodic saves.
        if (auto* app = QCoreApplication::instance(); app && instance.thread() != app->thread()) {
            instance.m_settings->moveToThread(app->thread());
            instance.moveToThread(app->thread());
        }
        return true;
    }();
    Q_UNUSED(onGuiThread);
    return instance;
}

QString Defaults::standardFilePath()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
           QStringLiteral("/works.tessel.corvel/Corvel X.conf");
}

QString Defaults::filePath() const
{
    QMutexLocker lock(&m_mutex);
    return m_settings->fileName();
}

void Defaults::registerDefaults(const QVariantMap& values)
{
    QMutexLocker lock(&m_mutex);
    const QVariantMap previous = std::exchange(m_registered, values);
    QStringList keys = previous.keys() + values.keys();
    keys.removeDuplicates();
    QStringList changed;
    for (const QString& key : std::as_const(keys)) {
        if (!m_settings->contains(key) && previous.value(key) != values.value(key)) {
            changed.append(key);
        }
    }
    // Observers may read the preferences again; they must find them unlocked.
    lock.unlock();
    for (const QString& key : std::as_const(changed)) {
        Q_EMIT valueChanged(key);
    }
}

QVariantMap Defaults::registeredDefaults() const
{
    QMutexLocker lock(&m_mutex);
    return m_registered;
}

QVariant Defaults::effectiveValue(const QString& key) const
{
    return m_settings->contains(key) ? m_settings->value(key) : m_registered.value(key);
}

QVariant Defaults::value(const QString& key) const
{
    QMutexLocker lock(&m_mutex);
    return effectiveValue(key);
}

bool Defaults::isWritten(const QString& key) const
{
    QMutexLocker lock(&m_mutex);
    return m_settings->contains(key);
}

bool Defaults::boolValue(const QString& key) const
{
    return value(key).toBool();
}

qint64 Defaults::integerValue(const QString& key) const
{
    return value(key).toLongLong();
}

double Defaults::doubleValue(const QString& key) const
{
    return value(key).toDouble();
}

std::optional<QString> Defaults::stringValue(const QString& key) const
{
    const QVariant stored = value(key);
    // Only scalars (text, numbers, booleans) read as text; a list would otherwise pass for its only element.
    if (!stored.canConvert<double>()) {
        return std::nullopt;
    }
    return stored.toString();
}

std::optional<QDateTime> Defaults::dateValue(const QString& key) const
{
    const QDateTime date = value(key).toDateTime();
    return date.isValid() ? std::optional(date) : std::nullopt;
}

QMap<QString, QStringList> Defaults::stringArrayDictionary(const QString& key) const
{
    const QVariantMap map = value(key).toMap();
    QMap<QString, QStringList> result;
    for (auto it = map.cbegin(); it != map.cend(); ++it) {
        result.insert(it.key(), it.value().toStringList());
    }
    return result;
}

void Defaults::setValue(const QString& key, const QVariant& value)
{
    if (key.isEmpty()) {
        return;
    }
    if (!value.isValid()) {
        remove(key);
        return;
    }
    QMutexLocker lock(&m_mutex);
    const bool changed = !m_settings->contains(key) || m_settings->value(key) != value;
    m_settings->setValue(key, value);
    lock.unlock();
    if (changed) {
        Q_EMIT valueChanged(key);
    }
}

void Defaults::setStringArrayDictionary(const QString& key, const QMap<QString, QStringList>& value)
{
    QVariantMap map;
    for (auto it = value.cbegin(); it != value.cend(); ++it) {
        map.insert(it.key(), it.value());
    }
    setValue(key, map);
}

void Defaults::remove(const QString& key)
{
    if (key.isEmpty()) {
        return;
    }
    QMutexLocker lock(&m_mutex);
    const bool wasWritten = m_settings->contains(key);
    m_settings->remove(key);
    lock.unlock();
    if (wasWritten) {
        Q_EMIT valueChanged(key);
    }
}

QMetaObject::Connection Defaults::observe(const QString& key, QObject* context, std::function<void()> fn)
{
    return connect(this, &Defaults::valueChanged, context, [key, fn = std::move(fn)](const QString& changed) {
        if (changed == key) {
            fn();
        }
    });
}

void Defaults::sync()
{
    QMutexLocker lock(&m_mutex);
    m_settings->sync();
    if (m_settings->status() != QSettings::NoError) {
        qCWarning(lcCorvel).noquote() << "Unable to save the preferences to" << m_settings->fileName();
    }
}
