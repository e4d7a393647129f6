#include "foundation/Defaults.h"

#include "foundation/Logging.h"

#include <QCoreApplication>
#include <QMutexLocker>
#include <QStandardPaths>
#include <cmath>
#include <limits>

namespace {

bool isNumber(const QVariant& value)
{
    switch (value.typeId()) {
    case QMetaType::Char:
    case QMetaType::SChar:
    case QMetaType::UChar:
    case QMetaType::Short:
    case QMetaType::UShort:
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::Long:
    case QMetaType::ULong:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Float:
    case QMetaType::Double:
        return true;
    default:
        return false;
    }
}

bool isFloatingPoint(const QVariant& value)
{
    return value.typeId() == QMetaType::Double || value.typeId() == QMetaType::Float;
}

// The INI file keeps every scalar as text, so a value read back after a restart is a string even when a bool
// or a number was written.
bool isScalar(const QVariant& value)
{
    return value.typeId() == QMetaType::QString || value.typeId() == QMetaType::Bool || isNumber(value);
}

bool isAffirmative(const QString& text)
{
    return text.compare(u"true", Qt::CaseInsensitive) == 0 || text.compare(u"yes", Qt::CaseInsensitive) == 0;
}

qint64 truncated(double value)
{
    if (std::isnan(value)) {
        return 0;
    }
    constexpr double limit = 9223372036854775808.0; // 2^63
    if (value >= limit) {
        return std::numeric_limits<qint64>::max();
    }
    if (value < -limit) {
        return std::numeric_limits<qint64>::min();
    }
    return qint64(value);
}

bool sameValue(const QVariant& a, const QVariant& b)
{
    if (!a.isValid() || !b.isValid()) {
        return a.isValid() == b.isValid();
    }
    if (a.typeId() != b.typeId() && isScalar(a) && isScalar(b)) {
        return a.toString() == b.toString();
    }
    return a == b;
}

} // namespace

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
    QStringList changed;
    {
        QMutexLocker lock(&m_mutex);
        const QVariantMap previous = std::exchange(m_registered, values);
        QStringList keys = previous.keys() + values.keys();
        keys.removeDuplicates();
        for (const QString& key : std::as_const(keys)) {
            if (!m_settings->contains(key) && !sameValue(previous.value(key), values.value(key))) {
                changed.append(key);
            }
        }
    }
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
    const QVariant stored = value(key);
    if (stored.typeId() == QMetaType::Bool) {
        return stored.toBool();
    }
    if (isNumber(stored)) {
        return stored.toDouble() != 0.0;
    }
    if (stored.typeId() == QMetaType::QString) {
        const QString text = stored.toString().trimmed();
        if (isAffirmative(text)) {
            return true;
        }
        bool ok = false;
        const double number = text.toDouble(&ok);
        return ok && number != 0.0;
    }
    return false;
}

qint64 Defaults::integerValue(const QString& key) const
{
    const QVariant stored = value(key);
    if (stored.typeId() == QMetaType::Bool) {
        return stored.toBool() ? 1 : 0;
    }
    if (isFloatingPoint(stored)) {
        return truncated(stored.toDouble());
    }
    if (isNumber(stored)) {
        return stored.toLongLong();
    }
    if (stored.typeId() == QMetaType::QString) {
        const QString text = stored.toString().trimmed();
        bool ok = false;
        const qint64 integer = text.toLongLong(&ok);
        if (ok) {
            return integer;
        }
        const double number = text.toDouble(&ok);
        if (ok) {
            return truncated(number);
        }
        return isAffirmative(text) ? 1 : 0;
    }
    return 0;
}

double Defaults::doubleValue(const QString& key) const
{
    const QVariant stored = value(key);
    if (stored.typeId() == QMetaType::Bool) {
        return stored.toBool() ? 1.0 : 0.0;
    }
    if (isNumber(stored)) {
        return stored.toDouble();
    }
    if (stored.typeId() == QMetaType::QString) {
        const QString text = stored.toString().trimmed();
        bool ok = false;
        const double number = text.toDouble(&ok);
        if (ok) {
            return number;
        }
        return isAffirmative(text) ? 1.0 : 0.0;
    }
    return 0.0;
}

std::optional<QString> Defaults::stringValue(const QString& key) const
{
    const QVariant stored = value(key);
    if (!isScalar(stored)) {
        return std::nullopt;
    }
    return stored.toString();
}

std::optional<QDateTime> Defaults::dateValue(const QString& key) const
{
    const QVariant stored = value(key);
    QDateTime date;
    if (stored.typeId() == QMetaType::QDateTime) {
        date = stored.toDateTime();
    } else if (stored.typeId() == QMetaType::QString) {
        date = QDateTime::fromString(stored.toString().trimmed(), Qt::ISODate);
    }
    if (!date.isValid()) {
        return std::nullopt;
    }
    return date;
}

QMap<QString, QStringList> Defaults::stringArrayDictionary(const QString& key) const
{
    const QVariant stored = value(key);
    QMap<QString, QStringList> result;
    if (stored.typeId() != QMetaType::QVariantMap) {
        return result;
    }
    const QVariantMap map = stored.toMap();
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
    bool changed = true;
    {
        QMutexLocker lock(&m_mutex);
        if (m_settings->contains(key)) {
            changed = !sameValue(m_settings->value(key), value);
        }
        m_settings->setValue(key, value);
    }
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
    bool wasWritten = false;
    {
        QMutexLocker lock(&m_mutex);
        wasWritten = m_settings->contains(key);
        if (wasWritten) {
            m_settings->remove(key);
        }
    }
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
