// A file that appears whole or not at all: it is written under another name beside its place, and renamed at the end.

#ifndef PIPELINE_OUTPUT_FILE_H
#define PIPELINE_OUTPUT_FILE_H

#include <cstdio>
#include <string>

namespace pipeline {

class OutputFile {
public:
    /// "-" is standard output. What exists and is no regular file, such as a device or a pipe, is written directly.
    /// Throws std::runtime_error if it cannot be written.
    explicit OutputFile(const std::string& path);

    /// Unless committed, nothing stays.
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    std::FILE* stream() const { return mStream; }
    const std::string& name() const { return mName; }

    /// Puts the file in its place. Throws std::runtime_error if the last bytes cannot be written.
    void commit();

    /// Removes what was written so far, also while another thread is writing it: for a process about to end.
    void discard();

private:
    std::string mName;
    std::string mPath;
    std::string mPartial;  ///< empty when written directly, and when there is nothing left to remove
    std::FILE* mStream = nullptr;
};

}  // namespace pipeline

#endif  // PIPELINE_OUTPUT_FILE_H
