// Reads a log file, and decompresses it if it was compressed with gzip or zstd.

#ifndef PSLOG_LOG_FILE_H
#define PSLOG_LOG_FILE_H

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace pslog {

/// Decompresses data piece by piece.
class Decoder {
public:
    virtual ~Decoder() = default;
    /// Consumes input from its front and writes to the output. Returns the number of bytes written. Throws
    /// std::runtime_error if the input is damaged.
    virtual size_t decode(std::string_view& input, char* output, size_t size) = 0;
    /// Whether the compressed data is complete at this point.
    virtual bool isComplete() const = 0;
};

class LogFile {
public:
    /// Opens the file, "-" for standard input. Throws std::system_error if that fails.
    explicit LogFile(const std::string& name);
    ~LogFile();
    LogFile(const LogFile&) = delete;
    LogFile& operator=(const LogFile&) = delete;

    /// Waits until there is something to read, or until the time is over. Returns true for data and for the end of
    /// file.
    bool wait(int ms) const;

    /// Returns the number of bytes read, 0 at the end. Throws std::system_error if reading fails, and
    /// std::runtime_error if the file is not text. Damaged compressed data ends the file and sets the problem.
    size_t read(char* to, size_t size);

    /// Why the file ended too early; empty if it did not.
    const std::string& problem() const { return mProblem; }

    /// The part of the file that has been read, 0 to 1; 0 if the size is not known.
    double progress() const { return mSize > 0 ? static_cast<double>(mRead) / mSize : 0; }

private:
    [[noreturn]] void fail() const;
    size_t readFile(char* to, size_t size);
    void recognise();

    std::string mName;
    int mFile;
    double mSize = 0;
    uint64_t mRead = 0;
    bool mIsRecognised = false;
    std::array<char, 1 << 16> mBuffer{};
    std::string_view mInput;  ///< unread bytes of the buffer
    std::unique_ptr<Decoder> mDecoder;
    std::string mProblem;
};

}  // namespace pslog

#endif  // PSLOG_LOG_FILE_H
