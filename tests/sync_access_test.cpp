// Gets that wait, sets that deliver, and the records through which they meet.

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <set>

#include "tests/store_fixture.h"

namespace {

constexpr uint32_t kLong = 60000;  // milliseconds; if nothing ends a wait, its result shows the time-out

class SyncAccess : public StoreTest {
protected:
    void SetUp() override {
        StoreTest::SetUp();
        registerPsDynamicParam(kTag, 4, 0, "tag", "uint32_t");
        takeLog();
    }
    static int state(uint32_t frame, uint32_t tag = kTag) {
        zarn::ParamFrame& holder = frame == 0 ? *pipe().mF0 : *pipe().mFrames.at(frame);
        return holder.mStatus.count(tag) != 0 ? holder.mStatus.at(tag).mState : -1;
    }
};

TEST_F(SyncAccess, DeliveryEndsTheWaitWithItsValue) {
    WaitingGet first(10, kTag, kLong);
    WaitingGet second(10, kTag, kLong);
    EXPECT_EQ(deliver(10, 5), PS_OK);
    EXPECT_EQ(first.finish(), (Got{PS_OK, 5}));
    EXPECT_EQ(second.finish(), (Got{PS_OK, 5}));
    EXPECT_EQ(countLogged("5 _setParamSyn: set notify all"), 1u) << "one delivery wakes all";
    EXPECT_EQ(countLogged("4 operator(): cam 0 pipe 2 sof 10 tag 7, wait: *.000000 ms."), 2u);
    EXPECT_EQ(countLogged("wait timeout"), 0u);
    EXPECT_EQ(pipe().mFrames.at(10)->mStatus.at(kTag).mFrameID, 10u);

    takeLog();
    EXPECT_EQ(getSyn(10, kTag, kLong), (Got{PS_OK, 5})) << "the value was delivered, so no get waits again";
    EXPECT_EQ(deliver(10, 6), PS_OK);
    EXPECT_EQ(countLogged("notify all") + countLogged("wait:"), 0u);
    EXPECT_EQ(state(10), 1);
}

TEST_F(SyncAccess, FrameZeroWaitsUntilItsFirstDelivery) {
    set(0, 3);
    WaitingGet waiting(0, kTag, kLong);
    deliver(5, 9);
    EXPECT_EQ(state(0), 2) << "a delivery to another frame does not count for frame 0";
    EXPECT_EQ(deliver(0, 4), PS_OK);
    EXPECT_EQ(waiting.finish(), (Got{PS_OK, 4}));
    EXPECT_EQ(getSyn(0, kTag, kLong), (Got{PS_OK, 4}));
    EXPECT_EQ(pipe().mF0->mStatus.at(kTag).mFrameID, 0u);
}

// A busy machine makes waits longer, but hardly all twenty of them.
TEST_F(SyncAccess, DefaultWaitIsFiftyMilliseconds) {
    auto shortest = std::chrono::steady_clock::duration::max();
    for (int i = 0; i < 20 && shortest > std::chrono::milliseconds(250); ++i) {
        const auto start = std::chrono::steady_clock::now();
        uint32_t value = 0;
        getPsParamSyn(kCam, kPipe, 10, kTag, &value);
        shortest = std::min(shortest, std::chrono::steady_clock::now() - start);
    }
    EXPECT_LE(shortest, std::chrono::milliseconds(250));
}

TEST_F(SyncAccess, TraceSwitchIsOffDuringAWait) {
    __atomic_store_n(&zarn::ps_log_tag, static_cast<int>(kTag), __ATOMIC_RELAXED);
    WaitingGet waiting(10, kTag, kLong);
    EXPECT_EQ(__atomic_load_n(&zarn::ps_log, __ATOMIC_RELAXED), 0);
    deliver(10, 5);
    EXPECT_EQ(waiting.finish(), (Got{PS_OK, 5}));
    EXPECT_EQ(countLogged("4 _getParamSyn: camID: 0, pipe: 2, frameID: 10, tag: 7,"), 1u);
}

TEST_F(SyncAccess, WholeTranscriptOfAWaitThatTimesOut) {
    set(8, 80);
    takeLog();
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(getSyn(10, kTag, 0), (Got{PS_NOT_OF_FRAME, 80}));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(DEFAULT_WAIT_MS));
    const std::string request = "camID: 0, pipe: 2, frameID: 10, tag: 7,";
    EXPECT_EQ(takeLog(), (Lines{
                             "5 _getParamSyn: " + request,
                             "5 ParamFrame: E cam[0] frame[10]",
                             "2 operator(): cam 0 pipe 2 sof 10 tag 7, wait timeout",
                             "4 operator(): cam 0 pipe 2 sof 10 tag 7, wait: *.000000 ms.",
                             "5 findRelated: desID 10, relateID[8]",
                             "5 permiProc: cam 0 pipe 2 tag 7 destID 10 relatedID:8",
                             "5 _getParamSyn: success  " + request + "intrData:*,extrData:*,tagSize:4",
                         }));
    EXPECT_EQ(frames(), (std::vector<uint32_t>{8, 10})) << "the get made the frame it waits in";
    EXPECT_EQ(checkpoints(kTag), (std::vector<uint32_t>{8}));

