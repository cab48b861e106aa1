// Reading and writing YUV4MPEG2. The input is not trusted: lines and sizes are bounded, and messages show only
// printable characters of it.

#include "y4m.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <sstream>
#include <stdexcept>

namespace pipeline {

namespace {

constexpr size_t MAX_HEADER = 1024;
constexpr size_t MAX_FRAME_LINE = 256;
constexpr uint32_t MAX_SIDE = 16384;
constexpr char MAGIC[] = "YUV4MPEG2";
constexpr char FRAME_MAGIC[] = "FRAME";

std::string quoted(const std::string& text) {
    std::string out = "\"";
    for (const char c : text.substr(0, 40)) out += c >= ' ' && c <= '~' ? c : '?';
    return out + (text.size() > 40 ? "...\"" : "\"");
}

/// Whether the line is the word, alone or followed by parameters.
bool beginsWithWord(const std::string& line, const std::string& word) {
    return line.compare(0, word.size(), word) == 0 && (line.size() == word.size() || line[word.size()] == ' ');
}

}  // namespace

Y4mReader::Y4mReader(const std::string& path, const Stop& stop)
    : mName(path == "-" ? "standard input" : path),
      mStop(stop),
      mFd(path == "-" ? ::dup(STDIN_FILENO) : ::open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
    if (mFd < 0) throw std::runtime_error("cannot open " + mName + ": " + std::strerror(errno));
    cookie_io_functions_t functions{};
    functions.read = &readInput;
    mStream = ::fopencookie(this, "rb", functions);
    try {
        if (mStream == nullptr) fail("cannot open: out of memory");
        parseHeader();
    } catch (...) {
        close();
        throw;
    }
}

Y4mReader::~Y4mReader() {
    close();
}

void Y4mReader::close() {
    if (mStream != nullptr) std::fclose(mStream);
    ::close(mFd);
}

ssize_t Y4mReader::readInput(void* reader, char* bytes, size_t size) {
    const auto& self = *static_cast<Y4mReader*>(reader);
    if (self.mStop.awaitInput(self.mFd)) return ::read(self.mFd, bytes, size);
    errno = ECANCELED;
    return -1;
}

void Y4mReader::fail(const std::string& what) const {
    throw std::runtime_error(mName + ": " + what);
}

Y4mReader::Line Y4mReader::readLine(std::string& line, size_t limit) {
    line.clear();
    for (int c; (c = std::getc(mStream)) != EOF; line += static_cast<char>(c)) {
        if (c == '\n') return Line::COMPLETE;
        if (line.size() == limit) return Line::TOO_LONG;
    }
    if (std::ferror(mStream) != 0) fail(std::string("cannot read: ") + std::strerror(errno));
    return line.empty() ? Line::NONE : Line::CUT;
}

void Y4mReader::parseHeader() {
    const Line line = readLine(mHeader, MAX_HEADER);
    if (line == Line::NONE) fail("empty, not a YUV4MPEG2 stream");
    if (!beginsWithWord(mHeader, MAGIC)) fail("not a YUV4MPEG2 stream, it begins with " + quoted(mHeader));
    if (line == Line::TOO_LONG) fail("the header is longer than " + std::to_string(MAX_HEADER) + " bytes");
    if (line == Line::CUT) fail("the header is cut off");

    std::istringstream tokens(mHeader.substr(std::strlen(MAGIC)));
    for (std::string token; tokens >> token;) parseToken(token);
    if (mFormat.width == 0) fail("the header has no width");
    if (mFormat.height == 0) fail("the header has no height");
}

// A header without a colour space means 4:2:0. The other tags do not change the layout; they are copied to the output.
void Y4mReader::parseToken(const std::string& token) {
    if (token[0] == 'W') mFormat.width = parseSize(token, "width");
    if (token[0] == 'H') mFormat.height = parseSize(token, "height");
    if (token[0] != 'C') return;
    for (const char* known : {"C420", "C420jpeg", "C420mpeg2", "C420paldv"}) {
        if (token == known) return;
    }
    fail("unsupported colour space " + quoted(token) + ", only 8-bit 4:2:0 (C420) is supported");
}

uint32_t Y4mReader::parseSize(const std::string& token, const char* what) const {
    uint32_t value = 0;
    const char* end = token.data() + token.size();
    const auto result = std::from_chars(token.data() + 1, end, value);
    if (result.ec != std::errc() || result.ptr != end || value == 0 || value > MAX_SIDE) {
        fail(std::string("bad ") + what + " " + quoted(token) + ", it must be 1 to " + std::to_string(MAX_SIDE));
    }
    return value;
}

bool Y4mReader::read(Frame& frame) {
    const std::string name = "frame " + std::to_string(mFrames + 1);
    std::string text;
    const Line line = readLine(text, MAX_FRAME_LINE);
    if (line == Line::NONE) {
        if (mFrames == 0) fail("the stream has no frames");
        return false;
    }
    const std::string magic = FRAME_MAGIC;
    if (line == Line::CUT && magic.compare(0, text.size(), text) == 0) fail(name + " is cut off in its header");
    if (!beginsWithWord(text, magic)) fail(name + " begins with " + quoted(text) + " instead of \"FRAME\"");
    if (line == Line::TOO_LONG) fail("the header of " + name + " is too long");
    if (line == Line::CUT) fail(name + " is cut off in its header");

    const size_t size = mFormat.size();
    const size_t got = std::fread(frame.bytes.get(), 1, size, mStream);
    if (got != size) {
        if (std::ferror(mStream) != 0) fail("cannot read " + name + ": " + std::strerror(errno));
        fail(name + " is cut off: it has " + std::to_string(got) + " of " + std::to_string(size) + " bytes");
    }
    frame.parameters = text.substr(magic.size());
    ++mFrames;
    return true;
}

Y4mWriter::Y4mWriter(std::FILE* stream, const std::string& name, const std::string& header)
    : mStream(stream), mName(name) {
    const std::string line = header + "\n";
    put(line.data(), line.size());
}

void Y4mWriter::write(const Frame& frame) {
    const std::string line = FRAME_MAGIC + frame.parameters + "\n";
    put(line.data(), line.size());
    put(frame.bytes.get(), frame.format.size());
}

void Y4mWriter::flush() {
    if (std::fflush(mStream) != 0) fail();
}

void Y4mWriter::put(const void* bytes, size_t size) {
    if (std::fwrite(bytes, 1, size, mStream) != size) fail();
}

void Y4mWriter::fail() const {
    throw std::runtime_error("cannot write " + mName + ": " + std::strerror(errno));
}

}  // namespace pipeline
