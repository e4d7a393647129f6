// Which records a table hands to an operation: an inline button in a row acts on that row's record alone; any other
// control acts on the table's designated records (the first list, or the second when the first is empty) that
// offer the operation.
#pragma once

#include "operations/PackageOperation.h"

#include <QList>
#include <QString>

class OperationTargets {
public:
    // The identifiers of the inline row buttons.
    static inline const QString installTableButton = QStringLiteral("InstallTableButton");
    static inline const QString upgradeTableButton = QStringLiteral("UpgradeTableButton");

    static bool isRowButton(const QString& senderIdentifier)
    {
        return senderIdentifier == installTableButton || senderIdentifier == upgradeTableButton;
    }

    // Record is Cask or Formula.
    template <class Record>
    static QList<Record*> select(PackageOperation::Kind kind, const QString& senderIdentifier, Record* rowRecord,
                                 const QList<Record*>& designated, const QList<Record*>& fallback)
    {
        if (isRowButton(senderIdentifier)) {
            return rowRecord ? QList<Record*>{rowRecord} : QList<Record*>();
        }
        QList<Record*> result;
        for (Record* record : designated.isEmpty() ? fallback : designated) {
            if (record && PackageOperation::isOfferedBy(kind, *record)) {
                result.append(record);
            }
        }
        return result;
    }
};
