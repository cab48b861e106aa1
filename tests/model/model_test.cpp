// Random calls to the store, compared with its model. The seed determines the calls. Environment variables:
//   PARAMSET_MODEL_SEED        1 unless set
//   PARAMSET_MODEL_OPERATIONS  1000000 unless set
//   PARAMSET_MODEL_SECONDS     if set, runs for that long, whatever the number of operations
// A run consists of episodes of a few thousand calls. Each begins with an empty registry and a new store, and has its
// own mix of calls.

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <climits>
#include <csignal>
#include <deque>
#include <fstream>
#include <random>

#include "tests/model/driver.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

// The current step, printed if the process crashes. (A sanitizer prints its own report.)
uint64_t gSeed = 0;
uint64_t gSteps = 0;
Operation gOperation;

[[maybe_unused]] void tellWhere(int signal) {
    fprintf(stderr, "\nsignal %d at seed %ju, step %ju: %s\n", signal, static_cast<uintmax_t>(gSeed),
            static_cast<uintmax_t>(gSteps), toText(gOperation).c_str());
    std::signal(signal, SIG_DFL);
    raise(signal);
}

/// The calls of one episode.
class Episode {
public:
    explicit Episode(uint64_t seed) : mRandom(seed) {
        mStyle = static_cast<Style>(any(3));
        mCursor = pick<uint32_t>({1, 1, 6, 1000, 0x7FFFFFC0, 0xFFFFFF00});
        mLength = 2000 + any(mStyle == kDeep ? 6000 : 18000);
        mErases = mStyle == kDeep ? 1 : pick<uint32_t>({5, 40, 120});
        for (size_t i = 1 + any(2); i > 0; i--) mPipes.push_back({any(5), static_cast<int>(any(14)), 0, 0});
        mPipes.push_back({mPipes[0].cam, 0, 0, 0});
        for (size_t i = 1 + any(mStyle == kDeep ? 2 : 7); i > 0; i--) mTags.push_back(anyTag());
    }

    size_t length() const { return mLength; }

    Operation next(const model::Model& model) {
        if (mStep++ == 0) return creation();
        if (mStep <= mTags.size() + 1 && !chance(150)) return registration(mTags[mStep - 2]);
        if (!model.exists && chance(300)) return creation();
        Operation operation = anyCall();
        if (operation.kind != Kind::kGetSync && operation.kind != Kind::kGetSyncTimeout) return operation;
        if (!model.waits(operation.request) || operation.noPointer) return operation;
        // Few waits, because each takes its whole time.
        if (!chance(15)) {
            operation.kind = Kind::kSetSync;
        } else if (!chance(10)) {
            operation.kind = Kind::kGetSyncTimeout;
            operation.number = 1;
        }
        return operation;
    }

private:
    enum Style { kStream, kChaos, kDeep };

    uint32_t any(uint32_t count) { return static_cast<uint32_t>(mRandom() % count); }
    bool chance(uint32_t perMille) { return any(1000) < perMille; }
    template <typename T>
    T pick(std::initializer_list<T> list) {
        return list.begin()[any(static_cast<uint32_t>(list.size()))];
    }

    uint32_t anyTag() {
        return pick<uint32_t>(
            {0, 1, 7, 8, 100, METADATA_TAG - 1, METADATA_TAG + 1, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF});
    }

    uint32_t anyFrame() {
        if (chance(30)) return 0;
        if (chance(20)) return THE_LAST;
        if (chance(mStyle == kChaos ? 200 : 4)) {
            return pick<uint32_t>({1, 6, 7, 8, 9, 0x7FFFFFFF, 0x80000000, 0x80000001, 0xFFFFFFF7, 0xFFFFFFFE});
        }
        if (mStyle == kChaos) return any(40);
        if (chance(mStyle == kDeep ? 500 : 120)) mCursor++;
        return chance(mStyle == kDeep ? 700 : 300) ? mCursor : mCursor - any(mStyle == kDeep ? 400 : 20) + any(3);
    }

    Operation creation() {
        Operation operation;
        operation.kind = Kind::kCreate;
        operation.request.tag = mTags[any(static_cast<uint32_t>(mTags.size()))];
        operation.number = static_cast<int32_t>(any(6));
        operation.noPointer = chance(200);
        return operation;
    }

    Operation registration(uint32_t tag) {
        Operation operation;
        operation.kind = Kind::kRegister;
        operation.request.tag = tag;
        operation.value = pick<uint32_t>({0, 1, 4, 4, 16, 33, Driver::kRoom});
#ifndef PARAMSET_MODEL_SANITIZED
        if (chance(20)) operation.value = 0x80000000 + any(2);
#endif
        operation.number = pick<int32_t>({0, 0, 0, 1, 2, 2, 3, -1});
        operation.retain = pick<int32_t>({-1, -2, -2, 0, 6, 7, 8, 10, 10, 20, 299, 300, 301, 0x7FFFFFFF, -100});
        if (chance(80)) operation.retain = -3;
        operation.noPointer = chance(30);
        return operation;
    }

