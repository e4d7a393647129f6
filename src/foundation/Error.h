// An error as the application reports it: the family it belongs to (e.g. "HomebrewError"), its case, and the
// localized description people read. Each error family provides a factory that fills all three.
#pragma once

#include <QMetaType>
#include <QString>

class Error {
public:
    Error() = default;
    Error(QString domain, int code, QString description)
        : m_domain(std::move(domain))
        , m_code(code)
        , m_description(std::move(description))
    {}

    const QString& domain() const { return m_domain; }
    int code() const { return m_code; }
    const QString& description() const { return m_description; }

    // True when this error is the given case of the given family.
    bool is(QStringView domain, int code) const { return m_domain == domain && m_code == code; }

    bool operator==(const Error&) const = default;

private:
    QString m_domain;
    int m_code = 0;
    QString m_description;
};

Q_DECLARE_METATYPE(Error)
