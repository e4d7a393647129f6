#include "foundation/JsonReader.h"

#include "foundation/KeyConversion.h"

#include <QScopeGuard>
#include <array>
#include <charconv>
#include <limits>
#include <memory>
#include <simdjson.h>
#include <string>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

namespace ondemand = simdjson::ondemand;

namespace {

// What each thread keeps between documents: reusing the parser's buffers halves the decoding time.
struct ThreadParser {
    ondemand::parser parser;
    // One buffer per nesting level, so that a converted key stays valid while the value under it is decoded.
    std::array<std::string, JsonReader::maximumDepth + 1> keyBuffers;
    bool busy = false;
};

bool isValueError(simdjson::error_code error)
{
    return error == simdjson::INCORRECT_TYPE || error == simdjson::NUMBER_ERROR ||
           error == simdjson::NUMBER_OUT_OF_RANGE;
}

QString corruptedDescription(simdjson::error_code error)
{
    return QStringLiteral("The given data was not valid JSON: %1")
        .arg(QString::fromUtf8(simdjson::error_message(error)));
}

// The JSON number grammar; the on-demand parser leaves numbers unchecked until they are read. Not a std::regex: its
// matcher recurses once per character and overflows the stack on a long run of digits.
bool isJsonNumber(std::string_view text)
{
    std::size_t i = 0;
    const auto digitAt = [&](std::size_t at) { return at < text.size() && text[at] >= '0' && text[at] <= '9'; };
    const auto skipDigits = [&] {
        const std::size_t start = i;
        while (digitAt(i)) {
            ++i;
        }
        return i > start;
    };
    if (i < text.size() && text[i] == '-') {
        ++i;
    }
    if (i < text.size() && text[i] == '0') {
        ++i;
    } else if (!skipDigits()) {
        return false;
    }
    if (i < text.size() && text[i] == '.') {
        ++i;
        if (!skipDigits()) {
            return false;
        }
    }
    if (i < text.size() && (text[i] == 'e' || text[i] == 'E')) {
        ++i;
        if (i < text.size() && (text[i] == '+' || text[i] == '-')) {
            ++i;
        }
        if (!skipDigits()) {
            return false;
        }
    }
    return i == text.size();
}

} // namespace

// The decoding of one document: the nesting depth, and the failure on its way up with the path it has crossed.
struct JsonReader::State {
    using PathComponent = std::variant<QString, qsizetype>;

    explicit State(ThreadParser& threadParser)
        : parser(threadParser)
    {}

    void setFailure(DecodingError::Code failureCode, bool isFatal, QString failureSummary, QString failureDetail = {})
    {
        failed = true;
        fatal = isFatal;
        code = failureCode;
        summary = std::move(failureSummary);
        detail = std::move(failureDetail);
        path.clear();
    }

    void clearFailure()
    {
        failed = false;
        path.clear();
    }

    Error error() const
    {
        // Deeply nested failures keep the outermost and innermost steps of their path, readable in an alert.
        constexpr qsizetype outerShown = 12;
        constexpr qsizetype innerShown = 4;
        const auto count = qsizetype(path.size());
        QString where;
        for (qsizetype i = count - 1; i >= 0; --i) {
            const qsizetype fromOutside = count - 1 - i;
            if (count > outerShown + innerShown && fromOutside >= outerShown && i >= innerShown) {
                if (fromOutside == outerShown) {
                    where += QStringLiteral("...");
                }
                continue;
            }
            if (const auto* key = std::get_if<QString>(&path[std::size_t(i)])) {
                where += where.isEmpty() ? *key : u'.' + *key;
            } else {
                where += u'[' + QString::number(std::get<qsizetype>(path[std::size_t(i)])) + u']';
            }
        }
        QString description =
            summary + QStringLiteral(" at ") + (where.isEmpty() ? QStringLiteral("the top level") : where);
        if (!detail.isEmpty()) {
            description += QStringLiteral(": ") + detail;
        }
        return DecodingError::make(code, description);
    }

    ThreadParser& parser;
    int depth = 0;

