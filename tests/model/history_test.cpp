// Linearizability of concurrent calls: threads make all kinds of calls on a few keys, and each call notes when it began
// and ended and what it returned. A search (Wing and Gong's, with Lowe's cache of states that lead nowhere) looks for
// an order of the calls that fits these times and in which the model returns the same results. A wait is two steps,
// between which other calls may come. A wait may always time out, but the get's answer must then be right for the time
// after the time-out.
//   PARAMSET_HISTORIES         number of histories, 2000 unless set
//   PARAMSET_HISTORY_SECONDS   if set, runs for that long, whatever the number
//   PARAMSET_HISTORY_SEED      1 unless set

#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>

#include <atomic>
#include <chrono>
#include <deque>
#include <random>
#include <set>
#include <thread>
#include <unordered_set>

#include "tests/model/driver.h"

using model::Model;

// A metadata record is represented by its address only; clones have the same address, and nothing is freed.
camera_metadata* clone_camera_metadata(const camera_metadata* source) {
    return const_cast<camera_metadata*>(source);
}
void free_camera_metadata(camera_metadata*) {}

static int64_t now() {
    return std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// Counts the log lines until one at which a call pauses in the middle of its work; 0: no pause.
thread_local uint32_t tPause = 0;

void LogMessage::__print_log_(const char*, ...) const noexcept {
    if (mModule == nullptr || mLevel > host::logLevel() || tPause == 0 || --tPause != 0) return;
    for (const int64_t end = now() + 3000; now() < end;) continue;
}

namespace {

constexpr size_t kThreads = 6;
constexpr int kGroups = 5;              // each has its own camera; while some wait, others run
constexpr size_t kSize = 1024;          // of a value; all its bytes are equal, and in the model it has one byte
constexpr int kNothing = 0xEE;          // in the caller's buffer if nothing was copied
constexpr int kTorn = 256;              // a value whose bytes differ, which no thread has set
constexpr uint32_t kFirstOwnTag = 100;  // registered within a history

/// Tags that are registered from the beginning, one of each type, with a retain number of 6.
constexpr uint32_t kTags[] = {10, 11, 12};

struct Call {
    Kind kind = Kind::kGet;
    model::Request request;
    uint8_t value = 0;
    uint32_t timeout = 0;
    uint32_t pause = 0;
    size_t thread = 0;
    // Filled by the thread.
    int64_t begin = 0, end = 0;  // nanoseconds
    uint32_t result = 0;
    int found = kNothing;
};

camera_metadata* toMetadata(uint8_t value) {
    return reinterpret_cast<camera_metadata*>(uintptr_t{value});
}

uint32_t perform(Call& call, uint8_t* data) {
    const auto& [cam, pipe, frame, tag] = call.request;
    switch (call.kind) {
        case Kind::kGet: return getPsParam(cam, pipe, frame, tag, data);
        case Kind::kSet: return setPsParam(cam, pipe, frame, tag, data);
        case Kind::kGetSyncTimeout: return getPsParamSynTimeout(cam, pipe, frame, tag, data, call.timeout);
        case Kind::kSetSync: return setPsParamSyn(cam, pipe, frame, tag, data);
        case Kind::kErase: return erasePs(cam, pipe, frame);
        case Kind::kSetMetadata: return zarn::ParamSet::setMetadata(cam, frame, toMetadata(call.value));
        case Kind::kGetMetadata:
            if (const auto* metadata = zarn::ParamSet::getMetadata(cam, frame)) {
                call.found = static_cast<int>(reinterpret_cast<uintptr_t>(metadata));
            }
            return 0;
        default: registerPsDynamicParam(tag, kSize, 0, "own", "bytes"); return 0;
    }
}

void run(Call& call) {
    std::array<uint8_t, kSize> data;
    const bool isSet = call.kind == Kind::kSet || call.kind == Kind::kSetSync;
    data.fill(isSet ? call.value : kNothing);
    call.begin = now();
    tPause = call.pause;
    call.result = perform(call, data.data());
    tPause = 0;
    call.end = now();
    if (call.kind != Kind::kGet && call.kind != Kind::kGetSyncTimeout) return;
    const bool isWhole = std::count(data.begin(), data.end(), data[0]) == std::ptrdiff_t{kSize};
    call.found = isWhole ? data[0] : kTorn;
}

// ---- The search

class Search {
public:
    Search(const Model& start, const std::vector<Call>& calls) : mCalls(calls) {
        for (size_t i = 0; i < calls.size(); i++) {
            const Call& call = calls[i];
            const bool waits = call.kind == Kind::kGetSyncTimeout;
            const int64_t answered = call.begin + (call.result == 6 ? int64_t{call.timeout} * 1000000 : 0);
            if (waits) mSteps.push_back({i, kNotBegun, call.begin, call.begin});
            mSteps.push_back({i, waits ? kWaiting : kNotBegun, answered, call.end});
        }
        // First tries the order in which the calls ended, because this order is right most often.
        std::sort(mSteps.begin(), mSteps.end(), [](const Step& a, const Step& b) { return a.usual < b.usual; });
        State state = {start, std::vector<Progress>(calls.size()), {}, calls.size()};
        state.pending.resize(calls.size());
        mIsFound = findOrder(state);
    }
    bool isFound() const { return mIsFound; }

private:
    enum Progress : char { kNotBegun, kWaiting, kDone };
    struct Step {
        size_t call;
        Progress from;
        int64_t earliest, usual;  // the earliest time of the step, and the time at which it is tried first
    };
    struct State {
        Model model;
        std::vector<Progress> progress;
        std::vector<Model::Pending> pending;
        size_t left;
    };

    bool findOrder(const State& state) {
        if (state.left == 0) return true;
        const std::string key = mDeadEnds.empty() ? "" : toKey(state);
        if (mDeadEnds.count(key) != 0) return false;
        int64_t firstEnd = INT64_MAX;
        for (size_t i = 0; i < mCalls.size(); i++) {
            if (state.progress[i] != kDone) firstEnd = std::min(firstEnd, mCalls[i].end);
        }
        for (const Step& step : mSteps) {
            if (state.progress[step.call] != step.from || step.earliest > firstEnd) continue;
            State next = state;
            if (advance(next, step.call) && findOrder(next)) return true;
        }
        mDeadEnds.insert(key.empty() ? toKey(state) : key);
        return false;
    }

    // Takes the call's next step in the model. False if that is not what the call returned.
    bool advance(State& state, size_t index) const {
        const Call& call = mCalls[index];
        Model::Pending& pending = state.pending[index];
        model::Value got = {true, true, std::string(1, static_cast<char>(kNothing))};
        if (call.kind == Kind::kGetSyncTimeout && state.progress[index] == kNotBegun) {
            state.model.beginSync(call.request, "", &got, pending);
            state.progress[index] = kWaiting;
            if (pending.waits) return true;
        }
        state.progress[index] = kDone;
        state.left--;
        const uint32_t result = answer(state.model, call, pending, got);
        return result == call.result && static_cast<uint8_t>(got.bytes[0]) == call.found;
    }

    static uint32_t answer(Model& model, const Call& call, const Model::Pending& pending, model::Value& got) {
        const model::Value given = {true, true, std::string(1, static_cast<char>(call.value))};
        const model::Request& r = call.request;
        switch (call.kind) {
            case Kind::kGet: return model.get(r, &got);
            case Kind::kSet: return model.set(r, &given);
            case Kind::kGetSyncTimeout: return model.endSync(pending, pending.waits && call.result == 6, &got);
            case Kind::kSetSync: return model.setSync(r, &given);
            case Kind::kErase: return model.erase(r);
            case Kind::kSetMetadata: return model.setMetadata(r.cam, r.frame, &given.bytes);
            case Kind::kGetMetadata:
                if (const std::string* metadata = model.getMetadata(r.cam, r.frame)) got.bytes = *metadata;
                return 0;
            default: model.registerTag(r.tag, 1, true, 0, "own", "bytes", 6); return 0;
        }
    }

    // Everything that the rest of the search depends on.
    std::string toKey(const State& state) const {
        std::string key(state.progress.begin(), state.progress.end());
        const auto add = [&key](uint64_t number) { key.append(reinterpret_cast<char*>(&number), sizeof(number)); };
        const model::Pipe& pipe = state.model.pipe(mCalls[0].request.cam, 0);
        for (size_t i = 0; i < mCalls.size(); i++) {
            const auto frame = pipe.frames.find(mCalls[i].request.frame);
            const bool isSame = frame != pipe.frames.end() && frame->second.number == state.pending[i].frame;
            if (state.progress[i] == kWaiting) add(state.pending[i].checked * 2 + isSame);
        }
        const auto addFrame = [&](uint32_t id, const model::Frame& frame) {
            add(id);
            key += frame.metadata.value_or("-") + "/";
            add(frame.tags.size());
            for (const auto& [tag, value] : frame.tags) add(tag), key += value.bytes;
            for (const auto& [tag, status] : frame.status) add(tag), add(static_cast<uint64_t>(status.state));
        };
        addFrame(0, pipe.zero);
        for (const auto& [id, frame] : pipe.frames) addFrame(id, frame);
        for (const auto& [tag, list] : pipe.checkpoints) {
            add(tag);
            add(list ? list->size() : UINT64_MAX);
            for (size_t i = 0; list && i < list->size(); i++) add((*list)[i]);
        }
        for (const auto& [tag, frame] : pipe.erasePoints) add(tag), add(frame);
        add(state.model.registry.size());
        return key;
    }

    const std::vector<Call>& mCalls;
    std::vector<Step> mSteps;
    std::unordered_set<std::string> mDeadEnds;
    bool mIsFound = false;
};

std::string toText(const Call& call) {
    Operation operation;
    operation.kind = call.kind;
    const std::string name = toText(operation);
    char text[120];
    snprintf(text, sizeof(text), " frame %u tag %u value %d -> %d, %d", call.request.frame, call.request.tag,
             call.value, static_cast<int>(call.result), call.found);
    return name.substr(0, name.find(' ')) + text;
}

/// A row for each call, with time from left to right.
std::string picture(std::vector<Call> calls) {
    std::sort(calls.begin(), calls.end(), [](const Call& a, const Call& b) {
        return std::make_pair(a.thread, a.begin) < std::make_pair(b.thread, b.begin);
    });
    std::set<int64_t> times;
    for (const Call& call : calls) times.insert({call.begin, call.end});
    const auto column = [&](int64_t time) {
        return static_cast<size_t>(std::distance(times.begin(), times.find(time)));
    };
    std::string text;
    for (const Call& call : calls) {
        std::string line(times.size(), ' ');
        std::fill(&line[column(call.begin)], &line[column(call.end)], '-');
        line[column(call.begin)] = '[';
        line[column(call.end)] = ']';
        text += "thread " + std::to_string(call.thread) + " " + line + " " + toText(call) + "\n";
    }
    return text;
}

// ---- The threads

std::atomic<int64_t> gLeft{0};  // histories that have not begun yet
std::atomic<bool> gIsOver{false};
std::atomic<uint64_t> gHistories{0}, gCalls{0}, gTimeOuts{0};

/// Threads that make histories of one camera's pipe 0, one after another.
class Group {
public:
    Group(uint32_t cam, uint64_t seed, const Model& start) : mCam(cam), mRandom(seed * kGroups + cam), mStart(start) {
        pthread_barrier_init(&mBarrier, nullptr, kThreads);
        for (size_t i = 0; i < kThreads; i++) mThreads.emplace_back([this, i] { work(i); });
    }
    void join() {
        for (std::thread& thread : mThreads) thread.join();
    }
    const std::string& wrong() const { return mWrong; }

private:
    uint32_t any(uint32_t count) { return static_cast<uint32_t>(mRandom() % count); }

    void work(size_t thread) {
        while (true) {
            if (thread == 0) plan();
            pthread_barrier_wait(&mBarrier);
            if (mIsLast) return;
            if (thread < mActive) {
                // The threads begin at the same time, as nearly as possible.
                for (mReady++; mReady < mActive;) sched_yield();
                for (Call& call : mPlans[thread]) run(call);
            }
            pthread_barrier_wait(&mBarrier);
            if (thread == 0) check();
        }
    }

    void plan() {
        mIsLast = gIsOver || gLeft-- <= 0;
        if (mIsLast) return;
        emptyPipe(mCam, 0);
        mReady = 0;
        mActive = 3 + any(kThreads - 2);
        mValue = 0;
        // An erase looks tags up more than once, so it does not run at the same time as registrations.
        mRegisters = any(8) == 0;
        mTag = mRegisters ? kFirstOwnTag + mCam + kGroups * mNextOwnTag++ : kTags[any(3)];
        mFrames = any(4) == 0 ? std::vector<uint32_t>{1, 2, 3, 4, 5, 6, 7, 8, 9}
                              : std::vector<uint32_t>{1 + any(3), 1 + any(9), any(2) * 9};
        for (size_t thread = 0; thread < kThreads; thread++) {
            mPlans[thread].clear();
            for (size_t i = 2 + any(3); thread < mActive && i > 0; i--) mPlans[thread].push_back(anyCall(thread));
        }
        if (mRegisters) mPlans[0].front().kind = Kind::kRegister;
    }

    Call anyCall(size_t thread) {
        Call call;
        call.thread = thread;
        call.pause = any(10);
        call.request = {mCam, 0, mFrames[any(static_cast<uint32_t>(mFrames.size()))], mTag};
        call.timeout = 1 + any(2);
        const uint32_t kind = any(20);
        if (kind < 4) {
            call.kind = Kind::kGet;
        } else if (kind < 7) {
            call.kind = Kind::kGetSyncTimeout;
        } else if (kind < 15) {
            // Only the thread that has registered a tag sets it.
            call.kind = mRegisters && thread != 0 ? Kind::kGet : kind < 11 ? Kind::kSet : Kind::kSetSync;
            call.value = ++mValue;
        } else if (kind < 17) {
            call.kind = mRegisters ? Kind::kGet : Kind::kErase;
            if (!mRegisters) call.request.frame = any(3) == 0 ? THE_LAST : 8 + any(6);
        } else {
            call.kind = kind < 18 ? Kind::kSetMetadata : Kind::kGetMetadata;
            call.value = ++mValue;
        }
        const bool isPlain = call.kind == Kind::kGet || call.kind == Kind::kSet;
        if (isPlain && any(8) == 0) call.request.frame = THE_LAST;
        return call;
    }

    void check() {
        std::vector<Call> calls;
        for (const auto& plan : mPlans) calls.insert(calls.end(), plan.begin(), plan.end());
        gHistories++;
        gCalls += calls.size();
        for (const Call& call : calls) gTimeOuts += call.result == 6;
        if (Search(mStart, calls).isFound()) return;
        mWrong = picture(calls);
        gIsOver = true;
    }

    const uint32_t mCam;
    std::mt19937_64 mRandom;
    const Model& mStart;
    pthread_barrier_t mBarrier;
    std::vector<std::thread> mThreads;
    std::array<std::vector<Call>, kThreads> mPlans;
    std::atomic<size_t> mReady{0};
    size_t mActive = 0;
    bool mIsLast = false, mRegisters = false;
    uint32_t mTag = 0, mNextOwnTag = 0;
    std::vector<uint32_t> mFrames;
    uint8_t mValue = 0;
    std::string mWrong;
};

}  // namespace

TEST(Histories, EachHasAnOrderInWhichTheModelReturnsTheSame) {
    const auto seconds = static_cast<int64_t>(fromEnvironment("PARAMSET_HISTORY_SECONDS", 0));
    gLeft = seconds != 0 ? INT64_MAX : static_cast<int64_t>(fromEnvironment("PARAMSET_HISTORIES", 2000));
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    host::setLogLevel(5);
    zarn::ParamSet::createInstance();
    Model start;
    start.keepsTranscript = false;
    start.create("", "", "");
    for (int type = 0; type < 3; type++) {
        registerPsDynamicParam(kTags[type], kSize, type, "tag", "bytes");
        start.registerTag(kTags[type], 1, true, type, "tag", "bytes", 6);
    }
    std::deque<Group> groups;
    const auto seed = fromEnvironment("PARAMSET_HISTORY_SEED", 1);
    for (uint32_t cam = 0; cam < kGroups; cam++) groups.emplace_back(cam, seed, start);
    while (seconds != 0 && !gIsOver && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        gIsOver = gIsOver || std::chrono::steady_clock::now() >= end;
    }
    for (Group& group : groups) {
        group.join();
        EXPECT_TRUE(group.wrong().empty()) << "no order of these calls is right (a value of " << kNothing
                                           << " is none, of " << kTorn << " a torn one):\n"
                                           << group.wrong();
    }
    zarn::ParamSet::destroyInstance();
    EXPECT_GT(gHistories, 0u);
    std::cout << gHistories << " histories of " << gCalls << " calls, " << gTimeOuts << " timed out, seed " << seed
              << std::endl;
}
