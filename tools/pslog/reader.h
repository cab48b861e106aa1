// Reads a log of any size and passes its events to a listener.

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
    uint64_t used = 0;                  ///< messages of the store
    uint64_t others = 0;                ///< lines of other programs
    uint64_t damaged = 0;               ///< lines of the store that are cut or garbled
    uint64_t firstDamaged = 0;          ///< line number of the first damaged line
    std::array<uint64_t, 6> ofLevel{};  ///< messages of the store by level
    Clock clock = Clock::NONE;          ///< kind of their times
    int64_t firstUs = 0, lastUs = 0;    ///< least and greatest of their times
    std::string problem;                ///< why the log is incomplete; empty if it is complete
    double seconds = 0;

    /// The greatest level that the log has messages of; 0 if it has none.
    int level() const {
        int level = 5;
        while (level > 0 && ofLevel[static_cast<size_t>(level)] == 0) --level;
        return level;
    }
};

/// Reads the file to its end; "-" is standard input. Shows progress on a terminal if the file is large.
/// @param everySecond  called once a second if not empty, even while a pipe has no new data
/// Throws std::system_error if the file cannot be read, and std::runtime_error if it is not text.
Count readLog(const std::string& name, Interpreter& interpreter,
              const std::function<void(const Count&)>& everySecond = {});

}  // namespace pslog

#endif  // PSLOG_READER_H
