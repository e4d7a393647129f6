// The identifiers a save or a batch request touched, as they travel between contexts for merging.
#pragma once

#include "catalogue/ObjectID.h"

#include <QList>
#include <QMetaType>

struct ChangeSet {
    QList<ObjectID> inserted;
    QList<ObjectID> updated;
    QList<ObjectID> deleted;

    bool isEmpty() const { return inserted.isEmpty() && updated.isEmpty() && deleted.isEmpty(); }
};

Q_DECLARE_METATYPE(ChangeSet)
