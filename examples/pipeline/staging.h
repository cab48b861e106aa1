// Faults that a run stages on purpose, so that its log shows them, and notes about those that have happened.
// Set up before the modules run. Then all modules use it; a lock guards the notes.

#ifndef PIPELINE_STAGING_H
#define PIPELINE_STAGING_H

#include <cstdint>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

namespace pipeline {

/// A command line that makes no sense; the message says why.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

enum ModuleName { SENSOR, STATISTICS_MODULE, EXPOSURE, ISP, MODULE_COUNT };
constexpr const char* MODULE_NAMES[MODULE_COUNT] = {"sensor", "statistics", "exposure", "isp"};

enum class Fault {
    STALL,         ///< the module is late with the frame
    DROP,          ///< the value is not delivered
    PLAIN,         ///< the value is set by a plain set
    LOSE,          ///< the module misses the wake-up for the value
    ERASE,         ///< the pipe of the tag is erased too early
    GONE,          ///< another tag's erase removes the frame in which the ISP waits for the gain
    END,           ///< the store is destroyed before the frame is delivered
    RETAIN,        ///< the tag is registered with another retain number
    UNREGISTERED,  ///< the tag is not registered
};

class Staging {
public:
    /// Adds a fault, from the text of --stage. Throws UsageError.
    void add(const std::string& text);
    /// Adds a stall, from the text of --stall: "MODULE:MS@FRAME[-FRAME]". Throws UsageError.
    void addStall(const std::string& text, int maxMs);

    bool isEmpty() const { return mFaults.empty(); }

    /// Whether the fault is staged for the tag, the frame (0: for any frame) and the module (MODULE_COUNT: for any
    /// module). If so, and if the fault has a number, copies the number to @p number.
    bool has(Fault fault, uint32_t tag, uint32_t frame, ModuleName module = MODULE_COUNT, int* number = nullptr) const;

    /// Notes that a fault has happened.
    void note(Fault fault, uint32_t tag, uint32_t frame, ModuleName module = MODULE_COUNT, int number = 0) const;
    /// Like has; if the fault is staged, notes that it has happened.
    bool happens(Fault fault, uint32_t tag, uint32_t frame) const;

    /// The faults that have happened, in the syntax of the command line.
    std::vector<std::string> notes() const;

private:
    struct Staged {
        Fault fault;
        uint32_t tag = 0;
        ModuleName module = MODULE_COUNT;
        uint32_t first = 0, last = UINT32_MAX;
        int number = 0;
    };

    std::vector<Staged> mFaults;
    mutable std::mutex mMutex;
    mutable std::vector<std::string> mNotes;
};

/// While an object of this class lives, the waits of its thread miss their wake-ups: they end by their time-outs. Works
/// only if the library of tests/miss_wake_ups.cpp is preloaded.
class MissedWakeUps {
public:
    explicit MissedWakeUps(bool missed);
    ~MissedWakeUps();
    MissedWakeUps(const MissedWakeUps&) = delete;
    MissedWakeUps& operator=(const MissedWakeUps&) = delete;

    static bool isPossible() { return switchOf() != nullptr; }

private:
    using Switch = void (*)(int);
    static Switch switchOf();

    bool mMissed;
};

}  // namespace pipeline

#endif  // PIPELINE_STAGING_H
