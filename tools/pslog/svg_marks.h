// How marks look: shapes, colours, and the text that a browser shows when the pointer is over a mark.

#ifndef PSLOG_SVG_MARKS_H
#define PSLOG_SVG_MARKS_H

#include <map>
#include <string>

#include "svg_canvas.h"
#include "svg_cell.h"

namespace pslog {

namespace color {
constexpr const char* TEXT = "#22262b";
constexpr const char* GREY = "#6b7280";
constexpr const char* LIGHT = "#dfe3e8";
constexpr const char* GROUND = "#f5f6f8";
constexpr const char* TINT = "#fdecea";  ///< background of a row with a flicker
constexpr const char* WAIT = "#b7c6da";
constexpr const char* VALUE = "#2f8f4e";
constexpr const char* TIMED_OUT = "#d0221b";
constexpr const char* EARLIER = "#e88300";
constexpr const char* EARLIER_TEXT = "#8a4b00";
constexpr const char* FRAME_0 = "#7d2fa5";
}  // namespace color

constexpr double LINE_HEIGHT = 15;   ///< of a line for flickers
constexpr double QUIET_HEIGHT = 10;  ///< of the line for values and ordinary waits

/// Where a cell is drawn, and its frame and tag.
struct Place {
    double x, y;
    double height;
    uint32_t frame;
    int64_t startUs;
    std::string tag;
    const std::map<uint64_t, std::string>* stories =
        nullptr;  ///< stories of the flickers, by their line numbers in the log
};

void drawCell(Canvas& canvas, const Cell& cell, const Place& place);

}  // namespace pslog

#endif  // PSLOG_SVG_MARKS_H