    Operation anyCall() {
        Operation operation;
        operation.request = mPipes[any(static_cast<uint32_t>(mPipes.size()))];
        operation.request.tag = chance(970) ? mTags[any(static_cast<uint32_t>(mTags.size()))]
                                            : pick<uint32_t>({METADATA_TAG, 12345, anyTag()});
        operation.request.frame = anyFrame();
        operation.value = static_cast<uint32_t>(mRandom());
        operation.number = static_cast<int32_t>(any(3));
        operation.noPointer = chance(3);
        if (chance(3)) operation.request.cam = pick<uint32_t>({5, 6, 0x80000000, 0xFFFFFFFF});
        if (chance(4)) operation.request.pipe = pick<int32_t>({13, 14, -1, 0x7FFFFFFF});
        const uint32_t kind = any(1000);
        if (kind < mErases) return erasure(operation);
        if (kind < 980) {
            operation.kind =
                pick({Kind::kGet, Kind::kGet, Kind::kGet, Kind::kSet, Kind::kSet, Kind::kSet, Kind::kSetSync,
                      Kind::kGetSync, Kind::kGetSyncTimeout, Kind::kSetMetadata, Kind::kGetMetadata});
            if (operation.kind == Kind::kSetMetadata && mStyle != kChaos && !chance(300)) operation.kind = Kind::kSet;
            return operation;
        }
        if (kind < 981) return any(3) == 0 ? ofKind(operation, Kind::kDestroy) : creation();
        if (kind < 984) return registration(operation.request.tag);
        if (kind < 986) return ofKind(operation, Kind::kSetOperations);
        if (kind < 988) return ofKind(operation, Kind::kSetHandles);
        operation.number = static_cast<int32_t>(mRandom());
        if (operation.kind = pick({Kind::kControl, Kind::kControl, Kind::kGetExternal, Kind::kGetHandle});
            operation.kind == Kind::kControl) {
            operation.value = operation.value % 256 << 16 | (0x7FFF + any(13));
            if (chance(980)) operation.value &= 0xFFFF;
        }
        if (chance(30)) operation.noPointer = true;
        return operation;
    }

    Operation erasure(Operation operation) {
        operation.kind = Kind::kErase;
        if (mStyle == kStream && chance(900)) operation.request.frame = mCursor - any(4);
        if (mStyle == kDeep && chance(700)) operation.request.frame = mCursor - any(300);
        if (chance(mStyle == kDeep ? 200 : 30)) operation.request.frame = THE_LAST;
        return operation;
    }

    static Operation ofKind(Operation operation, Kind kind) {
        operation.kind = kind;
        return operation;
    }

    std::mt19937_64 mRandom;
    Style mStyle;
    uint32_t mCursor;  // the stream's newest frame
    uint32_t mErases;  // per mille of the calls
    size_t mLength;
    size_t mStep = 0;
    std::vector<model::Request> mPipes;
    std::vector<uint32_t> mTags;
};

}  // namespace

TEST(Model, RandomCallsGiveTheModelsResults) {
    const uint64_t seed = fromEnvironment("PARAMSET_MODEL_SEED", 1);
    const uint64_t seconds = fromEnvironment("PARAMSET_MODEL_SECONDS", 0);
    const uint64_t operations = seconds != 0 ? UINT64_MAX : fromEnvironment("PARAMSET_MODEL_OPERATIONS", 1000000);
    const auto start = std::chrono::steady_clock::now();
    const auto timeLeft = [&] {
        return seconds == 0 || std::chrono::steady_clock::now() - start < std::chrono::seconds(seconds);
    };
    gSeed = seed;
#ifndef PARAMSET_MODEL_SANITIZED
    for (int signal : {SIGSEGV, SIGBUS, SIGFPE, SIGABRT}) std::signal(signal, tellWhere);
#endif
    uint64_t& step = gSteps;
    for (uint64_t number = 0; step < operations && timeLeft(); number++) {
        Episode episode(seed * 1000003 + number);
        Driver driver;
        std::deque<Operation> latest;
        for (size_t i = 0; i < episode.length() && step < operations; i++, step++) {
            latest.push_back(episode.next(driver.model()));
            if (latest.size() > 8) latest.pop_front();
            gOperation = latest.back();
            const std::string difference = driver.apply(gOperation);
            if (difference.empty()) continue;
            std::string calls;
            for (const Operation& operation : latest) calls += "\n  " + toText(operation);
            FAIL() << "seed " << seed << ", step " << step << " (" << i << " of episode " << number
                   << "), after the calls" << calls << "\ndiffers: " << difference;
        }
        ASSERT_EQ(driver.compareAll(), "") << "seed " << seed << ", step " << step << ", end of episode " << number;
    }
    std::cout << step << " operations, seed " << seed << std::endl;
    RecordProperty("operations", std::to_string(step));
}

namespace {

// The kept inputs are in this program's folder, as on a device. Each line is an input in hexadecimal.
std::string keptInputs() {
    char program[PATH_MAX] = {};
    if (readlink("/proc/self/exe", program, sizeof(program) - 1) < 0) return "";
    const std::string path = program;
    return path.substr(0, path.rfind('/')) + "/tests/model/corpus.txt";
}

std::vector<uint8_t> fromHex(const std::string& text) {
    std::vector<uint8_t> bytes;
    for (size_t i = 0; i + 1 < text.size(); i += 2) {
        bytes.push_back(static_cast<uint8_t>(std::stoul(text.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

size_t gInput = 0;

void tellInput(int) {
    fprintf(stderr, "\nthe input is line %zu of tests/model/corpus.txt\n", gInput);
}

}  // namespace

// The inputs that the fuzzer found worth keeping, and those that have once failed.
TEST(Model, KeptInputsGiveTheModelsResults) {
    const auto earlier = std::signal(SIGABRT, tellInput);  // a difference ends the process, after a message of its own
    std::ifstream file(keptInputs());
    std::string line;
    for (gInput = 1; std::getline(file, line); gInput++) {
        const std::vector<uint8_t> input = fromHex(line);
        LLVMFuzzerTestOneInput(input.data(), input.size());
    }
    std::signal(SIGABRT, earlier);
    EXPECT_GT(gInput, 1u) << "no inputs in " << keptInputs();
}
