#include "foundation/RailsJSONEncoder.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

QByteArray RailsJSONEncoder::serialize(const QJsonValue& value)
{
    if (value.isObject()) {
        return QJsonDocument(value.toObject()).toJson(QJsonDocument::Compact);
    }
    if (value.isArray()) {
        return QJsonDocument(value.toArray()).toJson(QJsonDocument::Compact);
    }
    // A document holds only objects and arrays: write a scalar as the sole element of an array and unwrap it.
    const QByteArray wrapped = QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact);
    return wrapped.mid(1, wrapped.size() - 2);
}
