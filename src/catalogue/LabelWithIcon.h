// A derived display value of a catalogue entity: an optional label and the name of an optional icon asset. Core
// code keeps icons as asset names; the user interface turns them into images.
#pragma once

#include <QMetaType>
#include <QString>

struct LabelWithIcon {
    QString label;    // null when there is none
    QString iconName; // null when there is none

    bool isEmpty() const { return label.isNull() && iconName.isNull(); }
    bool operator==(const LabelWithIcon&) const = default;
};

Q_DECLARE_METATYPE(LabelWithIcon)
