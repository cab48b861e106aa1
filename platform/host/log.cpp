// Host log facility: whole lines on standard error, or to a sink.
// State: pipeline_log_greatest, atomic; gSink and gSinkContext, guarded by gSinkMutex, which is held while a sink runs;
// standard error, guarded by gErrorMutex for each line. No thread takes gSinkMutex while it holds gErrorMutex.
// All of it is constant-initialised and never destroyed, because lines may be printed before the first constructor of
// this library and after its last destructor.

#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>

#include "platform/host/error_line.h"
#include "platform/host/host_platform.h"

int pipeline_log_greatest = PIPELINE_LOG_INFO;

namespace {

std::mutex gErrorMutex;
std::mutex gSinkMutex;
host::LogSink gSink = nullptr;
void* gSinkContext = nullptr;
bool gWithTime = false;  // set before the program starts

__attribute__((constructor)) void takeSettingsFromEnvironment() {
    const char* withTime = getenv("PARAMSET_LOG_TIME");
    gWithTime = withTime != nullptr && *withTime != '\0' && strcmp(withTime, "0") != 0;
    const char* text = getenv("PARAMSET_LOG");
    if (text == nullptr) {
        return;
    }
    if (*text < '0' || *text > '5' || text[1] != '\0') {
        host::writeErrorLine(std::string("host log: PARAMSET_LOG is '") + text + "', not a level from 0 to 5; using 3");
        return;
    }
    host::setLogLevel(*text - '0');
}

/// Keeps a write to a pipe without a reader from ending the process: blocks SIGPIPE for this thread, and removes the
/// pending signal after such a write.
class PipeSignalGuard {
public:
    PipeSignalGuard() {
        sigset_t pending;
        sigpending(&pending);
        mWasPending = sigismember(&pending, SIGPIPE) == 1;
        sigemptyset(&mPipeSignal);
        sigaddset(&mPipeSignal, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &mPipeSignal, &mMaskBefore);
    }
    ~PipeSignalGuard() { pthread_sigmask(SIG_SETMASK, &mMaskBefore, nullptr); }
    PipeSignalGuard(const PipeSignalGuard&) = delete;
    PipeSignalGuard& operator=(const PipeSignalGuard&) = delete;

    /// Call it after a write has failed with EPIPE.
    void takeSignalAway() const {
        const timespec noWait = {};
        while (!mWasPending && sigtimedwait(&mPipeSignal, nullptr, &noWait) == -1 && errno == EINTR) {
        }
    }

private:
    sigset_t mPipeSignal;
    sigset_t mMaskBefore;
    bool mWasPending;
};

/// gErrorMutex held. Returns false with errno set if not all could be written.
bool writeWhole(const char* next, size_t left) {
    while (left > 0) {
        const ssize_t written = write(STDERR_FILENO, next, left);
        if (written > 0) {
            next += written;
            left -= static_cast<size_t>(written);
        } else if (errno == EAGAIN) {
            pollfd room = {STDERR_FILENO, POLLOUT, 0};
            poll(&room, 1, -1);
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

/// The formatted message, never cut off.
__attribute__((format(printf, 1, 0))) std::string formatted(const char* format, va_list arguments) {
    char shortText[512];
    const int errorNumber = errno;
    va_list again;
    va_copy(again, arguments);
    const int length = vsnprintf(shortText, sizeof(shortText), format, arguments);
    std::string message;
    if (length < 0) {
        message = format;  // cannot be printed in this locale; the format still shows that the line was reached
    } else if (static_cast<size_t>(length) < sizeof(shortText)) {
        message.assign(shortText, static_cast<size_t>(length));
    } else {
        message.resize(static_cast<size_t>(length));
        errno = errorNumber;  // for %m
        vsnprintf(&message[0], message.size() + 1, format, again);
    }
    va_end(again);
    return message;
}

/// "MM-DD HH:MM:SS.uuuuuu  PID  TID ", as a device's logger has it, but with microseconds.
std::string timeAndThread() {
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    tm local = {};
    localtime_r(&now.tv_sec, &local);
    char text[64];
    const size_t length = strftime(text, sizeof(text), "%m-%d %H:%M:%S", &local);
    snprintf(text + length, sizeof(text) - length, ".%06ld %5d %5d ", now.tv_nsec / 1000, getpid(), gettid());
    return text;
}

/// Returns false if no sink is installed.
bool giveToSink(pipeline_loglevel level, const char* module, const std::string& message) {
    std::lock_guard<std::mutex> lock(gSinkMutex);
    if (gSink == nullptr) {
        return false;
    }
    gSink(gSinkContext, level, module, message.c_str());
    return true;
}

}  // namespace

void host::writeErrorLine(std::string line) {
    std::replace(line.begin(), line.end(), '\n', ' ');
    line += '\n';
    std::lock_guard<std::mutex> lock(gErrorMutex);
    const PipeSignalGuard guard;
    if (!writeWhole(line.data(), line.size()) && errno == EPIPE) {
        guard.takeSignalAway();
    }
}

void host::setLogLevel(int level) {
    __atomic_store_n(&pipeline_log_greatest, std::clamp(level, 0, int{PIPELINE_LOG_VERBOSE}), __ATOMIC_RELAXED);
}

int host::logLevel() {
    return __atomic_load_n(&pipeline_log_greatest, __ATOMIC_RELAXED);
}

void host::setLogSink(LogSink sink, void* context) {
    std::lock_guard<std::mutex> lock(gSinkMutex);
    gSink = sink;
    gSinkContext = context;
}

// Nothing to do in these two: the program or the environment sets the level, and endProcess has already printed the
// line on standard error.

void platform_refresh_log_level() {}

void platform_last_words(const char*) {}

// Weak, so that a program that is linked with this file can still define a log of its own.
__attribute__((weak)) void LogMessage::__print_log_(const char* format, ...) const noexcept {
    if (mLevel < PIPELINE_LOG_ERROR || mLevel > PIPELINE_LOG_VERBOSE || mLevel > host::logLevel()) {
        return;
    }
    const int errorNumber = errno;
    const char* module = mModule != nullptr ? mModule : "";
    va_list arguments;
    va_start(arguments, format);
    const std::string message = formatted(format, arguments);
    va_end(arguments);
    if (!giveToSink(mLevel, module, message)) {
        const std::string line = std::string(1, "EWIDV"[mLevel - 1]) + " " + module + ": " + message;
        host::writeErrorLine(gWithTime ? timeAndThread() + line : line);
    }
    errno = errorNumber;
}
