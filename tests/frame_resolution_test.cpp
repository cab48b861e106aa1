// Which frame answers, what a write leaves behind, and the plain get and set.

#include "tests/store_fixture.h"

namespace {

class FrameResolution : public StoreTest {
protected:
    void SetUp() override {
        StoreTest::SetUp();
        registerPsDynamicParam(kTag, 4, 0, "tag", "uint32_t");
        registerPsDynamicParam(kOther, 4, 0, "other", "uint32_t");
        takeLog();
    }
    static constexpr uint32_t kOther = 8;
};

std::string copyLine(const std::string& start, int frame, uint32_t tag = 7) {
    return start + " camID: 0, pipe: 2, frameID: " + std::to_string(frame) + ", tag: " + std::to_string(tag) +
           ",intrData:*,extrData:*,tagSize:4";
}

TEST_F(FrameResolution, WritesRecordAscendingCheckpointsOnceAFrame) {
    set(0, 1);
    set(10, 100);
    set(20, 200);
    set(15, 150);
    set(20, 201);
    set(20, 202, kOther);
    EXPECT_EQ(frames(), (std::vector<uint32_t>{10, 15, 20}));
    EXPECT_EQ(checkpoints(kTag), (std::vector<uint32_t>{10, 15, 20}));
    EXPECT_EQ(checkpoints(kOther), (std::vector<uint32_t>{20}));
    EXPECT_EQ(countLogged("5 permiProc: add checkPoint[15] size:3,permiProc:_modifiable"), 1u);

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

TEST_F(FrameResolution, LinesTellHowEachRequestWasAnswered) {
    set(10, 1);
    EXPECT_EQ(takeLog(), (Lines{
                             "5 getParamInternal: E cam 0 pipe 2 frame 10 tag 7 erasePoint:0",
                             "5 createNew: createNew ParamFrame",
                             "5 ParamFrame: E cam[0] frame[10]",
                             "5 permiProc: add checkPoint[10] size:1,permiProc:_modifiable",
                             "5 createTag: X:ok",
                             copyLine("5 _setParam: success", 10),
                         }));
    set(10, 2);
    get(10);
    EXPECT_EQ(takeLog(), (Lines{
                             "5 getParamInternal: E cam 0 pipe 2 frame 10 tag 7 erasePoint:0",
                             copyLine("5 _setParam: success", 10),
                             "5 getParamInternal: E cam 0 pipe 2 frame 10 tag 7 erasePoint:0",
                             copyLine("5 _getParam: success ", 10),
                         }));
    get(10, kOther);
    get(9);
    EXPECT_EQ(takeLog(), (Lines{
                             "5 getParamInternal: E cam 0 pipe 2 frame 10 tag 8 erasePoint:0",
                             "5 findRelated: desID 10, relateID[0]",
                             "5 permiProc: cam 0 pipe 2 tag 8 destID 10 relatedID:0",
                             "5 createTag: X:ok",
                             copyLine("5 _getParam: success ", 10, kOther),
                             "5 getParamInternal: E cam 0 pipe 2 frame 9 tag 7 erasePoint:0",
                             "5 createNew: createNew ParamFrame",
                             "5 findRelated: desID 9, relateID[0]",
                             "5 permiProc: cam 0 pipe 2 tag 7 destID 9 relatedID:0",
                             "5 createTag: X:ok",
                             copyLine("5 _getParam: success ", 9),
                         }));
    set(THE_LAST, 3);
    EXPECT_EQ(takeLog(), (Lines{
                             "5 getParamInternal: THE_LAST frame is 10",
                             "5 getParamInternal: E cam 0 pipe 2 frame 10 tag 7 erasePoint:0",
                             copyLine("5 _setParam: success", -1),
                         }));
    EXPECT_EQ(get(10), 3u);
}

TEST_F(FrameResolution, FrameAtOrBelowTheErasePointIsAnsweredAndWrittenInFrameZero) {
    set(20, 200);
    set(30, 300);
    erasePs(kCam, kPipe, 26);  // erase point 20
    takeLog();
    EXPECT_EQ(get(20), 200u);
    EXPECT_EQ(set(12, 120), PS_OK);
    EXPECT_EQ(get(20), 120u);
    EXPECT_EQ(get(21), 120u) << "above the erase point, but before every checkpoint";
    EXPECT_EQ(get(30), 300u);
    EXPECT_EQ(frames(), (std::vector<uint32_t>{30}));
    EXPECT_EQ(takeLog(2), (Lines{
                              "2 getParamInternal: frameID 20 <= Erased 20, tag need life >= 7",
                              "2 getParamInternal: frameID 12 <= Erased 20, tag need life >= 15",
                              "2 getParamInternal: frameID 20 <= Erased 20, tag need life >= 7",
                          }));
}

TEST_F(FrameResolution, NewestFrameOfAnEmptyPipeIsFrameZero) {
    EXPECT_EQ(set(THE_LAST, 4), PS_OK);
    EXPECT_EQ(takeLog(), (Lines{
                             "5 getParamInternal: THE_LAST frame is 0",
                             "5 getParamInternal: E cam 0 pipe 2 frame 0 tag 7 erasePoint:0",
                             "5 createTag: X:ok",
                             copyLine("5 _setParam: success", -1),
                         }));
    EXPECT_EQ(get(THE_LAST), 4u);
    EXPECT_EQ(get(0), 4u);
    EXPECT_TRUE(frames().empty());
    getSyn(THE_LAST, kTag, 1);
    EXPECT_EQ(countLogged("4 preproc: THE_LAST frame is 0"), 1u);
    EXPECT_EQ(frames(), (std::vector<uint32_t>{THE_LAST})) << "a waiting get takes it for a frame id like others";
}

}  // namespace
