// Each frame's camera metadata, and which frame answers for a frame that has none.

#include <cstring>

#include "tests/store_fixture.h"

namespace {

using zarn::ParamSet;

class Metadata : public StoreTest {
protected:
    static void store(uint32_t frame, const char* text) {
        camera_metadata* metadata = host::makeMetadata(text, std::strlen(text));
        EXPECT_EQ(ParamSet::setMetadata(kCam, frame, metadata), PS_OK);
        free_camera_metadata(metadata);
    }
    static std::string read(uint32_t frame) {
        const camera_metadata* metadata = ParamSet::getMetadata(kCam, frame);
        if (metadata == nullptr) return "none";
        return std::string(reinterpret_cast<const char*>(host::metadataBytes(metadata)), host::metadataSize(metadata));
    }
};

TEST_F(Metadata, NewestEarlierFrameAnswersElseFrameZero) {
    EXPECT_EQ(read(10), "none");
    store(20, "twenty");
    store(10, "ten");
    store(0, "standing");
    EXPECT_EQ(read(5), "standing");
    EXPECT_EQ(read(10), "ten");
    EXPECT_EQ(read(15), "ten");
    EXPECT_EQ(read(THE_LAST), "twenty");
    erasePs(kCam, 1, 100);
    EXPECT_EQ(read(15), "ten") << "another pipe's erase does not reach it";
    EXPECT_EQ(erasePs(kCam, 0, 24), PS_OK);
    EXPECT_EQ(read(15), "standing") << "the erase point is 18";
    store(18, "late");
    EXPECT_EQ(read(19), "late") << "stored in frame 0, and no frame at or before 19 is listed";
    EXPECT_EQ(read(20), "twenty");
}

TEST_F(Metadata, FramesOwnRecordIsCopiedBeforeItIsFreed) {
    store(10, "kept");
    takeLog();
    EXPECT_EQ(ParamSet::setMetadata(kCam, 10, ParamSet::getMetadata(kCam, 10)), PS_OK);
    EXPECT_EQ(countLogged("5 operator(): free_camera_metadata mCamID:0,mFrameID:10"), 1u);
    EXPECT_EQ(read(10), "kept");
    EXPECT_EQ(host::liveMetadata(), 1u);
    EXPECT_EQ(checkpoints(METADATA_TAG, 0), (std::vector<uint32_t>{10, 10}));
}

}  // namespace
