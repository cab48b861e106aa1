// Repeats an attempt for a bounded time, where a wait without a bound could hang: what is waited for may be this very
// thread. Yields the processor in between, since the other thread may need it.

#ifndef PARAMSET_ATTEMPTS_H
#define PARAMSET_ATTEMPTS_H

#include <chrono>
#include <thread>

namespace zarn {

class Attempts {
public:
    explicit Attempts(std::chrono::microseconds atMost) : mEnd(Clock::now() + atMost) {}

    // Whether there is time for another attempt. If there is, yields first; that may take longer than the time.
    bool another() const {
        if (Clock::now() >= mEnd) return false;
        std::this_thread::yield();
        return true;
    }

private:
    using Clock = std::chrono::steady_clock;

    const Clock::time_point mEnd;
};

}  // namespace zarn

#endif  // PARAMSET_ATTEMPTS_H
