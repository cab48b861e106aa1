// The request to end a stream early. It wakes a thread that sleeps or waits for input.

#ifndef PIPELINE_STOP_H
#define PIPELINE_STOP_H

#include <cstdint>

namespace pipeline {

/// Thread-safe. A request stays: all later waits return false at once.
class Stop {
public:
    Stop();
    ~Stop();
    Stop(const Stop&) = delete;
    Stop& operator=(const Stop&) = delete;

    void request();
    bool requested() const;

    /// Sleeps until @p dueNs on the steady clock. False if the stop was requested.
    bool sleepUntil(int64_t dueNs) const;

    /// Waits until @p fd has input or has ended. False if the stop was requested.
    bool awaitInput(int fd) const;

private:
    int mFd;  ///< an eventfd, readable once the stop was requested
};

}  // namespace pipeline

#endif  // PIPELINE_STOP_H
