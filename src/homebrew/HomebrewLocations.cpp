#include "homebrew/HomebrewLocations.h"

namespace Homebrew {

QStringList arguments(const Locations& locations)
{
    QStringList result;
    if (locations.appsDirectory) {
        result << QStringLiteral("--appdir") << *locations.appsDirectory;
    }
    if (locations.fontsDirectory) {
        result << QStringLiteral("--fontdir") << *locations.fontsDirectory;
    }
    return result;
}

} // namespace Homebrew
