// All entry points on many threads at once: concurrent calls, calls while the store is destroyed, and many waits.
// PARAMSET_STRESS_SECONDS is the time of the first test, PARAMSET_STRESS_STORES the number of stores in the second.

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <memory>
#include <random>
#include <shared_mutex>

#include "tests/store_fixture.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;
using zarn::ParamSet;

constexpr uint32_t kMany = 40;             // threads
constexpr uint32_t kForever = 0xFFFFFFFF;  // milliseconds
constexpr uint32_t kUntouched = 0xEEEEEEEE;

int environmentOr(const char* name, int otherwise) {
    const char* text = std::getenv(name);
    return text != nullptr ? std::atoi(text) : otherwise;
}

struct Place {
    uint32_t cam;
    int pipe;
    uint32_t frame;
    uint32_t tag;
};

// A value shows where it belongs: it has its place, its serial number, random numbers, and a checksum of the rest.
struct Value {
    size_t size;
    std::array<uint32_t, 513> words;  // one more than the greatest value, to check that nothing is copied beyond it

    static size_t sizeOf(uint32_t tag) { return tag % 4 == 3 ? 512 : 8 + tag; }

    explicit Value(uint32_t tag) : size(sizeOf(tag)) { words.fill(kUntouched); }
    Value(const Place& at, uint32_t serial) : Value(at.tag) {
        words = {at.cam + 1, static_cast<uint32_t>(at.pipe), at.frame, at.tag, serial};
        for (size_t i = 5; i + 1 < size; ++i) words[i] = words[i - 1] * 69069u + 1;
        words[size - 1] = checksum();
    }
    uint32_t checksum() const {
        uint32_t sum = 0;
        for (size_t i = 0; i + 1 < size; ++i) sum = (sum << 5 | sum >> 27) ^ words[i];
        return sum;
    }
    bool isUntouched() const { return words[0] == kUntouched && words[size - 1] == kUntouched; }
    bool isUnwritten() const { return words[0] == 0 && checksum() == 0 && words[size - 1] == 0; }
    bool isOf(const Place& at, uint32_t first, uint32_t last) const {
        return words[0] == at.cam + 1 && words[1] == static_cast<uint32_t>(at.pipe) && words[3] == at.tag &&
               words[2] >= first && words[2] <= last && words[size - 1] == checksum() && words[size] == kUntouched;
    }
};

class Threads : public StoreTest {
protected:
    void SetUp() override {
        StoreTest::SetUp();
        ParamSet::destroyInstance();
        host::setLogSink(countFrames, this);
        host::setLogLevel(0);
        registerFreshTags();
    }

