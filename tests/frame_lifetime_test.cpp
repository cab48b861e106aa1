// How values go: trimming, the explicit erase, and the sequences of calls in which something that is looked for is
// gone.

#include <numeric>

#include "tests/store_fixture.h"

namespace {

using zarn::ParamSet;

class FrameLifetime : public StoreTest {
protected:
    static constexpr uint32_t kQueue = 20;  // type 2, six checkpoints
    static constexpr uint32_t kLasting = 21;
    static constexpr uint32_t kUnknown = 99;

    void SetUp() override {
        StoreTest::SetUp();
        registerPsDynamicParam(kTag, 4, 0, "tag", "uint32_t");
        registerPsQueueParam(kQueue, 4, 2, "queue", "uint32_t", 6);
        registerPsQueueParam(kLasting, 4, 0, "lasting", "uint32_t", 10);
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

TEST_F(FrameLifetime, EachTagIsErasedByItsOwnLimit) {
    for (uint32_t frame = 9; frame <= 10; ++frame) set(frame, frame);
    set(4, 44, kLasting);
    takeLog();
    EXPECT_EQ(erasePs(kCam, kPipe, 9), PS_OK);  // limit 3 for the one, -1 for the other
    EXPECT_EQ(checkpoints(kTag), range(9, 10));
    EXPECT_EQ(checkpoints(kLasting), (std::vector<uint32_t>{4}));
    EXPECT_EQ(pipe().mErasePoint.at(kTag), 0u) << "no frame lay at or below the limit";
    EXPECT_EQ(takeLog(4), Lines{});

    EXPECT_EQ(erasePs(kCam, kPipe, 10), PS_OK);  // limits 4 and 0
    EXPECT_EQ(pipe().mErasePoint.at(kTag), 4u) << "frame 4 was walked for the tag, though it has no checkpoint there";
    EXPECT_EQ(frames(), (std::vector<uint32_t>{4, 9, 10}));
    EXPECT_EQ(countLogged("5 _erase: X:ret:0, cam[0] pipe[2], and finaly frame[0]save to frame[0]"), 1u);
    EXPECT_EQ(erasePs(kCam, kPipe, 14), PS_OK);
    EXPECT_EQ(get(3, kLasting), 44u);
    EXPECT_EQ(frames(), (std::vector<uint32_t>{9, 10}));
}

TEST_F(FrameLifetime, EraseOfEverythingKeepsOnlyFrameZero) {
    set(5, 50);
    set(6, 60, kQueue);
    set(900, 90);
    takeLog();
    EXPECT_EQ(erasePs(kCam, kPipe, THE_LAST), PS_OK);
    EXPECT_EQ(takeLog(4), (Lines{"4 _erase: erase all : cam 0 pipe 2 total 3"}));
    EXPECT_TRUE(frames().empty() && checkpoints(kTag).empty() && checkpoints(kQueue).empty());
    EXPECT_EQ(pipe().mErasePoint, (std::map<uint32_t, uint32_t>{{kTag, 0}, {kQueue, 0}}));
    EXPECT_EQ(get(3), 90u);
    EXPECT_EQ(get(3, kQueue), 60u);
    takeLog();
    EXPECT_EQ(erasePs(kCam, kPipe, THE_LAST), PS_OK);
    EXPECT_EQ(takeLog(), (Lines{
                             "5 ParamFrame: E cam[0] frame[-1]",
                             "5 _erase: E cam[0] pipe[2] frame[-1] and oldest will be erased",
                             "5 _erase: X:ret:0, cam[0] pipe[2], and finaly frame[-1]save to frame[0]",
                             "5 ~ParamFrame: delete cam[0] frame[-1], and total tag Num:0",
                         }));
}

TEST_F(FrameLifetime, TracedEraseRaisesItsLinesUntilItSaves) {
    set(1, 10);
    set(2, 20);
    set(8, 80);
    __atomic_store_n(&zarn::ps_log_erase, 1, __ATOMIC_RELAXED);
    takeLog();
    erasePs(kCam, kPipe, 7);
    EXPECT_EQ(takeLog(4), Lines{});
    erasePs(kCam, kPipe, 8);
    EXPECT_EQ(takeLog(4), (Lines{
                              "4 _erase: E cam[0] pipe[2] frame[8] and oldest will be erased",
                              "4 _erase: tag:7 checkPoint size:3",
                          }))
        << "the copy into frame 0 ends the trace";
    erasePs(kCam, kPipe, 8);
    EXPECT_EQ(takeLog(4), (Lines{
                              "4 _erase: E cam[0] pipe[2] frame[8] and oldest will be erased",
                              "4 _erase: tag:7 checkPoint size:1",
                              "4 _erase: X:ret:0, cam[0] pipe[2], and finaly frame[2]save to frame[0]",
                          }));
    EXPECT_EQ(zarn::ps_log, 0);
}

// Ordinary calls that leave a look-up without what it looks for. Each is answered, and none leaves an empty entry.
TEST_F(FrameLifetime, WhatIsGoneIsNeverReachedFor) {
    // An unregistered tag set at two frames: the trimming makes a registry entry without a creator.
    EXPECT_EQ(set(10, 1, kUnknown), PS_NO_BUFFER);
    EXPECT_EQ(set(11, 1, kUnknown), PS_NO_BUFFER);
    EXPECT_EQ(deliver(12, 1, kUnknown), PS_OK);
    EXPECT_EQ(deliver(13, 1, kUnknown), PS_OK);
    EXPECT_EQ(zarn::gTagInfo.at(kUnknown).mCreator, nullptr);
    EXPECT_EQ(get(10, kUnknown), kNothing);
    EXPECT_EQ(get(0, kUnknown), kNothing);
    EXPECT_EQ(getSyn(12, kUnknown, 1), (Got{PS_NOT_OF_FRAME, kNothing}));
    EXPECT_EQ(countLogged("1 createTag: X Failed to create tag, no such creator: 99"), 5u);
    registerPsDynamicParam(kUnknown, 4, 0, "too late", "uint32_t");
    EXPECT_EQ(set(14, 1, kUnknown), PS_NO_BUFFER);

    // Its frames go with another tag's pass: with that of an erase, and with a trimming, after which its list still
    // names them.
    set(20, 2);
    EXPECT_EQ(erasePs(kCam, kPipe, 24), PS_NO_BUFFER);
    EXPECT_EQ(frames(), (std::vector<uint32_t>{20}));
    set(30, 1, kUnknown);
    for (uint32_t frame = 30; frame <= 36; ++frame) set(frame, frame, kQueue);
    EXPECT_EQ(frames(), (std::vector<uint32_t>{20, 31, 32, 33, 34, 35, 36}));
    EXPECT_EQ(checkpoints(kUnknown), (std::vector<uint32_t>{30}));
    EXPECT_EQ(get(32, kUnknown), kNothing);
    EXPECT_EQ(get(50, kUnknown), kNothing);
    EXPECT_EQ(getSyn(50, kUnknown, 1), (Got{PS_NOT_OF_FRAME, kNothing}));
    EXPECT_EQ(set(30, 1, kUnknown), PS_NO_BUFFER);
    EXPECT_EQ(set(33, 1, kUnknown), PS_NO_BUFFER);
    EXPECT_EQ(erasePs(kCam, kPipe, 60), PS_NO_BUFFER);
    EXPECT_EQ(countLogged("1 _erase: fail to save data to F0"), 2u);

    // The trimming removes the frame that is being written: all checkpoints are of one frame, and it holds no tag.
    for (int i = 0; i < 302; ++i) EXPECT_EQ(set(140, 1, kUnknown), PS_NO_BUFFER);
    EXPECT_EQ(frames(), (std::vector<uint32_t>{31, 32, 33, 34, 35, 36, 140}));
    EXPECT_EQ(pipe().mErasePoint.at(kUnknown), 140u);

    // Everything is erased while frame 0xFFFFFFFF has a value: the erase reads it as the newest frame.
    EXPECT_EQ(deliver(THE_LAST, 5), PS_OK);
    EXPECT_EQ(erasePs(kCam, kPipe, THE_LAST), PS_NO_BUFFER) << "the last to be saved is the unknown tag";
    EXPECT_EQ(get(1), 5u);
    EXPECT_TRUE(frames().empty());

    // What frame 0 itself answered is saved into frame 0: a frame below the erase point, made by a delivery.
    set(250, 500);
    erasePs(kCam, kPipe, 256);
    deliver(245, 450);
    takeLog();
    EXPECT_EQ(erasePs(kCam, kPipe, 257), PS_OK);
    EXPECT_EQ(countLogged("2 getParamInternal: frameID 245 <= Erased 250"), 1u);
    EXPECT_EQ(get(245), 500u);
}

}  // namespace
