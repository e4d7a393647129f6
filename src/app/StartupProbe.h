// Measures a start of the application: once a widget has painted for the first time, prints how long the process
// took to get there and its peak memory, then quits. Run by `corvel-x --measure-startup` and the start-up benchmark.
#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QPointer>
#include <QTextStream>
#include <QWidget>

class StartupProbe : public QObject {
    Q_OBJECT

public:
    // clock started as the process began; out receives the one report line.
    StartupProbe(QElapsedTimer clock, QTextStream& out, QObject* parent = nullptr);

    // Watches widget; the report follows its first paint.
    void watch(QWidget* widget);

    // The process's peak resident memory so far, in kibibytes; 0 where the system does not say.
    static qint64 peakMemoryKiB();

    // "startup: first paint after <ms> ms, peak memory <KiB> KiB"
    static QString reportLine(qint64 milliseconds, qint64 peakKiB);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void report();

    QElapsedTimer m_clock;
    QTextStream& m_out;
    QPointer<QWidget> m_widget;
    bool m_reported = false;
};
