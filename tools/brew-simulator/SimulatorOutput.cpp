#include "SimulatorOutput.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QThread>
#include <cmath>
#include <cstdio>

namespace {

void appendString(QByteArray& out, const QString& text)
{
    out.append('"');
    const QByteArray utf8 = text.toUtf8();
    for (const char c : utf8) {
        switch (c) {
        case '"':
            out.append("\\\"");
            break;
        case '\\':
            out.append("\\\\");
            break;
        case '\b':
            out.append("\\b");
            break;
        case '\f':
            out.append("\\f");
            break;
        case '\n':
            out.append("\\n");
            break;
        case '\r':
            out.append("\\r");
            break;
        case '\t':
            out.append("\\t");
            break;
        default:
            if (static_cast<unsigned char>(c) < 0x20) {
                out.append(QByteArray("\\u00") +
                           QByteArray::number(static_cast<unsigned char>(c), 16).rightJustified(2, '0'));
            } else {
                out.append(c);
            }
        }
    }
    out.append('"');
}

void appendNumber(QByteArray& out, double number)
{
    // Integers travel as doubles in QJsonValue; brew prints them without a fraction.
    if (std::trunc(number) == number && std::abs(number) < 9007199254740992.0) {
        out.append(QByteArray::number(static_cast<qint64>(number)));
    } else {
        out.append(QByteArray::number(number, 'g', QLocale::FloatingPointShortest));
    }
}

void appendValue(QByteArray& out, const QJsonValue& value, int depth)
{
    const QByteArray indent(2 * depth, ' ');
    const QByteArray inner(2 * (depth + 1), ' ');
    switch (value.type()) {
    case QJsonValue::Object: {
        const QJsonObject object = value.toObject();
        out.append("{\n");
        for (auto it = object.begin(); it != object.end(); ++it) {
            out.append(inner);
            appendString(out, it.key());
            out.append(": ");
            appendValue(out, it.value(), depth + 1);
            if (std::next(it) != object.end()) {
                out.append(',');
            }
            out.append('\n');
        }
        out.append(indent).append('}');
        break;
    }
    case QJsonValue::Array: {
        const QJsonArray array = value.toArray();
        out.append("[\n");
        if (array.isEmpty()) {
            out.append('\n');
        }
        for (qsizetype i = 0; i < array.size(); ++i) {
            out.append(inner);
            appendValue(out, array.at(i), depth + 1);
            out.append(i + 1 < array.size() ? ",\n" : "\n");
        }
        out.append(indent).append(']');
        break;
    }
    case QJsonValue::String:
        appendString(out, value.toString());
        break;
    case QJsonValue::Double:
        appendNumber(out, value.toDouble());
        break;
    case QJsonValue::Bool:
        out.append(value.toBool() ? "true" : "false");
        break;
    default:
        out.append("null");
    }
}

} // namespace

SimulatorOutput::SimulatorOutput(const SimulatorFaults& faults)
    : m_faults(faults)
{}

void SimulatorOutput::out(const QString& text)
{
    write(m_faults.stderrOnly ? stderr : stdout, text);
}

void SimulatorOutput::err(const QString& text)
{
    write(stderr, text);
}

void SimulatorOutput::json(const QJsonValue& value)
{
    out(QString::fromUtf8(prettyJson(value)));
}

QByteArray SimulatorOutput::prettyJson(const QJsonValue& value)
{
    QByteArray out;
    appendValue(out, value, 0);
    return out;
}

void SimulatorOutput::write(FILE* stream, const QString& text)
{
    const QStringList lines = text.split(QLatin1Char('\n'));
    for (const QString& line : lines) {
        if (m_wroteLine && m_faults.delayMs > 0) {
            QThread::msleep(static_cast<unsigned long>(m_faults.delayMs));
        }
        const QByteArray bytes = line.toUtf8() + '\n';
        std::fwrite(bytes.constData(), 1, static_cast<size_t>(bytes.size()), stream);
        std::fflush(stream);
        m_wroteLine = true;

        if (m_streamed && m_faults.invalidUtf8 && !m_wroteInvalidChunk) {
            m_wroteInvalidChunk = true;
            if (m_faults.delayMs > 0) {
                QThread::msleep(static_cast<unsigned long>(m_faults.delayMs));
            }
            // Bytes that can never start or continue a UTF-8 sequence.
            static const char invalid[] = "\xff\xfe\xfd\n";
            FILE* target = m_faults.stderrOnly ? stderr : stdout;
            std::fwrite(invalid, 1, sizeof(invalid) - 1, target);
            std::fflush(target);
        }
    }
}
