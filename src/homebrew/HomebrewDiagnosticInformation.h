// The facts about this installation that go with each usage-analytics event: application version and build, the
// operating system, the machine, and the versions of Homebrew and of the companion commands tap.
#pragma once

#include <QMap>
#include <QString>

class Bundle;

namespace Homebrew {

class Installation;

class DiagnosticInformation {
public:
    // Exactly the keys "Version", "Build", "OS Version", "System Architecture", "Homebrew Version" and
    // "Homebrew Commands Version". Every key is always present and an unknown value is empty text, so that each
    // event carries the same properties whether or not Homebrew is installed.
    static QMap<QString, QString> collect(const Bundle& bundle, const Installation& installation);

    // Of the running application: the main bundle and the shared installation.
    static QMap<QString, QString> collect();
};

} // namespace Homebrew
