// See command.h.

#include "command.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <exception>

namespace pslog {

namespace {

CLI::App& appOf(void* app) {
    return *static_cast<CLI::App*>(app);
}

/// Adds "--name VALUE" or "NAME".
template <typename Value>
CLI::Option* add(void* app, const std::string& name, Value& value, const std::string& text) {
    const size_t end = name.find(' ');
    const std::string valueName = end == std::string::npos ? "" : name.substr(end + 1);
    return appOf(app).add_option(name.substr(0, end), value, text)->type_name(valueName);
}

int refuse(const std::string& why) {
    std::fprintf(stderr, "pslog: %s; try --help\n", why.c_str());
    return 2;
}

}  // namespace

Subcommand& Subcommand::flag(const std::string& name, bool& value, const std::string& text) {
    appOf(mApp).add_flag(name, value, text);
    return *this;
}

template <typename Value>
Subcommand& Subcommand::option(const std::string& name, Value& value, const std::string& text) {
    CLI::Option* option = add(mApp, name, value, text);
    if constexpr (std::is_same_v<Value, std::vector<std::string>>) {
        if (name[0] == '-') option->allow_extra_args(false);  // an option takes one value; repeat the option for more
    }
    return *this;
}

template <typename Value>
Subcommand& Subcommand::option(const std::string& name, Value& value, const std::string& text, Value least,
                               Value most) {
    const CLI::Validator range = CLI::Range(least, most).description("");
    add(mApp, name, value, text)->capture_default_str()->check(range);
    return *this;
}

template Subcommand& Subcommand::option(const std::string&, std::string&, const std::string&);
template Subcommand& Subcommand::option(const std::string&, std::vector<std::string>&, const std::string&);
template Subcommand& Subcommand::option(const std::string&, int64_t&, const std::string&);
template Subcommand& Subcommand::option(const std::string&, uint32_t&, const std::string&);
template Subcommand& Subcommand::option(const std::string&, std::optional<int64_t>&, const std::string&);
template Subcommand& Subcommand::option(const std::string&, std::optional<uint32_t>&, const std::string&);
template Subcommand& Subcommand::option(const std::string&, int64_t&, const std::string&, int64_t, int64_t);
template Subcommand& Subcommand::option(const std::string&, size_t&, const std::string&, size_t, size_t);

Subcommand& Subcommand::limit(const std::string& name, std::optional<double>& value, const std::string& text) {
    const auto check = [](const std::string& word) {
        double number = 0;
        return CLI::detail::lexical_cast(word, number) && number >= 0 ? "" : "\"" + word + "\" is no number from 0 on";
    };
    add(mApp, name, value, text)->check(CLI::Validator(check, ""));
    return *this;
}

Subcommand& Subcommand::required() {
    appOf(mApp).get_options().back()->required();
    return *this;
}

Subcommand& Subcommand::needsOneOf(const std::vector<std::string>& names) {
    CLI::App& app = appOf(mApp);
    app.callback([&app, names] {
        for (const std::string& name : names) {
            if (app.count(name) > 0) return;
        }
        throw CLI::RequiredError(CLI::detail::join(names, " or "));
    });
    return *this;
}

struct Program::State {
    struct Entry {
        CLI::App* app;
        std::function<int()> run;
    };
    CLI::App app;
    std::vector<Entry> entries;
};

Program::Program(const std::string& description) : mState(std::make_unique<State>()) {
    mState->app.description(description);
    mState->app.require_subcommand(1);
    mState->app.name("pslog");
    mState->app.get_formatter()->label("REQUIRED", "");  // the usage line shows it already
}

Program::~Program() = default;

Subcommand Program::add(const std::string& name, const std::string& description, std::function<int()> run) {
    CLI::App* app = mState->app.add_subcommand(name, description);
    mState->entries.push_back({app, std::move(run)});
    return Subcommand(app);
}

int Program::run(int argc, char** argv) {
    const std::string first = argc > 1 ? argv[1] : "-";
    const auto isFirst = [&](const State::Entry& entry) { return entry.app->get_name() == first; };
    if (first[0] != '-' && std::none_of(mState->entries.begin(), mState->entries.end(), isFirst)) {
        return refuse("there is no subcommand \"" + first + "\"");
    }
    try {
        mState->app.parse(argc, argv);
    } catch (const CLI::Success& help) {
        return mState->app.exit(help);
    } catch (const CLI::ParseError& problem) {
        return refuse(problem.what());
    }
    try {
        int result = 0;
        for (const State::Entry& entry : mState->entries) {
            if (entry.app->parsed()) result = entry.run();
        }
        if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return result;
        std::perror("pslog: cannot write");
    } catch (const std::exception& problem) {
        std::fprintf(stderr, "pslog: %s\n", problem.what());
    }
    return 1;
}

void addLogInput(Subcommand& command, LogInput& input) {
    command.flag("--rate", input.rate, "print on standard error how fast the log was read");
    command.option("LOG", input.name, "the log; without it, or for '-', standard input");
}

Count readLog(const LogInput& input, Interpreter& interpreter, const std::function<void(const Count&)>& everySecond) {
    const Count count = readLog(input.name, interpreter, everySecond);
    if (input.rate) {
        std::fprintf(stderr, "%" PRIu64 " lines in %.3f s, %.2f million per second\n", count.lines, count.seconds,
                     static_cast<double>(count.lines) / 1e6 / count.seconds);
    }
    if (count.used == 0) std::fprintf(stderr, "pslog: no message of the store in %s\n", input.name.c_str());
    if (!count.problem.empty()) {
        std::fprintf(stderr, "pslog: %s: %s; only the part before that is used\n", input.name.c_str(),
                     count.problem.c_str());
    }
    return count;
}

int resultOf(const Count& count) {
    return count.used > 0 && count.problem.empty() ? 0 : 1;
}

}  // namespace pslog
