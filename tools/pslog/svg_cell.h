// Where the marks of one frame lie in the lane of one tag.
//
// What flickers has lines of its own, so many that none of it covers another: a bar for a wait that timed out, then a
// diamond for an answer that was not the frame's own, then how many frames it was off. So has a wait that the scale
// cuts off, with its length in numbers. Values and ordinary waits share a line beneath.

#ifndef PSLOG_SVG_CELL_H
#define PSLOG_SVG_CELL_H

#include <string>
#include <vector>

#include "timeline.h"

namespace pslog {

/// What a lane's width stands for.
struct Scale {
    int64_t leadMs = 0;  ///< before the frame's start
    int64_t spanMs = 1;  ///< and after
    double width = 100;

    double lengthOf(int64_t us) const {
        return static_cast<double>(us) * width / (static_cast<double>(leadMs + spanMs) * 1000);
    }
    /// Of a time since the frame's start.
    double at(int64_t us) const { return lengthOf(us + leadMs * 1000); }
};

constexpr double MARK_FONT = 10.5;
constexpr double DIAMOND = 5;      ///< half its width
constexpr double POINT = 6;        ///< the point of a bar that is cut off
constexpr double LABEL_ROOM = 46;  ///< behind a lane, for what stands behind the last bar

/// All numbers are pixels from the left of the lane.
struct PlacedMark {
    const Mark* mark = nullptr;
    double left = 0, right = 0;  ///< of the bar, with its points
    bool cutLeft = false, cutRight = false;
    std::string number;   ///< in the bar
    double diamond = -1;  ///< its middle; -1 if there is none
    double label = -1;    ///< where the text behind the diamond begins
    std::string back;     ///< this text
    double end = 0;       ///< of all
    int line = 0;
};

struct Cell {
    std::vector<PlacedMark> values;
    std::vector<PlacedMark> waits;
    std::vector<PlacedMark> loud;
    int lines = 0;  ///< of what is loud
    bool flickers = false;
};

/// @param marks  of this lane
Cell layOut(const std::vector<const Mark*>& marks, uint32_t frame, int64_t startUs, const Scale& scale);

/// What is told where the reader points at the mark.
std::string describe(const Mark& mark, uint32_t frame, int64_t startUs, const std::string& tag);

}  // namespace pslog

#endif  // PSLOG_SVG_CELL_H
