// How often the store allocates, and what happens to each operation when memory runs out. For every allocation of an
// operation, a child process prepares a store, calls the operation and lets that allocation fail. Prints a table of the
// outcomes.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <new>

#include "tests/store_fixture.h"

namespace {

thread_local int tLeft = 0;  // the allocation of this thread that fails: 1 is the next; 0: none fails
thread_local int tAllocations = 0;

}  // namespace

// The dynamic linker finds this malloc first. It also finds the operator new of out_of_memory.cpp, which calls malloc.
extern "C" void* malloc(size_t size) {
    static auto* const next = reinterpret_cast<void* (*)(size_t)>(dlsym(RTLD_NEXT, "malloc"));
    ++tAllocations;
    return tLeft > 0 && --tLeft == 0 ? nullptr : next(size);
}

namespace {

constexpr uint32_t kTag = 7, kOther = 8, kStatic = 9, kQueue = 10, kLate = 11, kUnknown = 12, kForeign = 13;
constexpr uint32_t kFull = 21;  // has the greatest number of checkpoints
constexpr int kPipe = 2;
constexpr uint32_t kUntouched = 0xEEEEEEEE;
const char* const kLongText = "a text that a std::string must allocate";

uint32_t gValue;
camera_metadata* gMetadata;
zarn::param_creator_t<char>* gCreator;  // allocated by this program
zarn::ParamFrame* gFrame;               // a frame of no store
zarn_ops gOps = {};
std::map<uint32_t, zarn::tag_info_t> gCopy;

uint32_t get(uint32_t frame, uint32_t tag = kTag) {
    return getPsParam(0, kPipe, frame, tag, &gValue);
}
uint32_t set(uint32_t frame, uint32_t tag = kTag) {
    return setPsParam(0, kPipe, frame, tag, &gValue);
}
uint32_t getSyn(uint32_t frame, uint32_t tag = kTag) {
    return getPsParamSynTimeout(0, kPipe, frame, tag, &gValue, 1);
}
uint32_t deliver(uint32_t frame, uint32_t tag = kTag) {
    return setPsParamSyn(0, kPipe, frame, tag, &gValue);
}
void registerTag(uint32_t tag) {
    registerPsDynamicParam(tag, 4, 0, "tag", "uint32_t");
}
void registerOwn(uint32_t tag) {
    zarn::ParamSet::register_tag<char>(tag, gCreator, 0, kLongText, kLongText, 6);
}
void waitInFrame22() {
    new WaitingGet(22, kTag, 60000);
}

void prepare() {
    zarn::ParamSet::createInstance();
    for (uint32_t tag : {kTag, kOther, kFull}) registerTag(tag);
    registerPsStaticParam(kStatic, 4, 1, "static", "uint32_t");
    registerPsQueueParam(kQueue, 4, 2, "queue", "uint32_t", 6);
    gCreator = new zarn::param_creator_t<char>(4);
    registerOwn(kForeign);
    for (uint32_t frame = 1; frame <= 300; ++frame) set(frame + 1000, kFull);
    for (uint32_t frame = 10; frame < 16; ++frame) set(frame, kQueue);
    for (uint32_t frame : {10u, 20u, 30u}) set(frame), set(frame, kOther);
    set(40, kLate);
    deliver(30);
    gMetadata = host::makeMetadata("bytes", 5);
    zarn::ParamSet::setMetadata(0, 10, gMetadata);
    gCreator = new zarn::param_creator_t<char>(4);
    gFrame = new zarn::ParamFrame(0, 5, nullptr, &zarn::gTagInfo);
    gFrame->createTag(kOther, nullptr);
}

// How a call may end if an allocation fails in it. Each may also end the process.
enum Kind {
    kEnds,       // only by ending the process
    kRefuses,    // with the result `refusal`, if the allocation was for a value
    kMayThrow,   // with std::bad_alloc, if the C++ library throws it for a string
    kMayForget,  // with its usual result, if the platform could not make a copy
    kErases,     // as kRefuses, or with its usual result if another value was saved later
    kNeedsNone,  // it allocates nothing
};

struct Operation {
    const char* name;
    Kind kind;
    uint32_t (*call)();
    uint32_t result = PS_OK;
    uint32_t refusal = PS_NO_BUFFER;
    void (*before)() = [] {};
    const char* lastWords = "paramset: out of memory";  // what it prints when it ends the process
};

#define VOID(...) [] { return __VA_ARGS__, PS_OK; }

const Operation kOperations[] = {
    {"registerPsStaticParam", kMayThrow, VOID(registerPsStaticParam(100, 4, 1, kLongText, kLongText))},
    {"registerPsDynamicParam", kMayThrow, VOID(registerPsDynamicParam(100, 4, 0, kLongText, kLongText))},
    {"registerPsQueueParam", kMayThrow, VOID(registerPsQueueParam(100, 4, 2, kLongText, kLongText, 9))},
    {"registerPsDynamicParamWithExtendingLife", kMayThrow,
     VOID(registerPsDynamicParamWithExtendingLife(100, 4, 0, kLongText, kLongText, 9))},
    {"register_tag", kMayThrow, VOID(registerOwn(100))},
    {"registration of a registered tag", kEnds, VOID(registerTag(kTag))},
    {"registration that the table grows for", kEnds, VOID(registerTag(100)), PS_OK, 0,
     [] {
         for (uint32_t tag = 200; zarn::gTagInfo.size() < 32; ++tag) registerTag(tag);
     }},
    {"registration of an empty entry", kEnds, VOID(registerTag(kLate)), PS_OK, 0, [] { set(50, kLate); }},
    {"getTagInfo", kMayThrow, VOID(zarn::ParamSet::getTagInfo(gCopy)), PS_OK, 0, [] { registerOwn(100); }},
    {"getTagInfo without a store", kMayThrow, VOID(zarn::ParamSet::getTagInfo(gCopy)), PS_OK, 0,
     [] { registerOwn(100), zarn::ParamSet::destroyInstance(); }},
    {"createInstance", kEnds, VOID(zarn::ParamSet::createInstance()), PS_OK, 0, &zarn::ParamSet::destroyInstance},
    {"createInstance of an existing store", kNeedsNone, VOID(zarn::ParamSet::createInstance())},
    {"getInstance", kNeedsNone, VOID(zarn::ParamSet::getInstance())},
    {"destroyInstance", kNeedsNone, VOID(zarn::ParamSet::destroyInstance())},
    {"getPsParam of a frame that has the tag", kEnds, [] { return get(20); }},
    {"getPsParam by a checkpoint", kEnds, [] { return get(25); }},
    {"getPsParam of frame 0, first time", kRefuses, [] { return get(0); }},
    {"getPsParam of an unregistered tag", kEnds, [] { return get(20, kUnknown); }, PS_NO_BUFFER},
    {"setPsParam to a new frame", kRefuses, [] { return set(25); }},
    {"setPsParam to a frame that has the tag", kEnds, [] { return set(20); }},
    {"setPsParam of a second tag", kRefuses, [] { return set(40); }},
    {"setPsParam to frame 0, first time", kRefuses, [] { return set(0); }},
    {"setPsParam of type 1", kRefuses, [] { return set(20, kStatic); }},
    {"setPsParam of type 2 that trims", kRefuses, [] { return set(20, kQueue); }},
    {"setPsParam that trims", kRefuses, [] { return set(2000, kFull); }},
    {"setPsParam by a program's creator", kRefuses, [] { return set(20, kForeign); }, PS_OK, PS_NO_BUFFER, [] {},
     "terminat"},
    {"setPsParam of an unregistered tag, again", kEnds, [] { return set(41, kLate); }, PS_NO_BUFFER},
    {"getPsParamSyn that need not wait", kEnds, [] { return getSyn(30); }},
    {"getPsParamSyn in a new frame", kRefuses, [] { return getSyn(35); }, PS_NOT_OF_FRAME, PS_NOT_OF_FRAME},
    {"getPsParamSyn in a new frame, by frame 0", kRefuses, [] { return getSyn(5); }, PS_NOT_OF_FRAME, PS_NOT_OF_FRAME},
    {"getPsParamSyn in frame 0", kRefuses, [] { return getSyn(0); }, PS_TIMED_OUT, PS_TIMED_OUT},
    {"setPsParamSyn to a new frame", kRefuses, [] { return deliver(25); }, PS_OK, PS_OK},
    {"setPsParamSyn to frame 0", kRefuses, [] { return deliver(0); }, PS_OK, PS_OK},
    {"setPsParamSyn that wakes", kRefuses, [] { return deliver(22); }, PS_OK, PS_OK, &waitInFrame22},
    {"erasePs that saves", kErases, [] { return erasePs(0, kPipe, 27); }},
    {"erasePs that wakes", kErases, [] { return erasePs(0, kPipe, 32); }, PS_OK, PS_NO_BUFFER, &waitInFrame22},
    {"erasePs of everything", kErases, [] { return erasePs(0, kPipe, THE_LAST); }},
    {"setMetadata of a new frame", kMayForget, [] { return zarn::ParamSet::setMetadata(0, 20, gMetadata); }},
    {"setMetadata of frame 0", kMayForget, [] { return zarn::ParamSet::setMetadata(0, 0, gMetadata); }},
    {"getMetadata", kNeedsNone, VOID(zarn::ParamSet::getMetadata(0, 10))},
    {"ioctrlOutsidePsParam", kNeedsNone, [] { return ioctrlOutsidePsParam(0, 0x8000, 1, nullptr, nullptr); },
     PS_NO_DATA},
    {"setPsOps", kNeedsNone, VOID(zarn::ParamSet::getInstance()->setPsOps(&gOps))},
    {"setPsHandle", kNeedsNone,
     VOID(
         zarn::ParamSet::getInstance()->setPsHandle(0, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr))},
    {"getPsHandle", kNeedsNone, VOID(zarn::ParamSet::getInstance()->getPsHandle(0))},
    {"getParamExternal", kNeedsNone, VOID(zarn::ParamSet::getInstance()->getParamExternal(0, kPipe, 0, kTag, &gValue))},
    {"ParamFrame::createTag", kRefuses,
     [] { return gFrame->createTag(kTag, nullptr) != nullptr ? PS_OK : PS_NO_BUFFER; }},
    {"ParamFrame::getTag, existTag and the like", kNeedsNone,
     [] {
         zarn::ParamFrame frame(0, 6, nullptr, &zarn::gTagInfo);
         return gFrame->existTag(kOther) && gFrame->getTag(kOther) != nullptr && gFrame->getMetadata() == nullptr
                    ? gFrame->getActiveTagSize() - 1
                    : PS_NO_BUFFER;
     }},
    {"ParamFrame::eraseTag", kNeedsNone, VOID(gFrame->eraseTag(kOther))},
    {"ParamFrame::setMetadata", kMayForget, VOID(gFrame->setMetadata(gMetadata))},
};

#undef VOID

// How a child ended.
enum Outcome { kDone, kEnded, kRefused, kThrew, kAsUsual, kWrong };  // kDone: no allocation was left to fail

[[noreturn]] void fail(const char* what) {
    fprintf(stderr, "%s\n", what);
    _exit(kWrong);
}

// If the failed call still held a lock, this function would hang until the alarm ends the process.
void checkLocks() {
    if (!zarn::gRigisterMutex.try_lock()) fail("the registry's mutex is held");
    zarn::gRigisterMutex.unlock();
    zarn::ParamSet::createInstance();
    registerTag(101);
    for (uint32_t frame : {0u, 22u, 25u, 3000u}) {
        if (set(frame, 101) != PS_OK || get(frame, 101) != PS_OK) fail("the store fails afterwards");
    }
    for (auto& [id, frame] : zarn::ParamSet::getInstance()->getPsHandle(0)->mPipe[kPipe].mFrames) {
        for (auto& [tag, status] : frame->mStatus) {
            while (!status.mMutex.try_lock()) usleep(1000);
            status.mMutex.unlock();
        }
    }
    zarn::ParamSet::destroyInstance();
    if (zarn::ParamSet::createInstance() == nullptr) fail("there is no store afterwards");
}

// In the child. If no allocation is left to fail, the operation must return its usual result.
[[noreturn]] void run(const Operation& operation, int nth) {
    // If the first child aborts, it ends with std::exit, which writes the coverage if it is measured.
    const bool isFirst = &operation == kOperations && nth == 1;
    std::signal(
        SIGABRT, isFirst ? [](int) { std::exit(kEnded); } : [](int) { _exit(kEnded); });
    alarm(60);
    operation.before();
    gValue = kUntouched;
    uint32_t result = 0;
    bool isThrown = false;
    tLeft = nth;
    try {
        result = operation.call();
    } catch (const std::bad_alloc&) {
        isThrown = true;
    }
    const bool isReached = tLeft == 0;
    const bool isUntouched = gValue == kUntouched;
    tLeft = 0;
    checkLocks();
    if (isThrown) {
        if (operation.kind != kMayThrow) fail("threw");
        _exit(kThrew);
    }
    if (!isReached) {
        if (result != operation.result) fail("another result than usual");
        _exit(kDone);
    }
    const bool mayBeUsual = operation.kind == kMayForget || operation.kind == kErases;
    if (mayBeUsual && result == operation.result) _exit(kAsUsual);
    const bool mayRefuse = operation.kind == kRefuses || operation.kind == kErases;
    if (!mayRefuse || result != operation.refusal) fail("another result than the header says");
    if (!isUntouched) fail("a refused call wrote");
    _exit(kRefused);
}

struct Ending {
    Outcome outcome;
    std::string text;
};

Ending inChild(const Operation& operation, int nth) {
    int ends[2];
    if (pipe(ends) != 0) return {kWrong, "no pipe"};
    fflush(stdout);  // otherwise the child would print the buffered text too
    const pid_t child = fork();
    if (child == 0) {
        dup2(ends[1], STDERR_FILENO);
        run(operation, nth);
    }
    close(ends[1]);
    std::string text;
    char bytes[256];
    for (ssize_t length; (length = read(ends[0], bytes, sizeof bytes)) > 0;)
        text.append(bytes, static_cast<size_t>(length));
    close(ends[0]);
    int status = 0;
    waitpid(child, &status, 0);
    if (!WIFEXITED(status)) return {kWrong, text + "ended by signal " + std::to_string(WTERMSIG(status))};
    return {static_cast<Outcome>(WEXITSTATUS(status)), text};
}

bool isSaid(const std::string& text, const Operation& operation) {
    return text.find("paramset: out of memory") != std::string::npos ||
           text.find(operation.lastWords) != std::string::npos;
}

}  // namespace

