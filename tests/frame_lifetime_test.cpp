// How values are removed: trimming, and the explicit erase.

#include <malloc.h>

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

    zarn::gTagInfo.at(kQueue).mRetainNum = 4;  // several are removed at once
    set(12, 1, kQueue);
    set(9, 9, kQueue);
    set(17, 17, kQueue);
    EXPECT_EQ(checkpoints(kQueue), (std::vector<uint32_t>{14, 15, 16, 17}));
    EXPECT_EQ(pipe().mErasePoint.at(kQueue), 13u);
    EXPECT_EQ(get(9, kQueue), 9u) << "what was at or below the erase point went to frame 0";

    erasePs(kCam, kPipe, 1000);
    EXPECT_EQ(checkpoints(kQueue), range(14, 17)) << "an ordinary erase skips queues";
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

// A get that waits in a frame holds a reference to it. An erase that removes this frame still adds its records to it.
TEST_F(FrameLifetime, RemovedFrameThatIsHeldGetsItsRecords) {
    constexpr uint32_t kOther = 21;
    registerPsDynamicParam(kOther, 4, 0, "other", "uint32_t");
    for (uint32_t frame : {2u, 3u}) set(frame, frame), set(frame, frame, kOther);
    const std::shared_ptr<zarn::ParamFrame> held = pipe().mFrames.at(2);
    erasePs(kCam, kPipe, 9);
    EXPECT_EQ(frames(), std::vector<uint32_t>());
    EXPECT_TRUE(held->mTags.empty());
    EXPECT_EQ(held->mStatus.size(), 2u) << "of both tags";
}

// The store reuses an erased buffer for the next frame that is given the tag, if nobody can notice it.
class KeptValues : public FrameLifetime {
protected:
    static constexpr uint32_t kLong = 40;  // bytes

    void SetUp() override {
        FrameLifetime::SetUp();
        set(0, 1);
    }
    static std::shared_ptr<void> share(uint32_t frame) { return pipe().mFrames.at(frame)->getTag(kTag); }
    static void eraseUpTo(uint32_t frame) { erasePs(kCam, kPipe, frame + 6); }
};

TEST_F(KeptValues, AreReusedOnceByTheNextFrame) {
    set(10, 100);
    const void* const buffer = share(10).get();
    eraseUpTo(10);
    set(20, 200);
    set(21, 210);
    EXPECT_EQ(share(20).get(), buffer);
    EXPECT_NE(share(21).get(), buffer);
    EXPECT_EQ(get(10), 100u) << "frame 0 has its own copy";
    EXPECT_EQ(get(20), 200u);
    EXPECT_EQ(get(21), 210u);
}

TEST_F(KeptValues, AreNotReusedWhileSomebodyElseHasAReference) {
    set(10, 100), set(11, 110);
    const std::shared_ptr<void> held = share(10);
    eraseUpTo(11);
    set(20, 200), set(21, 210);
    EXPECT_EQ(*static_cast<uint32_t*>(held.get()), 100u);
    EXPECT_EQ(held.use_count(), 1);
    EXPECT_EQ(get(21), 210u);
}

TEST_F(KeptValues, AreNotReusedByAGet) {
    constexpr uint32_t kRead = 8;
    registerPsDynamicParam(kRead, 4, 0, "read", "uint32_t");
    set(10, 100, kRead), set(3, 30);
    pipe().mFrames.at(3)->createTag(kRead, nullptr);
    const void* const buffer = pipe().mFrames.at(3)->getTag(kRead).get();
    eraseUpTo(5);  // before the only checkpoint: nothing is saved
    EXPECT_EQ(get(4, kRead), 0u);
    EXPECT_NE(pipe().mF0->getTag(kRead).get(), buffer);
    set(20, 200, kRead);
    EXPECT_EQ(pipe().mFrames.at(20)->getTag(kRead).get(), buffer) << "the value was kept, so a set reuses it";
}

TEST_F(KeptValues, AreNotReusedWithAProgramsOwnCreator) {
    class Counting : public zarn::param_creator_t<char> {
    public:
        explicit Counting(int& calls) : param_creator_t<char>(4), mCalls(calls) {}
        std::shared_ptr<void> create(void* src) const override { return ++mCalls, param_creator_t<char>::create(src); }

    private:
        int& mCalls;
    };
    int calls = 0;
    zarn::ParamSet::register_tag<char>(50, new Counting(calls), 0, "own", "uint32_t", 0);
    set(0, 1, 50);
    for (uint32_t frame = 10; frame < 30; ++frame) set(frame, frame, 50), eraseUpTo(frame);
    EXPECT_EQ(calls, 21);
}

