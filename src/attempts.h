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

    // Whether the time allows another attempt.
    bool another() const {
        std::this_thread::yield();
        return Clock::now() < mEnd;
    }

private:
    using Clock = std::chrono::steady_clock;

    const Clock::time_point mEnd;
};

}  // namespace zarn

#endif  // PARAMSET_ATTEMPTS_H
