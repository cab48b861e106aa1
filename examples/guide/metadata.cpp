// How long metadata lives.

#include <cstring>
#include <string>

#include "guide.h"
#include "platform/host/host_platform.h"

namespace {

void store(uint32_t frame, const char* words) {
    camera_metadata* record = host::makeMetadata(words, std::strlen(words));
    CLAIM(ParamSet::setMetadata(CAMERA.number(), frame, record) == PS_OK);
    free_camera_metadata(record);
}

std::string metadataOf(uint32_t frame) {
    const camera_metadata* record = ParamSet::getMetadata(CAMERA.number(), frame);
    if (record == nullptr) return "none";
    return {reinterpret_cast<const char*>(host::metadataBytes(record)), host::metadataSize(record)};
}

}  // namespace

int main() {
    {
        const Store theStore;

        // the store keeps a copy of its own; a frame without is answered by the newest earlier one
        store(10, "ten");
        store(20, "twenty");
        CLAIM(metadataOf(10) == "ten");
        CLAIM(metadataOf(19) == "ten");
        CLAIM(metadataOf(5) == "none");

        // storing again replaces the copy: a pointer that was got before is dead from here on
        store(20, "twenty again");
        CLAIM(metadataOf(20) == "twenty again");

        // an erase of pipe 0 keeps six frames; what goes is not saved to frame 0
        CLAIM(eraseFrames(CAMERA, Pipe{0}, Frame{26}) == Result::OK);
        CLAIM(metadataOf(20) == "none");
        CLAIM(metadataOf(21) == "none");
        CLAIM(host::liveMetadata() == 0);
        store(21, "twenty-one");
        CLAIM(metadataOf(30) == "twenty-one");
    }
    CLAIM(host::liveMetadata() == 0);
}
