// Where each kind of Homebrew record comes from: the public catalogue endpoints for the whole index, and brew commands
// for what is installed, outdated or provided by non-core repositories. Every call blocks (a child process or an HTTP
// request), so all of them run on worker threads.
#pragma once

#include "catalogue/HomebrewCask.h"
#include "catalogue/HomebrewFormula.h"
#include "catalogue/HomebrewTap.h"
#include "foundation/Result.h"

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QUrl>
#include <vector>

class HttpClient;

namespace Homebrew {

class Commands;

class Sources {
public:
    // catalogueBase is the bundle's TW_HOMEBREW_API_URL; "/api/formula.json" and "/api/cask.json" go below it.
    Sources(const Commands& commands, QUrl catalogueBase, HttpClient& httpClient);
    // Each source can be overridden, so that a measurement can answer from memory without children or network.
    virtual ~Sources() = default;

    // The public catalogue, every formula (cask) Homebrew knows.
    virtual Result<std::vector<Formula>> allFormulae() const;
    virtual Result<std::vector<Cask>> allCasks() const;

    virtual Result<std::vector<Formula>> installedFormulae() const;
    virtual Result<std::vector<Cask>> installedCasks() const;
    // Fails when brew does not know the token.
    virtual Result<Cask> cask(const QString& token) const;

    // The packages of installed repositories other than the core ones, through the companion command.
    virtual Result<std::vector<Formula>> tapFormulae() const;
    virtual Result<std::vector<Cask>> tapCasks() const;

    virtual Result<std::vector<Tap>> installedTaps() const;
    virtual Result<Tap> tap(const QString& name) const;

    virtual Result<QStringList> outdatedFormulae() const;
    virtual Result<QStringList> outdatedCasks() const;
    virtual Result<QStringList> leaves() const;

    // The catalogue endpoint for path ("/api/formula.json"), below the base's own path.
    QUrl catalogueUrl(const QString& path) const;

    // One token per non-empty line, surrounding white space trimmed.
    static QStringList tokenList(const QByteArray& output);

private:
    template <class T>
    Result<std::vector<T>> fetchCatalogue(const QString& path) const;
    template <class T>
    Result<std::vector<T>> collectWrapped(const QStringList& arguments) const;
    Result<QStringList> collectTokens(const QStringList& arguments) const;

    const Commands& m_commands;
    QUrl m_catalogueBase;
    HttpClient& m_httpClient;
};

} // namespace Homebrew
