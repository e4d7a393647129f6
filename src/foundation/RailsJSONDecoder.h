// The JSON decoder preset for Homebrew's data: keys convert from snake case ("full_name" reaches the key "fullName")
// and dates read as "yyyy-MM-dd'T'HH:mm:ss.SSSZ". Decodes records, arrays of them, JSON and every type of Codable.h.
#pragma once

#include "foundation/Codable.h"
#include "foundation/JsonReader.h"
#include "foundation/Result.h"

#include <QByteArray>
#include <QString>

class RailsJSONDecoder {
public:
    // Fails with a DecodingError naming the coding path, e.g. `No value associated with key "name" at [3]`.
    // Safe to call from any thread. The bytes are parsed in place when they have padding() spare room behind
    // them, otherwise they are copied once.
    template <class T>
    Result<T> decode(const QByteArray& json) const
    {
        T value{};
        const Result<void> outcome =
            JsonReader::readDocument(json, [&value](JsonReader& root) { return CodableDetail::decode(root, value); });
        if (!outcome) {
            return outcome.error();
        }
        return Result<T>(std::move(value));
    }

    // The spare room the parser reads past the end of the text.
    static qsizetype padding();

    // Gives data the spare room that lets decode() skip its copy.
    static QByteArray padded(QByteArray data);

    // Reads a whole file into an array that decode() parses in place.
    static Result<QByteArray> readFile(const QString& path);
};