    // Uses the address of the store, so no thread may destroy the store meanwhile.
    void createStore() {
        const std::unique_lock<std::shared_mutex> lock(mEnding);
        ParamSet* store = ParamSet::createInstance();
        for (uint32_t cam = 0; cam < MAX_CAM_NUM; ++cam) {
            store->setPsHandle(cam, store->getPsHandle(cam), nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
        }
        zarn_ops ops = {};
        ops.cmd3 = [](void*, int32_t tag, void*) { return tag; };
        ops.cmd4 = [](void* elem, uint32_t cam, void* caller) {
            return static_cast<Caller*>(caller)->command(*static_cast<zarn::cam_elem*>(elem), cam);
        };
        store->setPsOps(&ops);
    }
    void endStore() {
        const std::shared_lock<std::shared_mutex> lock(mEnding);
        ParamSet::destroyInstance();
    }

    // The number of tags is increased last, so that no thread uses a tag before its registration is complete.
    void registerFreshTags() {
        for (const int type : {0, 2, 1, 0}) {
            const auto size = static_cast<uint32_t>(4 * Value::sizeOf(mTags));
            registerPsQueueParam(mTags, size, type, "fresh", "words", 8);
            ++mTags;
        }
    }

    // Registers tags that no thread uses, and some that the threads use from then on.
    void registerTags(uint32_t first, uint32_t count) {
        for (uint32_t tag = first; tag < first + count; ++tag) {
            registerPsDynamicParam(tag * kSpread, 4, 0, "a name too long to be kept in place", "bytes");
            if (first == kUnused && tag % 64 == 0 && mTags < 64) registerFreshTags();
        }
    }

    std::thread startCalls(uint32_t id, std::function<bool()> isOver) {
        return std::thread([this, id, isOver] {
            Caller caller{*this, id, std::minstd_rand(id + 1)};
            while (!isOver()) {
                for (int i = 0; i < 200; ++i) callOnce(caller);
                std::this_thread::sleep_for(milliseconds(1));  // lets other threads run
            }
        });
    }

    void workUntil(const std::function<bool()>& isOver, uint32_t unusedTags) {
        std::vector<std::thread> threads;
        for (uint32_t id = 0; id < kMany; ++id) threads.push_back(startCalls(id, isOver));
        for (const uint32_t first : {kUnused, 2 * kUnused}) {
            threads.emplace_back([=] { registerTags(first, unusedTags); });
        }
        for (std::thread& thread : threads) thread.join();
    }

    static constexpr uint32_t kUnused = 0x10000;
    static constexpr uint32_t kSpread = 0x9E3779B1;  // odd: multiples of it are spread over the whole map

    bool mStoreStays = true;  // every call must find the store, and what getMetadata returned may be read
    std::atomic<uint32_t> mCalls{0};
    std::atomic<uint32_t> mNoStore{0};
    std::atomic<int> mFramesMade{0};
    std::atomic<int> mFramesDeleted{0};

private:
    struct Caller {
        Threads& test;
        uint32_t id;
        std::minstd_rand random;

        // The command calls the store and may destroy it; the store that forwards the command lives until it returns.
        int command(const zarn::cam_elem& elem, uint32_t cam) {
            for (int i = 0; i < 3; ++i) test.callOnce(*this);
            return static_cast<int>(elem.mPipe[1].mF0->mCamID == cam ? 100 + cam : 0);
        }
    };

    static void countFrames(void* self, pipeline_loglevel, const char*, const char* message) {
        auto* test = static_cast<Threads*>(self);
        test->mFramesMade += std::strstr(message, ", ParamFrame: E cam") != nullptr;
        test->mFramesDeleted += std::strstr(message, ", ~ParamFrame: delete cam") != nullptr;
    }

    void callOnce(Caller& caller) {
        const auto upTo = [&caller](uint32_t count) { return static_cast<uint32_t>(caller.random() >> 8) % count; };
        const uint32_t newest = mNewest += upTo(256) == 0;
        const uint32_t frame = upTo(16) == 0 ? 0 : newest - upTo(14);
        const uint32_t tags = mTags;
        const Place at{upTo(2), 1 + static_cast<int>(upTo(2)), frame, tags - 1 - upTo(std::min(tags, 16u))};
        const auto& [cam, pipe, unused, tag] = at;
        Value got(tag);
        Value given(at, ++mCalls);
        const uint32_t what = upTo(1024);
        if (what < 250) {
            checkGet(getPsParam(cam, pipe, what < 5 ? THE_LAST : frame, tag, got.words.data()), at, got);
        } else if (what < 450) {
            checkDone(setPsParam(cam, pipe, frame, tag, given.words.data()));
        } else if (what < 700) {
            checkDone(setPsParamSyn(cam, pipe, frame, tag, given.words.data()));
        } else if (what < 730) {
            const uint32_t result = getPsParamSynTimeout(cam, pipe, frame, tag, got.words.data(), 1 + upTo(2));
            checkSynchronousGet(result, at, got);
        } else if (what == 730) {
            checkSynchronousGet(getPsParamSyn(cam, pipe, frame, tag, got.words.data()), at, got);
        } else if (what < 750) {
            checkDone(erasePs(cam, pipe, what == 731 ? THE_LAST : newest));
        } else if (what < 850) {
            caller.id < kSharedMetadata ? useMetadata(caller.id, newest) : shareMetadata(newest);
            ParamSet::getMetadata(cam, frame);
        } else if (what < 855) {
            const uint32_t result = getPsParam(cam, pipe, frame, kNever, got.words.data());
            EXPECT_TRUE(result == PS_NO_BUFFER || (result == PS_NO_DATA && !mStoreStays)) << result;
        } else if (what < 860) {
            __atomic_store_n(&zarn::ps_log_tag, static_cast<int>(tag), __ATOMIC_RELAXED);
        } else if (what < 864 && mStoreStays) {
            const auto answer = ParamSet::getInstance()->getParamExternal(cam, pipe, frame, tag, got.words.data());
            EXPECT_EQ(answer, static_cast<int>(tag));
        } else if (what < 864) {
            what % 2 == 0 ? endStore() : static_cast<void>(ParamSet::createInstance());
        } else {
            const uint32_t result = ioctrlOutsidePsParam(cam, 0x8004, 0, &caller, nullptr);
            EXPECT_TRUE(result == 100 + cam || (result == PS_NO_DATA && !mStoreStays)) << result;
        }
    }

    bool checkDone(uint32_t result) {
        mNoStore += result == PS_NO_DATA;
        EXPECT_TRUE(result == PS_OK || (result == PS_NO_DATA && !mStoreStays)) << "result " << result;
        return result == PS_OK;
    }

    void checkGet(uint32_t result, const Place& at, const Value& got) {
        const bool wasAnswered = checkDone(result);
        const bool isValue = got.isUnwritten() || got.isOf(at, 0, mNewest);
        EXPECT_TRUE(wasAnswered ? isValue : got.isUntouched()) << "frame " << at.frame << " tag " << at.tag;
    }

    // The result does not tell whether bytes were copied: if the frame was erased and made again, nothing is copied.
    void checkSynchronousGet(uint32_t result, const Place& at, const Value& got) {
        const uint32_t done = result == PS_NOT_OF_FRAME || result == PS_TIMED_OUT ? PS_OK : result;
        if (result == PS_NOT_OF_FRAME && at.frame != 0 && got.isUntouched()) return;
        if (done != PS_OK || result == PS_NOT_OF_FRAME || at.frame == 0) return checkGet(done, at, got);
        EXPECT_TRUE(got.isUntouched() || got.isOf(at, at.frame, at.frame)) << "frame " << at.frame << " tag " << at.tag;
    }

    // All other threads store metadata for one camera, and do not read it, because another thread may free it.
    void shareMetadata(uint32_t frame) {
        camera_metadata* mine = host::makeMetadata(&frame, sizeof frame);
        checkDone(ParamSet::setMetadata(kSharedMetadata, frame, mine));
        free_camera_metadata(mine);
        ParamSet::getMetadata(kSharedMetadata, frame);
        if (frame % 4 == 0) checkDone(erasePs(kSharedMetadata, 0, frame));
    }

    // Only one thread stores metadata of this camera and erases its pipe 0, so it may read the metadata.
    void useMetadata(uint32_t cam, uint32_t frame) {
        camera_metadata* mine = host::makeMetadata(&frame, sizeof frame);
        checkDone(ParamSet::setMetadata(cam, frame, mine));
        free_camera_metadata(mine);
        camera_metadata* found = ParamSet::getMetadata(cam, frame);
        if (mStoreStays) {
            EXPECT_EQ(std::memcmp(host::metadataBytes(found), &frame, sizeof frame), 0);
        }
        if (frame % 4 == 0) checkDone(erasePs(cam, 0, frame));
    }

    static constexpr uint32_t kNever = 0xFFFF;  // never registered
    static constexpr uint32_t kSharedMetadata = MAX_CAM_NUM - 1;

    std::atomic<uint32_t> mTags{0};  // the tags below this number are registered
    std::shared_mutex mEnding;       // exclusive to use the store's address, shared to destroy the store
    std::atomic<uint32_t> mNewest{100};
};

TEST_F(Threads, NoValueIsTornOrFromAnotherPlace) {
    createStore();
    const auto end = steady_clock::now() + seconds(environmentOr("PARAMSET_STRESS_SECONDS", 2));
    workUntil([&] { return steady_clock::now() >= end; }, 4000);
    EXPECT_EQ(mNoStore, 0u);
    std::cout << mCalls << " calls\n";
}

// The store is destroyed by a thread that does nothing else, and by the callers and their commands. Once as fast as
// possible, once with every frame counted.
TEST_F(Threads, CallsAnswerFromACompleteStoreOrFindNone) {
    mStoreStays = false;
    const int stores = environmentOr("PARAMSET_STRESS_STORES", 1000);
    for (const int level : {0, 5}) {
        host::setLogLevel(level);
        std::atomic<int> ended{0};
        std::thread recreating([&] {
            for (; ended < stores; ++ended) {
                createStore();
                if (ended % 2 == 0) std::this_thread::yield();
                endStore();
            }
        });
        workUntil([&] { return ended == stores; }, 500);
        recreating.join();
        endStore();
        std::cout << mCalls << " calls, of which " << mNoStore << " found no store\n";
        EXPECT_GT(mNoStore.exchange(0), 0u) << "no call met the time without a store";
    }
    EXPECT_GE(mFramesMade, 70 * stores);
    EXPECT_EQ(mFramesMade, mFramesDeleted);
}

// Two threads destroy the same store, and a third sees that there is none: their next calls find no store.
TEST_F(Threads, NoCallFindsTheStoreAfterItsDestruction) {
    constexpr int kRounds = 2000;
    std::atomic<int> round{0};
    std::atomic<int> done{0};
    const auto callInRounds = [&](bool ends) {
        for (int i = 1; i <= kRounds; ++i) {
            while (round < i) std::this_thread::yield();
            ends ? ParamSet::destroyInstance() : void();
            while (ParamSet::getInstance() != nullptr) {
                EXPECT_FALSE(ends) << "round " << i;
            }
            uint32_t value = 0;
            EXPECT_EQ(setPsParam(0, 1, 10, 0, &value), PS_NO_DATA) << "round " << i;
            ++done;
        }
    };
    std::thread threads[] = {std::thread(callInRounds, true), std::thread(callInRounds, true),
                             std::thread(callInRounds, false)};
    for (int i = 1; i <= kRounds; ++i) {
        ParamSet::createInstance();
        round = i;
        while (done < 3 * i) std::this_thread::yield();
    }
    for (std::thread& thread : threads) thread.join();
}

// Two threads build stores while two destroy them. When they have stopped, all calls find one store, or all find none.
TEST_F(Threads, StoreThatExistsIsFoundByCalls) {
    int existed = 0;
    for (int round = 0; round < 3000; ++round) {
        std::atomic<int> arrived{0};
        const auto cross = [&arrived](bool creates) {
            ++arrived;
            while (arrived != 4) std::this_thread::yield();
            creates ? static_cast<void>(ParamSet::createInstance()) : ParamSet::destroyInstance();
        };
        std::thread threads[] = {std::thread(cross, true), std::thread(cross, false), std::thread(cross, true),
                                 std::thread(cross, false)};
        for (std::thread& thread : threads) thread.join();
        const bool exists = ParamSet::getInstance() != nullptr;
        existed += exists;
        uint32_t words[512] = {};
        ASSERT_EQ(setPsParam(0, 1, 10, 0, words), exists ? PS_OK : PS_NO_DATA) << "round " << round;
    }
    EXPECT_TRUE(existed > 0 && existed < 3000) << existed << ": the threads did not overlap";
}

// The process exits while its threads are busy. While static objects are destroyed, threads wait in calls and make new
// ones.
TEST_F(Threads, ProcessMayExitWithCallsRunning) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    const auto exitWithCallsRunning = [&] {
        host::setLogSink(nullptr, nullptr);
        createStore();
        for (uint32_t id = 0; id < 8; ++id) startCalls(id, [] { return false; }).detach();
        std::thread([this] { registerTags(kUnused, 100000); }).detach();
        std::thread([] { getPsParamSynTimeout(0, 3, 7, 0, Value(0).words.data(), kForever); }).detach();
        await([&] { return mCalls > 2000; });
        std::exit(0);
    };
    mStoreStays = false;
    for (int i = 0; i < 10; ++i) EXPECT_EXIT(exitWithCallsRunning(), testing::ExitedWithCode(0), "");
}

