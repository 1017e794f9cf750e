#include "FrameStats.h"

#include <QtGlobal>
#include <algorithm>
#include <chrono>
#include <cstdio>

namespace {

double percentileMs(std::vector<qint64> values, double fraction) {
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    const size_t index = std::min(values.size() - 1, size_t(fraction * double(values.size())));
    return double(values[index]) / 1e6;
}

} // namespace

void FrameStats::trace(const char* what) const {
    if (!tracing)
        return;
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    std::fprintf(stderr, "quillery: %s at %.4f\n", what,
                 std::chrono::duration<double>(now).count());
}

FrameStats& FrameStats::shared() {
    static FrameStats stats;
    return stats;
}

FrameStats::FrameStats()
    : on(qEnvironmentVariableIsSet("QUILLERY_FRAME_STATS")),
      tracing(qEnvironmentVariableIsSet("QUILLERY_TRACE_PAINT")) {
    if (on)
        clock.start();
}

FrameStats::~FrameStats() {
    if (!on)
        return;
    std::fprintf(stderr,
                 "quillery frame stats: frames %ld, pointer events %ld, event to frame ms "
                 "median %.2f p99 %.2f max %.2f, start to first frame ms median %.2f max %.2f\n",
                 frames, events, percentileMs(latencies, 0.5), percentileMs(latencies, 0.99),
                 percentileMs(latencies, 1.0), percentileMs(firstFrames, 0.5),
                 percentileMs(firstFrames, 1.0));
}

void FrameStats::pointerEventArrived() {
    if (!on)
        return;
    ++events;
    waiting.push_back(clock.nsecsElapsed());
}

void FrameStats::drawingStarted() {
    trace("drawing started");
    if (on)
        startedAt = clock.nsecsElapsed();
}

void FrameStats::firstPaintWhileDrawing() {
    trace("overlay painted");
}

void FrameStats::framePainted() {
    if (!on)
        return;
    ++frames;
    const qint64 now = clock.nsecsElapsed();
    for (const qint64 arrived : waiting)
        latencies.push_back(now - arrived);
    waiting.clear();
    if (startedAt >= 0) {
        firstFrames.push_back(now - startedAt);
        startedAt = -1;
    }
}
