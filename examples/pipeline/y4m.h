// YUV4MPEG2, 8-bit 4:2:0: a header line, then for each frame a line and its planes. Errors are std::runtime_error with
// a message that names the stream and the frame.

#ifndef PIPELINE_Y4M_H
#define PIPELINE_Y4M_H

#include <sys/types.h>

#include <cstdint>
#include <cstdio>
#include <string>

#include "frame.h"
#include "stop.h"

namespace pipeline {

class Y4mReader : public FrameSource {
public:
    /// Opens the file, or standard input for "-", and reads the header. A read that waits for input fails when @p stop
    /// is requested.
    Y4mReader(const std::string& path, const Stop& stop);
    ~Y4mReader() override;
    Y4mReader(const Y4mReader&) = delete;
    Y4mReader& operator=(const Y4mReader&) = delete;

    const FrameFormat& format() const override { return mFormat; }
    const std::string& header() const override { return mHeader; }
    bool read(Frame& frame) override;

private:
    enum class Line { COMPLETE, CUT, TOO_LONG, NONE };

    static ssize_t readInput(void* reader, char* bytes, size_t size);
    Line readLine(std::string& line, size_t limit);
    void close();
    void parseHeader();
    void parseToken(const std::string& token);
    uint32_t parseSize(const std::string& token, const char* what) const;
    [[noreturn]] void fail(const std::string& what) const;

    std::string mName;
    const Stop& mStop;
    int mFd;
    std::FILE* mStream = nullptr;
    std::string mHeader;
    FrameFormat mFormat;
    uint32_t mFrames = 0;  ///< read so far
};

class Y4mWriter {
public:
    /// Writes the header. The stream stays the caller's; @p name is for messages.
    Y4mWriter(std::FILE* stream, const std::string& name, const std::string& header);

    void write(const Frame& frame);

    /// Writes the buffered bytes.
    void flush();

private:
    void put(const void* bytes, size_t size);
    [[noreturn]] void fail() const;

    std::FILE* mStream;
    std::string mName;
};

}  // namespace pipeline

#endif  // PIPELINE_Y4M_H
