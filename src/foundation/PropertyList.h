// Reads and writes XML property lists (Info.plist, DefaultSettings.plist, agent definitions) as QVariant trees:
// dict <-> QVariantMap, array <-> QVariantList, string, integer (qint64), real, bool, date (UTC), data.
#pragma once

#include "foundation/Result.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QString>
#include <QVariant>

class PropertyList {
public:
    static inline const QString errorDomain = QStringLiteral("PropertyListError");

    enum ErrorCode {
        // The file could not be opened or read.
        Unreadable = 1,
        // Nothing but whitespace.
        Empty,
        // Not well-formed XML.
        MalformedXml,
        // Well-formed XML that is not a property list: wrong root, unknown element, misplaced key or text.
        InvalidStructure,
        // A value element whose content does not parse (integer, real, date, data, boolean).
        InvalidValue,
        // Containers nested deeper than maximumDepth.
        TooDeep,
    };

    // Deeper documents are refused rather than risking the stack.
    static constexpr int maximumDepth = 512;

    static Result<QVariant> read(const QString& path);
    static Result<QVariant> parse(QByteArrayView xml);

    // A complete UTF-8 document. Values with no property-list counterpart are written as their text form, and
    // null values are left out because a property list has no null. Dates keep whole seconds only.
    static QByteArray serialize(const QVariant& value);
};
