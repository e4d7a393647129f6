// What filter predicates and sort descriptors read from a catalogue record: its attribute values by key path,
// so that the same predicate can judge entities, wire records and test fixtures alike.
#pragma once

#include <QStringView>
#include <QVariant>

class KeyValueRecord {
public:
    virtual ~KeyValueRecord() = default;

    // The value at a key path such as "installed", "name" or "kind.label". An unknown key, or an attribute the
    // record lacks (a script has no kind label), gives an invalid QVariant.
    virtual QVariant value(QStringView keyPath) const = 0;

    // The case-folded text (QString::toCaseFolded) of a text attribute, for records that fold their searchable
    // text once instead of on every keystroke. An empty view means "not kept here": the caller then folds
    // value() itself, so an empty attribute may also answer with an empty view.
    virtual QStringView foldedValue(QStringView keyPath) const
    {
        Q_UNUSED(keyPath);
        return {};
    }
};
