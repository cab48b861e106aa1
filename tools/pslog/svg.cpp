// The timeline as a picture: a row for each frame, a lane for each tag. All lanes of a frame share one clock, which
// starts with whatever happened to the frame first, so that a row reads as the frame's way through the pipeline.

#include <algorithm>
#include <pugixml.hpp>

#include "names.h"
#include "timeline.h"

namespace pslog {

namespace {

constexpr int LANE_WIDTH = 170;
constexpr int LANE_GAP = 14;
constexpr int LEFT = 86;
constexpr int HEADER_HEIGHT = 46;
constexpr int LEGEND_HEIGHT = 64;
constexpr int LEAST_WIDTH = 760;

struct Style {
    const char* color;
    const char* words;
};
constexpr Style STYLES[] = {{"#4a86c8", "wait"},
                            {"#d0342c", "wait that timed out"},
                            {"#1e8a3c", "value set or delivered"},
                            {"#e08a00", "read answered by an earlier frame"},
                            {"#8e44ad", "read answered by frame 0"}};

/// Keeps the library's own use of streams out, which ties it to one standard library.
class Writer : public pugi::xml_writer {
public:
    explicit Writer(std::ostream& out) : mOut(out) {}
    void write(const void* data, size_t size) override {
        mOut.write(static_cast<const char*>(data), static_cast<std::streamsize>(size));
    }

private:
    std::ostream& mOut;
};

class Picture {
public:
    Picture(const Timeline& timeline, const Interpreter& log) : mTimeline(timeline), mLog(log) {
        mSvg = mDocument.append_child("svg");
        mSvg.append_attribute("xmlns") = "http://www.w3.org/2000/svg";
        size_t most = 1;
        for (const auto& [cam, rows] : timeline.cameras()) most = std::max(most, rows.size());
        mRowHeight = most <= 60 ? 20 : most <= 200 ? 10 : 5;
        mScaleMs = scale();
    }

    void draw() {
        size_t lanes = 0;
        for (const auto& [cam, rows] : mTimeline.cameras()) lanes = std::max(lanes, mTimeline.lanesOf(cam).size());
        mWidth = std::max(LEAST_WIDTH, LEFT + static_cast<int>(lanes) * (LANE_WIDTH + LANE_GAP) + 10);
        pugi::xml_node paper = shape("rect", "#ffffff");
        drawLegend();
        for (const auto& [cam, rows] : mTimeline.cameras()) drawCamera(cam, rows);
        mSvg.append_attribute("width") = mWidth;
        mSvg.append_attribute("height") = mY + 20;
        mSvg.append_attribute("font-family") = "sans-serif";
        mSvg.append_attribute("font-size") = 12;
        place(paper, 0, 0, mWidth, mY + 20);
    }

    void write(std::ostream& out) const {
        Writer writer(out);
        mDocument.save(writer, " ");
    }

private:
    pugi::xml_node shape(const char* element, const char* color) {
        pugi::xml_node node = mSvg.append_child(element);
        node.append_attribute("fill") = color;
        return node;
    }

    static void place(pugi::xml_node node, double x, double y, double width, double height) {
        put(node, "x", x);
        put(node, "y", y);
        put(node, "width", width);
        put(node, "height", height);
    }

    /// With no more digits than can be seen.
    static void put(pugi::xml_node node, const char* attribute, double value) {
        node.append_attribute(attribute).set_value(value, 7);
    }

    pugi::xml_node text(double x, double y, const std::string& words, const char* color = "#333333") {
        pugi::xml_node node = shape("text", color);
        put(node, "x", x);
        put(node, "y", y);
        node.text() = words.c_str();
        return node;
    }

    /// A round number of milliseconds that nearly all of what is drawn fits into.
    int scale() const {
        std::vector<int64_t> ends;
        for (const auto& [cam, rows] : mTimeline.cameras()) {
            for (const auto& [frame, row] : rows) {
                for (const auto& [key, marks] : row.lanes) {
                    for (const Mark& mark : marks) ends.push_back((mark.endUs - row.startUs) / 1000);
                }
            }
        }
        if (ends.empty()) return 10;
        std::sort(ends.begin(), ends.end());
        const int64_t wanted = ends[(ends.size() - 1) * 98 / 100];
        int64_t round = 4;
        for (const int64_t least :
             {10, 20, 40, 60, 100, 160, 200, 300, 400, 600, 1000, 2000, 4000, 10000, 20000, 40000, 100000}) {
            round = least;
            if (round > wanted) break;
        }
        return static_cast<int>(round);
    }

