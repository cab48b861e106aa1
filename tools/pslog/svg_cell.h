// Where the marks of one frame lie in the lane of one tag.
//
// The mark of a flicker is a bar for a wait that timed out, or a diamond for an answer that was not the frame's own,
// with the number of frames that it was off. Marks that would cover one another are placed on different lines. These
// lines also have the waits that are longer than the scale, with their length as a number. Values and ordinary waits
// share one line beneath.

#ifndef PSLOG_SVG_CELL_H
#define PSLOG_SVG_CELL_H

#include <string>
#include <vector>

#include "timeline.h"

namespace pslog {

/// The range of time that a lane's width represents.
struct Scale {
    int64_t leadMs = 0;  ///< shown before the frame's start
    int64_t spanMs = 1;  ///< shown after it
    double width = 100;

    double lengthOf(int64_t us) const {
        return static_cast<double>(us) * width / (static_cast<double>(leadMs + spanMs) * 1000);
    }
    /// The position of a time since the frame's start.
    double at(int64_t us) const { return lengthOf(us + leadMs * 1000); }
};

constexpr double MARK_FONT = 10.5;
constexpr double DIAMOND = 5;      ///< half its width
constexpr double POINT = 6;        ///< length of the pointed end of a bar that is cut off
constexpr double LABEL_ROOM = 46;  ///< space after a lane for the label of the last bar

/// Positions are in pixels from the left of the lane.
struct PlacedMark {
    const Mark* mark = nullptr;
    double left = 0, right = 0;  ///< of the bar, including pointed ends
    bool cutLeft = false, cutRight = false;
    std::string number;   ///< text in the bar
    double diamond = -1;  ///< its middle; -1 if there is none
    double label = -1;    ///< where the text after the diamond begins; -1 if there is none
    std::string back;     ///< the text after the diamond: how many frames back
    double end = 0;       ///< right end of the whole mark
    int line = 0;
};

struct Cell {
    std::vector<PlacedMark> values;
    std::vector<PlacedMark> waits;
    std::vector<PlacedMark> loud;
    int lines = 0;  ///< number of lines for flickers
    bool flickers = false;
};

/// @param marks  the marks of this lane
Cell layOut(const std::vector<const Mark*>& marks, uint32_t frame, int64_t startUs, const Scale& scale);

/// The text that is shown when the pointer is over the mark.
std::string describe(const Mark& mark, uint32_t frame, int64_t startUs, const std::string& tag);

}  // namespace pslog

#endif  // PSLOG_SVG_CELL_H
