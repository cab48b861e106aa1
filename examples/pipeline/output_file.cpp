// See output_file.h. One thread opens, commits and discards; another may write to the stream in between.

#include "output_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>

namespace fs = std::filesystem;

namespace pipeline {

namespace {

[[noreturn]] void failToWrite(const std::string& name, int error) {
    throw std::runtime_error("cannot write " + name + ": " + std::strerror(error));
}

}  // namespace

OutputFile::OutputFile(const std::string& path) : mName(path), mPath(path) {
    if (path == "-") {
        mName = "standard output";
        mStream = stdout;
        return;
    }
    std::error_code ignored;
    const fs::file_status status = fs::status(path, ignored);
    int flags = O_WRONLY | O_CLOEXEC;
    if (!fs::exists(status) || fs::is_regular_file(status)) {
        if (fs::exists(status)) {
            if (::access(path.c_str(), W_OK) != 0) failToWrite(mName, errno);
            mPath = fs::canonical(path).string();  // replaces the file that a link points to, not the link
        }
        mPartial = mPath + ".part" + std::to_string(::getpid());
        flags |= O_CREAT | O_EXCL;
    }
    const int fd = ::open(mPartial.empty() ? path.c_str() : mPartial.c_str(), flags, 0666);
    if (fd < 0) failToWrite(mName, errno);
    mStream = ::fdopen(fd, "wb");
    if (mStream == nullptr) {
        const int error = errno;
        discard();
        ::close(fd);
        failToWrite(mName, error);
    }
}

OutputFile::~OutputFile() {
    discard();
    if (mStream != nullptr && mStream != stdout) std::fclose(mStream);
}

void OutputFile::commit() {
    std::FILE* stream = mStream;
    mStream = nullptr;
    const int result = stream == stdout ? std::fflush(stream) : std::fclose(stream);
    if (result != 0) failToWrite(mName, errno);
    if (mPartial.empty()) return;
    if (std::rename(mPartial.c_str(), mPath.c_str()) != 0) failToWrite(mName, errno);
    mPartial.clear();
}

void OutputFile::discard() {
    if (!mPartial.empty()) ::unlink(mPartial.c_str());
    mPartial.clear();
}

}  // namespace pipeline