    bool failed = false;
    bool fatal = false;
    DecodingError::Code code = DecodingError::dataCorrupted;
    QString summary;
    QString detail;
    std::vector<PathComponent> path; // innermost first: containers append as the failure travels up
};

JsonReader::JsonReader(State* state, void* value, bool isDocument)
    : m_state(state)
    , m_value(value)
    , m_isDocument(isDocument)
{}

template <class F>
auto JsonReader::visit(F&& f)
{
    // The root is read through the document itself: that is how the parser takes scalar documents.
    if (m_isDocument) {
        return f(*static_cast<ondemand::document*>(m_value));
    }
    return f(*static_cast<ondemand::value*>(m_value));
}

Result<void> JsonReader::readDocument(const QByteArray& json, void* visitor, RootVisitor readRoot)
{
    thread_local ThreadParser threadParser;
    std::unique_ptr<ThreadParser> nestedParser;
    ThreadParser* parser = &threadParser;
    if (parser->busy) {
        // A decoder that decodes another document while reading this one must not reset our parser.
        nestedParser = std::make_unique<ThreadParser>();
        parser = nestedParser.get();
    }
    parser->busy = true;
    const auto release = qScopeGuard([parser] { parser->busy = false; });

    // The parser reads up to SIMDJSON_PADDING bytes past the end; use the array's own spare room when it has it.
    const auto size = std::size_t(json.size());
    simdjson::padded_string copy;
    simdjson::padded_string_view input;
    // Not capacity() - size(): an array may also keep free room in front of its data. data_ptr() is only non-const.
    const qsizetype spareRoom = const_cast<QByteArray&>(json).data_ptr().freeSpaceAtEnd();
    if (spareRoom >= qsizetype(simdjson::SIMDJSON_PADDING)) {
        input = simdjson::padded_string_view(json.constData(), size, size + simdjson::SIMDJSON_PADDING);
    } else {
        copy = simdjson::padded_string(json.constData(), size);
        input = copy;
    }

    ondemand::document document;
    if (const auto error = parser->parser.iterate(input).get(document)) {
        return DecodingError::make(DecodingError::dataCorrupted, corruptedDescription(error));
    }
    State state(*parser);
    JsonReader root(&state, &document, true);
    if (!readRoot(visitor, root)) {
        return state.error();
    }
    // A fully read document has no current location left; one that still has one carries more after its value. (A
    // root that a tolerant decoder gave up on is left unread, and then there is nothing to check.)
    if (document.current_depth() == 0 && !document.current_location().error()) {
        return DecodingError::make(DecodingError::dataCorrupted, corruptedDescription(simdjson::TRAILING_CONTENT));
    }
    return {};
}

bool JsonReader::fail(DecodingError::Code code, const QString& summary)
{
    m_state->setFailure(code, false, summary);
    return false;
}

bool JsonReader::failMissingKey(std::string_view key)
{
    const QString name = QString::fromUtf8(key.data(), qsizetype(key.size()));
    const QString wireName = KeyConversion::convertToSnakeCase(name);
    QString summary = QStringLiteral("No value associated with key \"%1\"").arg(name);
    if (wireName != name) {
        summary += QStringLiteral(" (\"%1\")").arg(wireName);
    }
    return fail(DecodingError::keyNotFound, summary);
}

bool JsonReader::recover()
{
    if (m_state->failed && m_state->fatal) {
        return false;
    }
    m_state->clearFailure();
    return true;
}

bool JsonReader::failCorrupted(int error)
{
    m_state->setFailure(DecodingError::dataCorrupted, true, QStringLiteral("The given data was not valid JSON"),
                        QString::fromUtf8(simdjson::error_message(simdjson::error_code(error))));
    return false;
}

bool JsonReader::failTooDeep()
{
    m_state->setFailure(DecodingError::dataCorrupted, true, QStringLiteral("The given data was not valid JSON"),
                        QStringLiteral("nesting deeper than %1 levels").arg(maximumDepth));
    return false;
}

