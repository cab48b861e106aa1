// The timeline as a picture. Each camera has a strip with all its frames, and below it a row for each chosen frame and
// a lane for each tag. All lanes of a row share one clock, which starts with the frame's first value. So a row shows
// the frame's way through the pipeline.

#include <algorithm>
#include <cmath>

#include "flicker_text.h"
#include "names.h"
#include "svg_canvas.h"
#include "svg_cell.h"
#include "svg_marks.h"
#include "svg_strip.h"
#include "timeline.h"

namespace pslog {

namespace {

constexpr double LEAST_WIDTH = 1230;  ///< width of the legend
constexpr double GOOD_WIDTH = 1400;   ///< width of a screen; if the lanes do not fit into it, they get LEAST_LANE
constexpr double LEFT = 76;
constexpr double RIGHT = 10;
constexpr double LANE_GAP = 8;
constexpr double LEAST_LANE = 150;
constexpr double MOST_LANE = 236;
constexpr double OTHERS_WIDTH = 170;
constexpr size_t MOST_LANES = 24;       ///< keeps the picture below a width of 4000
constexpr size_t MOST_QUIET_LANES = 8;  ///< lanes without flickers are added up to this number of lanes
constexpr double LEAST_ROW = 14;
constexpr double HEADER_HEIGHT = 78;
constexpr double HEADER_EVERY = 900;

const char* colorOf(const Tally& tally) {
    return tally.timeOuts > 0 ? color::TIMED_OUT : tally.fallBacks > 0 ? color::EARLIER_TEXT : color::GREY;
}

/// Rounds up to a round number.
int64_t roundUp(int64_t ms) {
    for (int64_t ten = 10;; ten *= 10) {
        for (const int64_t times : {2, 3, 4, 6, 8, 10}) {
            if (ten * times >= ms) return ten * times;
        }
    }
}

int64_t quantile(std::vector<int64_t>& values, size_t percent) {
    if (values.empty()) return 0;
    const auto nth = values.begin() + static_cast<std::ptrdiff_t>((values.size() - 1) * percent / 100);
    std::nth_element(values.begin(), nth, values.end());
    return *nth;
}

/// The scale: round numbers of milliseconds into which nearly all marks fit.
Scale scaleOf(const Timeline& timeline) {
    constexpr int64_t MOST_MS = 1000000;
    std::vector<int64_t> quiet, loud, leads;
    for (const auto& [cam, camera] : timeline.cameras()) {
        for (const auto& [id, row] : camera.rows) {
            const int64_t startUs = row.startUs();
            for (const Mark& mark : row.marks) {
                (mark.isLoud() ? loud : quiet).push_back((mark.endUs - startUs) / 1000 + 1);
                if (mark.shape != Mark::VALUE) leads.push_back((startUs - mark.startUs) / 1000);
            }
        }
    }
    Scale scale;
    scale.spanMs = roundUp(std::min(MOST_MS, std::max(quantile(quiet, 97), quantile(loud, 90))));
    scale.leadMs = std::clamp(quantile(leads, 90), scale.spanMs / 8, scale.spanMs / 2);
    return scale;
}

/// An example of a mark, for the legend.
Mark exampleOf(Mark::Shape shape, Answer answer, int64_t startUs, int64_t endUs) {
    Mark mark{};
    mark.shape = shape;
    mark.answer = answer;
    mark.flickers = shape == Mark::READ;
    mark.other = answer == Answer::EARLIER ? 1 : 0;
    mark.startUs = startUs;
    mark.endUs = endUs;
    return mark;
}

class Picture {
public:
    Picture(const Timeline& timeline, const Interpreter& log)
        : mTimeline(timeline), mLog(log), mWords(timeline.finder(), log), mScale(scaleOf(timeline)) {}

