// See log_file.h.

#include "log_file.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>
#include <zstd.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>

namespace pslog {

namespace {

bool startsWith(std::string_view text, std::string_view start) {
    return text.substr(0, start.size()) == start;
}

class Gzip : public Decoder {
public:
    static constexpr std::string_view START = "\x1F\x8B";

    Gzip() {
        if (inflateInit2(&mStream, MAX_WBITS + 16) != Z_OK) throw std::bad_alloc();
    }
    ~Gzip() override { inflateEnd(&mStream); }
    Gzip(const Gzip&) = delete;
    Gzip& operator=(const Gzip&) = delete;

    size_t decode(std::string_view& input, char* output, size_t size) override {
        // Several compressed files may follow one another. Anything else that follows, such as padding zeros, is
        // ignored.
        if (mIsComplete && mHasBegun) {
            if (input.front() != START.front()) {
                input = {};
                return 0;
            }
            inflateReset(&mStream);
        }
        mHasBegun = true;
        mIsComplete = false;
        mStream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(input.data()));
        mStream.avail_in = static_cast<uInt>(input.size());
        mStream.next_out = reinterpret_cast<Bytef*>(output);
        mStream.avail_out = static_cast<uInt>(size);
        const int result = inflate(&mStream, Z_NO_FLUSH);
        if (result != Z_OK && result != Z_STREAM_END && result != Z_BUF_ERROR) {
            throw std::runtime_error(mStream.msg == nullptr ? "damaged" : mStream.msg);
        }
        mIsComplete = result == Z_STREAM_END;
        input.remove_prefix(input.size() - mStream.avail_in);
        return size - mStream.avail_out;
    }

    bool isComplete() const override { return mIsComplete; }

private:
    z_stream mStream{};
    bool mHasBegun = false;
    bool mIsComplete = true;
};

class Zstd : public Decoder {
public:
    static constexpr std::string_view START = "\x28\xB5\x2F\xFD";
    static constexpr std::string_view SKIPPABLE = "\x2A\x4D\x18";  // after a byte of 0x50 to 0x5F

    Zstd() : mStream(ZSTD_createDStream(), ZSTD_freeDStream) {
        if (mStream == nullptr) throw std::bad_alloc();
    }

    size_t decode(std::string_view& input, char* output, size_t size) override {
        ZSTD_inBuffer in{input.data(), input.size(), 0};
        ZSTD_outBuffer out{output, size, 0};
        const size_t result = ZSTD_decompressStream(mStream.get(), &out, &in);
        if (ZSTD_isError(result) != 0) throw std::runtime_error(ZSTD_getErrorName(result));
        mIsComplete = result == 0;
        input.remove_prefix(in.pos);
        return out.pos;
    }

    bool isComplete() const override { return mIsComplete; }

private:
    std::unique_ptr<ZSTD_DStream, size_t (*)(ZSTD_DStream*)> mStream;
    bool mIsComplete = true;
};

struct Foreign {
    std::string_view start;
    const char* what;
};
constexpr Foreign FOREIGN[] = {
    {"PK\x03\x04", "a zip archive; unpack it, and read the text in it"},
    {"BZh", "compressed with bzip2; use a pipe: bzip2 -dc FILE | pslog ..."},
    {std::string_view("\xFD\x37zXZ\0", 6), "compressed with xz; use a pipe: xz -dc FILE | pslog ..."},
    {"\xFF\xFE", "UTF-16 text; use a pipe: iconv -f UTF-16 -t UTF-8 FILE | pslog ..."},
    {"\xFE\xFF", "UTF-16 text; use a pipe: iconv -f UTF-16 -t UTF-8 FILE | pslog ..."},
};
constexpr size_t LONGEST_START = 6;

}  // namespace

LogFile::LogFile(const std::string& name)
    : mName(name == "-" ? "standard input" : name),
      mFile(name == "-" ? STDIN_FILENO : open(name.c_str(), O_RDONLY | O_CLOEXEC)) {
    if (mFile < 0) fail();
    struct stat status {};
    if (fstat(mFile, &status) == 0 && S_ISREG(status.st_mode)) mSize = static_cast<double>(status.st_size);
}

LogFile::~LogFile() {
    if (mFile != STDIN_FILENO) close(mFile);
}

void LogFile::fail() const {
    throw std::system_error(errno, std::generic_category(), mName);
}

bool LogFile::wait(int ms) const {
    if (!mInput.empty()) return true;
    pollfd file{mFile, POLLIN, 0};
    return poll(&file, 1, ms) > 0;
}

size_t LogFile::readFile(char* to, size_t size) {
    ssize_t got = 0;
    do {
        got = ::read(mFile, to, size);
    } while (got < 0 && errno == EINTR);
    if (got < 0) fail();
    mRead += static_cast<uint64_t>(got);
    return static_cast<size_t>(got);
}

/// Chooses the decoder by the first bytes of the file.
void LogFile::recognise() {
    size_t filled = 0;
    while (filled < LONGEST_START) {
        const size_t got = readFile(mBuffer.data() + filled, mBuffer.size() - filled);
        if (got == 0) break;
        filled += got;
        mInput = {mBuffer.data(), filled};
    }
    mIsRecognised = true;
    for (const Foreign& foreign : FOREIGN) {
        if (startsWith(mInput, foreign.start)) throw std::runtime_error(mName + " is " + foreign.what);
    }
    const bool skippable = !mInput.empty() && startsWith(mInput.substr(1), Zstd::SKIPPABLE);
    if (startsWith(mInput, Gzip::START)) {
        mDecoder = std::make_unique<Gzip>();
    } else if (startsWith(mInput, Zstd::START) || skippable) {
        mDecoder = std::make_unique<Zstd>();
    }
}

size_t LogFile::read(char* to, size_t size) {
    if (!mIsRecognised) recognise();
    if (mDecoder == nullptr) {
        if (mInput.empty()) return readFile(to, size);
        const size_t got = mInput.copy(to, size);
        mInput.remove_prefix(got);
        return got;
    }
    while (mProblem.empty()) {
        if (mInput.empty()) {
            mInput = {mBuffer.data(), readFile(mBuffer.data(), mBuffer.size())};
            if (mInput.empty() && mDecoder->isComplete()) return 0;
            if (mInput.empty()) mProblem = "it ends in the middle of its compressed data";
        }
        try {
            const size_t got = mDecoder->decode(mInput, to, size);
            if (got > 0) return got;
        } catch (const std::runtime_error& damage) {
            mProblem = "its compressed data is damaged: " + std::string(damage.what());
        }
    }
    return 0;
}

}  // namespace pslog
