#include "operations/DefaultTaps.h"

#include <algorithm>
#include <array>

namespace {

struct Official {
    const char* name;
    const char* description;
};

constexpr std::array<Official, 5> officialTaps{{
    {"homebrew/core", QT_TRANSLATE_NOOP("DefaultTaps", "Primary scripts library")},
    {"homebrew/cask", QT_TRANSLATE_NOOP("DefaultTaps", "Primary apps library")},
    {"homebrew/cask-fonts",
     QT_TRANSLATE_NOOP("DefaultTaps", "Library with thousands of high quality open-source fonts")},
    {"homebrew/services", QT_TRANSLATE_NOOP("DefaultTaps", "Command to manage background services with launchctl")},
    {"homebrew/bundle", QT_TRANSLATE_NOOP("DefaultTaps", "Command to generate a backup file of everything installed")},
}};

const Official* find(const QString& name)
{
    const auto it =
        std::ranges::find_if(officialTaps, [&](const Official& tap) { return name == QLatin1String(tap.name); });
    return it == officialTaps.end() ? nullptr : &*it;
}

} // namespace

QList<DefaultTaps::Entry> DefaultTaps::all()
{
    QList<Entry> entries;
    for (const Official& tap : officialTaps) {
        entries.append({QString::fromLatin1(tap.name), tr(tap.description)});
    }
    return entries;
}

bool DefaultTaps::contains(const QString& name)
{
    return find(name) != nullptr;
}

std::optional<QString> DefaultTaps::description(const QString& name)
{
    if (const Official* tap = find(name)) {
        return tr(tap->description);
    }
    return std::nullopt;
}

bool DefaultTaps::isPrimary(const QString& name)
{
    return name == QLatin1String(officialTaps[0].name) || name == QLatin1String(officialTaps[1].name);
}
