// Why a crash report could not be delivered: the service answered with anything but 200, or the upload address
// could not be formed. Each case becomes an Error of the family "CrashReporterError".
#pragma once

#include "foundation/Error.h"

#include <QCoreApplication>
#include <optional>

class CrashReporterError {
    Q_DECLARE_TR_FUNCTIONS(CrashReporterError)

public:
    enum Code {
        invalidResponse = 1,
        invalidURL,
    };

    static QString domain();
    // answer: the service's text, when it sent one.
    static Error makeInvalidResponse(const std::optional<QString>& answer);
    static Error makeInvalidURL();
};
