#include "foundation/PropertyList.h"

#include <QDateTime>
#include <QFile>
#include <QHash>
#include <QStringList>
#include <QXmlStreamReader>
#include <QXmlStreamWriter>
#include <cmath>
#include <limits>
#include <optional>

namespace {

// Recursive-descent reader over the token stream. The first problem found is kept; every caller unwinds as
// soon as one is recorded.
class Reader {
public:
    explicit Reader(const QByteArray& xml)
        : m_xml(xml)
    {}

    Result<QVariant> run()
    {
        if (!nextElement()) {
            if (!failed()) {
                fail(PropertyList::InvalidStructure, QStringLiteral("there is no <plist> element"));
            }
            return *m_error;
        }
        if (m_xml.name() != u"plist") {
            fail(PropertyList::InvalidStructure,
                 QStringLiteral("the root element is <%1>, not <plist>").arg(m_xml.name().toString()));
            return *m_error;
        }
        QVariant root;
        if (nextElement()) {
            root = value(0);
            if (!failed() && nextElement()) {
                fail(PropertyList::InvalidStructure,
                     QStringLiteral("<plist> holds more than one value (unexpected <%1>)").arg(m_xml.name()));
            }
        } else if (!failed()) {
            fail(PropertyList::InvalidStructure, QStringLiteral("<plist> holds no value"));
        }
        // Read to the end so that anything malformed after the root is not silently accepted.
        while (!failed() && !m_xml.atEnd()) {
            m_xml.readNext();
            checkXml();
        }
        if (failed()) {
            return *m_error;
        }
        return root;
    }

private:
    bool failed() const { return m_error.has_value(); }

    void fail(PropertyList::ErrorCode code, const QString& what)
    {
        if (failed()) {
            return;
        }
        m_error = Error(PropertyList::errorDomain, code,
                        QStringLiteral("Invalid property list (line %1): %2").arg(m_xml.lineNumber()).arg(what));
    }

    // Records an XML-level error of the reader, if any.
    bool checkXml()
    {
        if (m_xml.hasError()) {
            if (m_xml.error() == QXmlStreamReader::PrematureEndOfDocumentError) {
                fail(PropertyList::MalformedXml, m_sawElement ? QStringLiteral("the document ends too early")
                                                              : QStringLiteral("there is no <plist> element"));
            } else {
                fail(PropertyList::MalformedXml, m_xml.errorString());
            }
            return false;
        }
        return true;
    }

    // The reader leaves entities it cannot resolve to the caller; dropping them would lose text silently.
    void undeclaredEntity()
    {
        fail(PropertyList::MalformedXml, QStringLiteral("the entity &%1; is not declared").arg(m_xml.name()));
    }

    // Advances to the next child start element (true) or to the end of the current element (false), skipping
    // comments, processing instructions and whitespace.
    bool nextElement()
    {
        while (!failed()) {
            const auto token = m_xml.readNext();
            if (!checkXml()) {
                return false;
            }
            switch (token) {
            case QXmlStreamReader::StartElement:
                m_sawElement = true;
                return true;
            case QXmlStreamReader::EndElement:
            case QXmlStreamReader::EndDocument:
                return false;
            case QXmlStreamReader::EntityReference:
                undeclaredEntity();
                return false;
            case QXmlStreamReader::Characters:
                if (!m_xml.isWhitespace()) {
                    fail(PropertyList::InvalidStructure,
                         QStringLiteral("unexpected text \"%1\"").arg(m_xml.text().trimmed().left(40)));
                    return false;
                }
                break;
            default:
                break;
            }
        }
        return false;
    }

