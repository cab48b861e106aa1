// See reader.h. Lines are taken from one block of memory; one that does not fit into it counts as damaged.

#include "reader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <system_error>
#include <vector>

#include "line.h"
#include "message.h"

namespace pslog {

namespace {

using Clock = std::chrono::steady_clock;

constexpr size_t BLOCK = 1 << 20;

class Progress {
public:
    explicit Progress(int file) : mShown(isatty(STDERR_FILENO) != 0) {
        struct stat status {};
        if (fstat(file, &status) == 0 && S_ISREG(status.st_mode)) mSize = static_cast<double>(status.st_size);
    }
    ~Progress() {
        if (mHasShown) std::fputs("\r\033[K", stderr);
    }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void show(uint64_t bytes, uint64_t lines) {
        const Clock::time_point now = Clock::now();
        if (!mShown || now - mLast < std::chrono::milliseconds(500)) return;
        mLast = now;
        mHasShown = true;
        const double done = static_cast<double>(bytes);
        if (mSize > 0) std::fprintf(stderr, "\r%3.0f %%, ", 100 * done / mSize);
        std::fprintf(stderr, "%s%.0f MB, %.1f million lines ", mSize > 0 ? "" : "\r", done / 1e6,
                     static_cast<double>(lines) / 1e6);
    }

private:
    bool mShown;
    bool mHasShown = false;
    double mSize = 0;
    Clock::time_point mLast = Clock::now();
};

class File {
public:
    explicit File(const std::string& name)
        : mName(name), mFile(name == "-" ? STDIN_FILENO : open(name.c_str(), O_RDONLY | O_CLOEXEC)) {
        if (mFile < 0) fail();
    }
    ~File() {
        if (mFile != STDIN_FILENO) close(mFile);
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    int number() const { return mFile; }

    /// 0 at the end.
    size_t read(char* to, size_t size) const {
        ssize_t got = 0;
        do {
            got = ::read(mFile, to, size);
        } while (got < 0 && errno == EINTR);
        if (got < 0) fail();
        return static_cast<size_t>(got);
    }

private:
    [[noreturn]] void fail() const { throw std::system_error(errno, std::generic_category(), mName); }

    std::string mName;
    int mFile;
};

void takeLine(std::string_view raw, Count& count, Interpreter& interpreter) {
    ++count.lines;
    Line line;
    Kind kind{};
    Arguments arguments;
    LineKind lineKind = parseLine(raw, line);
    if (lineKind == LineKind::STORE && !findMessage(line.function, line.text, kind, arguments)) {
        lineKind = LineKind::BROKEN;
    }
    switch (lineKind) {
        case LineKind::OTHER: ++count.others; break;
        case LineKind::BROKEN:
            if (count.damaged++ == 0) count.firstDamaged = count.lines;
            break;
        case LineKind::STORE: ++count.used; interpreter.take(line, kind, arguments, count.lines);
    }
}

}  // namespace

Count readLog(const std::string& name, Interpreter& interpreter) {
    const File file(name);
    Progress progress(file.number());
    const Clock::time_point start = Clock::now();
    std::vector<char> block(BLOCK);
    Count count;
    size_t filled = 0;
    uint64_t bytes = 0;
    bool tooLong = false;  // the rest of a line that did not fit is passed over
    while (const size_t got = file.read(block.data() + filled, block.size() - filled)) {
        bytes += got;
        filled += got;
        const char* next = block.data();
        const char* const end = next + filled;
        while (const void* found = std::memchr(next, '\n', static_cast<size_t>(end - next))) {
            const char* lineEnd = static_cast<const char*>(found);
            if (!tooLong) takeLine({next, static_cast<size_t>(lineEnd - next)}, count, interpreter);
            tooLong = false;
            next = lineEnd + 1;
        }
        filled = static_cast<size_t>(end - next);
        std::memmove(block.data(), next, filled);
        if (filled == block.size()) {
            if (!tooLong) takeLine({block.data(), filled}, count, interpreter);
            tooLong = true;
            filled = 0;
        }
        progress.show(bytes, count.lines);
    }
    if (filled > 0 && !tooLong) takeLine({block.data(), filled}, count, interpreter);
    interpreter.finish();
    count.seconds = std::chrono::duration<double>(Clock::now() - start).count();
    return count;
}

}  // namespace pslog
