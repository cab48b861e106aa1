// See svg_strip.h.

#include "svg_strip.h"

#include <algorithm>
#include <cmath>

#include "svg_marks.h"

namespace pslog {

namespace {

constexpr double GROUND_HEIGHT = 30;
constexpr double LEAST_TICK = 3;  ///< least width of a tick that can be seen
constexpr double LABEL_DISTANCE = 110;
constexpr double LABEL_ROOM = 50;

std::string counted(uint64_t count, const char* what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

/// The height of a tick. A single flicker is high enough to be seen; more flickers make the tick higher.
double tickHeight(uint64_t count) {
    return count == 0 ? 0 : std::min(GROUND_HEIGHT / 2, 7 + 2 * std::log2(static_cast<double>(count)));
}

class Strip {
public:
    Strip(Canvas& canvas, const Camera& camera, double x, double y, double width)
        : mCanvas(canvas), mCamera(camera), mX(x), mY(y), mBinWidth(width / static_cast<double>(camera.bins.size())) {
        mLabelEvery = labelEvery(mBinWidth / static_cast<double>(uint64_t{1} << camera.binShift));
        mCanvas.rect(Layer::BACKGROUND, x, y, width, GROUND_HEIGHT, color::GROUND);
        mCanvas.rect(Layer::BACKGROUND, x, y + GROUND_HEIGHT / 2, width, 0.5, color::LIGHT);
    }

    void draw() {
        size_t number = 0;
        for (const auto& [bin, tally] : mCamera.bins) {
            drawTicks(number, bin, tally);
            if (isShown(bin)) {
                mCanvas.rect(Layer::LOUD, left(number), mY + GROUND_HEIGHT + 2, std::max(LEAST_TICK, mBinWidth), 4,
                             color::TEXT);
            }
            drawLabel(number, bin);
            ++number;
        }
        mCanvas.text(Layer::QUIET, left(number), mY + GROUND_HEIGHT + 20, std::to_string(mCamera.newest.frame),
                     {color::GREY, 10, false, "end"});
    }

private:
    /// Labels the first frame, and round numbers.
    void drawLabel(size_t number, const RowId& bin) {
        const uint64_t first = uint64_t{bin.frame} << mCamera.binShift, frames = uint64_t{1} << mCamera.binShift;
        uint64_t frame = std::max<uint64_t>(1, first);
        if (number > 0) frame = (frame + mLabelEvery - 1) / mLabelEvery * mLabelEvery;
        if (frame >= first + frames) return;
        const double x = left(number) + mBinWidth * static_cast<double>(frame - first) / static_cast<double>(frames);
        if (x < mLabelsEnd || x + LABEL_ROOM > left(mCamera.bins.size())) return;
        mCanvas.rect(Layer::QUIET, x, mY + GROUND_HEIGHT, 0.7, 9, color::GREY);
        mCanvas.text(Layer::QUIET, x, mY + GROUND_HEIGHT + 20, std::to_string(frame), {color::GREY, 10});
        mLabelsEnd = x + LABEL_ROOM;
    }

    /// The distance of labels in frames.
    static uint64_t labelEvery(double frameWidth) {
        for (uint64_t ten = 1;; ten *= 10) {
            for (const uint64_t times : {1u, 2u, 5u}) {
                if (frameWidth * static_cast<double>(ten * times) >= LABEL_DISTANCE) return ten * times;
            }
        }
    }

    double left(size_t bin) const { return mX + mBinWidth * static_cast<double>(bin); }

    /// Draws time-outs below the middle, fall-backs above.
    void drawTicks(size_t number, const RowId& bin, const Tally& tally) {
        if (tally.timeOuts + tally.fallBacks == 0) return;
        const double width = std::max(LEAST_TICK, mBinWidth), x = left(number), middle = mY + GROUND_HEIGHT / 2;
        const uint64_t first = uint64_t{bin.frame} << mCamera.binShift;
        const uint64_t last = first + (uint64_t{1} << mCamera.binShift) - 1;
        const std::string words = (first == last ? "frame " : "frames ") + std::to_string(first) +
                                  (first == last ? "" : " to " + std::to_string(last)) + ": " + inWords(tally);
        const double up = tickHeight(tally.fallBacks), down = tickHeight(tally.timeOuts);
        if (up > 0) addTitle(mCanvas.rect(Layer::LOUD, x, middle - up, width, up, color::EARLIER), words);
        if (down > 0) addTitle(mCanvas.rect(Layer::LOUD, x, middle, width, down, color::TIMED_OUT), words);
    }

    bool isShown(const RowId& bin) const {
        const auto row = mCamera.rows.lower_bound({bin.stream, bin.frame << mCamera.binShift});
        return row != mCamera.rows.end() && row->first.stream == bin.stream &&
               row->first.frame >> mCamera.binShift == bin.frame;
    }

    Canvas& mCanvas;
    const Camera& mCamera;
    double mX, mY, mBinWidth;
    uint64_t mLabelEvery = 1;
    double mLabelsEnd = 0;  ///< where the room of the last label ends
};

}  // namespace

void drawStrip(Canvas& canvas, const Camera& camera, double x, double y, double width) {
    Strip(canvas, camera, x, y, width).draw();
}

std::string inWords(const Tally& tally) {
    std::string words;
    if (tally.timeOuts > 0) words = counted(tally.timeOuts, "time-out");
    if (tally.fallBacks > 0) words += (words.empty() ? "" : ", ") + counted(tally.fallBacks, "fall-back");
    return words.empty() ? "no flicker" : words;
}

}  // namespace pslog