bool JsonReader::failRead(int code, Kind expected, const char* expectation)
{
    const auto error = simdjson::error_code(code);
    if (!isValueError(error)) {
        return failCorrupted(error);
    }
    Kind actual = Kind::null;
    if (!kind(actual)) {
        return false;
    }
    if (actual == Kind::null) {
        bool isNull = false;
        if (visit([&](auto& v) { return v.is_null().get(isNull); }) || !isNull) {
            return failCorrupted(simdjson::N_ATOM_ERROR);
        }
        return fail(DecodingError::valueNotFound,
                    QStringLiteral("Expected %1 but found null").arg(QLatin1String(expectation)));
    }
    // Of the requested JSON type but unreadable: malformed JSON ("tru", "-", "01"), unless it is a well-formed number
    // that does not fit the requested type (1.5 or 1e30 for an integer).
    if (actual == expected && expected == Kind::boolean) {
        std::string_view token;
        const bool startsWithT = rawToken(token) && token.starts_with('t');
        return failCorrupted(startsWithT ? simdjson::T_ATOM_ERROR : simdjson::F_ATOM_ERROR);
    }
    double ignored = 0;
    if (actual == expected && expected == Kind::number && !parseNumberText(ignored)) {
        return failCorrupted(simdjson::NUMBER_ERROR);
    }
    if (actual == expected && expected != Kind::number) {
        return failCorrupted(error);
    }
    return fail(DecodingError::typeMismatch, QStringLiteral("Expected %1").arg(QLatin1String(expectation)));
}

bool JsonReader::rawToken(std::string_view& out)
{
    // The document answers with a result, a value with the plain view.
    const auto error = visit([&](auto& v) {
        if constexpr (std::is_same_v<decltype(v.raw_json_token()), std::string_view>) {
            out = v.raw_json_token();
            return simdjson::SUCCESS;
        } else {
            return v.raw_json_token().get(out);
        }
    });
    // The token runs up to the next one, white space included.
    out = out.substr(0, out.find_last_not_of(" \t\n\r") + 1);
    return !error;
}

bool JsonReader::parseNumberText(double& out)
{
    std::string_view token;
    if (!rawToken(token)) {
        return false;
    }
    if (!isJsonNumber(token)) {
        return false;
    }
    // Only reached for numbers the fast path refused, such as 1e400. from_chars ignores the C locale, which
    // QCoreApplication sets from the environment.
    const char* const end = token.data() + token.size();
    double value = 0;
    const auto [stop, error] = std::from_chars(token.data(), end, value);
    if (stop != end) {
        return false;
    }
    if (error == std::errc::result_out_of_range) {
        const bool negative = token.front() == '-';
        const auto exponent = token.find_first_of("eE");
        const bool underflow = exponent != std::string_view::npos && token.substr(exponent + 1).starts_with('-');
        value = underflow ? 0.0 : std::numeric_limits<double>::infinity();
        out = negative ? -value : value;
        return true;
    }
    if (error != std::errc()) {
        return false;
    }
    out = value;
    return true;
}

bool JsonReader::kind(Kind& out)
{
    ondemand::json_type type;
    if (const auto error = visit([&](auto& v) { return v.type().get(type); })) {
        return failCorrupted(error);
    }
    switch (type) {
    case ondemand::json_type::object:
        out = Kind::object;
        break;
    case ondemand::json_type::array:
        out = Kind::array;
        break;
    case ondemand::json_type::number:
        out = Kind::number;
        break;
    case ondemand::json_type::string:
        out = Kind::string;
        break;
    case ondemand::json_type::boolean:
        out = Kind::boolean;
        break;
    case ondemand::json_type::null:
        out = Kind::null;
        break;
    }
    return true;
}

bool JsonReader::readNull(bool& isNull)
{
    isNull = false;
    Kind actual = Kind::null;
    if (!kind(actual)) {
        return false;
    }
    if (actual != Kind::null) {
        return true;
    }
    if (visit([&](auto& v) { return v.is_null().get(isNull); }) || !isNull) {
        return failCorrupted(simdjson::N_ATOM_ERROR);
    }
    return true;
}

