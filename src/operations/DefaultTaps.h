// The official Homebrew repositories that the program presents specially, each with the description people read,
// and which of them are the primary libraries whose contents come from Homebrew's public catalogue.
#pragma once

#include <QCoreApplication>
#include <QList>
#include <QString>
#include <optional>

class DefaultTaps {
    Q_DECLARE_TR_FUNCTIONS(DefaultTaps)

public:
    struct Entry {
        QString name;
        QString description;
    };

    // The five official repositories in their presentation order, descriptions translated.
    static QList<Entry> all();

    static bool contains(const QString& name);
    static std::optional<QString> description(const QString& name);

    // homebrew/core and homebrew/cask: their packages are the public catalogue's, not the repository clone's.
    static bool isPrimary(const QString& name);
};
