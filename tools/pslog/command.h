// The program and its subcommands. Each subcommand has a file of its own, which adds it with its options.
//
// Only command.cpp includes the library that reads command lines: each file that does takes ten seconds to compile.

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

/// A subcommand's options and arguments. The values are set before the subcommand runs, and must live as long.
class Subcommand {
public:
    /// @param app  the library's record of it
    explicit Subcommand(void* app) : mApp(app) {}

    Subcommand& flag(const std::string& name, bool& value, const std::string& text);

    /// @tparam Value  std::string, int64_t, uint32_t, size_t, double, std::optional of these numbers, or a vector of
    ///                strings
    /// @param name    "--name" for an option, "NAME" for an argument, which may be left out
    template <typename Value>
    Subcommand& option(const std::string& name, Value& value, const std::string& text);

    /// A number from least to most.
    template <typename Value>
    Subcommand& option(const std::string& name, Value& value, const std::string& text, Value least, Value most);

    /// A number of 0 or more, which has no value unless it is given.
    Subcommand& limit(const std::string& name, std::optional<double>& value, const std::string& text);

    /// The last one must be given.
    Subcommand& required();

    /// One of these options must be given.
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

    /// @param run  what the subcommand does; what it returns is the program's result, what it throws is printed
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

/// Adds LOG and --rate; to be called after the subcommand's other arguments.
void addLogInput(Subcommand& command, LogInput& input);

/// Reads the log. Tells on standard error how fast, if that was asked for, and if there is nothing of the store in it
/// or it breaks off.
/// @param everySecond  if not empty, is called so
Count readLog(const LogInput& input, Interpreter& interpreter,
              const std::function<void(const Count&)>& everySecond = {});

/// A subcommand's result if it has nothing to say itself: 1 if nothing was read, or not all.
int resultOf(const Count& count);

}  // namespace pslog

#endif  // PSLOG_COMMAND_H
