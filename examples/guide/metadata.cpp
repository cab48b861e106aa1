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

        // the store keeps its own copy; for a frame without metadata the newest earlier frame that has some answers
        store(10, "ten");
        store(20, "twenty");
        CLAIM(metadataOf(10) == "ten");
        CLAIM(metadataOf(19) == "ten");
        CLAIM(metadataOf(5) == "none");

        // storing again replaces the copy: pointers from an earlier getMetadata must not be used any more
        store(20, "twenty again");
        CLAIM(metadataOf(20) == "twenty again");

        // an erase of pipe 0 keeps the metadata of six frames; erased metadata is not saved to frame 0
        CLAIM(eraseFrames(CAMERA, Pipe{0}, Frame{26}) == Result::OK);
        CLAIM(metadataOf(20) == "none");
        CLAIM(metadataOf(21) == "none");
        CLAIM(host::liveMetadata() == 0);
        store(21, "twenty-one");
        CLAIM(metadataOf(30) == "twenty-one");
    }
    CLAIM(host::liveMetadata() == 0);
}
