// Writes the simulator's answer the way brew does: line by line on standard output or standard error, flushed at once
// so that a reader sees it arrive, shaped by the staged faults (slow lines, everything on standard error, a chunk of
// invalid UTF-8). JSON comes out in Ruby's pretty layout, as brew prints it.
#pragma once

#include "SimulatorState.h"

#include <QByteArray>
#include <QJsonValue>
#include <QString>

class SimulatorOutput {
public:
    explicit SimulatorOutput(const SimulatorFaults& faults);

    // Streamed commands get the invalid UTF-8 chunk after their first line, when that fault is staged.
    void setStreamed(bool streamed) { m_streamed = streamed; }

    void out(const QString& text);
    void err(const QString& text);
    void json(const QJsonValue& value);

    // Ruby's JSON.pretty_generate layout: two spaces, empty arrays as "[\n\n]", empty objects as "{\n}".
    static QByteArray prettyJson(const QJsonValue& value);

private:
    void write(FILE* stream, const QString& text);

    SimulatorFaults m_faults;
    bool m_streamed = false;
    bool m_wroteLine = false;
    bool m_wroteInvalidChunk = false;
};
