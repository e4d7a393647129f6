// Names one stored record across contexts: its entity and its SQLite rowid. Objects inserted into a context but
// not yet saved carry a negative, context-local rowid until their first save.
#pragma once

#include <QHash>
#include <QString>

struct ObjectID {
    QString entity;
    qint64 rowid = 0;

    bool isTemporary() const { return rowid < 0; }
    bool isNull() const { return rowid == 0; }
    bool operator==(const ObjectID&) const = default;
};

inline size_t qHash(const ObjectID& id, size_t seed = 0)
{
    return qHashMulti(seed, id.entity, id.rowid);
}
