// Why a JSON document did not decode into the requested value: the cases of the "DecodingError" error family.
#pragma once

#include "foundation/Error.h"

#include <QString>

class DecodingError {
public:
    enum Code {
        dataCorrupted = 1, // not JSON, or a value that cannot be what the field needs (a bad URL or date)
        keyNotFound,       // a required key is missing
        valueNotFound,     // a required value is null
        typeMismatch,      // a value of another JSON type than the field needs
    };

    static inline const QString domain = QStringLiteral("DecodingError");

    static Error make(Code code, const QString& description) { return Error(domain, code, description); }
};
