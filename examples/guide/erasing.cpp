// What an erase removes.

#include "guide.h"

constexpr Parameter<int> GAIN{0x501, "gain", dynamicKind()};
constexpr Parameter<int> HISTORY{0x502, "history", queueKind<8>()};
constexpr Pipe NEVER_ERASED{3};

int main() {
    const Store store;
    registerOrEnd(GAIN);
    registerOrEnd(HISTORY);

    // every frame calls erase with its own id; the calls of the first seven frames erase nothing
    for (uint32_t frame = 1; frame <= 100; ++frame) {
        setValue(GAIN, Frame{frame}, static_cast<int>(frame));
        if (frame % 20 == 0) setValue(HISTORY, Frame{frame}, static_cast<int>(frame));
        CLAIM(eraseFrames(CAMERA, PIPE, Frame{frame}) == Result::OK);
        CLAIM(frame > 7 || valueOf(GAIN, Frame{1}) == 1);
    }
    CLAIM(valueOf(GAIN, Frame{95}) == 95);
    CLAIM(valueOf(GAIN, Frame{94}) == 94);
    CLAIM(valueOf(GAIN, Frame{50}) == 94);

    // an ordinary erase removes nothing of a queue
    CLAIM(valueOf(HISTORY, Frame{20}) == 20);

    // in a pipe that is never erased the newest 300 values are kept
    int got = 0;
    CLAIM(GAIN.set(CAMERA, NEVER_ERASED, FRAME_0, -1) == Result::OK);
    for (int i = 1; i <= 400; ++i) {
        CLAIM(GAIN.set(CAMERA, NEVER_ERASED, Frame{static_cast<uint32_t>(i)}, i) == Result::OK);
    }
    CLAIM(GAIN.get(CAMERA, NEVER_ERASED, Frame{101}, got) == Result::OK && got == 101);
    CLAIM(GAIN.get(CAMERA, NEVER_ERASED, Frame{100}, got) == Result::OK && got == -1);

    // erasing everything saves the newest value of each tag to frame 0; after that, frame ids may start at 1 again
    CLAIM(eraseFrames(CAMERA, PIPE, LATEST) == Result::OK);
    CLAIM(valueOf(GAIN, FRAME_0) == 100);
    CLAIM(valueOf(HISTORY, FRAME_0) == 100);
    setValue(GAIN, Frame{1}, 11);
    CLAIM(valueOf(GAIN, Frame{1}) == 11);
}
