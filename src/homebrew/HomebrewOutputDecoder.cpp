#include "homebrew/HomebrewOutputDecoder.h"

#include <QStringDecoder>
#include <algorithm>

namespace Homebrew {

namespace {

bool isContinuation(uchar byte)
{
    return (byte & 0xC0) == 0x80;
}

// The length of the sequence a lead byte starts; 0 for bytes that never start one (C0, C1 and F5..FF only ever
// appear in overlong or out-of-range forms).
int sequenceLength(uchar lead)
{
    if (lead >= 0xC2 && lead <= 0xDF) {
        return 2;
    }
    if (lead >= 0xE0 && lead <= 0xEF) {
        return 3;
    }
    if (lead >= 0xF0 && lead <= 0xF4) {
        return 4;
    }
    return 0;
}

// The second byte is where overlong forms, surrogates and code points beyond U+10FFFF show.
bool allowsSecond(uchar lead, uchar second)
{
    switch (lead) {
    case 0xE0:
        return second >= 0xA0 && second <= 0xBF;
    case 0xED:
        return second >= 0x80 && second <= 0x9F;
    case 0xF0:
        return second >= 0x90 && second <= 0xBF;
    case 0xF4:
        return second >= 0x80 && second <= 0x8F;
    default:
        return isContinuation(second);
    }
}

} // namespace

QString OutputDecoder::decode(QByteArrayView chunk)
{
    if (!m_pending.isEmpty()) {
        const QByteArray joined = m_pending + chunk.toByteArray();
        m_pending.clear();
        if (auto text = decodeComplete(joined)) {
            return *text;
        }
        // The held-back bytes were not the start of a character after all: the chunk is judged on its own.
    }
    return decodeComplete(chunk).value_or(QString());
}

std::optional<QString> OutputDecoder::decodeComplete(QByteArrayView data)
{
    const qsizetype tail = incompleteTailLength(data);
    // Stateless, so that anything cut short inside the body counts as an error; the BOM flag keeps a leading
    // U+FEFF as the child wrote it instead of swallowing it at every chunk.
    QStringDecoder decoder(QStringDecoder::Utf8,
                           QStringConverter::Flag::Stateless | QStringConverter::Flag::ConvertInitialBom);
    QString text = decoder.decode(data.first(data.size() - tail));
    if (decoder.hasError()) {
        return std::nullopt;
    }
    m_pending = data.last(tail).toByteArray();
    return text;
}

qsizetype OutputDecoder::incompleteTailLength(QByteArrayView data)
{
    const qsizetype reach = std::min<qsizetype>(3, data.size());
    for (qsizetype back = 1; back <= reach; ++back) {
        const auto lead = uchar(data.at(data.size() - back));
        if (isContinuation(lead)) {
            continue;
        }
        if (sequenceLength(lead) <= back) {
            return 0;
        }
        if (back >= 2 && !allowsSecond(lead, uchar(data.at(data.size() - back + 1)))) {
            return 0;
        }
        return back;
    }
    return 0;
}

} // namespace Homebrew
