// A failure described only by its text, such as a brew child that ended with a non-zero status. The exit code is
// deliberately not part of it: people read the child's own output in the transcript instead.
#pragma once

#include "foundation/Error.h"

#include <QCoreApplication>

class RuntimeError {
    Q_DECLARE_TR_FUNCTIONS(RuntimeError)

public:
    static QString domain();
    static Error make(const QString& description);

    // "Process terminated with an error": any child that did not exit with status 0.
    static Error processTerminated();
};
