// Applies the appearance chosen in the settings (1 light, 2 dark, anything else: follow the system) to the whole
// application through Qt's style and palette.
#pragma once

#include <QString>

class Appearance {
public:
    enum Tag { SystemDefault = 0, Light = 1, Dark = 2 };

    static Tag fromValue(qint64 value);
    static QString label(Tag tag);
    static void apply(Tag tag);
};
