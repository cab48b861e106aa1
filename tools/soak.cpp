// Long runs of the store, in three modes:
// --frames, --seconds   pipelines erase their old frames, and the contents of the store must not grow
// --growth              each kind of use that makes the store grow, with its bytes per call
// --gap                 counts gets that timed out although the delivery came in time
// Exits with 1 if the store grows where it should not, or does not grow where the header says that it does.

#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <functional>
#include <numeric>
#include <thread>

#include "paramset.h"
#include "platform/host/host_platform.h"

namespace {

using std::chrono::microseconds;
using std::chrono::steady_clock;
using zarn::ParamSet;

constexpr uint32_t kTag = 1;        // type 0, erased explicitly
constexpr uint32_t kQueue = 2;      // type 2, keeps eight values
constexpr uint32_t kLongQueue = 3;  // type 2, with a retain number that is never reached
using Value = std::array<uint32_t, 16>;

// The contents of the store, summed over all cameras and pipes.
struct Held {
    size_t frames, checkpoints, lists, erasePoints, records, registered;
};

Held held() {
    Held sum = {0, 0, 0, 0, 0, zarn::gTagInfo.size()};
    for (uint32_t cam = 0; cam < MAX_CAM_NUM; ++cam) {
        for (const zarn::pipe_elem& pipe : ParamSet::getInstance()->getPsHandle(cam)->mPipe) {
            sum.frames += pipe.mFrames.size();
            sum.lists += pipe.mCheckPoint.size();
            sum.erasePoints += pipe.mErasePoint.size();
            sum.records += pipe.mF0->mStatus.size();
            for (const auto& [id, frame] : pipe.mFrames) sum.records += frame->mStatus.size();
            for (const auto& [tag, ids] : pipe.mCheckPoint) sum.checkpoints += ids != nullptr ? ids->size() : 0;
        }
    }
    return sum;
}

void freshStore() {
    ParamSet::destroyInstance();
    ParamSet::createInstance();
}

void setMetadata(uint32_t cam, uint32_t frame) {
    static camera_metadata* const metadata = host::makeMetadata("metadata", 8);
    ParamSet::setMetadata(cam, frame, metadata);
}

// ---- frames, seconds

struct Pipeline {
    uint32_t cam;
    int pipe;
    std::atomic<uint32_t> readUpTo{0};
    uint64_t late = 0;   // gets that did not return 0
    uint64_t wrong = 0;  // values of another frame, returned as the frame's own