    // The character content of the current element, which must have no child elements.
    std::optional<QString> text()
    {
        const QString element = m_xml.name().toString();
        QString result;
        while (!failed()) {
            const auto token = m_xml.readNext();
            if (!checkXml()) {
                return std::nullopt;
            }
            if (token == QXmlStreamReader::Characters) {
                result += m_xml.text();
            } else if (token == QXmlStreamReader::EndElement) {
                return result;
            } else if (token == QXmlStreamReader::StartElement) {
                fail(PropertyList::InvalidStructure,
                     QStringLiteral("unexpected element <%1> inside <%2>").arg(m_xml.name().toString(), element));
                return std::nullopt;
            } else if (token == QXmlStreamReader::EntityReference) {
                undeclaredEntity();
                return std::nullopt;
            }
        }
        return std::nullopt;
    }

    QVariant value(int depth)
    {
        const QStringView name = m_xml.name();
        if (name == u"dict") {
            return dictionary(depth + 1);
        }
        if (name == u"array") {
            return array(depth + 1);
        }
        if (name == u"true" || name == u"false") {
            const bool result = name == u"true";
            const auto content = text();
            if (content && !content->trimmed().isEmpty()) {
                fail(PropertyList::InvalidValue, QStringLiteral("<%1/> must be empty").arg(name.toString()));
            }
            return result;
        }
        if (name == u"string") {
            const auto content = text();
            return content ? QVariant(*content) : QVariant();
        }
        if (name == u"integer") {
            return integer();
        }
        if (name == u"real") {
            return real();
        }
        if (name == u"date") {
            return date();
        }
        if (name == u"data") {
            return data();
        }
        if (name == u"key") {
            fail(PropertyList::InvalidStructure, QStringLiteral("<key> outside of a <dict>"));
        } else {
            fail(PropertyList::InvalidStructure, QStringLiteral("unknown element <%1>").arg(name.toString()));
        }
        return {};
    }

    bool tooDeep(int depth)
    {
        if (depth <= PropertyList::maximumDepth) {
            return false;
        }
        fail(PropertyList::TooDeep,
             QStringLiteral("containers are nested more than %1 levels deep").arg(PropertyList::maximumDepth));
        return true;
    }

    QVariant dictionary(int depth)
    {
        if (tooDeep(depth)) {
            return {};
        }
        QVariantMap result;
        while (nextElement()) {
            if (m_xml.name() != u"key") {
                fail(PropertyList::InvalidStructure,
                     QStringLiteral("<%1> in a <dict> where a <key> belongs").arg(m_xml.name().toString()));
                return {};
            }
            const auto key = text();
            if (!key) {
                return {};
            }
            if (!nextElement()) {
                fail(PropertyList::InvalidStructure, QStringLiteral("the key \"%1\" has no value").arg(*key));
                return {};
            }
            if (m_xml.name() == u"key") {
                fail(PropertyList::InvalidStructure, QStringLiteral("the key \"%1\" has no value").arg(*key));
                return {};
            }
            QVariant item = value(depth);
            if (failed()) {
                return {};
            }
            result.insert(*key, std::move(item));
        }
        return failed() ? QVariant() : QVariant(result);
    }

    QVariant array(int depth)
    {
        if (tooDeep(depth)) {
            return {};
        }
        QVariantList result;
        while (nextElement()) {
            QVariant item = value(depth);
            if (failed()) {
                return {};
            }
            result.append(std::move(item));
        }
        return failed() ? QVariant() : QVariant(result);
    }

    QVariant integer()
    {
        const auto content = text();
        if (!content) {
            return {};
        }
        QString digits = content->trimmed();
        const bool negative = digits.startsWith(u'-');
        if (negative || digits.startsWith(u'+')) {
            digits.remove(0, 1);
        }
        int base = 10;
        if (digits.startsWith(u"0x", Qt::CaseInsensitive)) {
            base = 16;
            digits.remove(0, 2);
        }
        bool ok = !digits.isEmpty() && digits.front().isLetterOrNumber();
        const qulonglong magnitude = ok ? digits.toULongLong(&ok, base) : 0;
        constexpr auto largest = qulonglong(std::numeric_limits<qint64>::max());
        if (!ok) {
            fail(PropertyList::InvalidValue, QStringLiteral("\"%1\" is not an integer").arg(content->trimmed()));
            return {};
        }
        if (magnitude > largest + (negative ? 1 : 0)) {
            fail(PropertyList::InvalidValue, QStringLiteral("the integer %1 is out of range").arg(content->trimmed()));
            return {};
        }
        // Negating through unsigned arithmetic keeps the minimum of qint64 representable.
        return qint64(negative ? 0 - magnitude : magnitude);
    }

