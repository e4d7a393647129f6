// One formula as Homebrew describes it, in its public catalogue and in `brew info --json=v2`; the synchronisation
// turns it into the stored Formula entity.
#pragma once

#include "foundation/FailableCodable.h"

#include <QString>
#include <QUrl>
#include <optional>
#include <string_view>
#include <tuple>

namespace Homebrew {

struct Formula {
    QString token;
    // Fully qualified: tap-prefixed for formulae outside homebrew/core.
    QString name;
    std::optional<QString> tap;
    std::optional<QString> desc;
    FailableCodable<QUrl> website;
    // Newer records hold an array or an object of licence expressions here; only a plain string is kept.
    FailableCodable<QString> license;

    // The key of the formula array in `brew info --json=v2` output.
    static constexpr std::string_view wrapperKey = "formulae";

    static constexpr auto codingKeys()
    {
        return std::make_tuple(CodingKey("name", &Formula::token), CodingKey("fullName", &Formula::name),
                               CodingKey("tap", &Formula::tap), CodingKey("desc", &Formula::desc),
                               CodingKey("homepage", &Formula::website), CodingKey("license", &Formula::license));
    }
};

} // namespace Homebrew