    void produce(uint32_t first, uint32_t last) {
        for (uint32_t frame = first; frame <= last; ++frame) {
            while (frame > readUpTo + 16) std::this_thread::yield();
            Value value = {frame};
            if (pipe == 0) setMetadata(cam, frame);
            setPsParam(cam, pipe, frame, kQueue, value.data());
            setPsParamSyn(cam, pipe, frame, kTag, value.data());
            if (frame % 4 == 0 && frame > 16) erasePs(cam, pipe, frame - 16);
        }
    }
    void read(uint32_t first, uint32_t last) {
        for (uint32_t frame = first; frame <= last; readUpTo = frame++) {
            Value value = {};
            const uint32_t result = getPsParamSynTimeout(cam, pipe, frame, kTag, value.data(), 20);
            late += result != PS_OK;
            wrong += result != PS_NOT_OF_FRAME && value[0] != frame;
            getPsParam(cam, pipe, frame, kQueue, value.data());
        }
    }
};

size_t residentKiB() {
    size_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages >> pages;
    return pages * static_cast<size_t>(sysconf(_SC_PAGESIZE)) / 1024;
}

// Runs until both the number of frames and the seconds are reached.
bool staysBounded(uint32_t frames, uint32_t seconds) {
    const auto end = steady_clock::now() + std::chrono::seconds(seconds);
    Pipeline pipelines[] = {{0, 0}, {0, 1}, {1, 13}};
    const uint32_t chunk = std::max(frames / 60, 500u);
    std::vector<size_t> resident;
    Held most = {};
    uint32_t done = 0;
    while ((done < frames / 3 || steady_clock::now() < end) && done < 0x7F000000) {
        std::vector<std::thread> threads;
        for (Pipeline& pipeline : pipelines) {
            threads.emplace_back([&, done] { pipeline.produce(done + 1, done + chunk); });
            threads.emplace_back([&, done] { pipeline.read(done + 1, done + chunk); });
        }
        for (std::thread& thread : threads) thread.join();
        done += chunk;
        const Held now = held();
        most.frames = std::max(most.frames, now.frames);
        most.checkpoints = std::max(most.checkpoints, now.checkpoints);
        most.records = std::max(most.records, now.records);
        resident.push_back(residentKiB());
    }
    // The first quarter is warm-up. The slope is the difference between the means of the two halves of the rest,
    // divided by half its length.
    const auto half = static_cast<std::ptrdiff_t>(resident.size()) * 3 / 8;
    const auto sum = [half](auto last) { return std::accumulate(last - half, last, 0.0); };
    const double slope = (sum(resident.end()) - sum(resident.end() - half)) / double(half * half) / (3 * chunk) * 1e6;
    uint64_t late = 0;
    uint64_t wrong = 0;
    for (const Pipeline& pipeline : pipelines) late += pipeline.late, wrong += pipeline.wrong;
    std::printf("%u frames through 3 pipelines, %ju gets late, %ju wrong\n", 3 * done, uintmax_t{late},
                uintmax_t{wrong});
    std::printf("held at most: %zu frames, %zu checkpoints, %zu records\n", most.frames, most.checkpoints,
                most.records);
    std::printf("resident: %zu KiB, slope %.1f KiB per million frames\n", resident.back(), slope);
    // The slope is not checked under a sanitizer, which keeps freed memory and is large from the start, nor in a short
    // run, which is only warm-up.
    const bool isSlopeChecked = done >= 300000 && resident[resident.size() / 4] < 32 * 1024;
    return wrong == 0 && most.frames < 150 && most.checkpoints < 300 && most.records < 300 &&
           !(isSlopeChecked && slope > 200);
}

// ---- growth

Value gValue;
constexpr uint32_t kUnused = 0x1000000;  // from here on: ids for the uses that leave entries in the registry

void set(uint32_t frame, uint32_t tag) {
    setPsParam(0, 2, frame, tag, gValue.data());
}

void setSyn(uint32_t frame, uint32_t tag) {
    setPsParamSyn(0, 2, frame, tag, gValue.data());
}

void get(uint32_t frame, uint32_t tag) {
    getPsParam(0, 2, frame, tag, gValue.data());
}

void waitUntilTimeOut(uint32_t frame, uint32_t tag) {
    getPsParamSynTimeout(0, 2, frame, tag, gValue.data(), 1);
}

struct Use {
    const char* name;
    size_t Held::*what;                  // this number grows by one with each call
    std::function<void(uint32_t)> call;  // gets 100, 101, ...; no tags with these ids are registered
};

const Use kUses[] = {
    {"synchronous gets: new frames of a type-2 tag, erased", &Held::frames,
     [](uint32_t i) { waitUntilTimeOut(i, kQueue), erasePs(0, 2, i + 10); }},
    {"synchronous gets: new frames, trimmed but never erased", &Held::frames,
     [](uint32_t i) { set(2 * i, kTag), waitUntilTimeOut(2 * i + 1, kTag); }},
    {"synchronous gets: new frames from 2^31 on, erased", &Held::frames,
     [](uint32_t i) { waitUntilTimeOut(i + 0x80000000, kTag), erasePs(0, 2, i + 0x80000010); }},
    {"synchronous gets or sets: new tags in frame 0", &Held::records, [](uint32_t i) { setSyn(0, i); }},
    {"synchronous gets or sets: new tags in one frame", &Held::records, [](uint32_t i) { setSyn(10, i); }},
    {"gets: new tags in frame 0", &Held::erasePoints, [](uint32_t i) { get(0, i); }},
    {"gets: new tags in another frame", &Held::lists, [](uint32_t i) { get(10, i); }},
    {"gets: new tags, with a queue's frame there, erased", &Held::records,
     [](uint32_t i) { set(10, kQueue), get(10, i), erasePs(0, 2, 20); }},
    {"gets: the same, and again below the erase point", &Held::registered,
     [](uint32_t i) { set(10, kQueue), get(10, 2 * kUnused + i), erasePs(0, 2, 20), get(10, 2 * kUnused + i); }},
    {"sets: new tags, all in one frame", &Held::checkpoints, [](uint32_t i) { set(10, i); }},
    {"sets: new tags, each in a new frame", &Held::frames, [](uint32_t i) { set(i, i); }},
    {"sets: new tags, two frames each", &Held::registered,
     [](uint32_t i) { set(10, kUnused + i), set(11, kUnused + i); }},
    {"sets: a type-2 tag with a large retain number, erased", &Held::frames,
     [](uint32_t i) { set(i, kLongQueue), erasePs(0, 2, i + 10); }},
    {"registrations: new tags", &Held::registered,
     [](uint32_t i) { registerPsDynamicParam(3 * kUnused + i, sizeof(Value), 0, "a tag", "bytes"); }},
    {"metadata: new frames, another pipe erased", &Held::frames,
     [](uint32_t i) { setMetadata(0, i), erasePs(0, 2, i + 10); }},
    {"metadata: new frames with values, trimmed, never erased", &Held::checkpoints,
     [](uint32_t i) { setMetadata(0, i), setPsParam(0, 0, i, kTag, gValue.data()); }},
    {"metadata: one frame again and again", &Held::checkpoints, [](uint32_t) { setMetadata(0, 10); }},
};

// Runs each kind of use in a store of its own. Once everything that is bounded has reached its bound, measures the
// bytes per call, and what remains of them after an erase of everything and after the store was destroyed.
bool growsAsDocumented(uint32_t calls) {
    constexpr uint32_t kFull = 400;
    bool isAsDocumented = true;
    std::printf("%-56s %8s %8s %8s\n", "bytes per call", "cost", "erased", "no store");
    for (const Use& use : kUses) {
        freshStore();
        const auto heap = [] { return static_cast<int64_t>(mallinfo2().uordblks); };
        const int64_t empty = heap();
        for (uint32_t i = 0; i < kFull; ++i) use.call(100 + i);
        const int64_t full = heap();
        const size_t heldBefore = held().*use.what;
        for (uint32_t i = kFull; i < kFull + calls; ++i) use.call(100 + i);
        const int64_t cost = (heap() - full) / calls;
        if (held().*use.what < heldBefore + calls) isAsDocumented = false, std::printf("does not grow: ");
        const auto left = [&] { return intmax_t{(heap() - empty) / (kFull + calls)}; };
        for (const int pipe : {0, 2}) erasePs(0, pipe, THE_LAST);
        const intmax_t erased = left();
        freshStore();
        std::printf("%-56s %8jd %8jd %8jd\n", use.name, intmax_t{cost}, erased, left());
    }
    return isAsDocumented;
}

// ---- gap

constexpr uint32_t kLongWait = 500;  // milliseconds: longer than a busy machine keeps a thread from running

// Makes gets whose delivery begins at most `latest` microseconds after them, while other threads keep the processors
// and the store busy. A delivery is missed if the get timed out although the delivery had returned before the time-out.
void countMissed(uint32_t handOffs, int busyThreads, uint32_t latest) {
    freshStore();
    std::atomic<uint32_t> begun{0};
    std::atomic<uint32_t> delivered{0};
    steady_clock::time_point deliveredAt;  // published by delivered
    std::vector<std::thread> threads;
    for (int i = 0; i < busyThreads; ++i) {
        threads.emplace_back([&, value = Value{}]() mutable {
            while (delivered < handOffs) setPsParam(0, 3, 10, kTag, value.data());
        });
    }
    threads.emplace_back([&] {
        for (uint32_t frame = 1; frame <= handOffs; delivered = frame++) {
            while (begun < frame) std::this_thread::yield();
            const auto start = steady_clock::now() + microseconds(frame * 7919 % (latest + 1));
            while (steady_clock::now() < start) std::this_thread::yield();
            setSyn(frame, kTag);
            deliveredAt = steady_clock::now();
        }
    });
    uint32_t waited = 0;
    uint32_t missed = 0;
    for (uint32_t frame = 1; frame <= handOffs; ++frame) {
        begun = frame;
        const auto inTime = steady_clock::now() + std::chrono::milliseconds(kLongWait);
        const uint32_t result = getPsParamSynTimeout(0, 2, frame, kTag, Value().data(), kLongWait);
        while (delivered < frame) std::this_thread::yield();
        missed += result == PS_TIMED_OUT && deliveredAt < inTime;
        waited += ParamSet::getInstance()->getPsHandle(0)->mPipe[2].mFrames.at(frame)->mStatus.at(kTag).mFrameID != 0;
        if (frame % 64 == 0) erasePs(0, 2, frame);
    }
    for (std::thread& thread : threads) thread.join();
    std::printf("%d busy threads, delivery up to %4u us after the get: of %u gets %u waited, %u missed the delivery\n",
                busyThreads, latest, handOffs, waited, missed);
}

}  // namespace

