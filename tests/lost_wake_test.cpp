// Forces events to coincide that hardly ever do so by chance: a delivery comes in the instant in which a get begins to
// wait, two threads register one tag, or the process exits while the store is destroyed. This program defines five
// functions of the C library, and one of the C++ library. The dynamic linker finds them first, and they stop a thread
// at the moment that a test needs.

#include <dlfcn.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <utility>

#include "tests/store_fixture.h"

namespace {

template <typename Function>
Function* next(Function*, const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

// Each hook runs once: at the next call of its function on this thread.
thread_local const std::function<void()>* tBeforeClock = nullptr;  // a pointer: constructing a function would allocate
thread_local const std::function<void()>* tBeforeLock = nullptr;
thread_local const std::function<void()>* tBeforeTry = nullptr;
thread_local const std::function<void()>* tBeforeAllocation = nullptr;
thread_local std::function<void()> tBeforeWait;
thread_local std::function<void()> tBeforeSecondNotification;
thread_local int tNotifications = 0;
thread_local time_t tSkippedSeconds = 0;  // how far the clock is ahead
std::atomic<int> gWaits{0};

void runOnce(std::function<void()>& hook) {
    if (hook == nullptr) return;
    const std::function<void()> taken = std::move(hook);
    hook = nullptr;
    taken();
}

using MutexCall = int (*)(pthread_mutex_t*);

// The function is not looked up by an initialiser of a static variable: libc++ takes a mutex for that.
int callMutex(const char* name, std::atomic<MutexCall>& real, const std::function<void()>*& before,
              pthread_mutex_t* mutex) {
    if (real == nullptr) real = reinterpret_cast<MutexCall>(dlsym(RTLD_NEXT, name));
    if (const auto* hook = std::exchange(before, nullptr)) (*hook)();
    return real.load()(mutex);
}

}  // namespace

void* operator new(size_t size, const std::nothrow_t&) noexcept {
    if (const auto* hook = std::exchange(tBeforeAllocation, nullptr)) (*hook)();
    return std::malloc(size);
}

extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept {
    // An allocator may ask for the time, so nothing here may allocate. This rules out dlsym.
    if (const auto* hook = std::exchange(tBeforeClock, nullptr)) (*hook)();
    const auto result = static_cast<int>(syscall(SYS_clock_gettime, clock, time));
    time->tv_sec += tSkippedSeconds;
    return result;
}

extern "C" int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
    static std::atomic<MutexCall> real{nullptr};
    return callMutex("pthread_mutex_lock", real, tBeforeLock, mutex);
}

extern "C" int pthread_mutex_trylock(pthread_mutex_t* mutex) noexcept {
    static std::atomic<MutexCall> real{nullptr};
    return callMutex("pthread_mutex_trylock", real, tBeforeTry, mutex);
}

extern "C" int pthread_cond_clockwait(pthread_cond_t* cond, pthread_mutex_t* mutex, clockid_t clock,
                                      const timespec* time) {
    static auto* const real = next(&pthread_cond_clockwait, "pthread_cond_clockwait");
    EXPECT_EQ(clock, CLOCK_MONOTONIC);
    ++gWaits;
    runOnce(tBeforeWait);
    return real(cond, mutex, clock, time);
}

extern "C" int pthread_cond_broadcast(pthread_cond_t* cond) noexcept {
    static auto* const real = next(&pthread_cond_broadcast, "pthread_cond_broadcast");
    if (++tNotifications == 2) runOnce(tBeforeSecondNotification);
    return real(cond);
}

namespace {

constexpr uint32_t kLong = 60000;  // milliseconds; if a get misses its delivery, its result shows the time-out

class LostWake : public StoreTest {
protected:
    void SetUp() override {
        StoreTest::SetUp();
        registerPsDynamicParam(kTag, 4, 0, "tag", "uint32_t");
        set(0, 1);
        gWaits = 0;
    }

    static constexpr uint32_t kLaterTag = kTag + 1;
    static constexpr uint32_t kQueueTag = kTag + 2;  // an explicit erase leaves it

    template <uint32_t tag>
    static void eraseFrameWith() {
        set(20, 9, tag);
        erasePs(kCam, kPipe, 40);
    }

