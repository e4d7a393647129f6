// What the Scripts table (or a command line) does to scripts: install, uninstall, upgrade and reinstall. Each call
// takes the records handed over and acts on those that offer the operation; a script's flags are set after its
// command succeeded without asking Homebrew again.
#pragma once

#include "operations/PackageOperations.h"

class Formula;

class ScriptOperations : public PackageOperations {
    Q_OBJECT

public:
    explicit ScriptOperations(const Services& services, QObject* parent = nullptr);

    // No question.
    void install(const QList<Formula*>& scripts);
    // Always asks first.
    void uninstall(const QList<Formula*>& scripts);
    void upgrade(const QList<Formula*>& scripts);
    // Asks first unless suppressed (by the key apps use too).
    void reinstall(const QList<Formula*>& scripts);

protected:
    void didSucceed(PackageOperation::Kind kind, const QString& token, const std::optional<QString>& tap) override;
};
