// A crash report read back from the capture engine's raw data, rendered as the readable text that people and the
// crash-report service see.
#pragma once

#include "foundation/Result.h"

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>
#include <optional>

class CrashReport {
public:
    // The family of the errors of reading, writing and purging reports.
    static inline const QString errorDomain = QStringLiteral("CrashReportError");
    enum ErrorCode {
        notACrashReport = 1,
        folderUnavailable,
        pathTooLong,
        unreadable,
        notRemovable,
    };

    // Parses the engine's raw data. Data cut short (the process died while writing) still makes a report, marked
    // incomplete; data that is not a report at all is an error.
    static Result<CrashReport> fromData(const QByteArray& data);

    // The report in the engine's standard text format.
    QString text() const;

    bool isComplete() const { return m_complete; }
    // "signal" or "exception".
    QString kind() const { return m_fields.value(QStringLiteral("Kind")); }
    QString signalName() const { return m_fields.value(QStringLiteral("Signal-Name")); }
    QString exceptionType() const { return m_fields.value(QStringLiteral("Exception-Type")); }
    QString exceptionMessage() const { return m_fields.value(QStringLiteral("Exception-Message")); }
    QString field(const QString& name) const { return m_fields.value(name); }
    // One line per frame, innermost first, as the dying process described them (demangled where possible).
    QStringList backtrace() const;

private:
    QMap<QString, QString> m_fields;
    QStringList m_frames;
    bool m_complete = false;
};