// A thread exits while it builds the store. The exit must not wait for this thread forever.
TEST_F(Threads, ProcessMayExitWhileItBuildsAStore) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    const auto exitFromTheLog = [](void*, pipeline_loglevel, const char*, const char*) {
        host::setLogLevel(0);
        std::exit(0);
    };
    const auto exitWhileAStoreIsBuilt = [&] {
        host::setLogSink(exitFromTheLog, nullptr);
        host::setLogLevel(3);
        ParamSet::createInstance();
        std::abort();
    };
    EXPECT_EXIT(exitWhileAStoreIsBuilt(), testing::ExitedWithCode(0), "");
}

// A thread builds the store for so long that the exit stops waiting for it: until this creator is destroyed with the
// registry. The store must not be published then, because nothing would destroy it.
class LateStore : public zarn::param_creator_t<char> {
public:
    LateStore() : param_creator_t<char>(4) {}
    ~LateStore() override {
        sMayGoOn = true;
        mBuilding.join();
        std::fputs(ParamSet::getInstance() == nullptr ? "no store" : "a late store", stderr);
    }
    void build() {
        mBuilding = std::thread([] { ParamSet::createInstance(); });
        await([] { return sIsBuilding.load(); });
    }
    static void holdUp(void*, pipeline_loglevel, const char*, const char*) {
        host::setLogLevel(0);
        sIsBuilding = true;
        while (!sMayGoOn) std::this_thread::yield();
    }

private:
    static inline std::atomic<bool> sIsBuilding{false};
    static inline std::atomic<bool> sMayGoOn{false};
    std::thread mBuilding;
};

