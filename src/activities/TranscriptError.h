// The errors of the transcript: saving it can fail when its text cannot be encoded.
#pragma once

#include "foundation/Error.h"

#include <QCoreApplication>

class TranscriptError {
    Q_DECLARE_TR_FUNCTIONS(TranscriptError)

public:
    enum Code {
        unableToWriteData,
    };

    static QString domain();
    static QString description(Code code);
    static Error make(Code code);
};
