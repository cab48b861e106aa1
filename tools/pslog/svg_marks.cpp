// See svg_marks.h.

#include "svg_marks.h"

namespace pslog {

namespace {

std::string at(double x, double y) {
    return pixels(x) + " " + pixels(y);
}

std::string titleOf(const Mark& mark, const Place& place) {
    std::string words = describe(mark, place.frame, place.startUs, place.tag);
    if (place.stories == nullptr || !mark.flickers) return words;
    const auto story = place.stories->find(mark.line);
    return story == place.stories->end() ? words : words + "\n" + story->second;
}

/// A bar, with a pointed end where it is cut off.
std::string barWay(const PlacedMark& bar, double x, double y, double height) {
    const double left = x + bar.left, right = x + bar.right;
    const double fromX = left + (bar.cutLeft ? POINT : 0), toX = right - (bar.cutRight ? POINT : 0);
    std::string way = "M" + at(fromX, y) + "L" + at(toX, y);
    if (bar.cutRight) way += "L" + at(right, y + height / 2);
    way += "L" + at(toX, y + height) + "L" + at(fromX, y + height);
    if (bar.cutLeft) way += "L" + at(left, y + height / 2);
    return way + "z";
}

void drawNumber(Canvas& canvas, const PlacedMark& bar, double x, double middle, const char* color) {
    if (bar.number.empty()) return;
    canvas.text(Layer::LOUD, x + bar.left + POINT, middle + 4, bar.number, {color, MARK_FONT});
}

void drawTimeOut(Canvas& canvas, const PlacedMark& bar, const Place& place, double middle) {
    constexpr double HEIGHT = 12;
    constexpr double ARM = 3;
    const pugi::xml_node shape =
        canvas.path(Layer::LOUD, barWay(bar, place.x, middle - HEIGHT / 2, HEIGHT), color::TIMED_OUT);
    addTitle(shape, titleOf(*bar.mark, place));
    const double cross = place.x + bar.right - (bar.cutRight ? POINT : 0) - ARM - 2.5;
    canvas.line(Layer::LOUD,
                "M" + at(cross - ARM, middle - ARM) + "L" + at(cross + ARM, middle + ARM) + "M" +
                    at(cross + ARM, middle - ARM) + "L" + at(cross - ARM, middle + ARM),
                "#ffffff", 1.7);
    drawNumber(canvas, bar, place.x, middle, "#ffffff");
}

void drawWait(Canvas& canvas, const PlacedMark& bar, const Place& place, double middle, double height, Layer layer) {
    const pugi::xml_node shape = canvas.path(layer, barWay(bar, place.x, middle - height / 2, height), color::WAIT);
    addTitle(shape, titleOf(*bar.mark, place));
    drawNumber(canvas, bar, place.x, middle, color::TEXT);
}

void drawDiamond(Canvas& canvas, const PlacedMark& read, const Place& place, double middle) {
    if (read.diamond < 0) return;
    const bool isEarlier = read.mark->answer == Answer::EARLIER;
    const char* const fill = read.mark->failed ? color::TEXT : isEarlier ? color::EARLIER : color::FRAME_0;
    const double x = place.x + read.diamond;
    const pugi::xml_node shape = canvas.path(Layer::LOUD,
                                             "M" + at(x - DIAMOND, middle) + "L" + at(x, middle - DIAMOND) + "L" +
                                                 at(x + DIAMOND, middle) + "L" + at(x, middle + DIAMOND) + "z",
                                             fill);
    addTitle(shape, titleOf(*read.mark, place));
    const pugi::xml_node words = canvas.text(Layer::LOUD, place.x + read.label, middle + 4, read.back,
                                             {isEarlier ? color::EARLIER_TEXT : fill, MARK_FONT, true});
    outline(words, color::TINT);
}

/// A read of an earlier frame's value that is usual for its reader.
void drawOrdinaryRead(Canvas& canvas, const PlacedMark& read, const Place& place) {
    const double x = place.x + read.left, y = place.y + place.height - QUIET_HEIGHT / 2, r = 2.5;
    addTitle(canvas.path(Layer::QUIET,
                         "M" + at(x - r, y) + "L" + at(x, y - r) + "L" + at(x + r, y) + "L" + at(x, y + r) + "z",
                         color::WAIT),
             titleOf(*read.mark, place));
}

/// An arrow head that points up; to the right if the value came after the end of the scale.
void drawValue(Canvas& canvas, const PlacedMark& value, const Place& place) {
    const double x = place.x + value.left, bottom = place.y + place.height - 2, height = QUIET_HEIGHT - 4;
    std::string way =
        "M" + at(x - height / 2, bottom) + "L" + at(x, bottom - height) + "L" + at(x + height / 2, bottom);
    if (value.cutRight) {
        way = "M" + at(x, bottom - height) + "L" + at(x + height, bottom - height / 2) + "L" + at(x, bottom);
    }
    addTitle(canvas.path(Layer::QUIET, way + "z", color::VALUE), titleOf(*value.mark, place));
}

}  // namespace

void drawCell(Canvas& canvas, const Cell& cell, const Place& place) {
    for (const PlacedMark& wait : cell.waits) {
        drawWait(canvas, wait, place, place.y + place.height - QUIET_HEIGHT / 2, 4, Layer::QUIET);
    }
    for (const PlacedMark& value : cell.values) {
        (value.mark->shape == Mark::VALUE ? drawValue : drawOrdinaryRead)(canvas, value, place);
    }
    for (const PlacedMark& loud : cell.loud) {
        const double middle = place.y + LINE_HEIGHT * (loud.line + 0.5) + 0.5;
        if (loud.mark->shape == Mark::TIMED_OUT) drawTimeOut(canvas, loud, place, middle);
        if (loud.mark->shape == Mark::WAIT) {
            drawWait(canvas, loud, place, middle, loud.number.empty() ? 5 : 12, Layer::LOUD);
        }
        drawDiamond(canvas, loud, place, middle);
    }
}

}  // namespace pslog
