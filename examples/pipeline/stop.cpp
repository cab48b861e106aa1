// See stop.h.

#include "stop.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>

#include "store_client.h"

namespace pipeline {

namespace {

/// Waits for input on either descriptor; if @p timeoutNs is null, without a limit. A negative descriptor is ignored.
/// Returns whether @p stopFd has input.
bool waitForStop(int stopFd, int otherFd, const int64_t* timeoutNs) {
    std::array<pollfd, 2> waits = {{{stopFd, POLLIN, 0}, {otherFd, POLLIN, 0}}};
    timespec timeout{};
    if (timeoutNs != nullptr) {
        timeout.tv_sec = static_cast<time_t>(*timeoutNs / 1000000000);
        timeout.tv_nsec = static_cast<long>(*timeoutNs % 1000000000);
    }
    while (ppoll(waits.data(), waits.size(), timeoutNs != nullptr ? &timeout : nullptr, nullptr) < 0) {
        if (errno != EINTR) throw std::system_error(errno, std::generic_category(), "cannot wait");
    }
    return waits[0].revents != 0;
}

}  // namespace

Stop::Stop() : mFd(eventfd(0, EFD_CLOEXEC)) {
    if (mFd < 0) throw std::system_error(errno, std::generic_category(), "cannot make an eventfd");
}

Stop::~Stop() {
    ::close(mFd);
}

void Stop::request() {
    if (eventfd_write(mFd, 1) != 0) throw std::system_error(errno, std::generic_category(), "cannot stop");
}

bool Stop::requested() const {
    const int64_t none = 0;
    return waitForStop(mFd, -1, &none);
}

bool Stop::sleepUntil(int64_t dueNs) const {
    const int64_t left = std::max<int64_t>(dueNs - steadyNs(), 0);
    return !waitForStop(mFd, -1, &left);
}

bool Stop::awaitInput(int fd) const {
    return !waitForStop(mFd, fd, nullptr);
}

}  // namespace pipeline
