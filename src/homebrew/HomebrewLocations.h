// The folders a person chose for one install: where an app and where a font is to go. Empty means Homebrew's own
// default; each set folder becomes an option of the install command.
#pragma once

#include <QString>
#include <QStringList>
#include <optional>

namespace Homebrew {

struct Locations {
    std::optional<QString> appsDirectory;
    std::optional<QString> fontsDirectory;
};

// "--appdir" and its path, then "--fontdir" and its path, each only when set; option and value are separate
// arguments so that paths with spaces or "=" pass unchanged.
QStringList arguments(const Locations& locations);

} // namespace Homebrew
