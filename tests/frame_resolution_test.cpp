// Which frame answers, what a set changes in the pipe, and the plain get and set.

#include "tests/store_fixture.h"

namespace {

class FrameResolution : public StoreTest {
protected:
    void SetUp() override {
        StoreTest::SetUp();
        registerPsDynamicParam(kTag, 4, 0, "tag", "uint32_t");
        registerPsDynamicParam(kOther, 4, 0, "other", "uint32_t");
    }
    static constexpr uint32_t kOther = 8;
};

TEST_F(FrameResolution, SetsAddAscendingCheckpointsOnePerFrame) {
    set(0, 1);
    set(10, 100);
    set(20, 200);
    set(15, 150);
    set(20, 201);
    set(20, 202, kOther);
    EXPECT_EQ(frames(), (std::vector<uint32_t>{10, 15, 20}));
    EXPECT_EQ(checkpoints(kTag), (std::vector<uint32_t>{10, 15, 20}));
    EXPECT_EQ(checkpoints(kOther), (std::vector<uint32_t>{20}));

    struct Row {
        uint32_t frame, answered;
    };
    for (const Row& row : {Row{0, 1},
                           {9, 1},
                           {10, 100},
                           {14, 100},
                           {15, 150},
                           {17, 150},
                           {19, 150},
                           {20, 201},
                           {0xFFFFFFFE, 201},
                           {THE_LAST, 201}}) {
        EXPECT_EQ(get(row.frame), row.answered) << "frame " << row.frame;
    }
    EXPECT_EQ(frames(), (std::vector<uint32_t>{10, 15, 20})) << "a read makes no frame";
    EXPECT_EQ(checkpoints(kTag), (std::vector<uint32_t>{10, 15, 20}));

    set(15, 151);
    EXPECT_EQ(get(17), 151u) << "a read through a checkpoint sees later writes to its frame";
}

TEST_F(FrameResolution, FrameAtOrBelowTheErasePointIsAnsweredAndWrittenInFrameZero) {
    set(20, 200);
    set(30, 300);
    erasePs(kCam, kPipe, 26);  // erase point 20
    EXPECT_EQ(get(20), 200u);
    EXPECT_EQ(set(12, 120), PS_OK);
    EXPECT_EQ(get(20), 120u);
    EXPECT_EQ(get(21), 120u) << "above the erase point, but before every checkpoint";
    EXPECT_EQ(get(30), 300u);
    EXPECT_EQ(frames(), (std::vector<uint32_t>{30}));
}

TEST_F(FrameResolution, CheckpointWhoseFrameIsGoneIsNotAnsweredByAnOlderOne) {
    constexpr uint32_t kLate = 9;
    set(10, 1, kLate);  // not registered: a frame and a checkpoint, but no value
    registerPsQueueParam(kLate, 4, 0, "late", "uint32_t", 100);
    set(5, 55, kLate);
    set(11, 1);
    erasePs(kCam, kPipe, 17);  // erases tag 7, and with it the empty frame 10
    EXPECT_EQ(frames(), (std::vector<uint32_t>{5}));
    EXPECT_EQ(checkpoints(kLate), (std::vector<uint32_t>{5, 10}));
    takeLog();
    EXPECT_EQ(get(12, kLate), kNothing);
    EXPECT_EQ(countLogged("1 _getParam: fail camID: 0, pipe: 2, frameID: 12, tag: 9,"), 1u);
    EXPECT_EQ(get(9, kLate), 55u);
}

TEST_F(FrameResolution, NewestFrameOfAnEmptyPipeIsFrameZero) {
    EXPECT_EQ(set(THE_LAST, 4), PS_OK);
    EXPECT_EQ(get(THE_LAST), 4u);
    EXPECT_EQ(get(0), 4u);
    EXPECT_TRUE(frames().empty());
    getSyn(THE_LAST, kTag, 1);
    EXPECT_EQ(countLogged("4 preproc: THE_LAST frame is 0"), 1u);
    EXPECT_EQ(frames(), (std::vector<uint32_t>{THE_LAST})) << "for a synchronous get it is an ordinary frame id";
}

}  // namespace
