#include "foundation/KeyConversion.h"

#include <QChar>
#include <QList>
#include <QStringView>
#include <algorithm>
#include <functional>
#include <string>
#include <unordered_map>

namespace {

// Swift's String.capitalized on a single word: the first character in title case, the rest in lower case.
QString capitalized(QStringView word)
{
    if (word.isEmpty()) {
        return {};
    }
    qsizetype headLength = 1;
    char32_t head = word.front().unicode();
    if (word.size() > 1 && word[0].isHighSurrogate() && word[1].isLowSurrogate()) {
        head = QChar::surrogateToUcs4(word[0], word[1]);
        headLength = 2;
    }
    const char32_t title = QChar::toTitleCase(head);
    return QString::fromUcs4(&title, 1) + word.mid(headLength).toString().toLower();
}

bool isAscii(std::string_view text)
{
    return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

char asciiLower(char c)
{
    return (c >= 'A' && c <= 'Z') ? char(c - 'A' + 'a') : c;
}

char asciiUpper(char c)
{
    return (c >= 'a' && c <= 'z') ? char(c - 'a' + 'A') : c;
}

bool isUppercaseLetter(char32_t c)
{
    const auto category = QChar::category(c);
    return category == QChar::Letter_Uppercase || category == QChar::Letter_Titlecase;
}

bool isLowercaseLetter(char32_t c)
{
    return QChar::category(c) == QChar::Letter_Lowercase;
}

struct TransparentHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view text) const { return std::hash<std::string_view>()(text); }
};

// The conversion proper of a key that has an underscore somewhere.
std::string_view convertUnderscored(std::string_view key, std::string& buffer)
{
    const auto begin = key.find_first_not_of('_');
    if (begin == std::string_view::npos) {
        return key;
    }
    const auto end = key.find_last_not_of('_') + 1;
    const std::string_view middle = key.substr(begin, end - begin);
    if (middle.find('_') == std::string_view::npos) {
        return key;
    }
    if (!isAscii(middle)) {
        // Case mapping beyond ASCII needs Unicode tables; such keys are rare enough to go through QString.
        const QByteArray converted =
            KeyConversion::convertFromSnakeCase(QString::fromUtf8(key.data(), qsizetype(key.size()))).toUtf8();
        buffer.assign(converted.constData(), std::size_t(converted.size()));
        return buffer;
    }

    // One pass over the key; the result is never longer than the key.
    buffer.resize(key.size());
    char* out = std::copy(key.begin(), key.begin() + std::ptrdiff_t(begin), buffer.data());
    // The middle starts with a letter of the first part, which ends at the first underscore.
    bool firstPart = true;
    bool partStart = true;
    for (const char c : middle) {
        if (c == '_') {
            firstPart = false;
            partStart = true;
            continue;
        }
        *out++ = (partStart && !firstPart) ? asciiUpper(c) : asciiLower(c);
        partStart = false;
    }
    out = std::copy(key.begin() + std::ptrdiff_t(end), key.end(), out);
    buffer.resize(std::size_t(out - buffer.data()));
    return buffer;
}

} // namespace

namespace KeyConversion {

QString convertFromSnakeCase(const QString& key)
{
    const auto first = std::find_if(key.cbegin(), key.cend(), [](QChar c) { return c != u'_'; });
    if (first == key.cend()) {
        return key;
    }
    const auto last = std::find_if(key.crbegin(), key.crend(), [](QChar c) { return c != u'_'; }).base();
    const qsizetype begin = first - key.cbegin();
    const qsizetype end = last - key.cbegin();

    const QList<QStringView> parts = QStringView(key).mid(begin, end - begin).split(u'_', Qt::SkipEmptyParts);
    if (parts.size() == 1) {
        return key;
    }
    QString result = key.left(begin);
    result += parts.front().toString().toLower();
    for (qsizetype i = 1; i < parts.size(); ++i) {
        result += capitalized(parts[i]);
    }
    result += QStringView(key).mid(end);
    return result;
}

std::string_view convertFromSnakeCase(std::string_view key, std::string& buffer)
{
    if (key.find('_') == std::string_view::npos) {
        return key;
    }
    // A catalogue repeats the same few hundred keys in every record: looking each up once it has been converted is
    // cheaper than converting it again. Entries are never removed, so a view into one stays valid; the bound keeps a
    // document full of made-up keys from growing the table without end.
    constexpr std::size_t cacheCapacity = 4096;
    thread_local std::unordered_map<std::string, std::string, TransparentHash, std::equal_to<>> cache;
    if (const auto found = cache.find(key); found != cache.end()) {
        return found->second;
    }
    const std::string_view converted = convertUnderscored(key, buffer);
    if (cache.size() >= cacheCapacity) {
        return converted;
    }
    return cache.emplace(key, converted).first->second;
}

QString convertToSnakeCase(const QString& key)
{
    if (key.isEmpty()) {
        return key;
    }
    const QList<uint> characters = key.toUcs4();
    const qsizetype count = characters.size();
    auto findFrom = [&](qsizetype from, bool (*predicate)(char32_t)) {
        for (qsizetype i = from; i < count; ++i) {
            if (predicate(char32_t(characters[i]))) {
                return i;
            }
        }
        return count;
    };

    // Word boundaries as [begin, end) ranges of code points. The first character never starts a new word.
    QList<std::pair<qsizetype, qsizetype>> words;
    qsizetype wordStart = 0;
    qsizetype searchFrom = 1;
    while (true) {
        const qsizetype upper = findFrom(searchFrom, isUppercaseLetter);
        if (upper == count) {
            break;
        }
        words.append({wordStart, upper});
        const qsizetype lower = findFrom(upper, isLowercaseLetter);
        if (lower == count) {
            wordStart = upper;
            break;
        }
        if (lower == upper + 1) {
            wordStart = upper;
        } else {
            // A run of capitals ("URL" in "myURLValue") is a word that ends before the capital of the next word.
            words.append({upper, lower - 1});
            wordStart = lower - 1;
        }
        searchFrom = lower + 1;
    }
    words.append({wordStart, count});

    QString result;
    result.reserve(key.size() + words.size());
    for (qsizetype i = 0; i < words.size(); ++i) {
        if (i > 0) {
            result += u'_';
        }
        const auto [begin, end] = words[i];
        result +=
            QString::fromUcs4(reinterpret_cast<const char32_t*>(characters.constData() + begin), end - begin).toLower();
    }
    return result;
}

} // namespace KeyConversion
