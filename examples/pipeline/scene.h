// The built-in sensor model: pictures that a fixed camera takes of a scene whose light changes.

#ifndef PIPELINE_SCENE_H
#define PIPELINE_SCENE_H

#include <cstdint>
#include <random>
#include <string>

#include "frame.h"

namespace pipeline {

/// A gradient with a disc that moves in front of it, in a light that changes in steps and in waves, and some noise.
/// Each camera has the same pictures in every run.
class Scene : public FrameSource {
public:
    /// @param fps  frames per second of the stream, used only in its header
    Scene(uint32_t camera, double fps);

    const FrameFormat& format() const override { return mFormat; }
    const std::string& header() const override { return mHeader; }
    bool read(Frame& frame) override;

    /// Light of a frame; 1 is a well lit scene.
    static double lightOf(uint32_t frame);

private:
    void paintLuma(const Frame& frame, double light);
    void paintChroma(const Frame& frame, double light) const;

    FrameFormat mFormat{320, 240};
    std::string mHeader;
    uint32_t mCamera;
    uint32_t mFrames = 0;  ///< read so far
    std::minstd_rand mNoise;
};

}  // namespace pipeline

#endif  // PIPELINE_SCENE_H
