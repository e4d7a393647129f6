#include "catalogue/HomebrewCask.h"

namespace Homebrew {

QString Cask::displayName() const
{
    return nameParts.join(QLatin1Char(' '));
}

std::optional<QStringList> Cask::artifactTypes() const
{
    if (!artifacts) {
        return std::nullopt;
    }
    const QStringList& recognised = recognisedArtifactTypes();
    QStringList types;
    for (const QString& key : artifacts->keys()) {
        if (recognised.contains(key)) {
            types.append(key);
        }
    }
    return types;
}

const QStringList& Cask::recognisedArtifactTypes()
{
    // Keys as the decoder delivers them, converted from snake case ("screen_saver" arrives as "screenSaver").
    static const QStringList types{
        QStringLiteral("app"),         QStringLiteral("suite"),          QStringLiteral("pkg"),
        QStringLiteral("colorpicker"), QStringLiteral("dictionary"),     QStringLiteral("font"),
        QStringLiteral("inputMethod"), QStringLiteral("internetPlugin"), QStringLiteral("keyboardLayout"),
        QStringLiteral("prefpane"),    QStringLiteral("qlplugin"),       QStringLiteral("mdimporter"),
        QStringLiteral("screenSaver"), QStringLiteral("service"),        QStringLiteral("audioUnitPlugin"),
        QStringLiteral("vstPlugin"),   QStringLiteral("vst3Plugin"),     QStringLiteral("artifact"),
    };
    return types;
}

} // namespace Homebrew
