// A file that appears complete or not at all: it is written in the same folder under another name, and then renamed.

#ifndef PIPELINE_OUTPUT_FILE_H
#define PIPELINE_OUTPUT_FILE_H

#include <cstdio>
#include <string>

namespace pipeline {

class OutputFile {
public:
    /// "-" is standard output. A path that exists and is not a regular file, such as a device or a pipe, is written
    /// directly. Throws std::runtime_error if it cannot be written.
    explicit OutputFile(const std::string& path);

    /// Removes the unfinished file, unless it was committed.
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    std::FILE* stream() const { return mStream; }
    const std::string& name() const { return mName; }

    /// Renames the file to its final name. Throws std::runtime_error if the last bytes cannot be written.
    void commit();

    /// Removes the unfinished file, for a process that is about to end. Another thread may still be writing it.
    void discard();

private:
    std::string mName;
    std::string mPath;
    std::string mPartial;  ///< the unfinished file; empty if written directly, or if there is nothing left to remove
    std::FILE* mStream = nullptr;
};

}  // namespace pipeline

#endif  // PIPELINE_OUTPUT_FILE_H