    void draw() {
        size_t lanes = 1;
        bool hasOthers = false;
        for (const auto& [cam, camera] : mTimeline.cameras()) {
            const Lanes chosen = lanesOf(camera);
            lanes = std::max(lanes, chosen.drawn.size());
            hasOthers = hasOthers || !chosen.others.empty();
        }
        const double room = GOOD_WIDTH - LEFT - RIGHT - (hasOthers ? OTHERS_WIDTH : 0);
        mLaneWidth = std::clamp(std::floor(room / static_cast<double>(lanes)), LEAST_LANE, MOST_LANE);
        mScale.width = mLaneWidth - LABEL_ROOM - LANE_GAP;
        mWidth = LEFT + static_cast<double>(lanes) * mLaneWidth + RIGHT + (hasOthers ? OTHERS_WIDTH : 0);
        mWidth = std::max(LEAST_WIDTH, mWidth);
        drawLegend();
        for (const auto& [cam, camera] : mTimeline.cameras()) drawCamera(cam, camera);
    }

    void write(std::ostream& out) { mCanvas.write(out, mWidth, mY + 16); }

private:
    /// The lanes that are drawn, in the order of pipes and tags, and those that are only counted.
    struct Lanes {
        std::vector<size_t> drawn;
        std::vector<size_t> others;
    };

    Lanes lanesOf(const Camera& camera) const {
        std::map<size_t, std::pair<bool, size_t>> found;  // lane: whether it flickers here, and its number of waits
        for (const auto& [id, row] : camera.rows) {
            for (const Mark& mark : row.marks) {
                found[mark.lane].first |= mark.isLoud();
                found[mark.lane].second += mark.shape == Mark::VALUE ? 0 : 1;
            }
        }
        std::vector<size_t> order;
        for (const auto& [lane, what] : found) order.push_back(lane);
        std::stable_sort(order.begin(), order.end(), [&](size_t a, size_t b) { return found[a] > found[b]; });
        const auto flickering = static_cast<size_t>(
            std::count_if(order.begin(), order.end(), [&](size_t lane) { return found[lane].first; }));
        const size_t drawn = std::min(order.size(), std::clamp(flickering, MOST_QUIET_LANES, MOST_LANES));
        const auto middle = order.begin() + static_cast<std::ptrdiff_t>(drawn);
        Lanes lanes{{order.begin(), middle}, {middle, order.end()}};
        std::sort(lanes.drawn.begin(), lanes.drawn.end(),
                  [&](size_t a, size_t b) { return lane(a).key < lane(b).key; });
        return lanes;
    }

    const Lane& lane(size_t number) const { return mTimeline.lanes()[number]; }
    double laneX(size_t column) const { return LEFT + static_cast<double>(column) * mLaneWidth; }
    std::string tagOf(size_t number) const { return nameOf(lane(number).key.tag, mLog.tags()); }

    void drawLegend() {
        mCanvas.text(Layer::QUIET, 10, 22, "A row for each frame, a lane for each tag", {color::TEXT, 14, true});
        static const std::pair<Mark, const char*> ENTRIES[] = {
            {exampleOf(Mark::TIMED_OUT, Answer::ITSELF, 0, 30), "wait that timed out"},
            {exampleOf(Mark::READ, Answer::EARLIER, 5, 5), "value of an earlier frame, N back"},
            {exampleOf(Mark::READ, Answer::FRAME_0, 5, 5), "value of frame 0"},
            {exampleOf(Mark::WAIT, Answer::ITSELF, 0, 30), "wait"},
            {exampleOf(Mark::VALUE, Answer::NOT_KNOWN, 15, 15), "value set or delivered"}};
        double x = 10;
        for (const auto& [mark, words] : ENTRIES) {
            Scale scale;
            scale.spanMs = 1;
            const double y = mark.isLoud() ? 32 : 20;
            scale.width = 1000;
            drawCell(mCanvas, layOut({&mark}, 2, 0, scale), {x, y, LINE_HEIGHT + QUIET_HEIGHT, 2, 0, "example"});
            mCanvas.text(Layer::QUIET, x + 38, 44, words, {color::TEXT, 12});
            x += 62 + widthOf(words, 12) * 0.9;
        }
        const std::string clock =
            "A row's clock starts with the frame's first value. A bar with a pointed end is cut off; its "
            "number is the whole length. Point at a mark for details.";
        mCanvas.text(
            Layer::QUIET, 10, 68,
            clock + (mLog.hasTimes() ? "" : " The log has no times: these are made up, as short as the waits allow."),
            {color::GREY, 12});
        mY = 84;
    }