    void drawLegend() {
        text(10, 20, "What passed through the parameter store: a row for each frame, a lane for each tag")
            .append_attribute("font-weight") = "bold";
        text(10, 38,
             std::string("Each lane runs from 0 to ") + std::to_string(mScaleMs) +
                 " ms after the first that happened to the frame" +
                 (mLog.hasTimes() ? "." : "; the log has no times, they are the least that the waits allow."),
             "#666666");
        double x = 10;
        for (size_t i = 0; i < std::size(STYLES); ++i) {
            drawMark(Mark::Shape(i), x, x + 22, LEGEND_HEIGHT - 17, 12, 3);
            text(x + 28, LEGEND_HEIGHT - 7, STYLES[i].words);
            x += 60 + 6.2 * static_cast<double>(std::string_view(STYLES[i].words).size());
        }
        mY = LEGEND_HEIGHT + 8;
    }

    void drawCamera(int64_t cam, const std::map<uint32_t, FrameRow>& rows) {
        const std::vector<Key> lanes = mTimeline.lanesOf(cam);
        const size_t rowsPerHeader = static_cast<size_t>(1000 / mRowHeight);
        size_t left = rows.size();
        size_t drawn = 0;
        for (const auto& [frame, row] : rows) {
            if (drawn > 0 && drawn % rowsPerHeader == 0) mY += 16;
            if (drawn % rowsPerHeader == 0) drawHeader(cam, lanes, std::min(left, rowsPerHeader));
            drawRow(frame, row, lanes, drawn);
            ++drawn;
            --left;
        }
        mY += 10;
    }

    double laneX(size_t lane) const { return LEFT + static_cast<double>(lane) * (LANE_WIDTH + LANE_GAP); }

    void drawHeader(int64_t cam, const std::vector<Key>& lanes, size_t rows) {
        text(10, mY + 16, "camera " + std::to_string(cam)).append_attribute("font-weight") = "bold";
        text(10, mY + 40, "frame", "#666666");
        const double top = mY + HEADER_HEIGHT;
        const double height = static_cast<double>(rows) * mRowHeight;
        for (size_t i = 0; i < lanes.size(); ++i) {
            const double x = laneX(i);
            text(x, mY + 16, shortened(nameOf(lanes[i].tag, mLog.tags()))).append_attribute("font-weight") = "bold";
            text(x, mY + 30, "pipe " + std::to_string(lanes[i].pipe) + ", tag " + std::to_string(lanes[i].tag),
                 "#666666");
            place(shape("rect", "#f4f5f7"), x, top, LANE_WIDTH, height);
            for (int part = 0; part <= 4; ++part) {
                const double tick = x + LANE_WIDTH * part / 4.0;
                place(shape("rect", "#d5d8dc"), tick, top - 3, 0.7, height + 3);
                if (part % 2 != 0) continue;
                const std::string ms = std::to_string(mScaleMs * part / 4) + (part == 4 ? " ms" : "");
                pugi::xml_node number = text(tick, top - 5, ms, "#888888");
                number.append_attribute("font-size") = 9;
                if (part > 0) number.append_attribute("text-anchor") = part == 4 ? "end" : "middle";
            }
        }
        mY += HEADER_HEIGHT;
    }

    static std::string shortened(const std::string& name) {
        constexpr size_t MOST = 24;
        return name.size() <= MOST ? name : name.substr(0, MOST - 1) + "~";
    }

    void drawRow(uint32_t frame, const FrameRow& row, const std::vector<Key>& lanes, size_t index) {
        const uint32_t every = mRowHeight >= 20 ? 1 : mRowHeight >= 10 ? 5 : 10;
        if (frame % every == 0 || index == 0) {
            text(LEFT - 10, mY + mRowHeight / 2.0 + 4, std::to_string(frame), "#666666")
                .append_attribute("text-anchor") = "end";
            place(shape("rect", "#e3e5e8"), LEFT - 6, mY, mWidth - LEFT - 4, 0.5);
        }
        for (size_t i = 0; i < lanes.size(); ++i) {
            const auto cell = row.lanes.find(lanes[i]);
            if (cell == row.lanes.end()) continue;
            std::vector<Mark> marks = cell->second;
            std::stable_sort(marks.begin(), marks.end(),
                             [](const Mark& a, const Mark& b) { return rank(a) < rank(b); });
            for (const Mark& mark : marks) drawCell(frame, row, laneX(i), mark);
            drawBacks(frame, row, laneX(i), marks);
        }
        mY += mRowHeight;
    }

