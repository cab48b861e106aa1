// See scene.h. Limited range: black is 16, and neutral chroma 128.

#include "scene.h"

#include <algorithm>
#include <cmath>

namespace pipeline {

namespace {

constexpr uint32_t STEP_FRAMES = 75;
constexpr double LIGHT_STEPS[] = {0.4, 1.3, 0.7, 0.25};
constexpr double SWING = 0.12;
constexpr double SWING_FRAMES = 240;
constexpr double PI = 3.14159265358979323846;
constexpr double DISC_RADIUS = 30;

uint8_t clip(double value, double min, double max) {
    return static_cast<uint8_t>(std::lround(std::clamp(value, min, max)));
}

}  // namespace

Scene::Scene(uint32_t camera, double fps)
    : mHeader("YUV4MPEG2 W" + std::to_string(mFormat.width) + " H" + std::to_string(mFormat.height) + " F" +
              std::to_string(std::lround(fps * 1000)) + ":1000 Ip A1:1 C420"),
      mCamera(camera),
      mNoise(camera + 1) {}

double Scene::lightOf(uint32_t frame) {
    const double step = LIGHT_STEPS[frame / STEP_FRAMES % std::size(LIGHT_STEPS)];
    return step * (1 + SWING * std::sin(2 * PI * frame / SWING_FRAMES));
}

bool Scene::read(Frame& frame) {
    const double light = lightOf(mFrames);
    paintLuma(frame, light);
    paintChroma(frame, light);
    ++mFrames;
    return true;
}

void Scene::paintLuma(const Frame& frame, double light) {
    const double angle = 2 * PI * (mFrames + 20.0 * mCamera) / 100;
    const double discX = mFormat.width * (0.5 + 0.35 * std::cos(angle));
    const double discY = mFormat.height * (0.5 + 0.35 * std::sin(angle));
    uint8_t* pixel = frame.luma();
    for (uint32_t y = 0; y < mFormat.height; ++y) {
        for (uint32_t x = 0; x < mFormat.width; ++x) {
            const double dx = x - discX;
            const double dy = y - discY;
            const bool inDisc = dx * dx + dy * dy < DISC_RADIUS * DISC_RADIUS;
            const double surface = inDisc ? 190 : 30 + 90.0 * x / mFormat.width + 40.0 * y / mFormat.height;
            const double noise = static_cast<double>(mNoise() >> 8 & 7) - 3.5;
            *pixel++ = clip(16 + surface * light + noise, 16, 235);
        }
    }
}

void Scene::paintChroma(const Frame& frame, double light) const {
    const uint32_t width = (mFormat.width + 1) / 2;
    const uint32_t height = (mFormat.height + 1) / 2;
    for (uint32_t y = 0; y < height; ++y) {
        for (uint32_t x = 0; x < width; ++x) {
            frame.chroma(0)[y * width + x] = clip(128 + light * (30.0 - 60.0 * x / width), 16, 240);
            frame.chroma(1)[y * width + x] = clip(128 + light * (30.0 - 60.0 * y / height), 16, 240);
        }
    }
}

}  // namespace pipeline
