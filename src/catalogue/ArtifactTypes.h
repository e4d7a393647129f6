// The artifact type keys of a cask's stanzas, in order, read straight from Homebrew's artifacts array: the stanzas
// themselves are walked but never kept, since the catalogue only ever needs to know what kind of thing a cask installs.
#pragma once

#include "foundation/Codable.h"

#include <QStringList>
#include <utility>

class ArtifactTypes {
public:
    ArtifactTypes() = default;
    explicit ArtifactTypes(QStringList keys)
        : m_keys(std::move(keys))
    {}

    // Every key of every stanza that is an object, converted from snake case, in document order; stanzas of other
    // shapes add nothing.
    const QStringList& keys() const { return m_keys; }

    bool operator==(const ArtifactTypes&) const = default;

private:
    QStringList m_keys;
};

// Decodes from an array of any values; anything but an array is a type mismatch. Malformed JSON inside a stanza still
// fails the document, as it would for a value that is decoded in full. Encodes each key as a stanza of its own with a
// null body: the stanza contents were never kept.
template <>
struct JsonCoding<ArtifactTypes> {
    static bool decode(JsonReader& reader, ArtifactTypes& out);
    static QJsonValue encode(const ArtifactTypes& value);
};