TEST_F(KeptValues, AreFreedByAnEraseOfEverythingAndWithTheStore) {
    uint32_t frame = 0;
    for (const auto end : {+[] { eraseUpTo(THE_LAST - 6); }, +[] { zarn::ParamSet::destroyInstance(); }}) {
        set(frame += 10, 100);
        const std::weak_ptr<void> value = share(frame);
        eraseUpTo(frame);
        EXPECT_FALSE(value.expired()) << "the store keeps it for reuse";
        end();
        EXPECT_TRUE(value.expired());
    }
}

TEST_F(KeptValues, AreNotReusedByAStoreThatHasAnotherSizeForTheTag) {
    for (uint32_t frame = 10; frame < 20; ++frame) set(frame, frame), eraseUpTo(frame);
    zarn::ParamSet::destroyInstance();
    zarn::gTagInfo.clear();
    registerPsDynamicParam(kTag, kLong, 0, "tag", "text");
    zarn::ParamSet::createInstance();
    for (uint32_t frame = 10; frame < 20; ++frame) {
        char in[kLong] = "thirty-nine characters, and a zero too.";
        char out[kLong] = {};
        in[0] = static_cast<char>(frame);
        EXPECT_EQ(setPsParam(kCam, kPipe, frame, kTag, in), PS_OK);
        EXPECT_GE(malloc_usable_size(share(frame).get()), kLong);
        EXPECT_EQ(getPsParam(kCam, kPipe, frame, kTag, out), PS_OK);
        EXPECT_STREQ(out, in);
        eraseUpTo(frame);
    }
}

// A delivery can make a frame below the erase point. Frame 0 answers a get of this frame. When an erase saves the
// frame's value to frame 0, frame 0 answers this read too, so source and target are the same buffer.
TEST_F(FrameLifetime, ValueThatFrameZeroAnsweredIsSavedToFrameZero) {
    set(250, 500);
    EXPECT_EQ(erasePs(kCam, kPipe, 256), PS_OK);
    deliver(245, 450);
    takeLog();
    EXPECT_EQ(erasePs(kCam, kPipe, 257), PS_OK);
    EXPECT_EQ(takeLog(2), (Lines{"2 getParamInternal: frameID 245 <= Erased 250, tag need life >= 12"}));
    EXPECT_EQ(get(245), 500u);
}

// A program may give the pipe a frame that has a registry of its own.
TEST_F(FrameLifetime, EraseFreesAValueOfATagThatTheStoreDoesNotKnow) {
    constexpr uint32_t kForeign = 23;
    std::map<uint32_t, zarn::tag_info_t> registry;
    registry[kForeign].mCreator = std::make_shared<zarn::param_creator_t<char>>(4);
    const auto frame = std::make_shared<zarn::ParamFrame>(kCam, 10, nullptr, &registry);
    const std::weak_ptr<void> value = frame->createTag(kForeign, nullptr);
    set(10, 5, kForeign);  // adds a checkpoint, by which the erase finds the tag
    pipe().mFrames.at(10) = frame;
    EXPECT_EQ(erasePs(kCam, kPipe, 20), PS_NO_BUFFER) << "it cannot be saved to frame 0";
    EXPECT_TRUE(value.expired());
    EXPECT_EQ(frames(), std::vector<uint32_t>());
}

TEST_F(FrameLifetime, EraseThatFindsNoValueToSaveLeavesZerosInFrameZero) {
    constexpr uint32_t kLate = 22;
    set(10, 5, kLate);  // a frame and a checkpoint, but no value
    registerPsDynamicParam(kLate, 4096, 0, "late", "page");
    EXPECT_EQ(std::vector<char>(4096, 'Z').back(), 'Z');  // the allocator may use this memory again for the value
    EXPECT_EQ(erasePs(kCam, kPipe, 20), PS_NO_BUFFER);
    EXPECT_EQ(countLogged("1 _erase: fail to save data to F0"), 1u);
    std::string bytes(4096, '?');
    EXPECT_EQ(getPsParam(kCam, kPipe, 10, kLate, bytes.data()), PS_OK);
    EXPECT_EQ(bytes, std::string(4096, '\0'));
}

TEST_F(FrameLifetime, EraseThatFindsNoValueToSaveKeepsThatOfFrameZero) {
    constexpr uint32_t kLate = 23;
    set(10, 5, kLate);  // a frame and a checkpoint, but no value
    registerPsDynamicParam(kLate, sizeof(uint32_t), 0, "late", "uint32_t");
    set(0, 7, kLate);
    EXPECT_EQ(erasePs(kCam, kPipe, 20), PS_NO_BUFFER);
    EXPECT_EQ(get(10, kLate), 7u);
}

}  // namespace
