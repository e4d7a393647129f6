// Errors of the catalogue store itself (as opposed to SQLite's own, which carry the "SQLite" domain).
#pragma once

#include "foundation/Error.h"

class CoreDataManagerError {
public:
    static constexpr const char* domain = "CoreDataManagerError";

    enum Code {
        MissingManagedObjectContext = 1,
    };

    static Error missingManagedObjectContext();
};