TEST_F(Threads, StoreIsNotPublishedDuringAnExit) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    const auto exitWhileAStoreIsBuilt = [] {
        auto late = new LateStore;
        ParamSet::register_tag<char>(9, late, 0, "late", "bytes", 0);
        host::setLogSink(LateStore::holdUp, nullptr);
        host::setLogLevel(3);
        late->build();
        std::exit(0);
    };
    EXPECT_EXIT(exitWhileAStoreIsBuilt(), testing::ExitedWithCode(0), "no store");
}

// A program's own creator, which is destroyed with the registry when the process exits. By then the library finds no
// store and registers nothing, not even the tag of a registration that has waited for the mutex until now.
class LastCalls : public zarn::param_creator_t<char> {
public:
    explicit LastCalls(std::thread registering) : param_creator_t<char>(4), mRegistering(std::move(registering)) {}
    ~LastCalls() override {
        zarn::gRigisterMutex.unlock();
        mRegistering.join();
        registerPsDynamicParam(11, 4, 0, "late", "bytes");
        std::map<uint32_t, zarn::tag_info_t> registry;
        ParamSet::getTagInfo(registry);
        uint32_t value = 0;
        const bool isRefused = registry.empty() && sRegistrations == 0 && ParamSet::createInstance() == nullptr &&
                               getPsParam(0, 1, 10, 0, &value) == PS_NO_DATA &&
                               zarn::ParamFrame(0, 1, nullptr, &zarn::gTagInfo).createTag(0, nullptr) == nullptr;
        std::fputs(isRefused ? "all refused" : "a call was served", stderr);
    }
    static void countRegistrations(void*, pipeline_loglevel, const char*, const char* line) {
        sRegistrations += std::strstr(line, "register_tag") != nullptr;
    }

private:
    static inline int sRegistrations = 0;
    std::thread mRegistering;
};

