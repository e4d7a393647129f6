#include "ui/WebsiteIconDecoder.h"

#include <QBuffer>
#include <QImageReader>
#include <QPainter>
#include <QPixmap>
#include <algorithm>

namespace {

// An ICO holds a handful of sizes; an animated GIF may hold hundreds of frames, of which the first few will do.
constexpr int maximumFrames = 16;
// Enough for a 4096-pixel square; a file that claims more is not an icon.
constexpr int allocationLimitMiB = 64;

struct Decoded {
    QImage image;
    QSize naturalSize;
};

int edgeOf(const QSize& size)
{
    return std::max(size.width(), size.height());
}

// Covering extent beats falling short of it; among those that cover, the smallest needs the least scaling down,
// among those that fall short, the largest the least scaling up.
bool fitsBetter(const QSize& candidate, const QSize& current, int extent)
{
    const int edge = edgeOf(candidate);
    const int currentEdge = edgeOf(current);
    if ((edge >= extent) != (currentEdge >= extent)) {
        return edge >= extent;
    }
    return edge >= extent ? edge < currentEdge : edge > currentEdge;
}

Decoded decode(const QByteArray& bytes, int extent)
{
    QBuffer buffer;
    buffer.setData(bytes);
    if (bytes.isEmpty() || !buffer.open(QIODevice::ReadOnly)) {
        return {};
    }
    QImageReader reader(&buffer);
    reader.setAllocationLimit(allocationLimitMiB);
    reader.setAutoTransform(true);
    const QByteArray format = reader.format();
    if (format == "svg" || format == "svgz") {
        // Drawn at the size it is shown at, so it stays sharp; its own size may be anything, or nothing.
        const QSize natural = reader.size();
        const QSize drawn = natural.isEmpty() ? QSize(extent, extent)
                                              : natural.scaled(extent, extent, Qt::KeepAspectRatio).expandedTo({1, 1});
        reader.setScaledSize(drawn);
        QImage image = reader.read();
        const QSize size = natural.isEmpty() ? image.size() : natural;
        return {std::move(image), size};
    }
    Decoded best;
    const int frames = std::clamp(reader.imageCount(), 1, maximumFrames);
    for (int frame = 0; frame < frames; ++frame) {
        // ICO readers stay on a picture until told to move; GIF readers move on by themselves and cannot jump.
        if (frame > 0) {
            reader.jumpToImage(frame);
        }
        QImage image = reader.read();
        if (image.isNull()) {
            break;
        }
        if (best.image.isNull() || fitsBetter(image.size(), best.image.size(), extent)) {
            best.naturalSize = image.size();
            best.image = std::move(image);
        }
    }
    return best;
}

} // namespace

std::optional<QSize> WebsiteIconDecoder::imageSize(const QByteArray& bytes)
{
    const Decoded decoded = decode(bytes, maximumEdge);
    if (decoded.image.isNull() || decoded.naturalSize.isEmpty()) {
        return std::nullopt;
    }
    return decoded.naturalSize;
}

WebsiteIcons::Decoder WebsiteIconDecoder::decoder()
{
    return [](const QByteArray& bytes) { return imageSize(bytes); };
}

QImage WebsiteIconDecoder::image(const QByteArray& bytes, int extent)
{
    if (extent <= 0) {
        return {};
    }
    const Decoded decoded = decode(bytes, std::min(extent, maximumEdge));
    if (decoded.image.isNull()) {
        return {};
    }
    QImage fitted = decoded.image;
    if (edgeOf(fitted.size()) != extent) {
        fitted = fitted.scaled(extent, extent, Qt::KeepAspectRatio, Qt::SmoothTransformation);
    }
    QImage square(extent, extent, QImage::Format_ARGB32_Premultiplied);
    square.fill(Qt::transparent);
    QPainter painter(&square);
    painter.drawImage((extent - fitted.width()) / 2, (extent - fitted.height()) / 2, fitted);
    painter.end();
    return square;
}

QIcon WebsiteIconDecoder::icon(const QImage& image, qreal devicePixelRatio)
{
    if (image.isNull()) {
        return {};
    }
    QPixmap pixmap = QPixmap::fromImage(image);
    pixmap.setDevicePixelRatio(devicePixelRatio);
    return QIcon(pixmap);
}