    // The call that ends a wait in frame 20 or frame 0, and the result of the get.
    struct Ending {
        const char* name;
        uint32_t frame;
        void (*end)();
        Got got;
    };
};

// The delivery comes after the get has released the store's mutex, and before the get's last look at the record.
TEST_F(LostWake, DeliveryBeforeTheWaitIsSeenByTheGet) {
    const Ending endings[] = {
        {"delivery", 20, [] { deliver(20, 5); }, {PS_OK, 5}},
        {"delivery to frame 0", 0, [] { deliver(0, 6); }, {PS_OK, 6}},
        {"erase of everything", 0, [] { erasePs(kCam, kPipe, THE_LAST); }, {PS_OK, 3}},
    };
    for (const Ending& ending : endings) {
        SetUp();
        set(30, 3);  // erasing everything does nothing in a pipe without a frame
        takeLog();
        const std::function<void()> endTheWait = [&] { std::thread(ending.end).join(); };
        tBeforeClock = &endTheWait;
        EXPECT_EQ(getSyn(ending.frame, kTag, kLong), ending.got) << ending.name;
        EXPECT_EQ(gWaits, 0) << ending.name;
        EXPECT_EQ(countLogged("4 operator(): cam 0 pipe 2 sof"), 1u) << "the time of the wait is logged nevertheless";
    }
}

// The delivery comes after the get's last look and before its wait. The second notification comes when the store's
// mutex is free again.
TEST_F(LostWake, NotificationThatComesTooEarlyIsRepeated) {
    const Ending endings[] = {
        {"delivery", 20, [] { deliver(20, 5); }, {PS_OK, 5}},
        {"delivery to frame 0", 0, [] { deliver(0, 6); }, {PS_OK, 6}},
        {"erase of everything, in frame 0", 0, [] { erasePs(kCam, kPipe, THE_LAST); }, {PS_OK, 3}},
        {"erase of everything", 20, [] { erasePs(kCam, kPipe, THE_LAST); }, {PS_NOT_OF_FRAME, 3}},
        {"erase", 20, [] { erasePs(kCam, kPipe, 40); }, {PS_NOT_OF_FRAME, 3}},
        {"erase that removes the frame with a later tag", 20, eraseFrameWith<kLaterTag>, {PS_NOT_OF_FRAME, 3}},
        {"erase that leaves the frame", 20, eraseFrameWith<kQueueTag>, {PS_NOT_OF_FRAME, 3}},
    };
    for (const Ending& ending : endings) {
        SetUp();
        registerPsDynamicParam(kLaterTag, 4, 0, "later", "uint32_t");
        registerPsDynamicParam(kQueueTag, 4, 2, "queue", "uint32_t");
        set(19, 3);
        const pid_t getter = threadId();
        std::atomic<bool> isAtWait{false};
        std::atomic<bool> isNotified{false};
        std::thread ender([&] {
            await([&] { return isAtWait.load(); });
            tNotifications = 0;
            tBeforeSecondNotification = [&] {
                isNotified = true;
                awaitSleep(getter);
            };
            ending.end();
            isNotified = true;
        });
        tBeforeWait = [&] {
            isAtWait = true;
            await([&] { return isNotified.load(); });
        };
        EXPECT_EQ(getSyn(ending.frame, kTag, kLong), ending.got) << ending.name;
        ender.join();
        EXPECT_EQ(gWaits, 1) << ending.name;
        EXPECT_EQ(countLogged("wait timeout"), 0u) << ending.name;
    }
}

// The wait ends after forty of its sixty seconds.
TEST_F(LostWake, WaitThatIsEndedLateDidNotTimeOut) {
    const pid_t getter = threadId();
    std::atomic<bool> isAtWait{false};
    std::thread ender([&] {
        await([&] { return isAtWait.load(); });
        awaitSleep(getter);
        deliver(20, 5);
    });
    tBeforeWait = [&] {
        isAtWait = true;
        tSkippedSeconds = 40;
    };
    const Got got = getSyn(20, kTag, kLong);
    tSkippedSeconds = 0;
    ender.join();
    EXPECT_EQ(got, (Got{PS_OK, 5}));
    EXPECT_EQ(countLogged("wait timeout"), 0u);
}

// The other registration comes after this one has found that there is no such tag, and before it takes the mutex.
using Registration = StoreTest;
TEST_F(Registration, ThatTakesTheMutexLastReplacesTheOther) {
    const std::function<void()> registerOnAnotherThread = [] {
        std::thread([] { registerPsDynamicParam(kTag, 2, 0, "first", "bytes"); }).join();
    };
    tBeforeLock = &registerOnAnotherThread;
    registerPsDynamicParam(kTag, 4, 0, "last", "bytes");
    EXPECT_EQ(countLogged("3 register_tag: ParamSet tag:7, name:"), 2u);
    EXPECT_EQ(zarn::gTagInfo.at(kTag).mName, "last");
    EXPECT_EQ(set(10, 0x12345678), PS_OK);
    EXPECT_EQ(get(10), 0x12345678u);
}

// A thread exits while it destroys the store: it has retired the store but not destroyed it yet. The exit must not wait
// for this thread forever.
using Exit = StoreTest;
TEST_F(Exit, FromTheDestructionOfTheStoreEnds) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    const auto exitWhileTheStoreIsDestroyed = [] {
        host::setLogLevel(0);
        const std::function<void()> exit = [] {
            tBeforeLock = tBeforeTry = nullptr;
            std::exit(0);
        };
        // The first mutex is that of the atomic operation on sInstance. libc++ begins with a try_lock.
        tBeforeLock = tBeforeTry = &exit;
        zarn::ParamSet::destroyInstance();
        std::abort();
    };
    EXPECT_EXIT(exitWhileTheStoreIsDestroyed(), testing::ExitedWithCode(0), "");
}

