#include "operations/PackageOperation.h"

#include "catalogue/Cask.h"
#include "catalogue/Package.h"

namespace {

using Kind = PackageOperation::Kind;
using Persona = PackageOperation::Persona;

// The verb of the log lines and alerts: an install into a folder reads like any install.
enum class Verb { install, uninstall, upgrade, reinstall, move };

Verb verbOf(Kind kind)
{
    switch (kind) {
    case Kind::install:
    case Kind::installInFolder:
        return Verb::install;
    case Kind::uninstall:
        return Verb::uninstall;
    case Kind::upgrade:
        return Verb::upgrade;
    case Kind::reinstall:
        return Verb::reinstall;
    case Kind::move:
        return Verb::move;
    }
    Q_UNREACHABLE();
    return Verb::install;
}

} // namespace

std::optional<PackageOperation::Folder> PackageOperation::folderFor(const Package& record)
{
    const auto* app = qobject_cast<const Cask*>(&record);
    if (!app) {
        return std::nullopt;
    }
    static const CaskKind application(QStringList{QStringLiteral("app")});
    static const CaskKind font(QStringList{QStringLiteral("font")});
    if (app->kind() == application) {
        return Folder::applications;
    }
    if (app->kind() == font) {
        return Folder::fonts;
    }
    return std::nullopt;
}

bool PackageOperation::isOfferedBy(Kind kind, const Package& record)
{
    switch (kind) {
    case Kind::install:
        return record.installable();
    case Kind::installInFolder: {
        const auto* app = qobject_cast<const Cask*>(&record);
        return app && app->installableInFolder();
    }
    case Kind::uninstall:
        return record.uninstallable();
    case Kind::upgrade:
        return record.upgradable();
    case Kind::reinstall:
        return record.reinstallable();
    case Kind::move:
        return record.reinstallable() && folderFor(record).has_value();
    }
    return false;
}

QStringList PackageOperation::arguments(Kind kind, Persona persona, const QString& token)
{
    QString command;
    switch (verbOf(kind)) {
    case Verb::install:
        command = QStringLiteral("install");
        break;
    case Verb::uninstall:
        command = QStringLiteral("uninstall");
        break;
    case Verb::upgrade:
        command = QStringLiteral("upgrade");
        break;
    case Verb::reinstall:
    case Verb::move:
        command = QStringLiteral("reinstall");
        break;
    }
    return {command, persona == Persona::apps ? QStringLiteral("--cask") : QStringLiteral("--formula"), token};
}

QStringList PackageOperation::extraArguments(Kind kind, Persona persona, const Homebrew::Locations& locations)
{
    const Verb verb = verbOf(kind);
    if (persona != Persona::apps || (verb != Verb::install && verb != Verb::reinstall && verb != Verb::move)) {
        return {};
    }
    return Homebrew::arguments(locations);
}

QString PackageOperation::activityKind(Kind kind)
{
    switch (verbOf(kind)) {
    case Verb::install:
        return QStringLiteral("Install");
    case Verb::uninstall:
        return QStringLiteral("Uninstall");
    case Verb::upgrade:
        return QStringLiteral("Upgrade");
    case Verb::reinstall:
    case Verb::move:
        return QStringLiteral("Reinstall");
    }
    return {};
}

QString PackageOperation::eventName(Kind kind)
{
    return kind == Kind::move ? QStringLiteral("Move") : activityKind(kind);
}

QString PackageOperation::startLine(Kind kind, const QString& token)
{
    switch (verbOf(kind)) {
    case Verb::install:
        return QStringLiteral("Installing %1").arg(token);
    case Verb::uninstall:
        return QStringLiteral("Uninstalling %1").arg(token);
    case Verb::upgrade:
        return QStringLiteral("Upgrading %1").arg(token);
    case Verb::reinstall:
        return QStringLiteral("Reinstalling %1").arg(token);
    case Verb::move:
        return QStringLiteral("Moving %1").arg(token);
    }
    return {};
}

QString PackageOperation::successLine(Kind kind, Persona persona, const QString& token)
{
    const QString noun = persona == Persona::apps ? QStringLiteral("app") : QStringLiteral("script");
    QString participle;
    switch (verbOf(kind)) {
    case Verb::install:
        participle = QStringLiteral("installed");
        break;
    case Verb::uninstall:
        participle = QStringLiteral("uninstalled");
        break;
    case Verb::upgrade:
        participle = QStringLiteral("upgraded");
        break;
    case Verb::reinstall:
        participle = QStringLiteral("reinstalled");
        break;
    case Verb::move:
        participle = QStringLiteral("moved");
        break;
    }
    return QStringLiteral("%1 %2 %3").arg(token, noun, participle);
}

QString PackageOperation::failureLine(Kind kind, const QString& token, const Error& error)
{
    switch (verbOf(kind)) {
    case Verb::install:
        return QStringLiteral("Unable to install %1: %2").arg(token, error.description());
    case Verb::uninstall:
        return QStringLiteral("Unable to uninstall %1: %2").arg(token, error.description());
    case Verb::upgrade:
        return QStringLiteral("Unable to upgrade %1: %2").arg(token, error.description());
    case Verb::reinstall:
        return QStringLiteral("Unable to reinstall %1: %2").arg(token, error.description());
    case Verb::move:
        return QStringLiteral("Unable to move %1: %2").arg(token, error.description());
    }
    return {};
}

QString PackageOperation::failureMessage(Kind kind, const QString& token)
{
    switch (verbOf(kind)) {
    case Verb::install:
        return tr("Unable to install '%1'").arg(token);
    case Verb::uninstall:
        return tr("Unable to uninstall '%1'").arg(token);
    case Verb::upgrade:
        return tr("Unable to upgrade '%1'").arg(token);
    case Verb::reinstall:
        return tr("Unable to reinstall '%1'").arg(token);
    case Verb::move:
        return tr("Unable to move '%1'").arg(token);
    }
    return {};
}
