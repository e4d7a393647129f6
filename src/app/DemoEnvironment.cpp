#include "app/DemoEnvironment.h"

#include "foundation/Bundle.h"
#include "foundation/Defaults.h"
#include "foundation/PreferenceKeys.h"
#include "homebrew/HomebrewInstallation.h"
#include "homebrew/SimulatedHomebrew.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTimeZone>
#include <QUrl>

namespace {

const QString demoError = QStringLiteral("DemoEnvironment");

// Nothing listens on the discard port of the loopback interface: requests are refused at once, never sent out.
const QString closedService = QStringLiteral("http://127.0.0.1:9");

Result<QByteArray> readResource(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return Error(demoError, 1, QStringLiteral("Unable to read %1: %2").arg(path, file.errorString()));
    }
    return file.readAll();
}

Result<QJsonValue> readJson(const QString& path)
{
    const Result<QByteArray> bytes = readResource(path);
    if (!bytes) {
        return bytes.error();
    }
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(bytes.value(), &parseError);
    if (document.isNull()) {
        return Error(demoError, 2, QStringLiteral("%1 is not JSON: %2").arg(path, parseError.errorString()));
    }
    return document.isArray() ? QJsonValue(document.array()) : QJsonValue(document.object());
}

Result<void> copyFile(const QString& from, const QString& to)
{
    QFile::remove(to);
    if (!QFile::copy(from, to)) {
        return Error(demoError, 3, QStringLiteral("Unable to copy %1 to %2").arg(from, to));
    }
    return {};
}

} // namespace

bool DemoEnvironment::requested(const QStringList& arguments)
{
    for (const QString& argument : arguments.mid(1)) {
        if (argument == QLatin1String("--")) {
            break;
        }
        if (argument == QLatin1String("--demo")) {
            return true;
        }
    }
    return false;
}

Result<std::unique_ptr<DemoEnvironment>> DemoEnvironment::create()
{
    std::unique_ptr<DemoEnvironment> demo(new DemoEnvironment);
    if (!demo->m_root.isValid()) {
        return Error(demoError, 4,
                     QStringLiteral("Unable to create the demo folder: %1").arg(demo->m_root.errorString()));
    }
    const QString home = demo->m_root.filePath(QStringLiteral("home"));
    const QList<std::pair<const char*, QString>> folders{
        {"HOME", home},
        {"XDG_CONFIG_HOME", home + QStringLiteral("/.config")},
        {"XDG_DATA_HOME", home + QStringLiteral("/.local/share")},
        {"XDG_CACHE_HOME", home + QStringLiteral("/.cache")},
        {"XDG_STATE_HOME", home + QStringLiteral("/.local/state")},
    };
    for (const auto& [variable, path] : folders) {
        if (!QDir().mkpath(path)) {
            return Error(demoError, 5, QStringLiteral("Unable to create %1").arg(path));
        }
        qputenv(variable, QFile::encodeName(path));
    }
    return demo;
}

Result<void> DemoEnvironment::install(Bundle& bundle)
{
    const QString resources = bundle.resourcePath() + QStringLiteral("/demo");
    const QString api = catalogueFolder() + QStringLiteral("/api");
    if (!QDir().mkpath(api)) {
        return Error(demoError, 5, QStringLiteral("Unable to create %1").arg(api));
    }
    for (const QString& name : {QStringLiteral("formula.json"), QStringLiteral("cask.json")}) {
        if (Result<void> copied = copyFile(resources + u'/' + name, api + u'/' + name); !copied) {
            return copied;
        }
    }

    const Result<QJsonValue> state = readJson(resources + QStringLiteral("/state.json"));
    if (!state) {
        return state.error();
    }
    const Result<QJsonValue> bio = readJson(resources + QStringLiteral("/bio-formula.json"));
    if (!bio) {
        return bio.error();
    }
    QJsonObject machine = state.value().toObject();
    // brew and the application must read the very same catalogue, or installs would miss their records.
    machine.insert(QStringLiteral("catalogue"),
                   QJsonObject{{QStringLiteral("formulae"), api + QStringLiteral("/formula.json")},
                               {QStringLiteral("casks"), api + QStringLiteral("/cask.json")}});
    machine.insert(QStringLiteral("tapRecords"), QJsonObject{{QStringLiteral("brewsci/bio"),
                                                              QJsonObject{{QStringLiteral("formulae"), bio.value()}}}});
    const QString brewRoot = m_root.filePath(QStringLiteral("machine"));
    if (!QDir().mkpath(brewRoot)) {
        return Error(demoError, 5, QStringLiteral("Unable to create %1").arg(brewRoot));
    }
    const Result<SimulatedHomebrew> brew = SimulatedHomebrew::create(brewRoot, machine);
    if (!brew) {
        return brew.error();
    }

    bundle.overlayInfo({
        {QStringLiteral("TW_HOMEBREW_API_URL"), QUrl::fromLocalFile(catalogueFolder()).toString()},
        {QStringLiteral("TW_GITHUB_API_URL"), closedService},
        {QStringLiteral("TW_GITHUB_URL"), closedService},
        {QStringLiteral("TW_ANALYTICS_URL"), closedService},
        {QStringLiteral("TW_SERVICES_URL"), closedService},
    });
    Homebrew::Installation::shared().setRoot(brewRoot);
    // The demo opens on the catalogue, not on the first-run walk-through; its store starts empty and "long ago
    // synchronised", so the launch rule fills it at once, as it refreshes a returning person's.
    Defaults& defaults = Defaults::standard();
    defaults.setValue(PreferenceKeys::IsFirstRun, false);
    defaults.setValue(PreferenceKeys::SyncOnAppLaunch, true);
    defaults.setValue(PreferenceKeys::LastSyncTime, QDateTime(QDate(2000, 1, 1), QTime(0, 0), QTimeZone::utc()));
    return {};
}
