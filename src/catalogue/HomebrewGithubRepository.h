// What GitHub's repository API says about a repository that backs a tap: only its description is read.
#pragma once

#include "foundation/Codable.h"

#include <QString>
#include <optional>
#include <tuple>

namespace Homebrew {

struct GithubRepository {
    // GitHub gives null for a repository without one.
    std::optional<QString> description;

    static constexpr auto codingKeys()
    {
        return std::make_tuple(CodingKey("description", &GithubRepository::description));
    }
};

} // namespace Homebrew
