#include "catalogue/HomebrewSources.h"

#include "catalogue/HomebrewDecodableWrapper.h"
#include "foundation/DecodingError.h"
#include "foundation/HttpClient.h"
#include "foundation/RailsJSONDecoder.h"
#include "homebrew/HomebrewCommands.h"

#include <QList>

namespace Homebrew {

namespace {

const QString json2 = QStringLiteral("--json=v2");

} // namespace

Sources::Sources(const Commands& commands, QUrl catalogueBase, HttpClient& httpClient)
    : m_commands(commands)
    , m_catalogueBase(std::move(catalogueBase))
    , m_httpClient(httpClient)
{}

Result<std::vector<Formula>> Sources::allFormulae() const
{
    return fetchCatalogue<Formula>(QStringLiteral("/api/formula.json"));
}

Result<std::vector<Cask>> Sources::allCasks() const
{
    return fetchCatalogue<Cask>(QStringLiteral("/api/cask.json"));
}

Result<std::vector<Formula>> Sources::installedFormulae() const
{
    return collectWrapped<Formula>(
        {QStringLiteral("info"), QStringLiteral("--installed"), QStringLiteral("--formulae"), json2});
}

Result<std::vector<Cask>> Sources::installedCasks() const
{
    return collectWrapped<Cask>(
        {QStringLiteral("info"), QStringLiteral("--installed"), QStringLiteral("--casks"), json2});
}

Result<Cask> Sources::cask(const QString& token) const
{
    auto casks = collectWrapped<Cask>({QStringLiteral("info"), QStringLiteral("--cask"), json2, token});
    if (!casks) {
        return casks.error();
    }
    if (casks.value().empty()) {
        return DecodingError::make(DecodingError::valueNotFound,
                                   QStringLiteral("Homebrew gave no record for the cask \"%1\"").arg(token));
    }
    return std::move(casks.value().front());
}

Result<std::vector<Formula>> Sources::tapFormulae() const
{
    return collectWrapped<Formula>({QStringLiteral("corvel-tap-content-info"), QStringLiteral("--formulae"), json2});
}

Result<std::vector<Cask>> Sources::tapCasks() const
{
    // The blank last argument, where the formula form has --json=v2, is what the companion command expects.
    return collectWrapped<Cask>(
        {QStringLiteral("corvel-tap-content-info"), QStringLiteral("--casks"), QStringLiteral(" ")});
}

Result<std::vector<Tap>> Sources::installedTaps() const
{
    const auto output =
        m_commands.collect({QStringLiteral("tap-info"), QStringLiteral("--installed"), QStringLiteral("--json")});
    if (!output) {
        return output.error();
    }
    return RailsJSONDecoder().decode<std::vector<Tap>>(output.value());
}

Result<Tap> Sources::tap(const QString& name) const
{
    const auto output = m_commands.collect({QStringLiteral("tap-info"), name, QStringLiteral("--json")});
    if (!output) {
        return output.error();
    }
    auto taps = RailsJSONDecoder().decode<std::vector<Tap>>(output.value());
    if (!taps) {
        return taps.error();
    }
    if (taps.value().empty()) {
        return DecodingError::make(DecodingError::valueNotFound,
                                   QStringLiteral("Homebrew gave no record for the repository \"%1\"").arg(name));
    }
    return std::move(taps.value().front());
}

Result<QStringList> Sources::outdatedFormulae() const
{
    return collectTokens({QStringLiteral("outdated"), QStringLiteral("--formulae"), QStringLiteral("--greedy"),
                          QStringLiteral("--quiet")});
}

Result<QStringList> Sources::outdatedCasks() const
{
    return collectTokens(
        {QStringLiteral("outdated"), QStringLiteral("--casks"), QStringLiteral("--greedy"), QStringLiteral("--quiet")});
}

Result<QStringList> Sources::leaves() const
{
    return collectTokens({QStringLiteral("leaves")});
}

QUrl Sources::catalogueUrl(const QString& path) const
{
    QUrl url = m_catalogueBase;
    QString basePath = url.path();
    while (basePath.endsWith(QLatin1Char('/'))) {
        basePath.chop(1);
    }
    url.setPath(basePath + path);
    return url;
}

QStringList Sources::tokenList(const QByteArray& output)
{
    QStringList tokens;
    const QList<QByteArray> lines = output.split('\n');
    for (const QByteArray& line : lines) {
        const QByteArray token = line.trimmed();
        if (!token.isEmpty()) {
            tokens.append(QString::fromUtf8(token));
        }
    }
    return tokens;
}

template <class T>
Result<std::vector<T>> Sources::fetchCatalogue(const QString& path) const
{
    const auto body = m_httpClient.get(catalogueUrl(path));
    if (!body) {
        return body.error();
    }
    return RailsJSONDecoder().decode<std::vector<T>>(body.value());
}

template <class T>
Result<std::vector<T>> Sources::collectWrapped(const QStringList& arguments) const
{
    const auto output = m_commands.collect(arguments);
    if (!output) {
        return output.error();
    }
    auto wrapper = RailsJSONDecoder().decode<DecodableWrapper<T>>(output.value());
    if (!wrapper) {
        return wrapper.error();
    }
    return std::move(wrapper.value().items);
}

Result<QStringList> Sources::collectTokens(const QStringList& arguments) const
{
    const auto output = m_commands.collect(arguments);
    if (!output) {
        return output.error();
    }
    return tokenList(output.value());
}

} // namespace Homebrew