bool JsonReader::readBool(bool& out)
{
    if (const auto error = visit([&](auto& v) { return v.get_bool().get(out); })) {
        return failRead(error, Kind::boolean, "a Boolean value");
    }
    return true;
}

bool JsonReader::readInteger(qint64& out)
{
    int64_t value = 0;
    if (const auto error = visit([&](auto& v) { return v.get_int64().get(value); })) {
        return failRead(error, Kind::number, "an integer");
    }
    out = value;
    return true;
}

bool JsonReader::readInteger(int& out)
{
    qint64 value = 0;
    if (!readInteger(value)) {
        return false;
    }
    if (!std::in_range<int>(value)) {
        return fail(DecodingError::dataCorrupted,
                    QStringLiteral("Parsed JSON number <%1> does not fit in int").arg(value));
    }
    out = int(value);
    return true;
}

bool JsonReader::readDouble(double& out)
{
    const auto error = visit([&](auto& v) { return v.get_double().get(out); });
    if (!error) {
        return true;
    }
    if (error == simdjson::NUMBER_ERROR && parseNumberText(out)) {
        return true;
    }
    return failRead(error, Kind::number, "a number");
}

bool JsonReader::readNumber(qint64& integer, double& number, bool& isInteger)
{
    int64_t value = 0;
    const auto error = visit([&](auto& v) { return v.get_int64().get(value); });
    if (!error) {
        integer = value;
        isInteger = true;
        return true;
    }
    if (!isValueError(error)) {
        return failCorrupted(error);
    }
    isInteger = false;
    return readDouble(number);
}

bool JsonReader::readUtf8(std::string_view& out)
{
    if (const auto error = visit([&](auto& v) { return v.get_string().get(out); })) {
        return failRead(error, Kind::string, "a string");
    }
    return true;
}

bool JsonReader::readString(QString& out)
{
    std::string_view text;
    if (!readUtf8(text)) {
        return false;
    }
    out = QString::fromUtf8(text.data(), qsizetype(text.size()));
    return true;
}

bool JsonReader::readObject(void* visitor, FieldVisitor onField)
{
    ondemand::object object;
    if (const auto error = visit([&](auto& v) { return v.get_object().get(object); })) {
        return failRead(error, Kind::object, "an object");
    }
    if (m_state->depth >= maximumDepth) {
        return failTooDeep();
    }
    std::string& keyBuffer = m_state->parser.keyBuffers[std::size_t(m_state->depth)];
    ++m_state->depth;
    const auto leave = qScopeGuard([this] { --m_state->depth; });

    for (auto field : object) {
        std::string_view key;
        if (const auto error = field.unescaped_key().get(key)) {
            return failCorrupted(error);
        }
        ondemand::value value;
        if (const auto error = field.value().get(value)) {
            return failCorrupted(error);
        }
        key = KeyConversion::convertFromSnakeCase(key, keyBuffer);
        JsonReader member(m_state, &value, false);
        if (!onField(visitor, key, member)) {
            if (m_state->failed) {
                m_state->path.emplace_back(QString::fromUtf8(key.data(), qsizetype(key.size())));
            }
            return false;
        }
    }
    return true;
}

bool JsonReader::readArray(void* visitor, ElementVisitor onElement)
{
    ondemand::array array;
    if (const auto error = visit([&](auto& v) { return v.get_array().get(array); })) {
        return failRead(error, Kind::array, "an array");
    }
    if (m_state->depth >= maximumDepth) {
        return failTooDeep();
    }
    ++m_state->depth;
    const auto leave = qScopeGuard([this] { --m_state->depth; });

    qsizetype index = 0;
    for (auto element : array) {
        ondemand::value value;
        if (const auto error = element.get(value)) {
            return failCorrupted(error);
        }
        JsonReader reader(m_state, &value, false);
        if (!onElement(visitor, reader)) {
            if (m_state->failed) {
                m_state->path.emplace_back(index);
            }
            return false;
        }
        ++index;
    }
    return true;
}
