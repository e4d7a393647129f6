#include "homebrew/HomebrewDiagnosticInformation.h"

#include "foundation/Bundle.h"
#include "homebrew/HomebrewInstallation.h"

#include <QSysInfo>

namespace Homebrew {

QMap<QString, QString> DiagnosticInformation::collect(const Bundle& bundle, const Installation& installation)
{
    return {
        {QStringLiteral("Version"), bundle.version()},
        {QStringLiteral("Build"), bundle.buildNumber().value_or(QString())},
        // The product name with its version ("Debian GNU/Linux 12 (bookworm)", "macOS Sonoma (14.1)"): a bare
        // version number would not say which system it belongs to.
        {QStringLiteral("OS Version"), QSysInfo::prettyProductName()},
        {QStringLiteral("System Architecture"), Installation::systemArchitecture().value_or(QString())},
        {QStringLiteral("Homebrew Version"), installation.homebrewVersion().value_or(QString())},
        {QStringLiteral("Homebrew Commands Version"), installation.homebrewCommandsVersion().value_or(QString())},
    };
}

QMap<QString, QString> DiagnosticInformation::collect()
{
    return collect(Bundle::main(), Installation::shared());
}

} // namespace Homebrew
