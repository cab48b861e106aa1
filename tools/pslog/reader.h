// Reads a log of any size, and gives what happened in it to a listener.

#ifndef PSLOG_READER_H
#define PSLOG_READER_H

#include <array>
#include <cstdint>
#include <functional>
#include <string>

#include "interpreter.h"
#include "log_time.h"

namespace pslog {

struct Count {
    uint64_t lines = 0;
    uint64_t used = 0;                  ///< of the store, and understood
    uint64_t others = 0;                ///< of other programs
    uint64_t damaged = 0;               ///< of the store, but no message of it: cut or garbled
    uint64_t firstDamaged = 0;          ///< its line number
    std::array<uint64_t, 6> ofLevel{};  ///< messages of the store, by their level
    Clock clock = Clock::NONE;          ///< of the messages of the store
    int64_t firstUs = 0, lastUs = 0;    ///< the least and the greatest of their times
    std::string problem;                ///< why the log ended too early; empty if it did not
    double seconds = 0;

    /// The greatest level that the log has messages of; 0 if it has none.
    int level() const {
        int level = 5;
        while (level > 0 && ofLevel[static_cast<size_t>(level)] == 0) --level;
        return level;
    }
};

/// Reads the file, "-" for standard input, to its end. Shows progress on a terminal if it is large.
/// @param everySecond  if not empty, is called so, also while the log is a pipe that has nothing new
/// Throws std::system_error if the file cannot be read, and std::runtime_error if it is no text.
Count readLog(const std::string& name, Interpreter& interpreter,
              const std::function<void(const Count&)>& everySecond = {});

}  // namespace pslog

#endif  // PSLOG_READER_H
