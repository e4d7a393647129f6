// Turns the bytes a website gives as its icon into pictures: the thread-safe check that the website icon service
// uses to tell images from anything else, and the conversion to a square icon of the apps table's size.
#pragma once

#include "webicons/WebsiteIcons.h"

#include <QByteArray>
#include <QIcon>
#include <QImage>
#include <QSize>
#include <optional>

class WebsiteIconDecoder {
public:
    // Edges beyond this are drawn smaller before any check; a tiny file may announce an enormous picture.
    static constexpr int maximumEdge = 1024;

    // The pixel size of the picture in bytes (PNG, ICO, SVG, JPEG, GIF, whatever image formats Qt has here), none
    // when they do not decode. Safe on any thread.
    static std::optional<QSize> imageSize(const QByteArray& bytes);

    // imageSize as the service wants it.
    static WebsiteIcons::Decoder decoder();

    // The picture fitted into a transparent square of extent pixels, its aspect kept and centred; a null image when
    // the bytes do not decode or extent is not positive. Of several pictures in one file (an ICO) the smallest that
    // covers extent is used, else the largest; a vector picture is drawn at that size. Safe on any thread.
    static QImage image(const QByteArray& bytes, int extent);

    // An icon of an image() drawn for a screen of devicePixelRatio (extent times that ratio); a null icon for a
    // null image. GUI thread only, as pixmaps are.
    static QIcon icon(const QImage& image, qreal devicePixelRatio);
};
