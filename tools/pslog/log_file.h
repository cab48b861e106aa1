// The bytes of a log, as they were before gzip or zstd compressed them.

#ifndef PSLOG_LOG_FILE_H
#define PSLOG_LOG_FILE_H

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace pslog {

/// Undoes a compression, piece by piece.
class Decoder {
public:
    virtual ~Decoder() = default;
    /// Takes from the front of the input, and writes to the output, of which it returns the bytes that it used.
    /// Throws std::runtime_error if the input is damaged.
    virtual size_t decode(std::string_view& input, char* output, size_t size) = 0;
    /// Whether the input may end where it is now.
    virtual bool isComplete() const = 0;
};

class LogFile {
public:
    /// Opens the file, "-" for standard input. Throws std::system_error if that fails.
    explicit LogFile(const std::string& name);
    ~LogFile();
    LogFile(const LogFile&) = delete;
    LogFile& operator=(const LogFile&) = delete;

    /// Waits until there is something to read, or at most so long. Returns whether there is, or the end.
    bool wait(int ms) const;

    /// Returns the number of bytes, which is 0 at the end. Throws std::system_error if they cannot be read, and
    /// std::runtime_error if this is no text. Damaged compressed data are an end with a problem.
    size_t read(char* to, size_t size);

    /// Why the end is too early; empty if it is not.
    const std::string& problem() const { return mProblem; }

    /// The part that is read, 0 to 1; 0 as long as the size is not known.
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
    std::string_view mInput;  ///< what is in the buffer
    std::unique_ptr<Decoder> mDecoder;
    std::string mProblem;
};

}  // namespace pslog

#endif  // PSLOG_LOG_FILE_H
