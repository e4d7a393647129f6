// Finds where a website's icon may be: the link elements of its page, its web application manifest and its
// "/favicon.ico", and ranks those candidates for a wanted size. Pure functions over bytes already fetched, so that
// the network side (WebsiteIcons) stays small.
#pragma once

#include "foundation/Result.h"
#include "webicons/WebsiteIconCandidate.h"

#include <QByteArray>
#include <QList>
#include <QUrl>

class HtmlDocument;

class WebsiteIconDiscovery {
public:
    struct PageIcons {
        QList<WebsiteIconCandidate> candidates; // from link elements, in document order
        QUrl manifest;                          // of the first link rel="manifest"; empty when there is none
    };

    // pageUrl is where the page was finally found (after redirects); a base element overrides it for the links.
    // Only http and https addresses are kept.
    static PageIcons fromPage(const HtmlDocument& page, const QUrl& pageUrl);

    // The "icons" of a web application manifest, relative addresses resolved against the manifest's own.
    // Icons meant only as monochrome silhouettes are left out.
    static Result<QList<WebsiteIconCandidate>> fromManifest(const QByteArray& json, const QUrl& manifestUrl);

    // "/favicon.ico" on the site of pageUrl.
    static WebsiteIconCandidate favicon(const QUrl& pageUrl);

    // The order in which to try candidates for an icon of size x size: those declared at least that size, smallest
    // first; then scalable ones; then smaller ones, largest first; then those of unknown size; "/favicon.ico" last.
    // A raster drawn for the size is preferred to an SVG because it needs no SVG support to decode. Repeated
    // addresses are kept once, at their best place.
    static QList<WebsiteIconCandidate> rank(QList<WebsiteIconCandidate> candidates, int size);
};
