// See svg_cell.h.

#include "svg_cell.h"

#include <algorithm>
#include <cstdlib>

#include "svg_canvas.h"

namespace pslog {

namespace {

/// The least width at which a bar with a cross can be seen.
constexpr double LEAST_TIME_OUT = 11;
constexpr double LEAST_WAIT = 1;
constexpr double CROSS_ROOM = 11;
constexpr double GAP = 2;

std::string lengthOf(const Mark& mark) {
    return std::to_string((mark.endUs - mark.startUs) / 1000) + " ms";
}

PlacedMark placeBar(const Mark& mark, int64_t startUs, const Scale& scale) {
    PlacedMark bar;
    bar.mark = &mark;
    const bool isTimeOut = mark.shape == Mark::TIMED_OUT;
    bar.left = scale.at(mark.startUs - startUs);
    bar.right = scale.at(mark.endUs - startUs);
    bar.cutLeft = bar.left < 0;
    bar.cutRight = bar.right > scale.width;
    // An ordinary wait often begins before its frame's start. If its bar is cut off only there, it needs no number.
    const bool isTooLong = bar.right - bar.left > 3 * scale.width;
    double least = isTimeOut ? LEAST_TIME_OUT : LEAST_WAIT;
    if (isTooLong || bar.cutRight || (isTimeOut && bar.cutLeft)) {
        bar.number = lengthOf(mark);
        least = widthOf(bar.number, MARK_FONT) + (isTimeOut ? CROSS_ROOM : 0) + 2 * POINT;
    }
    bar.left = std::clamp(bar.left, 0.0, scale.width);
    bar.right = std::clamp(bar.right, 0.0, scale.width) + (bar.cutRight ? POINT : 0);
    // Widens the bar to the left, if there is room.
    bar.left = std::max(0.0, std::min(bar.left, bar.right - least));
    bar.right = std::max(bar.right, bar.left + least);
    bar.end = bar.right;
    return bar;
}

PlacedMark placeRead(const Mark& mark, int64_t startUs, const Scale& scale) {
    PlacedMark read;
    read.mark = &mark;
    const double at = scale.at(mark.endUs - startUs);
    read.cutLeft = at < 0;
    read.cutRight = at > scale.width;
    read.left = read.right = read.end = std::clamp(at, 0.0, scale.width) - DIAMOND;
    return read;
}

void placeDiamond(PlacedMark& placed, uint32_t frame, int64_t startUs, const Scale& scale) {
    const Mark& mark = *placed.mark;
    if (!mark.isLoud() || !mark.isFallBack()) return;
    const bool isKnown = mark.other != 0 && mark.other <= frame;
    placed.back = mark.failed ? "none" : isKnown ? "\u2212" + std::to_string(frame - mark.other) : "F0";
    if (mark.shape == Mark::READ && (placed.cutLeft || placed.cutRight)) {
        placed.back +=
            (placed.cutLeft ? " at \u2212" : " at ") + std::to_string(std::abs(mark.endUs - startUs) / 1000) + " ms";
    }
    placed.diamond = placed.right + DIAMOND;
    placed.label = placed.diamond + DIAMOND + 1;
    placed.end = placed.label + widthOf(placed.back, MARK_FONT);
    const double over = std::max(0.0, placed.end - scale.width - LABEL_ROOM);
    for (double* x : {&placed.right, &placed.diamond, &placed.label, &placed.end}) *x -= over;
    placed.left = std::min(placed.left, placed.right);
}

/// Puts each mark onto the first line where it covers no other.
int spread(std::vector<PlacedMark>& marks) {
    std::vector<double> ends;
    std::stable_sort(marks.begin(), marks.end(),
                     [](const PlacedMark& a, const PlacedMark& b) { return a.left < b.left; });
    for (PlacedMark& mark : marks) {
        auto line = std::find_if(ends.begin(), ends.end(), [&](double end) { return end + GAP <= mark.left; });
        if (line == ends.end()) line = ends.insert(ends.end(), 0);
        *line = mark.end;
        mark.line = static_cast<int>(line - ends.begin());
    }
    return static_cast<int>(ends.size());
}

std::string milliseconds(int64_t us) {
    return pixels(static_cast<double>(us) / 1000) + " ms";
}

}  // namespace

Cell layOut(const std::vector<const Mark*>& marks, uint32_t frame, int64_t startUs, const Scale& scale) {
    Cell cell;
    for (const Mark* mark : marks) {
        const bool isBar = mark->isWait();
        PlacedMark placed = isBar ? placeBar(*mark, startUs, scale) : placeRead(*mark, startUs, scale);
        if (!isBar && !mark->isLoud()) {
            placed.left = placed.right = scale.at(mark->endUs - startUs);
            placed.cutRight = placed.left > scale.width;
            placed.left = std::clamp(placed.left, 0.0, scale.width);
        }
        placeDiamond(placed, frame, startUs, scale);
        cell.flickers = cell.flickers || mark->isLoud();
        const bool isLoud = mark->isLoud() || !placed.number.empty();
        (isLoud ? cell.loud : isBar ? cell.waits : cell.values).push_back(placed);
    }
    cell.lines = spread(cell.loud);
    return cell;
}

std::string describe(const Mark& mark, uint32_t frame, int64_t startUs, const std::string& tag) {
    std::string words = "frame " + std::to_string(frame) + ", " + tag + ": ";
    const bool isWait = mark.isWait();
    if (isWait) words += mark.isLong ? "waited " + lengthOf(mark) : "waited";
    if (mark.shape == Mark::TIMED_OUT) words += ", timed out";
    if (mark.shape == Mark::VALUE) words += mark.synchronous ? "delivered" : "set";
    if (mark.shape == Mark::READ) words += "read without a wait";
    if (mark.failed) words += ", nothing was copied";
    if (mark.answer == Answer::FRAME_0) words += ", answered by frame 0";
    if (mark.answer == Answer::FRAME_0 && mark.other != 0) words += " with the value of " + std::to_string(mark.other);
    if (mark.answer == Answer::EARLIER) words += ", answered by frame " + std::to_string(mark.other);
    if (mark.isFallBack() && mark.other != 0) words += ", " + std::to_string(frame - mark.other) + " back";
    if (mark.answer == Answer::ITSELF) words += ", answered by the frame itself";
    words += (isWait ? "; until " : "; at ") + milliseconds(mark.endUs - startUs);
    if (mark.thread != 0) words += "; thread " + std::to_string(mark.thread);
    return words;
}

}  // namespace pslog