    EXPECT_EQ(deliver(10, 100), PS_OK);
    EXPECT_EQ(takeLog(), (Lines{
                             "5 _setParamSyn: " + request,
                             "5 permiProc: add checkPoint[10] size:2,permiProc:_modifiable",
                             "5 createTag: X:ok",
                             "5 _setParamSyn: set notify all",
                             "5 _setParamSyn: success " + request + "intrData:*,extrData:*,tagSize:4",
                         }));
}

// Which result and value a get has after its time-out, depending on the values in the pipe.
TEST_F(SyncAccess, GetThatTimesOutIsAnsweredByFrameOrCheckpointOrFrameZero) {
    registerPsQueueParam(20, 4, 2, "queue", "uint32_t", 6);
    const auto expectSyn = [&](uint32_t frame, uint32_t tag, Got expected, int expectedState) {
        takeLog();
        EXPECT_EQ(getSyn(frame, tag, 2), expected) << "frame " << frame << " tag " << tag;
        EXPECT_EQ(countLogged("2 operator(): cam 0 pipe 2 sof " + std::to_string(frame)), 1u);
        EXPECT_EQ(state(frame, tag), expectedState);
    };
    set(0, 1);
    set(0, 9, 20);
    expectSyn(0, kTag, {PS_TIMED_OUT, 1}, 2);
    expectSyn(5, kTag, {PS_NOT_OF_FRAME, 1}, 2);
    set(5, 50);
    expectSyn(5, kTag, {PS_TIMED_OUT, 50}, 2);  // a plain set does not deliver
    set(6, 60);
    expectSyn(6, kTag, {PS_TIMED_OUT, 60}, 0);  // a get that finds a value does not mark the record
    expectSyn(6, 20, {PS_NOT_OF_FRAME, 9}, 2);

    set(30, 300);
    erasePs(kCam, kPipe, 36);  // erase point 30
    expectSyn(7, kTag, {PS_NOT_OF_FRAME, 300}, 2);
    EXPECT_EQ(countLogged("2 preproc: frameID 7 <= Erased 30, tag need life >= 30"), 1u);
    EXPECT_EQ(deliver(7, 70), PS_OK) << "a delivery makes the erased frame again";
    EXPECT_EQ(getSyn(7, kTag, kLong), (Got{PS_NOT_OF_FRAME, 70}));
    EXPECT_EQ(get(8), 300u);
}

TEST_F(SyncAccess, WaiterSeesAPlainSetOnlyWhenItsTimeIsUp) {
    WaitingGet waiting(10, kTag, 4000);
    EXPECT_EQ(set(10, 5), PS_OK);
    EXPECT_EQ(state(10), 2);
    EXPECT_EQ(waiting.finish(), (Got{PS_TIMED_OUT, 5}));
}

TEST_F(SyncAccess, LinesOfFrameZeroAndOfAFrameDifferInTheirNumbers) {
    WaitingGet standing(0, kTag, kLong);
    WaitingGet waiting(10, kTag, kLong);
    std::set<int> numbers;
    const auto keepNumber = [](void* kept, pipeline_loglevel, const char*, const char* line) {
        if (std::strstr(line, "set notify all")) static_cast<std::set<int>*>(kept)->insert(std::atoi(line));
    };
    host::setLogSink(keepNumber, &numbers);
    deliver(0, 1);
    deliver(10, 2);
    host::setLogSink(nullptr, nullptr);
    EXPECT_EQ(numbers.size(), 2u);
    EXPECT_EQ(standing.finish(), (Got{PS_OK, 1}));
    EXPECT_EQ(waiting.finish(), (Got{PS_OK, 2}));
}

