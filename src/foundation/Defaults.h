// The user's preferences: QSettings-backed key/value pairs with registration defaults (values that apply while
// the user has not written the key) and a change signal per key.
#pragma once

#include <QDateTime>
#include <QMap>
#include <QMutex>
#include <QObject>
#include <QSettings>
#include <QStringList>
#include <QVariant>
#include <functional>
#include <memory>
#include <optional>

class Defaults : public QObject {
    Q_OBJECT

public:
    // Preferences kept in the given INI file (tests use a temporary one).
    explicit Defaults(const QString& filePath, QObject* parent = nullptr);
    ~Defaults() override;

    // The process-wide preferences of the user, in the configuration folder (follows XDG_CONFIG_HOME).
    static Defaults& standard();
    static QString standardFilePath();

    QString filePath() const;

    // Replaces the registration defaults; announces every key whose effective value changed.
    void registerDefaults(const QVariantMap& values);
    QVariantMap registeredDefaults() const;

    // The written value, else the registered one, else an invalid QVariant.
    QVariant value(const QString& key) const;
    // True when the user wrote the key (registration defaults do not count).
    bool isWritten(const QString& key) const;

    // A key neither registered nor written reads false / 0 / 0.0 / absent.
    bool boolValue(const QString& key) const;
    qint64 integerValue(const QString& key) const;
    double doubleValue(const QString& key) const;
    std::optional<QString> stringValue(const QString& key) const;
    std::optional<QDateTime> dateValue(const QString& key) const;
    QMap<QString, QStringList> stringArrayDictionary(const QString& key) const;

    void setValue(const QString& key, const QVariant& value);
    void setStringArrayDictionary(const QString& key, const QMap<QString, QStringList>& value);
    void remove(const QString& key);

    // Calls fn on context's thread whenever key's effective value changes.
    QMetaObject::Connection observe(const QString& key, QObject* context, std::function<void()> fn);

    // Writes pending changes to disk.
    void sync();

Q_SIGNALS:
    void valueChanged(const QString& key);

private:
    QVariant effectiveValue(const QString& key) const;

    // Workers read preferences while the GUI thread writes them; one QSettings object is not thread-safe.
    mutable QMutex m_mutex;
    std::unique_ptr<QSettings> m_settings;
    QVariantMap m_registered;
};
