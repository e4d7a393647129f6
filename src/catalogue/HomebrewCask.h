// One cask as Homebrew describes it, in its public catalogue and in `brew info --json=v2`; the synchronisation turns
// it into the stored Cask entity.
#pragma once

#include "catalogue/ArtifactTypes.h"
#include "foundation/FailableCodable.h"

#include <QString>
#include <QStringList>
#include <QUrl>
#include <optional>
#include <string_view>
#include <tuple>

namespace Homebrew {

struct Cask {
    QString token;
    QStringList nameParts;
    std::optional<QString> tap;
    std::optional<QString> desc;
    FailableCodable<QUrl> website;
    // The installed version: only `brew info --installed` gives one, never the public catalogue.
    std::optional<QString> version;
    // Real records carry "no_check" or null here; nothing reads the checksum, so it must never cost the cask.
    FailableCodable<QString> internalSha256;
    // The type keys of the artifact stanzas (each an object whose single key names its type); the stanzas' contents
    // are of open shape and never used, so they are not kept.
    FailableCodable<ArtifactTypes> artifacts;

    // The key of the cask array in `brew info --json=v2` output.
    static constexpr std::string_view wrapperKey = "casks";

    static constexpr auto codingKeys()
    {
        return std::make_tuple(CodingKey("token", &Cask::token), CodingKey("name", &Cask::nameParts),
                               CodingKey("tap", &Cask::tap), CodingKey("desc", &Cask::desc),
                               CodingKey("homepage", &Cask::website), CodingKey("installed", &Cask::version),
                               CodingKey("sha256", &Cask::internalSha256), CodingKey("artifacts", &Cask::artifacts));
    }

    // The name parts joined with one blank.
    QString displayName() const;

    // The artifact type keys in stanza order, only those that say what the cask installs (never "uninstall",
    // "zap" and the like); absent when the record had no usable artifacts.
    std::optional<QStringList> artifactTypes() const;

    // The artifact type keys that count towards a cask's kind.
    static const QStringList& recognisedArtifactTypes();
};

} // namespace Homebrew
