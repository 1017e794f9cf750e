#pragma once

#include <QElapsedTimer>
#include <vector>

// Counters for benchmarks, kept only when QUILLERY_FRAME_STATS is set and
// printed on stderr when the program ends: frames painted, pointer events,
// the time from a pointer event's arrival to the end of the frame that shows
// it, and the time from the start of drawing to its first frame. With
// QUILLERY_TRACE_PAINT set, the start of drawing and each overlay's first
// paint are written on stderr as they happen, with the time of day.
class FrameStats {
public:
    static FrameStats& shared();
    ~FrameStats();

    bool isOn() const { return on; }
    void pointerEventArrived();
    void drawingStarted();
    // An overlay painted for the first time since drawing started.
    void firstPaintWhileDrawing();
    // A host finished painting a frame (of any output).
    void framePainted();

private:
    FrameStats();
    void trace(const char* what) const;

    bool on = false;
    bool tracing = false;
    QElapsedTimer clock;
    std::vector<qint64> waiting; // arrival times, ns, of events not yet shown
    std::vector<qint64> latencies;
    std::vector<qint64> firstFrames;
    qint64 startedAt = -1;
    long frames = 0;
    long events = 0;
};
