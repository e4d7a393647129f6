#include "diagnostics/CrashReporterError.h"

QString CrashReporterError::domain()
{
    return QStringLiteral("CrashReporterError");
}

Error CrashReporterError::makeInvalidResponse(const std::optional<QString>& answer)
{
    const QString description = answer && !answer->isEmpty()
                                    ? tr("The crash report service refused the report: %1").arg(*answer)
                                    : tr("The crash report service refused the report");
    return Error(domain(), invalidResponse, description);
}

Error CrashReporterError::makeInvalidURL()
{
    return Error(domain(), invalidURL, tr("The crash report address could not be formed"));
}
