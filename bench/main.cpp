// Runs all workloads on all contenders in one process, and then the hand-offs. Takes Google Benchmark's options, and
// three of its own: --all_shapes=0 (only the shapes that have an aim), --handoffs=COUNT, and --handoffs_out=FILE for
// the times of the hand-offs and of several modules at once. A benchmark is named workload/contender/tags/size[/...],
// or pair/workload/tags/size.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "bench/contenders/any_frames.h"
#include "bench/contenders/flat.h"
#include "bench/contenders/maps.h"
#include "bench/contenders/ordered_map.h"
#include "bench/contenders/store.h"
#if PARAMSET_BENCH_TBB
#include "bench/contenders/concurrent_hash.h"
#endif
#if PARAMSET_BENCH_SQLITE
#include "bench/contenders/sqlite.h"
#endif
#if PARAMSET_BENCH_LMDB
#include "bench/contenders/lmdb.h"
#endif
#if PARAMSET_BENCH_TF2
#include "bench/contenders/transform_buffer.h"
#endif
#include "bench/handoff.h"
#include "bench/holding.h"
#include "bench/modules.h"
#include "bench/threads.h"
#include "bench/workloads.h"
#include "platform/host/host_platform.h"

namespace bench {

namespace {

bool gAllShapes = true;

std::string nameOf(const char* workload, const char* contender, Shape shape) {
    return std::string(workload) + "/" + contender + "/" + std::to_string(shape.tags) + "/" +
           std::to_string(shape.size);
}

template <class Run>
void measureWhole(benchmark::State& state, Shape shape) {
    Run run(shape);
    if (!run.isCorrect()) state.SkipWithError("wrong answer");
    for (auto _ : state) run.step();
}

// Times only the steps, not the preparation of each.
template <class Run>
void measureSteps(benchmark::State& state, Shape shape) {
    using Clock = std::chrono::steady_clock;
    Run run(shape);
    if (!run.isCorrect()) state.SkipWithError("wrong answer");
    for (auto _ : state) {
        run.prepare();
        const Clock::time_point start = Clock::now();
        run.step();
        state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count());
    }
}

// Nanoseconds of some steps in a row, without the preparation of the first.
template <class Run>
double timeOf(Run& run, uint32_t steps) {
    using Clock = std::chrono::steady_clock;
    run.prepare();
    const Clock::time_point start = Clock::now();
    for (uint32_t step = 0; step < steps; ++step) run.step();
    return std::chrono::duration<double, std::nano>(Clock::now() - start).count();
}

// The steps that one run of a pair does in its turn; they are timed together.
struct Stretch {
    Shape shape;
    uint32_t steps;
};

// Two interleaved runs, so that a change of the machine's speed affects both. Reports the median ratio of the times of
// a step.
template <class Run, class Other>
void measurePair(benchmark::State& state, Stretch stretch, Stretch otherStretch) {
    Run run(stretch.shape);
    Other other({otherStretch.shape.tags, otherStretch.shape.size, kCam + 1});
    if (!run.isCorrect() || !other.isCorrect()) {
        state.SkipWithError("wrong answer");
        return;
    }
    std::vector<double> ratios;
    for (auto _ : state) {
        const double time = timeOf(run, stretch.steps) / stretch.steps;
        ratios.push_back(time / (timeOf(other, otherStretch.steps) / otherStretch.steps));
    }
    const auto middle = ratios.begin() + static_cast<std::ptrdiff_t>(ratios.size() / 2);
    std::nth_element(ratios.begin(), middle, ratios.end());
    state.counters["ratio"] = *middle;
}

template <class Run>
void addWhole(const char* workload, const char* contender, Shape shape) {
    const auto run = [shape](benchmark::State& state) { measureWhole<Run>(state, shape); };
    benchmark::RegisterBenchmark(nameOf(workload, contender, shape).c_str(), run);
}

template <class Run>
void addSteps(const char* workload, const char* contender, Shape shape) {
    const auto run = [shape](benchmark::State& state) { measureSteps<Run>(state, shape); };
    benchmark::RegisterBenchmark(nameOf(workload, contender, shape).c_str(), run)->UseManualTime();
}

template <class Function>
void forShapes(Function&& add, uint32_t mostBytes = UINT32_MAX) {
    for (const uint32_t size : {16u, 1024u}) {
        for (const uint32_t tags : {1u, 32u, 128u, 1024u}) {
            if (!gAllShapes && (size != 16 || tags == 1)) continue;
            if (tags * size <= mostBytes) add(Shape{tags, size});
        }
    }
}

// The workloads that every contender can do.
template <class C>
void addPlain() {
    forShapes([](Shape shape) {
        addWhole<GetOwn<C>>("a", C::kName, shape);
        addWhole<GetAhead<C>>("b", C::kName, shape);
        if constexpr (C::kAbilities.setsInPlace) addWhole<SetInPlace<C>>("d", C::kName, shape);
        addWhole<Stream<C>>("e", C::kName, shape);
        addWhole<Mix<C>>("i", C::kName, shape);
    });
}

// Histories of hundreds of frames are measured only up to this size of a frame. In the largest shape the values alone
// would need half a gigabyte.
constexpr uint32_t kMostBytesOfLongHistory = 128 * 1024;

template <class C>
void addHistory() {
    forShapes([](Shape shape) { addWhole<GetDeep<C>>("c", C::kName, shape); }, kMostBytesOfLongHistory);
}

template <class C>
void addErase() {
    forShapes([](Shape shape) { addSteps<EraseMany<C>>("h-16", C::kName, shape); });
    const auto one = [](Shape shape) {
        addSteps<EraseOne<C, 16>>("h-1of16", C::kName, shape);
        addSteps<EraseOne<C, 200>>("h-1of200", C::kName, shape);
        addSteps<EraseOne<C, 300>>("h-1of300", C::kName, shape);
    };
    forShapes(one, kMostBytesOfLongHistory);
}

template <class C>
void addThreads() {
    static constexpr Shape shape{128, 16};
    const auto one = [](benchmark::State& state) { runThreads<C>(state, shape, true); };
    const auto several = [](benchmark::State& state) { runThreads<C>(state, shape, false); };
    for (const int threads : {1, 2, 4}) {
        benchmark::RegisterBenchmark(nameOf("k-one", C::kName, shape).c_str(), one)->Threads(threads)->UseRealTime();
        benchmark::RegisterBenchmark(nameOf("k-several", C::kName, shape).c_str(), several)
            ->Threads(threads)
            ->UseRealTime();
    }
}

// Adds the abilities of a contender to the output, for the report.
template <class C>
void describe() {
    constexpr Abilities can = C::kAbilities;
    const std::string text = std::string(can.earlierFrame) + "|" + can.boundedHistory + "|" + can.blockingWait + "|" +
                             can.eraseByFrame + "|" + can.messageTrail;
    benchmark::AddCustomContext(std::string("abilities ") + C::kName, text);
}

template <class C>
void addPeer() {
    describe<C>();
    addPlain<C>();
    if (gAllShapes && C::kAbilities.keepsAll) addHistory<C>();
}

template <class Run, class Other>
void addPair(const char* workload, Stretch stretch, Stretch otherStretch) {
    const int64_t turns = stretch.shape.tags == 1024 ? 10 : 40;
    const auto run = [=](benchmark::State& state) { measurePair<Run, Other>(state, stretch, otherStretch); };
    benchmark::RegisterBenchmark(nameOf("pair", workload, stretch.shape).c_str(), run)->Iterations(turns);
}

// Each tag is used equally often in a stretch, whatever the number of tags. Short stretches over many values would
// mostly measure how the caches are filled again after the other run's stretch.
Stretch callsWith(uint32_t tags) {
    return {{tags, 16}, 128 * tags};
}

template <class Run, class Other>
void addCalls(const char* workload) {
    for (const uint32_t tags : {32u, 128u, 1024u}) addPair<Run, Other>(workload, callsWith(tags), callsWith(tags));
}

// Compares a call with many tags to the same call with few.
template <class Run>
void addGrowth(const char* workload) {
    addPair<Run, Run>(workload, callsWith(1024), callsWith(32));
}

// For workloads whose step handles all tags.
template <class Run, class Other>
void addFrames(const char* workload, uint32_t frames) {
    for (const uint32_t tags : {32u, 128u, 1024u}) {
        const Stretch stretch{{tags, 16}, frames};
        addPair<Run, Other>(workload, stretch, stretch);
    }
}

// The ratios of store to floor that have an aim.
void addPairs() {
    addCalls<GetOwn<Store>, GetOwn<Maps>>("a");
    addCalls<GetAhead<Store>, GetAhead<Maps>>("b");
    addCalls<GetDeep<Store>, GetDeep<Maps>>("c");
    addCalls<SetInPlace<Store>, SetInPlace<Maps>>("d");
    addFrames<Stream<Store>, Stream<Maps>>("e", 16);
    addCalls<Deliver<Store>, Deliver<Maps>>("f");
    addFrames<Mix<Store>, Mix<Maps>>("i", 16);
    // One step at a time, because each needs its frames to be set before.
    addFrames<EraseMany<Store>, EraseMany<Maps>>("h-16", 1);
    addFrames<SetNew<Store>, SetNew<Maps>>("j", 1);
    addFrames<EraseOne<Store, 16>, EraseOne<Maps, 16>>("h-1of16", 1);
    addFrames<EraseOne<Store, 200>, EraseOne<Maps, 200>>("h-1of200", 1);
    addFrames<EraseOne<Store, 300>, EraseOne<Maps, 300>>("h-1of300", 1);
    addGrowth<GetOwn<Store>>("a-growth");
    addGrowth<GetAhead<Store>>("b-growth");
    addGrowth<GetDeep<Store>>("c-growth");
    addGrowth<SetInPlace<Store>>("d-growth");
}

// All workloads, for the store and for Maps.
template <class C>
void addAllWorkloads() {
    describe<C>();
    addPlain<C>();
    addHistory<C>();
    addErase<C>();
    addThreads<C>();
    forShapes([](Shape shape) { addWhole<Deliver<C>>("f", C::kName, shape); });
    forShapes([](Shape shape) { addSteps<SetNew<C>>("j", C::kName, shape); });
    addWhole<Create<C>>("l", C::kName, Shape{128, 16});
}

void addAll() {
    addAllWorkloads<Store>();
    addAllWorkloads<Maps>();
    addPairs();
    addPeer<Flat>();
    addHistory<Flat>();
    addThreads<Flat>();
    addPeer<OrderedMap>();
    addPeer<AnyFrames>();
#if PARAMSET_BENCH_TBB
    addPeer<ConcurrentHash>();
    addThreads<ConcurrentHash>();
#endif
#if PARAMSET_BENCH_SQLITE
    addPeer<Sqlite>();
#endif
#if PARAMSET_BENCH_LMDB
    addPeer<Lmdb>();
#endif
#if PARAMSET_BENCH_TF2
    addPeer<TransformBuffer>();
#endif
}

// A second thread. Without one the C++ library counts references without atomic operations, unlike in a camera process.
class IdleThread {
public:
    ~IdleThread() {
        {
            const std::lock_guard<std::mutex> lock(mMutex);
            mDone = true;
        }
        mCond.notify_all();
        mThread.join();
    }

private:
    void wait() {
        std::unique_lock<std::mutex> lock(mMutex);
        mCond.wait(lock, [this] { return mDone; });
    }