    /// Waits lie below what happens in them.
    static int rank(const Mark& mark) { return mark.shape <= Mark::TIMED_OUT ? 0 : mark.shape == Mark::VALUE ? 1 : 2; }

    double pixelsOf(int64_t us) const { return static_cast<double>(us) * LANE_WIDTH / (mScaleMs * 1000.0); }

    /// How far back the frames are that answered: to the right of all marks, so that it covers none.
    void drawBacks(uint32_t frame, const FrameRow& row, double x, const std::vector<Mark>& marks) {
        constexpr int WORD_WIDTH = 16;
        std::string words;
        double left = 0;
        double width = 0;
        for (const Mark& mark : marks) {
            left = std::max(left, pixelsOf(mark.endUs - row.startUs) + 8);
            const std::string word = "\u2212" + std::to_string(frame - mark.other) + " ";
            if (mark.shape != Mark::EARLIER || words.find(word) != std::string::npos) continue;
            words += word;
            width += WORD_WIDTH;
        }
        if (words.empty() || mRowHeight < 20 || left + width > LANE_WIDTH) return;
        text(x + left, mY + mRowHeight - 6, words, "#8a5500").append_attribute("font-size") = 10;
    }

    void drawCell(uint32_t frame, const FrameRow& row, double x, const Mark& mark) {
        const double from = std::min(LANE_WIDTH - 2.0, pixelsOf(mark.startUs - row.startUs));
        const double to = std::min<double>(LANE_WIDTH, pixelsOf(mark.endUs - row.startUs));
        pugi::xml_node node = drawMark(mark.shape, x + from, x + to, mY + 1, mRowHeight - 2, mRowHeight >= 20 ? 3 : 2);
        std::string words = "frame " + std::to_string(frame) + ": " + STYLES[mark.shape].words;
        if (mark.shape == Mark::EARLIER) words += ", " + std::to_string(mark.other);
        if (mark.endUs > mark.startUs) words += ", " + std::to_string((mark.endUs - mark.startUs) / 1000) + " ms";
        words += ", at " + std::to_string((mark.startUs - row.startUs) / 1000) + " ms";
        node.append_child("title").text() = words.c_str();
    }

    pugi::xml_node drawMark(Mark::Shape kind, double from, double to, double y, double height, double thickness) {
        pugi::xml_node node = shape(kind <= Mark::VALUE ? "rect" : "path", STYLES[kind].color);
        if (kind == Mark::VALUE) {
            place(node, from - thickness / 2, y, thickness, height);
        } else if (kind <= Mark::TIMED_OUT) {
            place(node, from, y, std::max(1.0, to - from), height);
            node.append_attribute("fill-opacity") = 0.75;
            if (kind == Mark::TIMED_OUT && height >= 6) drawCross(to, y + height / 2);
        } else {
            const double r = std::min(height, 10.0) / 2;
            const double middle = y + height / 2;
            node.append_attribute("d") = ("M" + std::to_string(from - r) + " " + std::to_string(middle) + "l" +
                                          std::to_string(r) + " " + std::to_string(-r) + "l" + std::to_string(r) + " " +
                                          std::to_string(r) + "l" + std::to_string(-r) + " " + std::to_string(r) + "z")
                                             .c_str();
        }
        return node;
    }

    void drawCross(double x, double y) {
        pugi::xml_node cross = mSvg.append_child("path");
        const std::string at = std::to_string(x - 9) + " " + std::to_string(y - 3);
        cross.append_attribute("d") = ("M" + at + "l6 6m0 -6l-6 6").c_str();
        cross.append_attribute("stroke") = "#ffffff";
        cross.append_attribute("stroke-width") = 1.6;
    }

    const Timeline& mTimeline;
    const Interpreter& mLog;
    pugi::xml_document mDocument;
    pugi::xml_node mSvg;
    double mY = 0;
    int mRowHeight = 20;
    int mScaleMs = 10;
    int mWidth = 0;
};

}  // namespace

void writeSvg(std::ostream& out, const Timeline& timeline, const Interpreter& log) {
    Picture picture(timeline, log);
    picture.draw();
    picture.write(out);
}

}  // namespace pslog
