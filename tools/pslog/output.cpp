// See output.h.

#include "output.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace pslog {

namespace {

std::optional<struct stat> statusOf(const std::string& name, int standardFile) {
    struct stat status {};
    const int result = name == "-" ? fstat(standardFile, &status) : stat(name.c_str(), &status);
    return result == 0 ? std::optional(status) : std::nullopt;
}

[[noreturn]] void refuse(const std::string& name, const std::string& why) {
    throw std::runtime_error("cannot write " + (name == "-" ? "standard output" : name) + ": " + why);
}

[[noreturn]] void fail(const std::string& name) {
    refuse(name, std::strerror(errno));
}

bool startsWith(std::string_view text, std::string_view start) {
    return text.substr(0, start.size()) == start;
}

/// Whether the file may be overwritten: it is empty, a picture or a trace.
bool isPictureOrTrace(const std::string& name) {
    std::array<char, 4096> bytes{};
    std::FILE* file = std::fopen(name.c_str(), "rb");
    if (file == nullptr) return false;
    const size_t size = std::fread(bytes.data(), 1, bytes.size(), file);
    std::fclose(file);
    const std::string_view start(bytes.data(), size);
    const auto has = [start](std::string_view word) { return start.find(word) != std::string_view::npos; };
    return start.empty() || startsWith(start, "<svg") || (startsWith(start, "<?xml") && has("<svg")) ||
           (startsWith(start, "{") && has("\"traceEvents\""));
}

/// The file that symbolic links lead to; the name itself if it does not exist.
std::string targetOf(const std::string& name) {
    std::array<char, PATH_MAX> path{};
    return realpath(name.c_str(), path.data()) == nullptr ? name : path.data();
}

/// A temporary file beside the destination. It is renamed when it is complete, and removed otherwise.
class Beside {
public:
    explicit Beside(const std::string& target) : mTarget(target), mName(target + ".XXXXXX") {
        mFile = mkstemp(mName.data());
        if (mFile < 0) fail(target);
    }
    ~Beside() {
        if (mFile >= 0) close(mFile);
        if (!mName.empty()) unlink(mName.c_str());
    }
    Beside(const Beside&) = delete;
    Beside& operator=(const Beside&) = delete;

    void write(std::string_view text, mode_t mode) {
        while (!text.empty()) {
            const ssize_t written = ::write(mFile, text.data(), text.size());
            if (written < 0 && errno != EINTR) fail(mTarget);
            if (written > 0) text.remove_prefix(static_cast<size_t>(written));
        }
        const int closed = fchmod(mFile, mode) | close(std::exchange(mFile, -1));
        if (closed != 0 || rename(mName.c_str(), mTarget.c_str()) != 0) fail(mTarget);
        mName.clear();
    }

private:
    std::string mTarget, mName;
    int mFile;
};

mode_t usualMode() {
    const mode_t mask = umask(0);
    umask(mask);
    return 0666 & ~mask;
}

void writeInPlace(const std::string& name, const std::string& text) {
    std::FILE* file = name == "-" ? stdout : std::fopen(name.c_str(), "wb");
    if (file == nullptr) fail(name);
    const bool written = std::fwrite(text.data(), 1, text.size(), file) == text.size() && std::fflush(file) == 0;
    const bool closed = file == stdout || std::fclose(file) == 0;
    if (!written || !closed) fail(name);
}

}  // namespace

OutputFile::OutputFile(std::string name, std::vector<std::string> others, bool force)
    : mName(std::move(name)), mOthers(std::move(others)), mForce(force) {
    check();
}

void OutputFile::check() const {
    if (mName.empty()) return;
    const auto own = statusOf(mName, STDOUT_FILENO);
    for (const std::string& other : mOthers) {
        if (other.empty()) continue;
        const auto status = statusOf(other, STDIN_FILENO);
        // A device, such as a terminal, may be input and output.
        const bool same =
            own && status && !S_ISCHR(own->st_mode) && own->st_dev == status->st_dev && own->st_ino == status->st_ino;
        if (same || (mName == other && mName != "-")) {
            refuse(mName, "it is the same file as " + (other == "-" ? "standard input" : other));
        }
    }
    if (mName == "-" || !own) return;
    if (S_ISDIR(own->st_mode)) refuse(mName, "it is a directory");
    if (mForce) return;
    if (S_ISREG(own->st_mode) && !isPictureOrTrace(mName)) {
        refuse(mName, "it exists and is neither a picture nor a trace; --force replaces it");
    }
}

void OutputFile::write(const std::function<void(std::ostream&)>& print) const {
    if (mName.empty()) return;
    std::ostringstream text;
    print(text);
    check();
    const auto own = statusOf(mName, STDOUT_FILENO);
    if (mName == "-" || (own && !S_ISREG(own->st_mode))) return writeInPlace(mName, text.str());
    Beside(targetOf(mName)).write(text.str(), own ? own->st_mode & 07777 : usualMode());
}

}  // namespace pslog