TEST_F(Threads, RegistryIsClosedWhenItIsDestroyed) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    const auto exitWhileARegistrationWaits = [] {
        static std::atomic<pid_t> sThread{0};
        auto last = new LastCalls(std::thread([] {
            while (sThread == 0) std::this_thread::yield();
            sThread = threadId();
            registerPsDynamicParam(10, 4, 0, "waits", "bytes");
        }));
        ParamSet::register_tag<char>(9, last, 0, "last", "bytes", 0);
        host::setLogSink(LastCalls::countRegistrations, nullptr);
        host::setLogLevel(3);
        zarn::gRigisterMutex.lock();
        sThread = 1;
        await([&] { return sThread > 1; });
        awaitSleep(sThread);
        std::exit(0);
    };
    EXPECT_EXIT(exitWhileARegistrationWaits(), testing::ExitedWithCode(0), "all refused");
}

class Waiters : public StoreTest {
protected:
    void SetUp() override {
        StoreTest::SetUp();
        registerPsDynamicParam(kTag, 4, 0, "tag", "uint32_t");
        set(0, 1);
        set(10, 10);
    }
};

// Each way to end a wait ends all waits on one record at once.
TEST_F(Waiters, OnOneRecordAreAllWokenTogether) {
    const struct {
        const char* name;
        void (*end)();
        Got ofFrame;
        Got ofFrame0;
    } endings[] = {
        {"delivery", [] { deliver(15, 150), deliver(0, 2); }, {PS_OK, 150}, {PS_OK, 2}},
        {"erase", [] { erasePs(kCam, kPipe, 30), deliver(0, 10); }, {PS_NOT_OF_FRAME, 10}, {PS_OK, 10}},
        {"erase all", [] { erasePs(kCam, kPipe, THE_LAST); }, {PS_NOT_OF_FRAME, 10}, {PS_OK, 10}},
    };
    for (const auto& [name, end, ofFrame, ofFrame0] : endings) {
        SetUp();
        std::deque<WaitingGet> waiters;
        for (int i = 0; i < 24; ++i) waiters.emplace_back(i % 2 == 0 ? 15 : 0, kTag, kForever);
        end();
        for (size_t i = 0; i < 24; ++i) EXPECT_EQ(waiters[i].finish(), i % 2 == 0 ? ofFrame : ofFrame0) << name;
        EXPECT_EQ(countLogged("wait timeout"), 0u);
    }
}

