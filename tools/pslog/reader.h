// Reads a log of any size, and gives what happened in it to a listener.

#ifndef PSLOG_READER_H
#define PSLOG_READER_H

#include <cstdint>
#include <string>

#include "interpreter.h"

namespace pslog {

struct Count {
    uint64_t lines = 0;
    uint64_t used = 0;          ///< of the store, and understood
    uint64_t others = 0;        ///< of other programs
    uint64_t damaged = 0;       ///< of the store, but no message of it: cut or garbled
    uint64_t firstDamaged = 0;  ///< its line number
    double seconds = 0;
};

/// Reads the file, "-" for standard input, to its end. Shows progress on a terminal if it is large.
/// Throws std::system_error if it cannot be read.
Count readLog(const std::string& name, Interpreter& interpreter);

}  // namespace pslog

#endif  // PSLOG_READER_H
