// The store's life and layout, a frame's container, and a typical frame from the registration of its tags to its erase.

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <functional>
#include <thread>
#include <utility>

#include "tests/store_fixture.h"

using zarn::ParamFrame;
using zarn::ParamSet;

namespace {

using Paramset = StoreTest;

TEST_F(Paramset, StoreIsBuiltOnceWithAllPipesAndDestroyedOnce) {
    ParamSet::destroyInstance();
    EXPECT_EQ(ParamSet::getInstance(), nullptr);
    takeLog();
    ParamSet::destroyInstance();
    EXPECT_EQ(takeLog(), (Lines{"3 destroyInstance: destory"}));

    property_set("persist.vendor.cam.log.ps", "3");
    property_set("persist.vendor.cam.log.tag", "17 and more");
    property_set("persist.vendor.cam.log.erase", "on");
    ParamSet* first = nullptr;
    ParamSet* second = nullptr;
    for (int round = 0; round < 20; ++round) {
        ParamSet::destroyInstance();
        takeLog();
        std::atomic<int> arrived{0};
        const auto createTogether = [&arrived](ParamSet*& instance) {
            ++arrived;
            while (arrived != 2) std::this_thread::yield();
            instance = ParamSet::createInstance();
        };
        std::thread other(createTogether, std::ref(first));
        createTogether(second);
        other.join();
        EXPECT_EQ(first, second);
        EXPECT_EQ(countLogged("3 createInstance: create"), 1u);
    }
    EXPECT_EQ(ParamSet::getInstance(), first);
    EXPECT_EQ(zarn::ps_log, 3);
    EXPECT_EQ(zarn::ps_log_tag, 17);
    EXPECT_EQ(zarn::ps_log_erase, 0);

    EXPECT_EQ(countLogged("5 ParamFrame: E cam[4] frame[0]"), 14u);
    EXPECT_EQ(countLogged("5 ParamFrame: E cam["), 70u);
    EXPECT_EQ(takeLog(4), (Lines{"3 createInstance: create", "3 ParamSet: E", "3 ParamSet: X"}));

    for (uint32_t cam = 0; cam < MAX_CAM_NUM; ++cam) {
        for (const zarn::pipe_elem& elem : first->getPsHandle(cam)->mPipe) {
            EXPECT_EQ(elem.mF0->mCamID, cam);
            EXPECT_EQ(elem.mF0->mFrameID, 0u);
            EXPECT_TRUE(elem.mF0->mTags.empty() && elem.mFrames.empty() && elem.mCheckPoint.empty() &&
                        elem.mErasePoint.empty());
        }
        for (const void* handle : first->getPsHandle(cam)->mHandle) EXPECT_EQ(handle, nullptr);
    }
    ParamSet::destroyInstance();
    EXPECT_EQ(countLogged("5 ~ParamFrame: delete cam["), 70u);
}

TEST_F(Paramset, DestructionOfTheStoreIsLoggedBeforeThatOfItsFrames) {
    Lines expected;
    registerPsDynamicParam(kTag, 4, 0, "tag", "uint32_t");
    for (int pipe = MAX_PIPE_NUM - 1; pipe >= 0; --pipe) {
        const auto frame = static_cast<uint32_t>(10 + pipe);
        uint32_t value = 1;
        setPsParam(3, pipe, frame, kTag, &value);
        expected.push_back("5 ~ParamFrame: delete cam[3] frame[" + std::to_string(frame) + "], and total tag Num:1");
        expected.push_back("5 ~ParamFrame: delete cam[3] frame[0], and total tag Num:0");
    }
    takeLog();
    for (int i = 0; i < 1000; ++i) ParamSet::destroyInstance();
    Lines lines = takeLog();
    EXPECT_EQ(lines.front(), "3 destroyInstance: destory");
    const auto isOfOtherCamera = [](const std::string& line) { return line.find("cam[3]") == line.npos; };
    lines.erase(std::remove_if(lines.begin(), lines.end(), isOfOtherCamera), lines.end());
    EXPECT_EQ(lines, expected) << "pipe by pipe, frame 0 last";
    EXPECT_NE(ParamSet::createInstance(), nullptr);
    EXPECT_EQ(set(10, 5), PS_OK);
}

TEST_F(Paramset, SwitchesAreDecimalNumbersOfUpToNinetyOneCharacters) {
    for (const auto& [text, number] : {std::pair<std::string, int>{"010", 10},
                                       {"0x1", 0},
                                       {std::string(84, '0') + "17", 17},
                                       {std::string(90, '0') + "9", 9}}) {
        ParamSet::destroyInstance();
        property_set("persist.vendor.cam.log.tag", text.c_str());
        ParamSet::createInstance();
        EXPECT_EQ(zarn::ps_log_tag, number) << text;
    }
}

TEST_F(Paramset, SecondRegistrationThatHadToWaitChangesNothing) {
    ParamSet::destroyInstance();
    registerPsDynamicParam(kTag, 4, 0, "first", "bytes");
    std::atomic<pid_t> thread{0};
    std::unique_lock<std::mutex> lock(zarn::gRigisterMutex);
    std::thread second([&thread] {
        thread = threadId();
        registerPsDynamicParam(kTag, 8, 0, "second", "bytes");
    });
    await([&] { return thread != 0; });
    awaitSleep(thread);
    lock.unlock();
    second.join();
    EXPECT_EQ(zarn::gTagInfo.at(kTag).mName, "first");
    EXPECT_EQ(zarn::gTagInfo.at(kTag).mSize, 4);
}

TEST_F(Paramset, RegistrationHoldsTheExportedMutex) {
    static bool sCouldLock;
    sCouldLock = true;
    host::setLogSink(
        [](void*, pipeline_loglevel, const char*, const char* line) {
            if (std::strstr(line, "register_tag") == nullptr) return;
            std::thread([] {
                sCouldLock = zarn::gRigisterMutex.try_lock();
                if (sCouldLock) zarn::gRigisterMutex.unlock();
            }).join();
        },
        nullptr);
    registerPsDynamicParam(kTag, 4, 0, "tag", "uint32_t");
    EXPECT_FALSE(sCouldLock);
}

// The trace switch is for a log that prints level 4 but not level 5.
TEST_F(Paramset, TracedTagIsLoggedWhereLevelFourIsPrinted) {
    property_set("persist.vendor.cam.log.tag", "7");
    property_set("persist.vendor.cam.log.erase", "1");
    ParamSet::destroyInstance();
    ParamSet::createInstance();
    registerPsQueueParam(kTag, 4, 2, "traced", "uint32_t", 7);
    registerPsDynamicParam(8, 4, 0, "other", "uint32_t");
    host::setLogLevel(4);
    takeLog();
    for (const uint32_t tag : {8u, kTag}) {
        set(10, 1, tag);
        set(11, 1, tag);
        get(12, tag);
        deliver(11, 2, tag);
        getSyn(11, tag, 1);
    }
    erasePs(kCam, kPipe, 18);
    const std::string traced = "camID: 0, pipe: 2, frameID: 11, tag: 7,";
    const std::string copied = "intrData:*,extrData:*,tagSize:4";
    EXPECT_EQ(takeLog(), (Lines{
                             "4 _setParam: success camID: 0, pipe: 2, frameID: 10, tag: 7," + copied,
                             "4 autoErase: pipe 2 tag 7, head 10, queueSize 1",
                             "4 _setParam: success " + traced + copied,
                             "4 permiProc: cam 0 pipe 2 tag 7 destID 12 relatedID:11",
                             "4 _getParam: success  camID: 0, pipe: 2, frameID: 12, tag: 7," + copied,
                             "4 _setParamSyn: " + traced,
                             "4 _getParamSyn: " + traced,
                             "4 _erase: E cam[0] pipe[2] frame[18] and oldest will be erased",
                             "4 _erase: tag:8 checkPoint size:2",
                         }));
}

// Fails to make a buffer, as if memory had run out.
class EmptyCreator : public zarn::param_creator_t<char> {
public:
    EmptyCreator() : param_creator_t<char>(4) {}
    std::shared_ptr<void> create(void*) const override { return nullptr; }
};

TEST_F(Paramset, FrameMayHaveARegistryOfItsOwn) {
    std::map<uint32_t, zarn::tag_info_t> registry;
    registry[6].mCreator = std::make_shared<zarn::param_creator_t<char>>(4);
    ParamFrame frame(0, 5, nullptr, &registry);
    EXPECT_NE(frame.createTag(6, nullptr), nullptr);
    EXPECT_EQ(frame.createTag(7, nullptr), nullptr);
    EXPECT_EQ(countLogged("1 createTag: X Failed to create tag, no such creator: 7"), 1u);
}

// Two threads register the same tags. Each tag then has the size, the creator and the name of one of the two.
TEST_F(Paramset, TagThatTwoThreadsRegisterIsThatOfOneOfThem) {
    constexpr uint32_t kFirst = 1000, kTags = 20000;
    host::setLogLevel(0);
    std::atomic<int> arrived{0};
    const auto registerAll = [&](uint32_t size) {
        ++arrived;
        while (arrived != 2) std::this_thread::yield();
        const std::string name = std::to_string(size);
        for (uint32_t tag = kFirst; tag < kFirst + kTags; ++tag) {
            registerPsDynamicParam(tag, size, 0, name.c_str(), "bytes");
        }
    };
    std::thread other(registerAll, 4u);
    registerAll(8);
    other.join();
    for (uint32_t tag = kFirst; tag < kFirst + kTags; ++tag) {
        const zarn::tag_info_t& info = zarn::gTagInfo.at(tag);
        EXPECT_EQ(info.mName, std::to_string(info.mSize));
        EXPECT_EQ(static_cast<const zarn::param_creator_t<char>&>(*info.mCreator).mSize, info.mSize);
    }
    std::array<char, 8> data{};
    EXPECT_EQ(setPsParam(kCam, kPipe, 10, kFirst, data.data()), PS_OK);
}

TEST_F(Paramset, FrameHoldsItsOwnBuffersAndMetadata) {
    registerPsDynamicParam(1, 4, 0, "one", "uint32_t");
    registerPsDynamicParam(2, 0, 0, "two", "none");
    ParamSet::register_tag<char>(3, nullptr, 0, "no creator", "none", 0);
    ParamSet::register_tag<char>(5, new EmptyCreator, 0, "no memory", "bytes", 0);
    takeLog();

    auto frame = std::make_unique<ParamFrame>(4, 77, nullptr, &zarn::gTagInfo);
    uint32_t value = 0x11223344;
    const std::shared_ptr<void> first = frame->createTag(1, &value);
    value = 5;
    const std::shared_ptr<void> second = frame->createTag(1, &value);
    EXPECT_EQ(*static_cast<uint32_t*>(first.get()), 0x11223344u)
        << "an existing reference to the old buffer stays valid";
    EXPECT_EQ(*static_cast<uint32_t*>(second.get()), 5u);
    EXPECT_EQ(frame->getTag(1), second);
    EXPECT_EQ(frame->createTag(3, &value), nullptr);
    EXPECT_EQ(frame->createTag(4, &value), nullptr);
    EXPECT_EQ(frame->createTag(5, nullptr), nullptr);
    EXPECT_TRUE(frame->existTag(5)) << "an entry without a buffer";
    EXPECT_EQ(frame->getTag(5), nullptr);
    frame->eraseTag(5);
    EXPECT_EQ(frame->getTag(4), nullptr);
    EXPECT_EQ(frame->getActiveTagSize(), 1u);
    EXPECT_NE(frame->createTag(2, nullptr), nullptr);
    EXPECT_TRUE(frame->existTag(2));
    frame->mStatus[2].mState = 1;
    EXPECT_EQ(frame->eraseTag(2), 0);
    EXPECT_EQ(frame->eraseTag(2), 0);
    EXPECT_FALSE(frame->existTag(2));
    EXPECT_EQ(frame->mStatus.at(2).mState, 1) << "the record stays";

    camera_metadata* source = host::makeMetadata("abc", 3);
    frame->setMetadata(source);
    const camera_metadata* copy = frame->getMetadata();
    EXPECT_NE(copy, source);
    EXPECT_EQ(host::metadataSize(copy), 3u);
    frame->setMetadata(source);
    free_camera_metadata(source);
    frame.reset();

    EXPECT_EQ(takeLog(), (Lines{
                             "5 ParamFrame: E cam[4] frame[77]",
                             "5 createTag: X:ok",
                             "5 createTag: X:ok",
                             "1 createTag: X Failed to create tag, no such creator: 3",
                             "1 createTag: X Failed to create tag, no such creator: 4",
                             "5 createTag: X:fail",
                             "5 createTag: X:ok",
                             "5 operator(): free_camera_metadata mCamID:4,mFrameID:77",
                             "5 ~ParamFrame: delete cam[4] frame[77], and total tag Num:1",
                             "5 operator(): free_camera_metadata mCamID:4,mFrameID:77",
                         }));
}

// A program's own creator, which calls a given function while it runs.
class BusyCreator : public zarn::param_creator_t<char> {
public:
    explicit BusyCreator(std::function<void()> work) : param_creator_t<char>(4), mWork(std::move(work)) {}
    std::shared_ptr<void> create(void* src) const override {
        mWork();
        return param_creator_t<char>::create(src);
    }

private:
    std::function<void()> mWork;
};

TEST_F(Paramset, FrameLacksATagUntilItsCreatorHasReturned) {
    ParamFrame frame(0, 5, nullptr, &zarn::gTagInfo);
    uint32_t value = 17;
    int calls = 0;
    const auto work = [&] {
        EXPECT_EQ(frame.existTag(1), ++calls > 1) << "the second time the first buffer is there";
        frame.eraseTag(1);
        frame.eraseTag(2);
    };
    ParamSet::register_tag<char>(1, new BusyCreator(work), 0, "busy", "uint32_t", 0);
    registerPsDynamicParam(2, 4, 0, "neighbour", "uint32_t");
    for (int i = 0; i < 2; ++i) {
        frame.createTag(2, nullptr);
        const std::shared_ptr<void> made = frame.createTag(1, &value);
        EXPECT_EQ(*static_cast<uint32_t*>(frame.getTag(1).get()), 17u);
        EXPECT_EQ(frame.getTag(1), made);
        EXPECT_EQ(frame.getActiveTagSize(), 1u);
    }
}

TEST_F(Paramset, CreatorMayDestroyTheStoreOfItsCall) {
    ParamSet::register_tag<char>(1, new BusyCreator(ParamSet::destroyInstance), 0, "busy", "uint32_t", 0);
    EXPECT_EQ(set(10, 5, 1), PS_OK);
    EXPECT_EQ(countLogged("~ParamFrame"), 71u);
    EXPECT_EQ(get(10, 1), kNothing);
    EXPECT_EQ(ParamSet::getInstance(), nullptr);
}

TEST_F(Paramset, CreatorMayRemoveTheFrameThatAnEraseSaves) {
    auto& frames = pipe().mFrames;
    int calls = 0;
    const auto work = [&] {
        if (++calls == 2) frames.erase(10);  // the first call is for the frame, the second for frame 0
    };
    ParamSet::register_tag<char>(1, new BusyCreator(work), 0, "busy", "uint32_t", 0);
    EXPECT_EQ(set(10, 5, 1), PS_OK);
    EXPECT_EQ(erasePs(kCam, kPipe, 20), PS_OK);
    EXPECT_EQ(get(10, 1), 5u);
}

// What the creator does to the frame that the buffer is for, and the results of the calls.
TEST_F(Paramset, CreatorMayChangeItsFrameAndEvenRemoveIt) {
    const struct {
        const char* name;
        std::function<void(std::map<uint32_t, std::shared_ptr<ParamFrame>>& frames)> work;
        bool isWritten;
        bool isNeighbourLeft;
    } cases[] = {
        {"erases a neighbour", [](auto& frames) { frames.at(10)->eraseTag(2); }, true, false},
        {"erases a neighbour and makes another",
         [](auto& frames) { frames.at(10)->eraseTag(2), frames.at(10)->createTag(3, nullptr); }, true, false},
        {"makes the tag itself", [](auto& frames) { frames.at(10)->mTags[1] = std::make_shared<uint32_t>(9); }, true,
         true},
        {"takes the frame away", [](auto& frames) { frames.erase(10); }, false, false},
        {"replaces the frame",
         [](auto& frames) { frames[10] = std::make_shared<ParamFrame>(0, 10, nullptr, &zarn::gTagInfo); }, true, false},
    };
    for (const auto& [name, work, isWritten, isNeighbourLeft] : cases) {
        for (const bool isDelivery : {false, true}) {
            SetUp();
            registerPsDynamicParam(2, 4, 0, "neighbour", "uint32_t");
            registerPsDynamicParam(3, 4, 0, "another", "uint32_t");
            bool isDone = false;
            const auto inStore = [&isDone, &change = work] {
                if (!std::exchange(isDone, true)) change(pipe().mFrames);
            };
            ParamSet::register_tag<char>(1, new BusyCreator(inStore), 0, "busy", "uint32_t", 0);
            set(10, 2, 2);
            EXPECT_EQ(isDelivery ? deliver(10, 5, 1) : set(10, 5, 1), isWritten || isDelivery ? PS_OK : PS_NO_BUFFER)
                << name;
            EXPECT_EQ(get(10, 1), isWritten ? 5u : kNothing) << name;
            EXPECT_EQ(get(11, 1), isWritten ? 5u : kNothing) << name;
            EXPECT_EQ(get(10, 2), isNeighbourLeft ? 2u : kNothing) << name;
        }
    }
}

TEST_F(Paramset, CreatorMayChangeFrameZeroAndEvenReplaceIt) {
    const struct {
        const char* name;
        std::function<void(std::shared_ptr<ParamFrame>& f0)> work;
    } cases[] = {
        {"erases a neighbour", [](auto& f0) { f0->eraseTag(2); }},
        {"replaces the frame", [](auto& f0) { f0 = std::make_shared<ParamFrame>(0, 0, nullptr, &zarn::gTagInfo); }},
    };
    for (const auto& [name, work] : cases) {
        SetUp();
        const auto inStore = [&change = work] { change(pipe().mF0); };
        ParamSet::register_tag<char>(1, new BusyCreator(inStore), 0, "busy", "uint32_t", 0);
        registerPsDynamicParam(2, 4, 0, "neighbour", "uint32_t");
        set(0, 2, 2);
        EXPECT_EQ(set(0, 5, 1), PS_OK) << name;
        EXPECT_EQ(get(10, 1), 5u) << name;
        EXPECT_EQ(get(10, 2), 0u) << name;
    }
}

// Tests every kind of get that can make frame 0's buffer. No set has written its bytes.
TEST_F(Paramset, ValueThatNobodyWroteIsZero) {
    constexpr size_t kSize = 200;
    using Bytes = std::array<unsigned char, kSize>;
    const struct {
        const char* name;
        uint32_t (*read)(uint32_t tag, void* data);
    } reads[] = {
        {"get of frame 0", [](uint32_t tag, void* data) { return getPsParam(0, 1, 0, tag, data); }},
        {"get before every checkpoint", [](uint32_t tag, void* data) { return getPsParam(0, 1, 9, tag, data); }},
        {"get of a tag of type 1", [](uint32_t tag, void* data) { return getPsParam(0, 1, 9, tag + 100, data); }},
        {"waiting get of frame 0",
         [](uint32_t tag, void* data) { return getPsParamSynTimeout(0, 1, 0, tag, data, 1) - PS_TIMED_OUT; }},
        {"waiting get",
         [](uint32_t tag, void* data) { return getPsParamSynTimeout(0, 1, 9, tag, data, 1) - PS_NOT_OF_FRAME; }},
    };
    uint32_t tag = 1;
    for (const auto& [name, read] : reads) {
        registerPsDynamicParam(++tag, kSize, 0, "tag", "bytes");
        registerPsStaticParam(tag + 100, kSize, 1, "static", "bytes");
        // Fills and frees memory, which the allocator then returns for the value.
        std::vector<std::unique_ptr<Bytes>> used(64);
        for (auto& bytes : used) {
            bytes.reset(new Bytes);
            bytes->fill(0xAB);
            asm volatile("" : : "r"(bytes.get()) : "memory");
        }
        used.clear();
        Bytes got;
        got.fill(0xCD);
        EXPECT_EQ(read(tag, got.data()), 0u) << name;
        EXPECT_EQ(got, Bytes{}) << name;
    }
}

TEST_F(Paramset, ValueThatNobodyWroteIsWhatAProgramsOwnCreatorMakes) {
    class FilledCreator : public zarn::param_creator_t<char> {
    public:
        FilledCreator() : param_creator_t<char>(4) {}
        std::shared_ptr<void> create(void*) const override { return std::make_shared<uint32_t>(0x5A); }
    };
    ParamSet::register_tag<char>(kTag, new FilledCreator, 0, "filled", "uint32_t", 0);
    EXPECT_EQ(get(10), 0x5Au);
    EXPECT_EQ(get(0), 0x5Au);
}

// A program may add tags to the registry, and change it while there is no store.
zarn::tag_info_t tagOfSize(uint32_t size) {
    return {"bytes", "own", std::make_shared<zarn::param_creator_t<char>>(size), 0, static_cast<int32_t>(size), 6};
}

// No call waits for the registry's mutex. If a call cannot make an entry, a later call makes it.
TEST_F(Paramset, ProgramThatHoldsTheRegistryMutexMayCallTheStore) {
    constexpr uint32_t kUnknown = 50;
    registerPsDynamicParam(kTag, 4, 0, "tag", "uint32_t");
    set(30, 3);
    erasePs(kCam, kPipe, 36);
    deliver(38, 0, kUnknown);
    erasePs(kCam, kPipe, 40);
    std::unique_lock<std::mutex> lock(zarn::gRigisterMutex);
    registerPsDynamicParam(kTag, 8, 0, "again", "bytes");
    std::map<uint32_t, zarn::tag_info_t> registry;
    ParamSet::getTagInfo(registry);
    EXPECT_EQ(registry.size(), 1u);
    EXPECT_EQ(ParamFrame(0, 5, nullptr, &zarn::gTagInfo).createTag(kUnknown, nullptr), nullptr);
    EXPECT_EQ(set(50, 5), PS_OK);
    EXPECT_EQ(get(50), 5u);
    EXPECT_EQ(getSyn(50, kTag, 1), (Got{PS_TIMED_OUT, 5}));
    EXPECT_EQ(getSyn(20, kUnknown, 1), (Got{PS_NOT_OF_FRAME, kNothing}));
    takeLog();
    EXPECT_EQ(set(20, 0, kUnknown), PS_NO_BUFFER);
    EXPECT_EQ(takeLog(2)[0], "2 getParamInternal: frameID 20 <= Erased 40,  need life >= 21");
    EXPECT_EQ(zarn::gTagInfo.count(kUnknown), 0u);
    ParamSet::destroyInstance();
    ParamSet::createInstance();
    EXPECT_EQ(set(50, 6), PS_NO_BUFFER) << "this store could not read the registry";
    ParamSet::destroyInstance();
    lock.unlock();
    ParamSet::createInstance();
    EXPECT_EQ(set(50, 6), PS_OK);

    deliver(38, 0, kUnknown);
    erasePs(kCam, kPipe, 40);
    set(20, 0, kUnknown);
    EXPECT_EQ(zarn::gTagInfo.count(kUnknown), 1u) << "made by the next look-up";
    EXPECT_EQ(get(50), 6u);
}

// Without a store the library takes the registry's mutex if it is free, but also works while this thread holds it.
TEST_F(Paramset, RegistryIsReadWithoutAStore) {
    registerPsDynamicParam(kTag, 4, 0, "tag", "uint32_t");
    ParamSet::destroyInstance();
    for (const bool isHeld : {false, true}) {
        std::unique_lock<std::mutex> lock(zarn::gRigisterMutex, std::defer_lock);
        if (isHeld) lock.lock();
        std::map<uint32_t, zarn::tag_info_t> registry;
        ParamSet::getTagInfo(registry);
        EXPECT_EQ(registry.size(), 1u);
        EXPECT_EQ(registry[kTag].mName, "tag");
        ParamFrame frame(0, 5, nullptr, &zarn::gTagInfo);
        EXPECT_NE(frame.createTag(kTag, nullptr), nullptr);
        EXPECT_EQ(frame.createTag(8, nullptr), nullptr);
    }
    std::vector<const zarn::tag_info_t*> entries;
    for (uint32_t tag = 20; tag < 30; ++tag) entries.push_back(&(zarn::gTagInfo[tag] = tagOfSize(4)));
    ParamSet::getTagInfo(zarn::gTagInfo);
    for (uint32_t tag = 20; tag < 30; ++tag) EXPECT_EQ(&zarn::gTagInfo.at(tag), entries[tag - 20]) << "not copied";
}

TEST_F(Paramset, TagThatAProgramAddsToTheRegistryIsRegistered) {
    for (uint32_t tag = 100; tag < 300; ++tag) {
        const std::lock_guard<std::mutex> lock(zarn::gRigisterMutex);
        zarn::gTagInfo[tag] = tagOfSize(4);
    }
    takeLog();
    registerPsDynamicParam(100, 32, 0, "later", "bytes");
    EXPECT_TRUE(takeLog().empty()) << "the first registration stands";
    for (uint32_t tag = 100; tag < 300; ++tag) {
        EXPECT_EQ(set(10, tag, tag), PS_OK);
        EXPECT_EQ(get(11, tag), tag);
    }
}

TEST_F(Paramset, StoreBeginsWithTheRegistryAsItIsWhenTheStoreIsBuilt) {
    const auto expectSizes = [](const char* when, std::map<uint32_t, uint32_t> sizes) {
        for (const auto& [tag, size] : sizes) {
            std::array<char, 32> data;
            data.fill('x');
            EXPECT_EQ(setPsParam(0, 1, 10, tag, data.data()), size != 0 ? PS_OK : PS_NO_BUFFER) << when << tag;
            data.fill('y');
            getPsParam(0, 1, 10, tag, data.data());
            EXPECT_EQ(std::count(data.begin(), data.end(), 'x'), size) << when << tag;
        }
    };
    registerPsDynamicParam(1, 4, 0, "one", "bytes");
    registerPsDynamicParam(2, 4, 0, "two", "bytes");
    expectSizes("registered, tag ", {{1, 4}, {2, 4}, {3, 0}});

    ParamSet::destroyInstance();
    zarn::gTagInfo.erase(2);
    zarn::gTagInfo[3] = tagOfSize(16);
    zarn::gTagInfo[1] = tagOfSize(8);
    ParamSet::createInstance();
    expectSizes("changed, tag ", {{1, 8}, {2, 0}, {3, 16}});

    ParamSet::destroyInstance();
    const auto replaced = zarn::gTagInfo.extract(3);
    zarn::gTagInfo[3] = tagOfSize(28);
    ParamSet::createInstance();
    expectSizes("replaced, tag ", {{1, 8}, {2, 0}, {3, 28}});

    ParamSet::destroyInstance();
    zarn::gTagInfo.clear();
    registerPsDynamicParam(2, 24, 0, "two", "bytes");
    zarn::gTagInfo.clear();
    registerPsDynamicParam(2, 20, 0, "two", "bytes");
    ParamSet::createInstance();
    expectSizes("registered without a store, tag ", {{1, 0}, {2, 20}, {3, 0}});

    ParamSet::destroyInstance();
    std::unique_lock<std::mutex> lock(zarn::gRigisterMutex);
    zarn::gTagInfo.clear();
    zarn::gTagInfo[2] = tagOfSize(12);
    zarn::gTagInfo[4] = tagOfSize(16);
    ParamSet::createInstance();
    lock.unlock();
    expectSizes("created with the mutex held, tag ", {{1, 0}, {2, 12}, {3, 0}, {4, 16}});
}

TEST_F(Paramset, TypicalFrameFromRegistrationToErasure) {
    const uint32_t tag = 42;
    registerPsDynamicParam(tag, 16, 0, "gains", "float[4]");
    char in[16] = "fifteen letters";
    char out[16] = {};
    takeLog();

    EXPECT_EQ(setPsParamSyn(0, 2, 100, tag, in), PS_OK);
    EXPECT_EQ(takeLog(),
              (Lines{
                  "5 _setParamSyn: camID: 0, pipe: 2, frameID: 100, tag: 42,",
                  "5 createNew: createNew ParamFrame",
                  "5 ParamFrame: E cam[0] frame[100]",
                  "5 permiProc: add checkPoint[100] size:1,permiProc:_modifiable",
                  "5 createTag: X:ok",
                  "5 _setParamSyn: success camID: 0, pipe: 2, frameID: 100, tag: 42,intrData:*,extrData:*,tagSize:16",
              }));
    EXPECT_EQ(getPsParamSyn(0, 2, 100, tag, out), PS_OK);
    EXPECT_STREQ(out, in);
    EXPECT_EQ(takeLog(),
              (Lines{
                  "5 _getParamSyn: camID: 0, pipe: 2, frameID: 100, tag: 42,",
                  "5 _getParamSyn: success  camID: 0, pipe: 2, frameID: 100, tag: 42,intrData:*,extrData:*,tagSize:16",
              }));
    EXPECT_EQ(getPsParam(0, 2, 103, tag, out), PS_OK);
    EXPECT_EQ(takeLog(),
              (Lines{
                  "5 getParamInternal: E cam 0 pipe 2 frame 103 tag 42 erasePoint:0",
                  "5 createNew: createNew ParamFrame",
                  "5 findRelated: desID 103, relateID[100]",
                  "5 permiProc: cam 0 pipe 2 tag 42 destID 103 relatedID:100",
                  "5 _getParam: success  camID: 0, pipe: 2, frameID: 103, tag: 42,intrData:*,extrData:*,tagSize:16",
              }));
    EXPECT_EQ(erasePs(0, 2, 108), PS_OK);
    EXPECT_EQ(takeLog(),
              (Lines{
                  "5 ParamFrame: E cam[0] frame[108]",
                  "5 _erase: E cam[0] pipe[2] frame[108] and oldest will be erased",
                  "5 _erase: tag:42 checkPoint size:1",
                  "5 getParamInternal: E cam 0 pipe 2 frame 100 tag 42 erasePoint:0",
                  "5 getParamInternal: E cam 0 pipe 2 frame 0 tag 42 erasePoint:0",
                  "5 createTag: X:ok",
                  "5 _setParam: success camID: 0, pipe: 2, frameID: 0, tag: 42,intrData:*,extrData:*,tagSize:16",
                  "5 ~ParamFrame: delete cam[0] frame[100], and total tag Num:0",
                  "5 _erase: X:ret:0, cam[0] pipe[2], and finaly frame[102]save to frame[0]",
                  "5 ~ParamFrame: delete cam[0] frame[108], and total tag Num:0",
              }));
    EXPECT_TRUE(frames().empty() && checkpoints(tag).empty());
    EXPECT_EQ(pipe().mErasePoint.at(tag), 102u);
    std::fill(std::begin(out), std::end(out), '\0');
    EXPECT_EQ(getPsParam(0, 2, 100, tag, out), PS_OK);
    EXPECT_STREQ(out, in);
    EXPECT_EQ(takeLog(2), (Lines{"2 getParamInternal: frameID 100 <= Erased 102, gains need life >= 9"}));
}

}  // namespace
