// A file that a subcommand writes: never one that it reads, and never in place of something else by mistake.

#ifndef PSLOG_OUTPUT_H
#define PSLOG_OUTPUT_H

#include <functional>
#include <ostream>
#include <string>
#include <vector>

namespace pslog {

class OutputFile {
public:
    /// To be made before the inputs are read: throws std::runtime_error if the file must not be written, for it is one
    /// of the others, under whatever name, or holds something that is no picture and no trace.
    /// @param name    "-" for standard output, empty for nothing at all
    /// @param others  the inputs, "-" for standard input, and other outputs; empty ones are passed over
    /// @param force   whether a file is replaced whatever it holds
    OutputFile(std::string name, std::vector<std::string> others, bool force);

    /// Writes the file beside its place and renames it, so that it is whole or as it was. What is no regular file, such
    /// as a pipe, is written where it is. Throws std::runtime_error if it cannot be written.
    void write(const std::function<void(std::ostream&)>& print) const;

private:
    void check() const;

    std::string mName;
    std::vector<std::string> mOthers;
    bool mForce;
};

}  // namespace pslog

#endif  // PSLOG_OUTPUT_H