// A creator that is destroyed with the registry. Only then the thread goes on that was about to read the registry.
class LateReader : public zarn::param_creator_t<char> {
public:
    LateReader() : param_creator_t<char>(4) {}
    ~LateReader() override {
        sMayGoOn = true;
        mThread.join();
        std::fputs(sTagsRead == 0 ? "nothing read" : "a destroyed registry read", stderr);
    }
    void begin() {
        mThread = std::thread([] {
            const std::function<void()> stop = [] {
                sIsStopped = true;
                while (!sMayGoOn) std::this_thread::yield();
            };
            tBeforeTry = &stop;
            std::map<uint32_t, zarn::tag_info_t> registry;
            zarn::ParamSet::getTagInfo(registry);
            sTagsRead = registry.size();
        });
        while (!sIsStopped) std::this_thread::yield();
    }

private:
    static inline std::atomic<bool> sIsStopped{false};
    static inline std::atomic<bool> sMayGoOn{false};
    static inline std::atomic<size_t> sTagsRead{0};
    std::thread mThread;
};

TEST_F(Exit, ClosesTheRegistryToAThreadThatIsAboutToReadIt) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    const auto exitWhileTheRegistryIsRead = [] {
        host::setLogLevel(0);
        auto late = new LateReader;
        zarn::ParamSet::register_tag<char>(kTag, late, 0, "late", "bytes", 0);
        late->begin();
        std::exit(0);
    };
    EXPECT_EXIT(exitWhileTheRegistryIsRead(), testing::ExitedWithCode(0), "nothing read");
}

// Starts a thread that registers a tag. While it makes the entry, with the registry's mutex held, it loses its
// processor for much longer than a program may hold that mutex.
std::thread registerSlowly(uint32_t tag, std::atomic<bool>& isMade) {
    static std::atomic<bool> sIsStopped;
    sIsStopped = false;
    std::thread registering([tag, &isMade] {
        const std::function<void()> loseProcessor = [&isMade] {
            sIsStopped = true;
            usleep(1500000);
            isMade = true;
        };
        const std::function<void()> beforeEntry = [&loseProcessor] { tBeforeAllocation = &loseProcessor; };
        tBeforeLock = &beforeEntry;
        registerPsDynamicParam(tag, 4, 0, "made slowly", "uint32_t");
    });
    while (!sIsStopped) std::this_thread::yield();
    return registering;
}

// A creator that is destroyed with the registry. It tells whether that was while a registration made its entry.
class LateEntry : public zarn::param_creator_t<char> {
public:
    LateEntry() : param_creator_t<char>(4) {}
    ~LateEntry() override { std::fputs(sIsMade ? "entry made" : "registry destroyed too early", stderr); }

    static inline std::atomic<bool> sIsMade{false};
};

TEST_F(Exit, WaitsForARegistrationThatMakesItsEntry) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    const auto exitWhileAnEntryIsMade = [] {
        host::setLogLevel(0);
        zarn::ParamSet::register_tag<char>(kTag, new LateEntry, 0, "first", "bytes", 0);
        registerSlowly(kTag + 1, LateEntry::sIsMade).detach();
        std::exit(0);
    };
    EXPECT_EXIT(exitWhileAnEntryIsMade(), testing::ExitedWithCode(0), "entry made");
}

TEST_F(Registration, ThatIsSlowHidesNoTagFromANewStore) {
    registerPsDynamicParam(kTag, 4, 0, "tag", "uint32_t");
    zarn::ParamSet::destroyInstance();
    std::atomic<bool> isMade{false};
    std::thread registering = registerSlowly(kTag + 1, isMade);
    zarn::ParamSet::createInstance();
    EXPECT_EQ(set(10, 1), PS_OK);
    EXPECT_EQ(get(10), 1u);
    registering.join();
    EXPECT_EQ(set(10, 2, kTag + 1), PS_OK);
}

// A thread reads the entries without the registry's mutex, because another one holds it. The exit must leave them.
class WatchedEntry : public zarn::param_creator_t<char> {
public:
    WatchedEntry() : param_creator_t<char>(4) {}
    ~WatchedEntry() override { std::fputs("entry destroyed", stderr); }
};

TEST_F(Exit, LeavesTheRegistryToAThreadThatReadsIt) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    const auto exitWhileTheRegistryIsCopied = [] {
        static std::atomic<bool> sIsCopying{false};
        host::setLogLevel(0);
        zarn::ParamSet::register_tag<char>(kTag, new WatchedEntry, 0, "read", "bytes", 0);
        set(10, 1);
        zarn::gRigisterMutex.lock();
        std::thread([] {
            const std::function<void()> stop = [] {
                sIsCopying = true;
                while (true) pause();
            };
            tBeforeAllocation = &stop;
            std::map<uint32_t, zarn::tag_info_t> registry;
            zarn::ParamSet::getTagInfo(registry);
        }).detach();
        while (!sIsCopying) std::this_thread::yield();
        std::exit(0);
    };
    EXPECT_EXIT(exitWhileTheRegistryIsCopied(), testing::ExitedWithCode(0), testing::Eq(std::string()));
}

}  // namespace
