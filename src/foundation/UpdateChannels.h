// The software-update channels the user accepts besides the default one.
#pragma once

#include <QSet>
#include <QString>

class Defaults;

class UpdateChannels {
public:
    static inline const QString beta = QStringLiteral("beta");

    // {"beta"} when the user opted into beta releases, else empty (default channel only).
    static QSet<QString> allowed(const Defaults& defaults);
};
