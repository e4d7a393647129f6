// A cursor over one value of the JSON document being decoded: the decoding code of each supported type reads exactly
// one value through it. It keeps the parser (simdjson's on-demand API, one parser per thread) out of every header.
#pragma once

#include "foundation/DecodingError.h"
#include "foundation/Result.h"

#include <QByteArray>
#include <QString>
#include <string_view>
#include <utility>

class JsonReader {
public:
    enum class Kind { object, array, number, string, boolean, null };

    // Nesting deeper than this is reported as corrupted data instead of exhausting the stack.
    static constexpr int maximumDepth = 512;

    // Parses json and hands its root value to readRoot (a callable bool(JsonReader&)). Returns the first failure as
    // a DecodingError whose description names the coding path, e.g. `Expected a string at [3].desc`.
    template <class F>
    static Result<void> readDocument(const QByteArray& json, F&& readRoot)
    {
        return readDocument(json, &readRoot, [](void* visitor, JsonReader& root) {
            return (*static_cast<std::remove_reference_t<F>*>(visitor))(root);
        });
    }

    // Each read returns false after recording a failure; the caller then returns false as well, so that the
    // containers above it can add their key or index to the failure's coding path.
    bool kind(Kind& out);
    bool readNull(bool& isNull);
    bool readBool(bool& out);
    bool readInteger(qint64& out);
    bool readInteger(int& out);
    bool readDouble(double& out);
    // A number as an integer when it is one that fits in 64 bits, otherwise as a double.
    bool readNumber(qint64& integer, double& number, bool& isInteger);
    // The view stays valid until the whole document is decoded.
    bool readUtf8(std::string_view& out);
    bool readString(QString& out);

    // Calls onField(std::string_view key, JsonReader& value) -> bool for each member in document order; keys arrive
    // converted from snake case. Members that onField does not read are skipped.
    template <class F>
    bool readObject(F&& onField)
    {
        return readObject(&onField, [](void* visitor, std::string_view key, JsonReader& value) {
            return (*static_cast<std::remove_reference_t<F>*>(visitor))(key, value);
        });
    }

    // Calls onElement(JsonReader& element) -> bool for each element in order.
    template <class F>
    bool readArray(F&& onElement)
    {
        return readArray(&onElement, [](void* visitor, JsonReader& element) {
            return (*static_cast<std::remove_reference_t<F>*>(visitor))(element);
        });
    }

    // Records a failure of the value under this cursor and returns false. The summary is completed with the coding
    // path: "No value associated with key \"name\"" becomes "No value associated with key \"name\" at [3]".
    bool fail(DecodingError::Code code, const QString& summary);

    // Records that the object under this cursor lacks a required key (given as it reads after conversion).
    bool failMissingKey(std::string_view key);

    // Tolerant fields call this after a failed read: it drops a failure caused by the value (wrong type, missing
    // key, bad URL...) and returns true, but keeps one caused by malformed JSON, which must fail the document.
    bool recover();

private:
    struct State;
    using RootVisitor = bool (*)(void*, JsonReader&);
    using FieldVisitor = bool (*)(void*, std::string_view, JsonReader&);
    using ElementVisitor = bool (*)(void*, JsonReader&);

    JsonReader(State* state, void* value, bool isDocument);

    static Result<void> readDocument(const QByteArray& json, void* visitor, RootVisitor readRoot);
    bool readObject(void* visitor, FieldVisitor onField);
    bool readArray(void* visitor, ElementVisitor onElement);

    template <class F>
    auto visit(F&& f);
    bool failRead(int error, Kind expected, const char* expectation);
    bool failCorrupted(int error);
    bool failTooDeep();
    bool rawToken(std::string_view& out);
    bool parseNumberText(double& out);

    State* m_state;
    void* m_value;
    bool m_isDocument;
};
