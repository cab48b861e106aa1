// How values go: trimming, and the explicit erase.

#include <numeric>
#include <string>

#include "tests/store_fixture.h"

namespace {

class FrameLifetime : public StoreTest {
protected:
    static constexpr uint32_t kQueue = 20;  // type 2, six checkpoints

    void SetUp() override {
        StoreTest::SetUp();
        registerPsDynamicParam(kTag, 4, 0, "tag", "uint32_t");
        registerPsQueueParam(kQueue, 4, 2, "queue", "uint32_t", 6);
        takeLog();
    }
    static std::vector<uint32_t> range(uint32_t first, uint32_t last) {
        std::vector<uint32_t> ids(last - first + 1);
        std::iota(ids.begin(), ids.end(), first);
        return ids;
    }
};

TEST_F(FrameLifetime, HistoryIsTrimmedToThreeHundredCheckpoints) {
    for (uint32_t frame = 1; frame <= 300; ++frame) set(frame, frame);
    set(1, 11, kQueue);
    EXPECT_EQ(checkpoints(kTag), range(1, 300));
    EXPECT_EQ(countLogged("autoErase"), 0u);
    set(301, 301);
    EXPECT_EQ(countLogged("5 autoErase: cam 0 pipe 2 tag 7, erased 1, cur sof 301"), 1u);
    EXPECT_EQ(checkpoints(kTag), range(2, 301));
    EXPECT_EQ(pipe().mErasePoint.at(kTag), 1u);
    EXPECT_TRUE(pipe().mFrames.at(1)->existTag(kQueue)) << "the frame stays for its other tag";
    EXPECT_FALSE(pipe().mFrames.at(1)->existTag(kTag));
    set(302, 302);
    EXPECT_EQ(frames().size(), 301u) << "frame 2 had nothing else";
    EXPECT_EQ(get(3), 3u);
}

TEST_F(FrameLifetime, QueueIsTrimmedToItsRetainNumber) {
    for (uint32_t frame = 10; frame <= 15; ++frame) set(frame, frame, kQueue);
    EXPECT_EQ(checkpoints(kQueue), range(10, 15));
    takeLog();
    set(16, 16, kQueue);
    EXPECT_EQ(countLogged("5 autoErase: pipe 2 tag 20, head 10, queueSize 6"), 1u);
    EXPECT_EQ(checkpoints(kQueue), range(11, 16));
    EXPECT_EQ(pipe().mErasePoint.at(kQueue), 10u);

    zarn::gTagInfo.at(kQueue).mRetainNum = 4;  // several go at once
    set(12, 1, kQueue);
    set(9, 9, kQueue);
    set(17, 17, kQueue);
    EXPECT_EQ(checkpoints(kQueue), (std::vector<uint32_t>{14, 15, 16, 17}));
    EXPECT_EQ(pipe().mErasePoint.at(kQueue), 13u);
    EXPECT_EQ(get(9, kQueue), 9u) << "what was at or below the erase point went to frame 0";

    erasePs(kCam, kPipe, 1000);
    EXPECT_EQ(checkpoints(kQueue), range(14, 17)) << "an ordinary erase leaves queues alone";
    erasePs(kCam, kPipe, THE_LAST);
    zarn::gTagInfo.at(kQueue).mRetainNum = 1;
    takeLog();
    set(30, 30, kQueue);
    set(31, 31, kQueue);
    EXPECT_EQ(countLogged("5 autoErase: pipe 2 tag 20, head 0, queueSize 0"), 1u);
    EXPECT_EQ(checkpoints(kQueue), (std::vector<uint32_t>{31}));
    EXPECT_EQ(frames(), (std::vector<uint32_t>{31}));
}

TEST_F(FrameLifetime, EraseSavesTheNewestErasedValue) {
    for (uint32_t frame : {1u, 2u, 5u}) set(frame, frame * 10);
    set(2, 7, kQueue);
    takeLog();
    EXPECT_EQ(erasePs(kCam, kPipe, 7), PS_OK);
    EXPECT_EQ(takeLog(),
              (Lines{"5 ParamFrame: E cam[0] frame[7]", "5 ~ParamFrame: delete cam[0] frame[7], and total tag Num:0"}))
        << "below frame 8 nothing is erased";

    EXPECT_EQ(erasePs(kCam, kPipe, 8), PS_OK);
    EXPECT_EQ(checkpoints(kTag), (std::vector<uint32_t>{5}));
    EXPECT_EQ(frames(), (std::vector<uint32_t>{2, 5})) << "frame 2 still has its queue tag";
    EXPECT_EQ(pipe().mErasePoint.at(kTag), 2u);
    EXPECT_EQ(pipe().mFrames.at(2)->mStatus.count(kTag), 1u) << "a record is made in a frame that stays";
    EXPECT_EQ(get(1), 20u);
    EXPECT_EQ(countLogged("5 _erase: find checkPoint ID:2"), 1u);
}

// Whoever waits on a frame's record holds the frame, and finds it as every pass over the pipe has left it.
TEST_F(FrameLifetime, FrameThatIsHeldIsErasedLikeOneThatStays) {
    constexpr uint32_t kOther = 21;
    registerPsDynamicParam(kOther, 4, 0, "other", "uint32_t");
    for (uint32_t frame : {2u, 3u}) set(frame, frame), set(frame, frame, kOther);
    const std::shared_ptr<zarn::ParamFrame> held = pipe().mFrames.at(2);
    erasePs(kCam, kPipe, 9);
    EXPECT_EQ(frames(), std::vector<uint32_t>());
    EXPECT_TRUE(held->mTags.empty());
    EXPECT_EQ(held->mStatus.size(), 2u) << "of both tags";
}

// A frame below the erase point that a delivery made is read in frame 0, which is where it is to be saved.
TEST_F(FrameLifetime, WhatFrameZeroItselfAnsweredIsSavedToFrameZero) {
    set(250, 500);
    EXPECT_EQ(erasePs(kCam, kPipe, 256), PS_OK);
    deliver(245, 450);
    takeLog();
    EXPECT_EQ(erasePs(kCam, kPipe, 257), PS_OK);
    EXPECT_EQ(takeLog(2), (Lines{"2 getParamInternal: frameID 245 <= Erased 250, tag need life >= 12"}));
    EXPECT_EQ(get(245), 500u);
}

TEST_F(FrameLifetime, EraseThatFindsNoValueToSaveLeavesZerosInFrameZero) {
    constexpr uint32_t kLate = 22;
    set(10, 5, kLate);  // a frame and a checkpoint, but no value
    registerPsDynamicParam(kLate, 4096, 0, "late", "page");
    EXPECT_EQ(std::vector<char>(4096, 'Z').back(), 'Z');  // memory that the value may get
    EXPECT_EQ(erasePs(kCam, kPipe, 20), PS_NO_BUFFER);
    EXPECT_EQ(countLogged("1 _erase: fail to save data to F0"), 1u);
    std::string bytes(4096, '?');
    EXPECT_EQ(getPsParam(kCam, kPipe, 10, kLate, bytes.data()), PS_OK);
    EXPECT_EQ(bytes, std::string(4096, '\0'));
}

}  // namespace