    void drawCamera(int64_t cam, const Camera& camera) {
        const bool isWhole = camera.rows.size() >= camera.frames;
        const std::string frames = std::to_string(camera.frames) + (camera.frames == 1 ? " frame" : " frames");
        mCanvas.text(Layer::QUIET, 10, mY + 14,
                     "camera " + std::to_string(cam) + ": " + frames + ", " + inWords(camera.tally),
                     {colorOf(camera.tally), 14, true});
        mY += 26;
        if (!isWhole) {
            mCanvas.text(Layer::QUIET, 10, mY + 11, "fall-backs", {color::EARLIER_TEXT, 11});
            mCanvas.text(Layer::QUIET, 10, mY + 26, "time-outs", {color::TIMED_OUT, 11});
            mCanvas.text(Layer::QUIET, 10, mY + 40, "shown", {color::GREY, 11});
            drawStrip(mCanvas, camera, LEFT, mY, mWidth - LEFT - RIGHT);
            mY += STRIP_HEIGHT;
        }
        drawRows(camera);
        mY += 14;
    }

    void drawRows(const Camera& camera) {
        if (camera.rows.empty()) return;
        const Lanes lanes = lanesOf(camera);
        double headerAt = -HEADER_EVERY;
        RowId last{0, 0};
        for (const auto& [id, row] : camera.rows) {
            if (mY - headerAt >= HEADER_EVERY) {
                headerAt = mY;
                drawHeader(lanes);
            }
            drawFold(last, id);
            drawRow(id.frame, row, lanes);
            last = id;
        }
        for (const RowId& end : camera.ends) {
            if (end.stream == last.stream && end.frame == last.frame + 1) drawNote("the stream ends here");
        }
        if (last < camera.newest) drawFold(last, {camera.newest.stream, camera.newest.frame + 1});
    }

    void drawNote(const std::string& words) {
        mCanvas.line(Layer::BACKGROUND, "M" + pixels(LEFT) + " " + pixels(mY + 8) + "H" + pixels(mWidth - RIGHT),
                     color::GREY, 0.7);
        mCanvas.rect(Layer::BACKGROUND, LEFT + 20, mY, widthOf(words, 11) + 8, 16, "#ffffff");
        mCanvas.text(Layer::QUIET, LEFT + 24, mY + 12, words, {color::GREY, 11});
        mY += 18;
    }

    /// Draws a note that says how many frames between two rows are not shown.
    void drawFold(const RowId& before, const RowId& next) {
        if (next.stream != before.stream) return drawNote("the camera starts again");
        const uint32_t folded = next.frame - before.frame - 1;
        if (folded == 0) return;
        drawNote(std::to_string(folded) + (folded == 1 ? " frame" : " frames") + " not shown");
    }

    void drawHeader(const Lanes& lanes) {
        mCanvas.text(Layer::QUIET, LEFT - 14, mY + HEADER_HEIGHT - 5, "frame", {color::GREY, 11, false, "end"});
        for (size_t column = 0; column < lanes.drawn.size(); ++column) {
            const Lane& drawn = lane(lanes.drawn[column]);
            const double x = laneX(column), room = mLaneWidth - LANE_GAP;
            const std::string name = tagOf(lanes.drawn[column]), shown = fitted(name, 12.5, room);
            const pugi::xml_node title = mCanvas.text(Layer::QUIET, x, mY + 14, shown, {color::TEXT, 12.5, true});
            if (shown != name) addTitle(title, name);
            mCanvas.text(Layer::QUIET, x, mY + 28,
                         "pipe " + std::to_string(drawn.key.pipe) + ", tag " + std::to_string(drawn.key.tag),
                         {color::GREY, 11});
            drawTally(x, mY + 42, drawn.tally);
            drawTicks(x);
        }
        if (!lanes.others.empty()) {
            const double x = laneX(lanes.drawn.size());
            mCanvas.text(Layer::QUIET, x, mY + 14, std::to_string(lanes.others.size()) + " more tags",
                         {color::TEXT, 12.5, true});
            mCanvas.text(Layer::QUIET, x, mY + 28, "--tag shows them", {color::GREY, 11});
        }
        mY += HEADER_HEIGHT;
    }