    QVariant real()
    {
        const auto content = text();
        if (!content) {
            return {};
        }
        const QString trimmed = content->trimmed();
        const QString lower = trimmed.toLower();
        static const QHash<QString, double> nonFinite = {
            {QStringLiteral("nan"), std::numeric_limits<double>::quiet_NaN()},
            {QStringLiteral("inf"), std::numeric_limits<double>::infinity()},
            {QStringLiteral("+inf"), std::numeric_limits<double>::infinity()},
            {QStringLiteral("infinity"), std::numeric_limits<double>::infinity()},
            {QStringLiteral("+infinity"), std::numeric_limits<double>::infinity()},
            {QStringLiteral("-inf"), -std::numeric_limits<double>::infinity()},
            {QStringLiteral("-infinity"), -std::numeric_limits<double>::infinity()},
        };
        if (const auto it = nonFinite.constFind(lower); it != nonFinite.cend()) {
            return *it;
        }
        bool ok = false;
        const double result = trimmed.toDouble(&ok);
        if (!ok || !std::isfinite(result)) {
            fail(PropertyList::InvalidValue, QStringLiteral("\"%1\" is not a real number").arg(trimmed));
            return {};
        }
        return result;
    }

    QVariant date()
    {
        const auto content = text();
        if (!content) {
            return {};
        }
        const QString trimmed = content->trimmed();
        const QDateTime parsed = QDateTime::fromString(trimmed, Qt::ISODate);
        // Without a zone the moment would depend on the reader's local time.
        if (!parsed.isValid() || parsed.timeSpec() == Qt::LocalTime) {
            fail(PropertyList::InvalidValue,
                 QStringLiteral("\"%1\" is not a date like 2024-01-31T12:00:00Z").arg(trimmed));
            return {};
        }
        return parsed.toUTC();
    }

    QVariant data()
    {
        const auto content = text();
        if (!content) {
            return {};
        }
        QByteArray encoded = content->toLatin1();
        encoded.removeIf([](char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; });
        auto decoded = QByteArray::fromBase64Encoding(encoded, QByteArray::AbortOnBase64DecodingErrors);
        if (!decoded) {
            fail(PropertyList::InvalidValue, QStringLiteral("the <data> content is not valid base64"));
            return {};
        }
        return *decoded;
    }

    QXmlStreamReader m_xml;
    std::optional<Error> m_error;
    bool m_sawElement = false;
};

class Writer {
public:
    explicit Writer(QByteArray* out)
        : m_xml(out)
    {
        m_xml.setAutoFormatting(true);
        m_xml.setAutoFormattingIndent(-1);
    }

