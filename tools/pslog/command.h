// The program and its subcommands. Each subcommand is in a file of its own, which adds it to the program.
//
// Only command.cpp includes the command line library, because each file that does takes ten seconds to compile.

#ifndef PSLOG_COMMAND_H
#define PSLOG_COMMAND_H

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "interpreter.h"
#include "reader.h"

namespace pslog {

/// A subcommand's options and arguments. Their values are set before the subcommand runs, and must exist until then.
class Subcommand {
public:
    /// @param app  the subcommand in the command line library
    explicit Subcommand(void* app) : mApp(app) {}

    Subcommand& flag(const std::string& name, bool& value, const std::string& text);

    /// @tparam Value  std::string, int64_t, uint32_t, size_t, double, std::optional of these numbers, or a vector of
    ///                strings
    /// @param name    "--name VALUE" for an option, "NAME" for an argument, which is optional
    template <typename Value>
    Subcommand& option(const std::string& name, Value& value, const std::string& text);

    /// A number from least to most.
    template <typename Value>
    Subcommand& option(const std::string& name, Value& value, const std::string& text, Value least, Value most);

    /// A number of 0 or more; without a value if the option is not given.
    Subcommand& limit(const std::string& name, std::optional<double>& value, const std::string& text);

    /// Makes the option or argument that was added last mandatory.
    Subcommand& required();

    /// At least one of these options must be given.
    Subcommand& needsOneOf(const std::vector<std::string>& names);

private:
    void* mApp;
};

class Program {
public:
    explicit Program(const std::string& description);
    ~Program();
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    /// @param run  runs the subcommand; returns the exit status; its exceptions are printed as errors
    Subcommand add(const std::string& name, const std::string& description, std::function<int()> run);

    /// Runs the subcommand that the arguments name.
    int run(int argc, char** argv);

private:
    struct State;
    std::unique_ptr<State> mState;
};

/// A log to read.
struct LogInput {
    std::string name = "-";
    bool rate = false;
};

/// Adds LOG and --rate. Call this after adding the subcommand's other arguments.
void addLogInput(Subcommand& command, LogInput& input);

/// Reads the log. Prints on standard error the speed, if --rate was given, and a warning if the log has no message of
/// the store or is incomplete.
/// @param everySecond  called once a second, if not empty
Count readLog(const LogInput& input, Interpreter& interpreter,
              const std::function<void(const Count&)>& everySecond = {});

/// The exit status that the log alone leads to: 1 if it has no message of the store or was not read completely.
int resultOf(const Count& count);

}  // namespace pslog

#endif  // PSLOG_COMMAND_H
