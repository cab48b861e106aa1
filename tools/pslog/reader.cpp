// See reader.h. Lines are read into a buffer of fixed size; a line that does not fit counts as damaged.

#include "reader.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <vector>

#include "line.h"
#include "log_file.h"
#include "message.h"
#include "text.h"

namespace pslog {

namespace {

using std::chrono::duration_cast;
using std::chrono::milliseconds;
using SteadyClock = std::chrono::steady_clock;

constexpr size_t BLOCK = 1 << 20;
constexpr milliseconds SECOND{1000};

class Progress {
public:
    explicit Progress(bool isWanted) : mIsShown(isWanted && isatty(STDERR_FILENO) != 0) {}
    ~Progress() {
        if (mHasShown) std::fputs("\r\033[K", stderr);
    }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void show(double part, uint64_t bytes, uint64_t lines) {
        const SteadyClock::time_point now = SteadyClock::now();
        if (!mIsShown || now - mLast < milliseconds(500)) return;
        mLast = now;
        mHasShown = true;
        if (part > 0) std::fprintf(stderr, "\r%3.0f %%, ", 100 * part);
        std::fprintf(stderr, "%s%.0f MB, %.1f million lines ", part > 0 ? "" : "\r", static_cast<double>(bytes) / 1e6,
                     static_cast<double>(lines) / 1e6);
    }

private:
    bool mIsShown;
    bool mHasShown = false;
    SteadyClock::time_point mLast = SteadyClock::now();
};

/// Splits the bytes of a log into lines, and counts them by sort.
class LineTaker {
public:
    LineTaker(Count& count, Interpreter& interpreter) : mCount(count), mInterpreter(interpreter) {}

    /// The free part of the buffer.
    char* end() { return mBlock.data() + mFilled; }
    size_t room() const { return mBlock.size() - mFilled; }

    void takeBytes(size_t size) {
        mFilled += size;
        const char* next = mBlock.data();
        const char* const end = next + mFilled;
        while (const void* found = std::memchr(next, '\n', static_cast<size_t>(end - next))) {
            const char* lineEnd = static_cast<const char*>(found);
            if (!mIsTooLong) takeLine({next, static_cast<size_t>(lineEnd - next)});
            mIsTooLong = false;
            next = lineEnd + 1;
        }
        mFilled = static_cast<size_t>(end - next);
        std::memmove(mBlock.data(), next, mFilled);
        if (mFilled < mBlock.size()) return;
        takeEnd();
        mIsTooLong = true;
    }

    /// Handles a last line without a line end.
    void takeEnd() {
        if (mFilled > 0 && !mIsTooLong) takeLine({mBlock.data(), mFilled});
        mFilled = 0;
    }

private:
    void takeLine(std::string_view raw) {
        ++mCount.lines;
        Line line;
        Kind kind{};
        Arguments arguments;
        LineKind lineKind = mParser.parse(raw, line);
        if (lineKind == LineKind::STORE && !findMessage(line.function, line.text, kind, arguments)) {
            lineKind = line.isNamed || isStoresFunction(line.function) ? LineKind::BROKEN : LineKind::OTHER;
        }
        switch (lineKind) {
            case LineKind::OTHER: ++mCount.others; break;
            case LineKind::FRAME: ++mCount.used; break;
            case LineKind::BROKEN:
                if (mCount.damaged++ == 0) mCount.firstDamaged = mCount.lines;
                break;
            case LineKind::STORE:
                ++mCount.used;
                ++mCount.ofLevel[static_cast<size_t>(line.level)];
                makeSafe(arguments);
                takeTime(line);
                mInterpreter.take(line, kind, arguments, mCount.lines);
        }
    }

    void takeTime(const Line& line) {
        if (line.clock == Clock::NONE) return;
        if (mCount.clock == Clock::NONE) mCount.firstUs = mCount.lastUs = line.timeUs;
        if (mCount.clock == Clock::NONE) mCount.clock = line.clock;
        mCount.firstUs = std::min(mCount.firstUs, line.timeUs);
        mCount.lastUs = std::max(mCount.lastUs, line.timeUs);
    }

    void makeSafe(Arguments& arguments) {
        for (size_t i = 0; i < arguments.text.size(); ++i) {
            if (isSafe(arguments.text[i])) continue;
            mSafe[i] = safeText(arguments.text[i]);
            arguments.text[i] = mSafe[i];
        }
    }

    Count& mCount;
    Interpreter& mInterpreter;
    LineParser mParser;
    std::vector<char> mBlock = std::vector<char>(BLOCK);
    size_t mFilled = 0;
    bool mIsTooLong = false;  ///< skip the rest of a line that did not fit
    std::array<std::string, 2> mSafe;
};

}  // namespace

Count readLog(const std::string& name, Interpreter& interpreter, const std::function<void(const Count&)>& everySecond) {
    LogFile file(name);
    Progress progress(!everySecond);
    const SteadyClock::time_point start = SteadyClock::now();
    SteadyClock::time_point next = start + SECOND;
    Count count;
    LineTaker lines(count, interpreter);
    uint64_t bytes = 0;
    while (true) {
        if (everySecond) {
            const SteadyClock::time_point now = SteadyClock::now();
            const bool isReady = file.wait(static_cast<int>(duration_cast<milliseconds>(next - now).count()) + 1);
            if (SteadyClock::now() >= next) {
                everySecond(count);
                next += SECOND;
            }
            if (!isReady) continue;
        }
        const size_t got = file.read(lines.end(), lines.room());
        if (got == 0) break;
        bytes += got;
        lines.takeBytes(got);
        progress.show(file.progress(), bytes, count.lines);
    }
    lines.takeEnd();
    interpreter.finish();
    count.problem = file.problem();
    count.seconds = std::chrono::duration<double>(SteadyClock::now() - start).count();
    return count;
}

}  // namespace pslog
