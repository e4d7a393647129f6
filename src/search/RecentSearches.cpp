#include "search/RecentSearches.h"

#include "foundation/Defaults.h"
#include "foundation/PreferenceKeys.h"

namespace {

// Only a list whose every member is text counts; anything else is read as no searches and overwritten later.
QStringList stringArray(const QVariant& value)
{
    if (value.typeId() == QMetaType::QStringList) {
        return value.toStringList();
    }
    if (value.typeId() != QMetaType::QVariantList) {
        return {};
    }
    QStringList strings;
    for (const QVariant& member : value.toList()) {
        if (member.typeId() != QMetaType::QString) {
            return {};
        }
        strings.append(member.toString());
    }
    return strings;
}

QVariantMap storedDictionary(const Defaults& defaults)
{
    const QVariant value = defaults.value(PreferenceKeys::MainWindowRecentSearches);
    return value.typeId() == QMetaType::QVariantMap ? value.toMap() : QVariantMap();
}

} // namespace

RecentSearches::RecentSearches(Defaults& defaults)
    : m_defaults(defaults)
{}

QStringList RecentSearches::searches(int personaIndex) const
{
    return stringArray(storedDictionary(m_defaults).value(QString::number(personaIndex)));
}

void RecentSearches::record(const QString& text, int personaIndex)
{
    if (text.isEmpty()) {
        return;
    }
    QVariantMap dictionary = storedDictionary(m_defaults);
    const QString personaKey = QString::number(personaIndex);
    QStringList searches = stringArray(dictionary.value(personaKey));
    if (!searches.contains(text)) {
        searches.prepend(text);
    }
    if (searches.size() > maximumCount) {
        searches.resize(maximumCount);
    }
    dictionary.insert(personaKey, searches);
    m_defaults.setValue(PreferenceKeys::MainWindowRecentSearches, dictionary);
}

void RecentSearches::clear()
{
    m_defaults.remove(PreferenceKeys::MainWindowRecentSearches);
}
