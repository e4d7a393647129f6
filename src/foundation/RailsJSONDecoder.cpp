#include "foundation/RailsJSONDecoder.h"

#include <QFile>
#include <simdjson.h>

qsizetype RailsJSONDecoder::padding()
{
    return qsizetype(simdjson::SIMDJSON_PADDING);
}

QByteArray RailsJSONDecoder::padded(QByteArray data)
{
    data.reserve(data.size() + padding());
    return data;
}

Result<QByteArray> RailsJSONDecoder::readFile(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return Error(QStringLiteral("FileError"), int(file.error()),
                     QStringLiteral("Unable to read \"%1\": %2").arg(path, file.errorString()));
    }
    const qint64 size = file.size();
    QByteArray data;
    data.reserve(qsizetype(size) + padding());
    data.resize(qsizetype(size));
    const qint64 read = file.read(data.data(), size);
    if (read != size) {
        return Error(QStringLiteral("FileError"), int(file.error()),
                     QStringLiteral("Unable to read \"%1\": %2").arg(path, file.errorString()));
    }
    return data;
}
