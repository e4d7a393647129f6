#include "catalogue/HomebrewTap.h"

namespace Homebrew {

bool Tap::hasFormulas() const
{
    return formulaFiles && !formulaFiles->isEmpty();
}

bool Tap::hasCasks() const
{
    return caskFiles && !caskFiles->isEmpty();
}

bool Tap::hasCommands() const
{
    return commandFiles && !commandFiles->isEmpty();
}

} // namespace Homebrew
