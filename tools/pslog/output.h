// A file that a subcommand writes. It never overwrites an input, and other files only with --force.

#ifndef PSLOG_OUTPUT_H
#define PSLOG_OUTPUT_H

#include <functional>
#include <ostream>
#include <string>
#include <vector>

namespace pslog {

class OutputFile {
public:
    /// Construct this before the inputs are read. Throws std::runtime_error if the file must not be written: it is one
    /// of the others, under any name, or it exists and is neither a picture nor a trace.
    /// @param name    "-" for standard output, empty for no output
    /// @param others  the inputs, "-" for standard input, and other outputs; empty names are ignored
    /// @param force   whether a file is replaced whatever it contains
    OutputFile(std::string name, std::vector<std::string> others, bool force);

    /// Writes a temporary file beside the destination and renames it, so the file is either complete or unchanged.
    /// Anything but a regular file, such as a pipe, is written directly. Throws std::runtime_error on failure.
    void write(const std::function<void(std::ostream&)>& print) const;

private:
    void check() const;

    std::string mName;
    std::vector<std::string> mOthers;
    bool mForce;
};

}  // namespace pslog

#endif  // PSLOG_OUTPUT_H
