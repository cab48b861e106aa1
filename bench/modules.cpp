#include "bench/modules.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <thread>

#include "bench/contenders/maps.h"
#include "bench/contenders/store.h"
#include "bench/workloads.h"

namespace bench {

namespace {

using Clock = std::chrono::steady_clock;

constexpr uint32_t kModules = 4;
constexpr uint32_t kTagsOfModule = 8;
constexpr uint32_t kSize = 16;
constexpr uint32_t kFirst = 2;
constexpr uint32_t kFrames = 2000;  // of a block
constexpr int kBlocks = 9;

// Takes about 300 ns.
void work() {
    for (volatile int i = 0; i < 100; i = i + 1) {
    }
}

template <class C>
class Module {
public:
    Module(C& contender, uint32_t number) : mContender(contender), mNumber(number) {
        mTimes.reserve(kFrames * kTagsOfModule * 3);
    }

    void run() {
        for (uint32_t frame = kFirst; frame < kFirst + kFrames; ++frame) {
            for (uint32_t tag = 0; tag < kTagsOfModule; ++tag) {
                const uint32_t own = mNumber * kTagsOfModule + tag;
                const uint32_t next = (mNumber + 1) % kModules * kTagsOfModule + tag;
                measure([&] { mContender.set(kCam, frame, own, mValue.of(frame, own)); });
                measure([&] { mContender.get(kCam, frame, next, mValue.out()); });
                measure([&] { mContender.get(kCam, frame, next, mValue.out()); });
            }
            if (mNumber == 0 && frame > kLiveFrames) mContender.erase(kCam, frame - kEraseLag);
        }
    }
    const std::vector<double>& times() const { return mTimes; }

private:
    template <class Call>
    void measure(Call&& call) {
        const Clock::time_point start = Clock::now();
        call();
        mTimes.push_back(std::chrono::duration<double, std::nano>(Clock::now() - start).count());
        work();
    }

    C& mContender;
    const uint32_t mNumber;
    Value mValue{kSize};
    std::vector<double> mTimes;
};

template <class C>
Tail measureBlock() {
    C contender(kModules * kTagsOfModule, kSize);
    Value value(kSize);
    for (uint32_t tag = 0; tag < kModules * kTagsOfModule; ++tag) {
        contender.set(kCam, kFirst - 1, tag, value.of(0, tag));
    }
    std::vector<Module<C>> modules;
    for (uint32_t number = 0; number < kModules; ++number) modules.emplace_back(contender, number);
    std::vector<std::thread> threads;
    for (Module<C>& module : modules) threads.emplace_back([&module] { module.run(); });
    for (std::thread& thread : threads) thread.join();

    std::vector<double> times;
    for (const Module<C>& module : modules) times.insert(times.end(), module.times().begin(), module.times().end());
    std::sort(times.begin(), times.end());
    const auto quantile = [&times](double part) {
        return times[static_cast<size_t>(part * static_cast<double>(times.size()))];
    };
    return {quantile(0.5), quantile(0.99), quantile(0.999)};
}

}  // namespace

Tails measureTails() {
    Tails result;
    for (int block = 0; block < kBlocks; ++block) {
        result.store.push_back(measureBlock<Store>());
        result.maps.push_back(measureBlock<Maps>());
    }
    return result;
}

}  // namespace bench