// A get that finds the value of a plain set does not mark the record as waited for, so nothing wakes it.
TEST_F(SyncAccess, WaitForTheDeliveryOfAPlainlySetValueEndsByItsTimeOut) {
    set(10, 1);
    WaitingGet waiting(10, kTag, 4000);
    EXPECT_EQ(deliver(10, 5), PS_OK);
    EXPECT_EQ(state(10), 1);
    EXPECT_EQ(countLogged("set notify all"), 0u);
    EXPECT_EQ(waiting.finish(), (Got{PS_TIMED_OUT, 5}));

    set(20, 2);
    set(21, 3);
    takeLog();
    WaitingGet erased(20, kTag, 4000);
    WaitingGet deliveredAndErased(21, kTag, 4000);
    EXPECT_EQ(deliver(21, 4), PS_OK);
    EXPECT_EQ(erasePs(kCam, kPipe, 27), PS_OK);
    EXPECT_EQ(erased.finish(), (Got{PS_NOT_OF_FRAME, 4}));
    EXPECT_EQ(deliveredAndErased.finish(), (Got{PS_NOT_OF_FRAME, 4}));
    EXPECT_EQ(countLogged("wait timeout"), 2u) << "an erase does not wake them either";
}

TEST_F(SyncAccess, UnregisteredTagWaitsAndIsWokenAndFails) {
    WaitingGet waiting(10, 99, kLong);
    takeLog();
    EXPECT_EQ(deliver(10, 5, 99), PS_OK) << "a failed delivery reports 0";
    EXPECT_EQ(waiting.finish(), (Got{PS_NOT_OF_FRAME, kNothing}));
    EXPECT_EQ(countLogged("5 _setParamSyn: set notify all"), 1u);
    EXPECT_EQ(countLogged("1 _setParamSyn: fail camID: 0, pipe: 2, frameID: 10, tag: 99,"), 1u);
    EXPECT_EQ(countLogged("1 _getParamSyn: fail camID: 0, pipe: 2, frameID: 10, tag: 99,"), 1u);
    EXPECT_EQ(state(10, 99), 1);
    EXPECT_EQ(getSyn(0, 99, 1), (Got{PS_TIMED_OUT, kNothing}));
}

TEST_F(SyncAccess, TagRegisteredWhileAGetWaitsIsDelivered) {
    WaitingGet waiting(10, 99, kLong);
    set(0, 1);  // takes the store's mutex after the get, which orders the get's look-up before the insertion
    registerPsDynamicParam(99, 4, 0, "late", "uint32_t");
    EXPECT_EQ(deliver(10, 5, 99), PS_OK);
    EXPECT_EQ(waiting.finish(), (Got{PS_OK, 5}));

    WaitingGet standing(0, 98, kLong);
    set(0, 1);
    registerPsDynamicParam(98, 4, 0, "later", "uint32_t");
    EXPECT_EQ(deliver(0, 6, 98), PS_OK);
    EXPECT_EQ(standing.finish(), (Got{PS_OK, 6}));
}

TEST_F(SyncAccess, GetWhoseFrameWasErasedAndMadeAgainReadsTheOldFrame) {
    WaitingGet waiting(10, kTag, 4000);
    set(30, 1);  // takes the store's mutex, which orders the get's look-up before the insertion
    registerPsStaticParam(1, 4, 0, "erased first", "uint32_t");
    set(11, 1, 1);
    erasePs(kCam, kPipe, 17);  // the erase of tag 1 removes the empty frame 10; the get waits for another tag
    ASSERT_EQ(pipe().mFrames.count(10), 0u);
    deliver(10, 5);
    EXPECT_EQ(waiting.finish(), (Got{PS_TIMED_OUT, kNothing})) << "the frame that it held never got the value";
}

TEST_F(SyncAccess, EraseEndsTheWaitsInTheFramesThatItErases) {
    set(0, 1);
    set(10, 100);
    WaitingGet missing(12, kTag, kLong);
    WaitingGet kept(60, kTag, kLong);
    EXPECT_EQ(erasePs(kCam, kPipe, 20), PS_OK);
    EXPECT_EQ(missing.finish(), (Got{PS_NOT_OF_FRAME, 100})) << "saved to frame 0 by the erase";
    EXPECT_EQ(frames(), (std::vector<uint32_t>{60}));

    WaitingGet standing(0, kTag, kLong);
    EXPECT_EQ(erasePs(kCam, kPipe, THE_LAST), PS_OK);
    EXPECT_EQ(kept.finish(), (Got{PS_NOT_OF_FRAME, 100}));
    EXPECT_EQ(standing.finish(), (Got{PS_OK, 100}));
    EXPECT_EQ(state(0), 0) << "frame 0 is not delivered any more";
    EXPECT_EQ(countLogged("wait timeout"), 0u);
    EXPECT_TRUE(frames().empty());
}

}  // namespace