int main(int argc, char** argv) {
    host::setLogLevel(0);
    registerPsDynamicParam(kTag, sizeof(Value), 0, "tag", "bytes");
    registerPsQueueParam(kQueue, sizeof(Value), 2, "queue", "bytes", 8);
    registerPsQueueParam(kLongQueue, sizeof(Value), 2, "long queue", "bytes", 0x7FFFFFFF);
    freshStore();
    const std::string option = argc == 3 ? argv[1] : "";
    const auto amount = static_cast<uint32_t>(argc == 3 ? std::atoi(argv[2]) : 0);
    if (option == "--frames") return staysBounded(amount, 0) ? 0 : 1;
    if (option == "--seconds") return staysBounded(30000, amount) ? 0 : 1;
    if (option == "--growth") return growsAsDocumented(amount) ? 0 : 1;
    if (option != "--gap") {
        const bool help = argc == 2 && std::string(argv[1]) == "--help";
        std::fprintf(help ? stdout : stderr,
                     "usage: soak --frames FRAMES | --seconds SECONDS | --growth CALLS | --gap GETS\n");
        return help ? 0 : 2;
    }
    for (const int busyThreads : {0, 8}) {
        for (const uint32_t latest : {0u, 100u, 5000u}) countMissed(amount, busyThreads, latest);
    }
}