// The pipeline's steady state: each frame sets 128 values, reads them, and erases an old frame.
TEST(Allocation, SteadyStreamReusesErasedValues) {
    host::setLogLevel(0);
    zarn::ParamSet::createInstance();
    for (uint32_t tag = 101; tag <= 228; ++tag) registerTag(tag);
    int inGets = 0;
    int inFrames = 0;
    for (uint32_t frame = 10; frame < 120; ++frame) {
        const int before = tAllocations;
        for (uint32_t tag = 101; tag <= 228; ++tag) EXPECT_EQ(set(frame, tag), PS_OK);
        EXPECT_EQ(erasePs(0, kPipe, frame), PS_OK);
        const int beforeGets = tAllocations;
        for (uint32_t tag = 101; tag <= 228; ++tag) {
            for (const uint32_t asked : {frame, frame - 2, frame + 3, frame - 9, 0u, THE_LAST}) {
                EXPECT_EQ(get(asked, tag), PS_OK);
            }
        }
        if (frame < 20) continue;  // not steady yet
        inGets += tAllocations - beforeGets;
        inFrames += beforeGets - before;
    }
    EXPECT_EQ(inGets, 0);
    EXPECT_GT(inFrames, 0) << "nothing was counted";
    EXPECT_LE(inFrames, 6 * 100);
    RecordProperty("allocations of 100 frames", std::to_string(inFrames));
    zarn::ParamSet::destroyInstance();
    zarn::gTagInfo.clear();
    host::setLogLevel(3);
}

