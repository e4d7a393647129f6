#include "operations/ScriptOperations.h"

#include "catalogue/Formula.h"
#include "diagnostics/Analytics.h"
#include "operations/OperationConfirmation.h"

namespace {

using Kind = PackageOperation::Kind;

QList<Package*> packages(const QList<Formula*>& scripts)
{
    return {scripts.cbegin(), scripts.cend()};
}

// The flags the command changed, as the next synchronisation would find them.
Result<void> refreshScript(Kind kind, ManagedObject& record)
{
    switch (kind) {
    case Kind::install:
    case Kind::installInFolder:
        record.setValue(u"installed", true);
        record.setValue(u"outdated", false);
        // Installed on request, and nothing installed can depend on what was not installed: a leaf.
        record.setValue(u"isLeaf", true);
        break;
    case Kind::uninstall:
        record.setValue(u"installed", false);
        record.setValue(u"outdated", false);
        record.setValue(u"isLeaf", false);
        break;
    case Kind::upgrade:
        record.setValue(u"outdated", false);
        break;
    case Kind::reinstall:
    case Kind::move:
        record.setValue(u"installed", true);
        break;
    }
    return {};
}

} // namespace

ScriptOperations::ScriptOperations(const Services& services, QObject* parent)
    : PackageOperations(PackageOperation::Persona::scripts, services, refreshScript, parent)
{}

void ScriptOperations::install(const QList<Formula*>& scripts)
{
    run(Kind::install, offering(Kind::install, packages(scripts)));
}

void ScriptOperations::uninstall(const QList<Formula*>& scripts)
{
    const QList<QPointer<Package>> records = offering(Kind::uninstall, packages(scripts));
    if (records.isEmpty()) {
        Q_EMIT requestSettled(Kind::uninstall, {});
        return;
    }
    confirmThen(Kind::uninstall, OperationConfirmation::uninstall(persona(), names(records)),
                [this, records] { run(Kind::uninstall, records); });
}

void ScriptOperations::upgrade(const QList<Formula*>& scripts)
{
    run(Kind::upgrade, offering(Kind::upgrade, packages(scripts)));
}

void ScriptOperations::reinstall(const QList<Formula*>& scripts)
{
    const QList<QPointer<Package>> records = offering(Kind::reinstall, packages(scripts));
    if (records.isEmpty()) {
        Q_EMIT requestSettled(Kind::reinstall, {});
        return;
    }
    confirmThen(Kind::reinstall, OperationConfirmation::reinstall(persona(), names(records)),
                [this, records] { run(Kind::reinstall, records); });
}

void ScriptOperations::didSucceed(Kind kind, const QString& token, const std::optional<QString>& tap)
{
    services().analytics.scriptEvent(PackageOperation::eventName(kind), token, tap);
}
