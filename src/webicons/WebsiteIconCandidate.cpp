#include "webicons/WebsiteIconCandidate.h"

#include <QRegularExpression>
#include <algorithm>

void WebsiteIconCandidate::setSizes(QStringView text)
{
    static const QRegularExpression size(QStringLiteral("^([1-9][0-9]{0,4})[xX]([1-9][0-9]{0,4})$"));
    sizes.clear();
    anySize = false;
    static const QRegularExpression whitespace(QStringLiteral("[ \\t\\n\\f\\r]+"));
    for (const QString& word : text.toString().split(whitespace, Qt::SkipEmptyParts)) {
        if (word.compare(u"any", Qt::CaseInsensitive) == 0) {
            anySize = true;
            continue;
        }
        const QRegularExpressionMatch match = size.match(word);
        if (match.hasMatch()) {
            sizes.append(QSize(match.capturedView(1).toInt(), match.capturedView(2).toInt()));
        }
    }
}

bool WebsiteIconCandidate::isScalable() const
{
    return anySize || type.compare(u"image/svg+xml", Qt::CaseInsensitive) == 0 ||
           url.path().endsWith(u".svg", Qt::CaseInsensitive);
}

int WebsiteIconCandidate::edge() const
{
    if (sizes.isEmpty()) {
        return source == Source::appleTouchIcon ? assumedTouchIconEdge : 0;
    }
    int longest = 0;
    for (const QSize& size : sizes) {
        longest = std::max({longest, size.width(), size.height()});
    }
    return longest;
}