TEST(Allocation, DestroyedStoresLeakNothing) {
    host::setLogLevel(0);
    const auto buildAndEnd = [](int stores) {
        for (int i = 0; i < stores; ++i) {
            zarn::ParamSet::createInstance();
            zarn::ParamSet::destroyInstance();
            zarn::ParamSet::destroyInstance();
        }
    };
    buildAndEnd(10);
    const size_t before = mallinfo2().uordblks;
    buildAndEnd(1000);
    EXPECT_LT(mallinfo2().uordblks, before + 1000 * sizeof(void*));
    host::setLogLevel(3);
}

TEST(Allocation, ValueThatGotNoMemoryIsNotKept) {
    zarn::ParamSet::createInstance();
    registerTag(kTag);
    registerTag(kOther);
    for (uint32_t frame : {9u, 10u, 11u}) set(frame);  // the list has room for one more
    erasePs(0, kPipe, 17);
    set(30);  // takes the value that was kept
    set(12, kOther);
    tLeft = 1;
    EXPECT_EQ(set(12), PS_NO_BUFFER);
    EXPECT_EQ(tLeft, 0);
    EXPECT_EQ(erasePs(0, kPipe, 18), PS_OK) << "that of the other tag was saved later";
    EXPECT_EQ(set(31), PS_OK);
    zarn::ParamSet::destroyInstance();
    zarn::gTagInfo.clear();
}

