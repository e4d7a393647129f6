// The failures of running brew that callers tell apart: no executable, an install or update that failed, output
// that cannot be read. Each case becomes an Error of the family "HomebrewError" with its localized description.
#pragma once

#include "foundation/Error.h"

#include <QCoreApplication>

class HomebrewError {
    Q_DECLARE_TR_FUNCTIONS(HomebrewError)

public:
    enum Code {
        unableToInstall,
        unableToUpdate,
        unknown,
        processNotAvailable,
        unableToReadData,
    };

    static QString domain();

    // text is what unableToUpdate reports as its description; every other case ignores it (an install failure
    // always reads "Unable to install", whatever detail it came with).
    static QString description(Code code, const QString& text = QString());
    static Error make(Code code, const QString& text = QString());
};