    void run(const QVariant& root)
    {
        m_xml.writeStartDocument();
        m_xml.writeDTD(QStringLiteral("<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
                                      "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">"));
        m_xml.writeStartElement(QStringLiteral("plist"));
        m_xml.writeAttribute(QStringLiteral("version"), QStringLiteral("1.0"));
        if (root.isValid()) {
            write(root);
        }
        m_xml.writeEndElement();
        m_xml.writeEndDocument();
    }

private:
    void write(const QVariant& value)
    {
        switch (value.typeId()) {
        case QMetaType::QVariantMap:
            writeDictionary(value.toMap());
            return;
        case QMetaType::QVariantHash: {
            // A hash has no order; going through a map makes the output reproducible.
            const QVariantHash hash = value.toHash();
            QVariantMap map;
            for (auto it = hash.cbegin(); it != hash.cend(); ++it) {
                map.insert(it.key(), it.value());
            }
            writeDictionary(map);
            return;
        }
        case QMetaType::QVariantList:
        case QMetaType::QStringList:
        case QMetaType::QByteArrayList:
            m_xml.writeStartElement(QStringLiteral("array"));
            for (const QVariant& item : value.toList()) {
                if (item.isValid()) {
                    write(item);
                }
            }
            m_xml.writeEndElement();
            return;
        case QMetaType::Bool:
            m_xml.writeEmptyElement(value.toBool() ? QStringLiteral("true") : QStringLiteral("false"));
            return;
        case QMetaType::Char:
        case QMetaType::SChar:
        case QMetaType::Short:
        case QMetaType::Int:
        case QMetaType::Long:
        case QMetaType::LongLong:
            m_xml.writeTextElement(QStringLiteral("integer"), QString::number(value.toLongLong()));
            return;
        case QMetaType::UChar:
        case QMetaType::UShort:
        case QMetaType::UInt:
        case QMetaType::ULong:
        case QMetaType::ULongLong:
            m_xml.writeTextElement(QStringLiteral("integer"), QString::number(value.toULongLong()));
            return;
        case QMetaType::Float:
        case QMetaType::Double:
            m_xml.writeTextElement(QStringLiteral("real"), realText(value.toDouble()));
            return;
        case QMetaType::QDateTime:
            m_xml.writeTextElement(QStringLiteral("date"), value.toDateTime().toUTC().toString(Qt::ISODate));
            return;
        case QMetaType::QByteArray:
            m_xml.writeTextElement(QStringLiteral("data"), QString::fromLatin1(value.toByteArray().toBase64()));
            return;
        default:
            m_xml.writeTextElement(QStringLiteral("string"), value.toString());
            return;
        }
    }

    void writeDictionary(const QVariantMap& map)
    {
        m_xml.writeStartElement(QStringLiteral("dict"));
        for (auto it = map.cbegin(); it != map.cend(); ++it) {
            if (!it.value().isValid()) {
                continue;
            }
            m_xml.writeTextElement(QStringLiteral("key"), it.key());
            write(it.value());
        }
        m_xml.writeEndElement();
    }

    static QString realText(double value)
    {
        if (std::isnan(value)) {
            return QStringLiteral("nan");
        }
        if (std::isinf(value)) {
            return value > 0 ? QStringLiteral("+infinity") : QStringLiteral("-infinity");
        }
        return QString::number(value, 'g', QLocale::FloatingPointShortest);
    }

    QXmlStreamWriter m_xml;
};

} // namespace

Result<QVariant> PropertyList::read(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return Error(errorDomain, Unreadable,
                     QStringLiteral("Cannot read the property list %1: %2").arg(path, file.errorString()));
    }
    const QByteArray content = file.readAll();
    if (file.error() != QFileDevice::NoError) {
        return Error(errorDomain, Unreadable,
                     QStringLiteral("Cannot read the property list %1: %2").arg(path, file.errorString()));
    }
    auto result = parse(content);
    if (!result) {
        return Error(errorDomain, result.error().code(), path + QStringLiteral(": ") + result.error().description());
    }
    return result;
}

Result<QVariant> PropertyList::parse(QByteArrayView xml)
{
    if (xml.trimmed().isEmpty()) {
        return Error(errorDomain, Empty, QStringLiteral("The property list is empty"));
    }
    // The caller's bytes outlive the reader, so they need not be copied.
    Reader reader(QByteArray::fromRawData(xml.data(), xml.size()));
    return reader.run();
}

QByteArray PropertyList::serialize(const QVariant& value)
{
    QByteArray out;
    Writer writer(&out);
    writer.run(value);
    return out;
}
