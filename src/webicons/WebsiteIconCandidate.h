// One place where a website's icon may be found, with what the page or its manifest says about it (sizes, type),
// so that candidates can be ranked before anything is downloaded.
#pragma once

#include <QList>
#include <QSize>
#include <QString>
#include <QStringView>
#include <QUrl>

struct WebsiteIconCandidate {
    enum class Source {
        appleTouchIcon, // link rel "apple-touch-icon" or "apple-touch-icon-precomposed"
        icon,           // link rel "icon" or "shortcut icon"
        manifest,       // the web application manifest's "icons"
        favicon,        // "/favicon.ico" of the site, asked for when nothing else works
    };

    // The size iOS assumes for a touch icon that declares none.
    static constexpr int assumedTouchIconEdge = 180;

    QUrl url;
    Source source = Source::icon;
    QList<QSize> sizes; // as declared, without "any"
    bool anySize = false;
    QString type; // the declared MIME type, e.g. "image/png"; empty when none

    // Reads a sizes attribute or field ("16x16 32X32", "any"), ignoring the words that are not sizes.
    void setSizes(QStringView text);

    // Drawn at any size: declared "any", or an SVG by its type or file name.
    bool isScalable() const;

    // The longest edge it is declared (or, for touch icons, assumed) to have; 0 when unknown.
    int edge() const;

    bool operator==(const WebsiteIconCandidate&) const = default;
};