// No delivery reaches a destroyed store: its waiting gets wait for their whole time, and the last one frees it.
TEST_F(Waiters, KeepADestroyedStoreUntilTheirTimeOut) {
    takeLog();
    std::vector<std::thread> waiters;
    for (uint32_t i = 0; i < kMany; ++i) {
        waiters.emplace_back([i] {
            const Got expected = i == 0 ? Got{PS_TIMED_OUT, 1} : Got{PS_NOT_OF_FRAME, 10};
            EXPECT_EQ(getSyn(i == 0 ? 0 : 14 + i, kTag, 4000), expected);
        });
    }
    await([&] { return countLogged("_getParamSyn: camID") == kMany; });
    ParamSet::destroyInstance();
    EXPECT_EQ(deliver(15, 150), PS_NO_DATA);
    ParamSet::createInstance();
    EXPECT_EQ(deliver(15, 150), PS_OK);
    EXPECT_EQ(countLogged("~ParamFrame"), 0u) << "no frame is destroyed while gets wait in its store";
    for (std::thread& waiter : waiters) waiter.join();
    EXPECT_EQ(countLogged("~ParamFrame"), 70 + kMany) << "frame 0 of each pipe, frame 10, and the frames of the waits";
    EXPECT_EQ(get(15), 150u);
}

TEST_F(Waiters, WaitForTheirTimeOutAndNotMuchLonger) {
    std::vector<std::thread> threads;
    for (const uint32_t timeout : {1u, 3u, 10u, 50u, 200u, 1000u, 3000u}) {
        threads.emplace_back([timeout] {
            const auto start = steady_clock::now();
            EXPECT_EQ(getSyn(20 + timeout, kTag, timeout), (Got{PS_NOT_OF_FRAME, 10}));
            EXPECT_GE(steady_clock::now() - start, milliseconds(timeout));
            EXPECT_LT(steady_clock::now() - start, milliseconds(timeout) + seconds(20)) << "time-out " << timeout;
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(countLogged(", wait timeout"), threads.size());
    EXPECT_EQ(countLogged(", wait: *.000000 ms."), threads.size()) << "not in milliseconds";
}

}  // namespace
