#include "catalogue/CaskKind.h"

namespace {

constexpr const char* unknownLabel = "Unknown";
constexpr const char* unknownIcon = "Icons/Window/kinds/unknown";
constexpr const char* mixedLabel = "Mixed";
constexpr const char* mixedIcon = "Icons/Window/kinds/mixed";

QString sqlText(const char* text)
{
    return QLatin1Char('\'') + QString::fromLatin1(text).replace(QLatin1Char('\''), QLatin1String("''")) +
           QLatin1Char('\'');
}

} // namespace

CaskKind::CaskKind(std::optional<QStringList> artifacts)
    : m_artifacts(std::move(artifacts))
{
    if (!m_artifacts) {
        m_value = {QString::fromLatin1(unknownLabel), QString::fromLatin1(unknownIcon)};
        return;
    }
    if (m_artifacts->size() != 1) {
        m_value = {QString::fromLatin1(mixedLabel), QString::fromLatin1(mixedIcon)};
        return;
    }
    const QString& artifact = m_artifacts->constFirst();
    for (const Entry& entry : singleArtifactKinds()) {
        if (artifact == QLatin1String(entry.artifact)) {
            m_value = {QString::fromLatin1(entry.label),
                       entry.iconName ? QString::fromLatin1(entry.iconName) : QString()};
            return;
        }
    }
    m_value = {QString::fromLatin1(unknownLabel), QString::fromLatin1(unknownIcon)};
}

const QList<CaskKind::Entry>& CaskKind::singleArtifactKinds()
{
    static const QList<Entry> entries{
        {"app", "App", "Icons/Window/app"},
        {"suite", "Suite", "Icons/Window/kinds/suite"},
        {"pkg", "Package", "Icons/Window/kinds/package"},
        {"colorpicker", "Color Picker", "Icons/Window/kinds/colorPicker"},
        {"dictionary", "Dictionary", "Icons/Window/kinds/dictionary"},
        {"font", "Font", "Icons/Window/font"},
        {"inputMethod", "Input Method", "Icons/Window/kinds/inputMethod"},
        {"internetPlugin", "Internet Plugin", "Icons/Window/kinds/internetPlugin"},
        {"keyboardLayout", "Keyboard Layout", "Icons/Window/kinds/keyboardLayout"},
        {"prefpane", "Preference Pane", "Icons/Window/kinds/preferencePane"},
        {"qlplugin", "Quicklook Plugin", "Icons/Window/kinds/quicklookPlugin"},
        {"mdimporter", "Spotlight Plugin", "Icons/Window/kinds/spotlightPlugin"},
        {"screenSaver", "Screen Saver", "Icons/Window/kinds/screenSaver"},
        {"service", "Service", nullptr},
        {"audioUnitPlugin", "Audio Unit Plugin", "Icons/Window/kinds/audioUnitPlugin"},
        {"vstPlugin", "VST Plugin", "Icons/Window/kinds/VSTPlugin"},
        // Shares the VST icon on purpose.
        {"vst3Plugin", "VST3 Plugin", "Icons/Window/kinds/VSTPlugin"},
        {"artifact", "Artifact", "Icons/Window/kinds/artifact"},
    };
    return entries;
}

QString CaskKind::sqlLabelExpression(const QString& artifactsColumn)
{
    QString single = QStringLiteral("CASE json_extract(%1, '$[0]')").arg(artifactsColumn);
    for (const Entry& entry : singleArtifactKinds()) {
        single += QStringLiteral(" WHEN %1 THEN %2").arg(sqlText(entry.artifact), sqlText(entry.label));
    }
    single += QStringLiteral(" ELSE %1 END").arg(sqlText(unknownLabel));
    return QStringLiteral("CASE WHEN %1 IS NULL THEN %2 WHEN json_array_length(%1) <> 1 THEN %3 ELSE %4 END")
        .arg(artifactsColumn, sqlText(unknownLabel), sqlText(mixedLabel), single);
}
