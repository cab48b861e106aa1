#include "bench/handoff.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <thread>

#include "bench/contenders/store.h"
#include "bench/workloads.h"

namespace bench {

namespace {

using Clock = std::chrono::steady_clock;

constexpr uint32_t kSize = 16;
constexpr std::chrono::microseconds kTimeToFallAsleep{60};
constexpr double kLostNs = 20e6;  // longer than this: the notification was lost, and the get waited its whole 50 ms

// As in the store: the getter waits on a record's mutex and condition variable, and locks the store's mutex again
// before it continues; the setter notifies with the store's mutex held.
class BareHandOff {
public:
    void await(uint32_t, void* value) {
        std::unique_lock<std::mutex> lock(mMutex);
        mWaiting = true;
        lock.unlock();
        std::unique_lock<std::mutex> record(mRecordMutex);
        mCond.wait_for(record, std::chrono::milliseconds(DEFAULT_WAIT_MS));
        lock.lock();
        std::memcpy(value, mValue, kSize);
    }
    void deliver(uint32_t, const void* value) {
        const std::lock_guard<std::mutex> lock(mMutex);
        if (mWaiting) mCond.notify_all();
        mWaiting = false;
        std::memcpy(mValue, value, kSize);
    }

private:
    std::mutex mMutex;
    std::mutex mRecordMutex;
    std::condition_variable mCond;
    bool mWaiting = false;
    char mValue[kSize] = {};
};

// Each hand-off has a frame of its own.
class StoreHandOff {
public:
    void await(uint32_t frame, void* value) {
        if (frame > kLiveFrames) mStore.erase(kCam, frame - kEraseLag);
        mStore.await(kCam, frame, 0, value);
    }
    void deliver(uint32_t frame, const void* value) { mStore.deliver(kCam, frame, 0, value); }

private:
    Store mStore{1, kSize};
};

// Another thread waits for the values. This one delivers each value after the other has had time to fall asleep.
template <class HandOff>
void handOver(HandOff& handOff, uint32_t first, uint32_t count, std::vector<double>& times, uint32_t& lost) {
    std::atomic<uint32_t> aboutToWait{0};
    std::atomic<uint32_t> received{0};
    std::atomic<int64_t> receivedAt{0};
    const auto now = [] { return Clock::now().time_since_epoch().count(); };

    std::thread getter([&] {
        Value value(kSize);
        for (uint32_t i = 1; i <= count; ++i) {
            aboutToWait.store(i);
            handOff.await(first + i, value.out());
            receivedAt.store(now());
            received.store(i);
        }
    });
    Value value(kSize);
    for (uint32_t i = 1; i <= count; ++i) {
        while (aboutToWait.load() != i) std::this_thread::yield();
        const auto asleepAt = Clock::now() + kTimeToFallAsleep;
        while (Clock::now() < asleepAt) std::this_thread::yield();
        const auto deliveredAt = now();
        handOff.deliver(first + i, value.of(i, 0));
        while (received.load() != i) std::this_thread::yield();
        const auto ns = static_cast<double>(receivedAt.load() - deliveredAt);
        if (ns < kLostNs) {
            times.push_back(ns);
        } else {
            ++lost;
        }
    }
    getter.join();
}

}  // namespace

HandOffs measureHandOffs(uint32_t count) {
    constexpr uint32_t kBlock = 50;
    HandOffs result;
    StoreHandOff store;
    BareHandOff bare;
    for (uint32_t done = 0; done < count; done += kBlock) {
        handOver(store, done, kBlock, result.store, result.storeLost);
        handOver(bare, done, kBlock, result.bare, result.bareLost);
    }
    return result;
}

}  // namespace bench
