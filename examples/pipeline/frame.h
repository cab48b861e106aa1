// Pictures: their layout, where they come from, and the buffers that a camera's modules share.

#ifndef PIPELINE_FRAME_H
#define PIPELINE_FRAME_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace pipeline {

/// 8-bit 4:2:0: a luma plane, then two chroma planes of half its width and height, rounded up.
struct FrameFormat {
    uint32_t width = 0;
    uint32_t height = 0;

    size_t lumaSize() const { return size_t{width} * height; }
    size_t chromaSize() const { return size_t{(width + 1) / 2} * ((height + 1) / 2); }
    size_t size() const { return lumaSize() + 2 * chromaSize(); }
};

struct Frame {
    /// Does not touch the memory, so a header that claims a huge format costs nothing.
    explicit Frame(const FrameFormat& frameFormat) : format(frameFormat), bytes(new uint8_t[frameFormat.size()]) {}

    uint8_t* luma() const { return bytes.get(); }
    uint8_t* chroma(int plane) const {
        return bytes.get() + format.lumaSize() + static_cast<size_t>(plane) * format.chromaSize();
    }

    FrameFormat format;
    std::unique_ptr<uint8_t[]> bytes;
    std::string parameters;  ///< from the frame's header line, with the blank before them
};

/// The frame buffers of one camera. A frame-ready value names a buffer by its index, like the handle of a shared buffer
/// on a device. The modules agree only through the store on who may use a buffer, and when.
class FramePool {
public:
    FramePool(const FrameFormat& format, uint32_t count) {
        for (uint32_t i = 0; i < count; ++i) mBuffers.emplace_back(format);
    }

    Frame& at(uint32_t index) { return mBuffers.at(index); }
    uint32_t size() const { return static_cast<uint32_t>(mBuffers.size()); }
    const FrameFormat& format() const { return mBuffers.front().format; }

private:
    std::vector<Frame> mBuffers;
};

/// Where the sensor's pictures come from.
class FrameSource {
public:
    virtual ~FrameSource() = default;

    virtual const FrameFormat& format() const = 0;

    /// The header line of a YUV4MPEG2 stream of these frames, without line end.
    virtual const std::string& header() const = 0;

    /// Fills the next frame; false at the end. Throws std::runtime_error if the frame cannot be read.
    virtual bool read(Frame& frame) = 0;
};

}  // namespace pipeline

#endif  // PIPELINE_FRAME_H
