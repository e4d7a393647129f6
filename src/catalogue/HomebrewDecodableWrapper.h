// The envelope of `brew info --json=v2` output: {"formulae": [...]} for Formula, {"casks": [...]} for Cask. The
// other top-level keys are skipped.
#pragma once

#include "foundation/Codable.h"

#include <tuple>
#include <vector>

namespace Homebrew {

template <class T>
struct DecodableWrapper {
    std::vector<T> items;

    // A missing key is an error rather than an empty list: it means the output is not what was asked for.
    static constexpr auto codingKeys() { return std::make_tuple(CodingKey(T::wrapperKey, &DecodableWrapper::items)); }
};

} // namespace Homebrew
