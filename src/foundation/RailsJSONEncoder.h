// The JSON encoder preset matching RailsJSONDecoder: record and JSON object keys are written in snake case
// ("fullName" becomes "full_name"), dates as "yyyy-MM-dd'T'HH:mm:ss.SSSZ" in UTC, compact output.
#pragma once

#include "foundation/Codable.h"

#include <QByteArray>
#include <QJsonValue>

class RailsJSONEncoder {
public:
    // An absent std::optional member is left out; an absent FailableCodable member is written as null.
    template <class T>
    QByteArray encode(const T& value) const
    {
        return serialize(CodableDetail::encode(value));
    }

private:
    static QByteArray serialize(const QJsonValue& value);
};
