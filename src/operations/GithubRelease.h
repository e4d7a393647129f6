// A release of a GitHub repository as its releases API describes it: only the tag is read, since the installer
// package's name is derived from it.
#pragma once

#include "foundation/Codable.h"

#include <QString>
#include <tuple>

namespace Homebrew {

struct GithubRelease {
    // e.g. "4.4.0"; GitHub's "tag_name".
    QString tagName;

    static constexpr auto codingKeys() { return std::make_tuple(CodingKey("tagName", &GithubRelease::tagName)); }
};

} // namespace Homebrew
