#include "webicons/WebsiteIconDiscovery.h"

#include "foundation/JsonReader.h"
#include "webicons/CssSelector.h"
#include "webicons/HtmlDocument.h"

#include <QRegularExpression>
#include <QSet>
#include <algorithm>

namespace {

bool isWebAddress(const QUrl& url)
{
    return url.isValid() && !url.host().isEmpty() && (url.scheme() == u"http" || url.scheme() == u"https");
}

// Browsers strip ASCII whitespace around attribute URLs; an empty one means none.
QUrl resolve(const QUrl& base, const QString& reference)
{
    const QString trimmed = reference.trimmed();
    if (trimmed.isEmpty()) {
        return QUrl();
    }
    return base.resolved(QUrl(trimmed));
}

// Only ever called with the fixed selectors below, which parse. Parsed per call: discovery runs on worker threads.
CssSelector selector(const char* text)
{
    return CssSelector::parse(QString::fromLatin1(text)).value();
}

QStringList relTokens(const HtmlElement& link)
{
    static const QRegularExpression whitespace(QStringLiteral("[ \\t\\n\\f\\r]+"));
    return link.attribute(u"rel").value_or(QString()).toLower().split(whitespace, Qt::SkipEmptyParts);
}

} // namespace

WebsiteIconDiscovery::PageIcons WebsiteIconDiscovery::fromPage(const HtmlDocument& page, const QUrl& pageUrl)
{
    PageIcons icons;
    QUrl base = pageUrl;
    if (const HtmlElement* element = page.querySelector(selector("base[href]"))) {
        const QUrl declared = resolve(pageUrl, element->attribute(u"href").value_or(QString()));
        if (declared.isValid() && !declared.isEmpty()) {
            base = declared;
        }
    }
    for (const HtmlElement* link : page.querySelectorAll(selector("link[rel][href]"))) {
        const QStringList rel = relTokens(*link);
        const QUrl url = resolve(base, *link->attribute(u"href"));
        if (!isWebAddress(url)) {
            continue;
        }
        if (rel.contains(u"manifest")) {
            if (icons.manifest.isEmpty()) {
                icons.manifest = url;
            }
            continue;
        }
        WebsiteIconCandidate candidate;
        if (rel.contains(u"apple-touch-icon") || rel.contains(u"apple-touch-icon-precomposed")) {
            candidate.source = WebsiteIconCandidate::Source::appleTouchIcon;
        } else if (rel.contains(u"icon")) {
            candidate.source = WebsiteIconCandidate::Source::icon;
        } else {
            continue;
        }
        candidate.url = url;
        candidate.setSizes(link->attribute(u"sizes").value_or(QString()));
        candidate.type = link->attribute(u"type").value_or(QString()).trimmed();
        icons.candidates.append(std::move(candidate));
    }
    return icons;
}

Result<QList<WebsiteIconCandidate>> WebsiteIconDiscovery::fromManifest(const QByteArray& json, const QUrl& manifestUrl)
{
    QList<WebsiteIconCandidate> candidates;
    // Fields of the wrong type are skipped, not fatal: manifests in the wild are loosely written.
    const auto readText = [](JsonReader& value, QString& out) { return value.readString(out) || value.recover(); };
    const Result<void> read = JsonReader::readDocument(json, [&](JsonReader& root) {
        return root.readObject([&](std::string_view key, JsonReader& value) {
            if (key != "icons") {
                return true;
            }
            const bool icons = value.readArray([&](JsonReader& element) {
                QString src, sizes, type, purpose;
                const bool fields = element.readObject([&](std::string_view field, JsonReader& fieldValue) {
                    if (field == "src") {
                        return readText(fieldValue, src);
                    } else if (field == "sizes") {
                        return readText(fieldValue, sizes);
                    } else if (field == "type") {
                        return readText(fieldValue, type);
                    } else if (field == "purpose") {
                        return readText(fieldValue, purpose);
                    }
                    return true;
                });
                if (!fields) {
                    return element.recover();
                }
                const QStringList purposes = purpose.toLower().split(u' ', Qt::SkipEmptyParts);
                if (!purposes.isEmpty() &&
                    std::ranges::all_of(purposes, [](const QString& p) { return p == u"monochrome"; })) {
                    return true;
                }
                const QUrl url = resolve(manifestUrl, src);
                if (!isWebAddress(url)) {
                    return true;
                }
                WebsiteIconCandidate candidate;
                candidate.source = WebsiteIconCandidate::Source::manifest;
                candidate.url = url;
                candidate.setSizes(sizes);
                candidate.type = type.trimmed();
                candidates.append(std::move(candidate));
                return true;
            });
            return icons || value.recover();
        });
    });
    if (!read) {
        return read.error();
    }
    return candidates;
}

WebsiteIconCandidate WebsiteIconDiscovery::favicon(const QUrl& pageUrl)
{
    WebsiteIconCandidate candidate;
    candidate.source = WebsiteIconCandidate::Source::favicon;
    candidate.url = pageUrl.resolved(QUrl(QStringLiteral("/favicon.ico")));
    return candidate;
}

QList<WebsiteIconCandidate> WebsiteIconDiscovery::rank(QList<WebsiteIconCandidate> candidates, int size)
{
    enum Group { fitting, scalable, smaller, unknown, fallback };
    const auto groupOf = [size](const WebsiteIconCandidate& candidate) {
        if (candidate.source == WebsiteIconCandidate::Source::favicon) {
            return fallback;
        }
        const int edge = candidate.edge();
        if (edge >= size && !candidate.anySize) {
            return fitting;
        }
        if (candidate.isScalable()) {
            return scalable;
        }
        return edge > 0 ? smaller : unknown;
    };
    std::ranges::stable_sort(candidates, [&](const WebsiteIconCandidate& a, const WebsiteIconCandidate& b) {
        const Group groupA = groupOf(a);
        const Group groupB = groupOf(b);
        if (groupA != groupB) {
            return groupA < groupB;
        }
        if (groupA == fitting) {
            return a.edge() < b.edge();
        }
        if (groupA == smaller) {
            return a.edge() > b.edge();
        }
        return false;
    });
    QSet<QUrl> seen;
    QList<WebsiteIconCandidate> ranked;
    for (WebsiteIconCandidate& candidate : candidates) {
        if (!seen.contains(candidate.url)) {
            seen.insert(candidate.url);
            ranked.append(std::move(candidate));
        }
    }
    return ranked;
}