    std::mutex mMutex;
    std::condition_variable mCond;
    bool mDone = false;
    std::thread mThread{[this] { wait(); }};
};

void writeTail(std::FILE* out, const char* name, const std::vector<Tail>& tails) {
    std::fprintf(out, "\"%s\": [", name);
    for (size_t i = 0; i < tails.size(); ++i) {
        const Tail& tail = tails[i];
        std::fprintf(out, "%s[%.0f, %.0f, %.0f]", i == 0 ? "" : ", ", tail.median, tail.p99, tail.p999);
    }
    std::fprintf(out, "]");
}

void writeTimes(std::FILE* out, const char* name, const std::vector<double>& times, uint32_t lost) {
    std::fprintf(out, "\"%s\": {\"lost\": %u, \"ns\": [", name, lost);
    for (size_t i = 0; i < times.size(); ++i) std::fprintf(out, "%s%.0f", i == 0 ? "" : ", ", times[i]);
    std::fprintf(out, "]}");
}

void writeThreads(const char* path, const HandOffs& handOffs, const Tails& tails) {
    std::FILE* out = std::fopen(path, "w");
    if (out == nullptr) {
        std::perror(path);
        std::exit(1);
    }
    std::fprintf(out, "{");
    writeTimes(out, "store", handOffs.store, handOffs.storeLost);
    std::fprintf(out, ", ");
    writeTimes(out, "bare", handOffs.bare, handOffs.bareLost);
    std::fprintf(out, ", \"modules\": {");
    writeTail(out, "store", tails.store);
    std::fprintf(out, ", ");
    writeTail(out, "maps", tails.maps);
    std::fprintf(out, "}}\n");
    std::fclose(out);
}

// Removes one of our own options from the arguments and returns its value; null if it was not given.
const char* takeOption(int& argc, char** argv, const char* prefix) {
    for (int i = 1; i < argc; ++i) {
        if (std::strncmp(argv[i], prefix, std::strlen(prefix)) != 0) continue;
        const char* value = argv[i] + std::strlen(prefix);
        for (--argc; i < argc; ++i) argv[i] = argv[i + 1];
        return value;
    }
    return nullptr;
}

}  // namespace

}  // namespace bench

int main(int argc, char** argv) {
    const char* allShapes = bench::takeOption(argc, argv, "--all_shapes=");
    const char* handOffs = bench::takeOption(argc, argv, "--handoffs=");
    const char* handOffsOut = bench::takeOption(argc, argv, "--handoffs_out=");
    bench::gAllShapes = allShapes == nullptr || std::strcmp(allShapes, "0") != 0;
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;

    const bench::IdleThread idle;
    host::setLogLevel(0);
    bench::addAll();
    bench::addHolding();
    benchmark::RunSpecifiedBenchmarks();
    if (handOffs != nullptr && handOffsOut != nullptr) {
        const bench::HandOffs times = bench::measureHandOffs(static_cast<uint32_t>(std::atoi(handOffs)));
        bench::writeThreads(handOffsOut, times, bench::measureTails());
    }
    benchmark::Shutdown();
}
