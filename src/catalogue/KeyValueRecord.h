// What filter predicates and sort descriptors read from a catalogue record: its attribute values by key path,
// so that the same predicate can judge entities, wire records and test fixtures alike.
#pragma once

#include <QStringView>
#include <QVariant>
#include <optional>

class KeyValueRecord {
public:
    virtual ~KeyValueRecord() = default;

    // The value at a key path such as "installed", "name" or "kind.label". An unknown key, or an attribute the
    // record lacks (a script has no kind label), gives an invalid QVariant.
    virtual QVariant value(QStringView keyPath) const = 0;

    // The case-folded text (QString::toCaseFolded) of a text attribute, for records that fold their searchable
    // text once instead of on every keystroke; empty for an attribute without text. None means "not kept here":
    // the caller then folds value() itself.
    virtual std::optional<QStringView> foldedValue(QStringView keyPath) const
    {
        Q_UNUSED(keyPath);
        return std::nullopt;
    }
};

// How predicates and sort descriptors classify the values records answer with, so that both agree with SQLite.
namespace KeyValue {

// No value at all, or SQL's NULL.
inline bool isMissing(const QVariant& value)
{
    return !value.isValid() || value.isNull();
}

// A value SQLite would store as a number (booleans are 0 and 1 there).
inline bool isNumber(const QVariant& value)
{
    switch (value.typeId()) {
    case QMetaType::Bool:
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Double:
    case QMetaType::Float:
        return true;
    default:
        return false;
    }
}

} // namespace KeyValue
