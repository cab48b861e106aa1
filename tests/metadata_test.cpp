// Each frame's camera metadata, and who answers for a frame that has none.

#include <cstring>

#include "tests/store_fixture.h"

namespace {

using zarn::ParamSet;

class Metadata : public StoreTest {
protected:
    void SetUp() override {
        StoreTest::SetUp();
        registerPsDynamicParam(kTag, 4, 0, "tag", "uint32_t");
        takeLog();
    }
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
    static void setInPipe0(uint32_t frame) {
        uint32_t value = frame;
        setPsParam(kCam, 0, frame, kTag, &value);
    }
};

TEST_F(Metadata, NewestEarlierFrameAnswersElseFrameZero) {
    EXPECT_EQ(read(10), "none");
    EXPECT_EQ(pipe(0).mErasePoint.at(METADATA_TAG), 0u);
    EXPECT_EQ(pipe(0).mCheckPoint.at(METADATA_TAG), nullptr);
    takeLog();
    store(20, "twenty");
    store(10, "ten");
    store(0, "standing");
    EXPECT_EQ(takeLog(), (Lines{
                             "5 _setMetadata: E cam[0].paramFrame[20], erase point:0",
                             "5 ParamFrame: E cam[0] frame[20]",
                             "5 _setMetadata: E cam[0].paramFrame[10], erase point:0",
                             "5 ParamFrame: E cam[0] frame[10]",
                             "5 _setMetadata: E cam[0].paramFrame[0], erase point:0",
                             "2 _setMetadata: fail to get metadata, but give frame 0",
                         }));
    EXPECT_EQ(checkpoints(METADATA_TAG, 0), (std::vector<uint32_t>{10, 20}));
    EXPECT_EQ(read(15), "ten");
    EXPECT_EQ(read(5), "standing");
    EXPECT_EQ(read(0), "standing");
    EXPECT_EQ(takeLog(), (Lines{
                             "5 _getMetadata: E cam[0].paramFrame[15], erase point:0",
                             "5 findRelated: desID 15, relateID[10]",
                             "5 _getMetadata: E cam[0].paramFrame[5], erase point:0",
                             "5 findRelated: desID 5, relateID[0]",
                             "5 _getMetadata: E cam[0].paramFrame[0], erase point:0",
                             "2 _getMetadata: fail to match accurate metadata, but give frame 0",
                         }));
    EXPECT_EQ(read(20), "twenty");
    EXPECT_EQ(read(THE_LAST), "twenty");
    setInPipe0(30);
    EXPECT_EQ(read(30), "twenty") << "a frame with values and no metadata";
}

TEST_F(Metadata, StoringAgainReplacesAndListsAgain) {
    store(10, "first");
    takeLog();
    store(10, "second");
    EXPECT_EQ(countLogged("5 operator(): free_camera_metadata mCamID:0,mFrameID:10"), 1u);
    EXPECT_EQ(checkpoints(METADATA_TAG, 0), (std::vector<uint32_t>{10, 10}));
    EXPECT_EQ(read(10), "second");
    EXPECT_EQ(ParamSet::setMetadata(kCam, 10, ParamSet::getMetadata(kCam, 10)), PS_OK);
    EXPECT_EQ(read(10), "second") << "the frame's own record is copied before it is freed";
    EXPECT_EQ(host::liveMetadata(), 1u);
}

TEST_F(Metadata, EraseOfPipeZeroDropsItSixFramesBehind) {
    store(20, "twenty");
    store(26, "twenty-six");
    erasePs(kCam, 1, 100);
    EXPECT_EQ(read(20), "twenty") << "another pipe's erase does not reach it";
    takeLog();
    EXPECT_EQ(erasePs(kCam, 0, 30), PS_OK);
    EXPECT_EQ(takeLog(), (Lines{
                             "5 ParamFrame: E cam[0] frame[30]",
                             "5 _erase: E cam[0] pipe[0] frame[30] and oldest will be erased",
                             "5 _erase: tag:131073 checkPoint size:2",
                             "5 ~ParamFrame: delete cam[0] frame[20], and total tag Num:0",
                             "5 operator(): free_camera_metadata mCamID:0,mFrameID:20",
                             "5 _erase: X:ret:0, cam[0] pipe[0], and finaly frame[24]save to frame[0]",
                             "5 ~ParamFrame: delete cam[0] frame[30], and total tag Num:0",
                         }))
        << "nothing is saved to frame 0";
    EXPECT_EQ(pipe(0).mErasePoint.at(METADATA_TAG), 24u);
    store(24, "late");
    EXPECT_EQ(frames(0), (std::vector<uint32_t>{26}));
    EXPECT_EQ(read(24), "late");
    EXPECT_EQ(read(25), "late") << "no frame at or before 25 is listed";
    store(25, "in time");
    EXPECT_EQ(read(25), "in time");
    erasePs(kCam, 0, THE_LAST);
    EXPECT_EQ(read(25), "late");
    EXPECT_EQ(pipe(0).mErasePoint.at(METADATA_TAG), 0u);
}

TEST_F(Metadata, FrameThatWentWithAnotherTagIsAnsweredByFrameZero) {
    registerPsQueueParam(200000, 4, 0, "after metadata", "uint32_t", 9);
    store(0, "standing");
    store(20, "twenty");
    setInPipe0(21);
    // The tag's pass takes frame 20, which holds no value, with it; the metadata's own pass keeps it listed.
    zarn::gTagInfo.at(kTag).mRetainNum = 1;
    erasePs(kCam, 0, 22);
    EXPECT_EQ(checkpoints(METADATA_TAG, 0), (std::vector<uint32_t>{20}));
    takeLog();
    EXPECT_EQ(read(25), "standing");
    EXPECT_EQ(countLogged("2 _getMetadata: fail to match accurate metadata, but give frame 0"), 1u);
    EXPECT_TRUE(frames(0).empty());
    store(20, "again");
    EXPECT_EQ(read(25), "again");
}

}  // namespace