TEST(Allocation, EachFailureEndsItsOperationAsTheHeaderSays) {
    host::setLogLevel(0);
    prepare();
    printf("| %-42s places  ended  refused  threw  as usual\n", "operation");
    int total = 0;
    for (const Operation& operation : kOperations) {
        int count[kWrong + 1] = {};
        while (count[kDone] == 0) {
            const int nth = count[kEnded] + count[kRefused] + count[kThrew] + count[kAsUsual] + 1;
            const Ending ending = inChild(operation, nth);
            ++count[ending.outcome];
            ASSERT_NE(ending.outcome, kWrong) << operation.name << ", allocation " << nth << ": " << ending.text;
            EXPECT_EQ(ending.outcome == kEnded, isSaid(ending.text, operation))
                << operation.name << ", allocation " << nth << ": " << ending.text;
        }
        const int places = count[kEnded] + count[kRefused] + count[kThrew] + count[kAsUsual];
        printf("| %-42s %6d  %5d  %7d  %5d  %8d\n", operation.name, places, count[kEnded], count[kRefused],
               count[kThrew], count[kAsUsual]);
        EXPECT_EQ(places == 0, operation.kind == kNeedsNone) << operation.name;
        total += places;
    }
    printf("%zu operations, %d places\n", std::size(kOperations), total);
}
