// The strip with all frames of a camera, which shows every flicker.

#ifndef PSLOG_SVG_STRIP_H
#define PSLOG_SVG_STRIP_H

#include "svg_canvas.h"
#include "timeline.h"

namespace pslog {

constexpr double STRIP_HEIGHT = 58;

void drawStrip(Canvas& canvas, const Camera& camera, double x, double y, double width);

/// "1 time-out, 2 fall-backs"
std::string inWords(const Tally& tally);

}  // namespace pslog

#endif  // PSLOG_SVG_STRIP_H