    void drawTally(double x, double y, const Tally& tally) {
        if (tally.timeOuts + tally.fallBacks == 0) mCanvas.text(Layer::QUIET, x, y, "no flicker", {color::GREY, 11});
        if (tally.timeOuts > 0) {
            mCanvas.text(Layer::LOUD, x, y, inWords({tally.timeOuts, 0}), {color::TIMED_OUT, 11});
            y += 13;
        }
        if (tally.fallBacks > 0)
            mCanvas.text(Layer::LOUD, x, y, inWords({0, tally.fallBacks}), {color::EARLIER_TEXT, 11});
    }

    void drawTicks(double x) {
        for (const int64_t ms : {int64_t{0}, mScale.spanMs / 2, mScale.spanMs}) {
            mCanvas.text(Layer::QUIET, x + mScale.at(ms * 1000), mY + HEADER_HEIGHT - 5,
                         std::to_string(ms) + (ms == mScale.spanMs ? " ms" : ""), {color::GREY, 9.5, false, "middle"});
        }
    }

    void drawRow(uint32_t frame, const FrameRow& row, const Lanes& lanes) {
        const int64_t startUs = row.startUs();
        std::vector<Cell> cells;
        double height = LEAST_ROW;
        for (const size_t number : lanes.drawn) {
            std::vector<const Mark*> marks;
            for (const Mark& mark : row.marks) {
                if (mark.lane == number) marks.push_back(&mark);
            }
            cells.push_back(layOut(marks, frame, startUs, mScale));
            height = std::max(height, cells.back().lines * LINE_HEIGHT + QUIET_HEIGHT);
        }
        const Tally others = drawnElsewhere(row, lanes);
        if (others.timeOuts + others.fallBacks > 0) height = std::max(height, LINE_HEIGHT + QUIET_HEIGHT);
        drawFrameNumber(frame, row, height);
        std::map<uint64_t, std::string> stories;
        for (const Flicker& flicker : row.flickers) stories[flicker.line] = mWords.storyOf(flicker);
        for (size_t column = 0; column < cells.size(); ++column) {
            drawGround(laneX(column), height, cells[column].flickers);
            drawCell(mCanvas, cells[column],
                     {laneX(column), mY, height, frame, startUs, tagOf(lanes.drawn[column]), &stories});
        }
        if (others.timeOuts + others.fallBacks > 0) {
            mCanvas.text(Layer::LOUD, laneX(lanes.drawn.size()), mY + 12, inWords(others), {colorOf(others), 11, true});
        }
        mY += height;
    }

    void drawGround(double x, double height, bool isBad) {
        mCanvas.rect(Layer::BACKGROUND, x, mY, isBad ? mLaneWidth - LANE_GAP : mScale.width, height - 0.7,
                     isBad ? color::TINT : color::GROUND);
        for (const int64_t ms : {int64_t{0}, mScale.spanMs / 2, mScale.spanMs}) {
            mCanvas.rect(Layer::BACKGROUND, x + mScale.at(ms * 1000), mY, 0.7, height,
                         ms == 0 ? "#aab1bb" : color::LIGHT);
        }
    }

    void drawFrameNumber(uint32_t frame, const FrameRow& row, double height) {
        const bool isBad = row.isBad();
        mCanvas.text(isBad ? Layer::LOUD : Layer::QUIET, LEFT - 14, mY + (isBad ? 12 : height - 3.5),
                     std::to_string(frame),
                     {isBad ? color::TIMED_OUT : color::GREY, isBad ? 12.0 : 10.5, isBad, "end"});
    }

    Tally drawnElsewhere(const FrameRow& row, const Lanes& lanes) const {
        Tally tally;
        for (const Mark& mark : row.marks) {
            if (std::find(lanes.others.begin(), lanes.others.end(), mark.lane) == lanes.others.end()) continue;
            tally.add({mark.shape == Mark::TIMED_OUT ? 1u : 0u, mark.isFallBack() ? 1u : 0u});
        }
        return tally;
    }

    const Timeline& mTimeline;
    const Interpreter& mLog;
    FlickerText mWords;
    Canvas mCanvas;
    Scale mScale;
    double mLaneWidth = 0;
    double mWidth = 0;
    double mY = 0;
};

}  // namespace

void writeSvg(std::ostream& out, const Timeline& timeline, const Interpreter& log) {
    Picture picture(timeline, log);
    picture.draw();
    picture.write(out);
}

}  // namespace pslog
