// One repository (tap) as `brew tap-info --json` describes it; the synchronisation turns it into the stored Tap
// entity.
#pragma once

#include "foundation/Codable.h"

#include <QString>
#include <QStringList>
#include <optional>
#include <tuple>

namespace Homebrew {

struct Tap {
    // user/repo
    QString token;
    QString user;
    QString repo;
    bool official = false;
    std::optional<QString> remote;
    bool installed = false;
    // Absent in older records; the store takes absent as true.
    std::optional<bool> local;
    std::optional<QStringList> formulaFiles;
    std::optional<QStringList> caskFiles;
    std::optional<QStringList> commandFiles;

    static constexpr auto codingKeys()
    {
        return std::make_tuple(CodingKey("name", &Tap::token), CodingKey("user", &Tap::user),
                               CodingKey("repo", &Tap::repo), CodingKey("official", &Tap::official),
                               CodingKey("remote", &Tap::remote), CodingKey("installed", &Tap::installed),
                               CodingKey("local", &Tap::local), CodingKey("formulaFiles", &Tap::formulaFiles),
                               CodingKey("caskFiles", &Tap::caskFiles), CodingKey("commandFiles", &Tap::commandFiles));
    }

    bool hasFormulas() const;
    bool hasCasks() const;
    // Provides external brew commands.
    bool hasCommands() const;
};

} // namespace Homebrew
