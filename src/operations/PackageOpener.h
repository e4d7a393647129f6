// Hands a downloaded installer package to the desktop, whose default handler guides the person through it. The
// interface lets tests see what would be opened without launching anything.
#pragma once

#include "foundation/Result.h"

#include <QString>

class PackageOpener {
public:
    virtual ~PackageOpener() = default;

    // Opens the file at path with the desktop's default handler. Called on a worker thread and may block a while;
    // the error says why nothing took the file.
    virtual Result<void> open(const QString& path) = 0;
};
