// The platform's stand-ins on a host. The effects of environment variables are tested in child processes that run this
// program again; everything that they print on standard error is compared.
// Each test leaves the log level, the sink and standard error as they were.

#include "platform/host/host_platform.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

namespace {

void expectPrinted(void (*probe)(), const char* variable, const std::string& value, const std::string& expected) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    setenv(variable, value.c_str(), 1);
    EXPECT_EXIT((probe(), exit(0)), testing::ExitedWithCode(0), testing::Eq(expected)) << variable << "=" << value;
    unsetenv(variable);
}

void printProperties() {
    property_set("set", "by the process");
    for (const char* key : {"set", "plain", "last", "long"}) {
        char value[PROP_VALUE_MAX];
        const int length = property_get(key, value, "unset");
        fprintf(stderr, "%s=%s %d\n", key, value, length);
    }
}

void printLevels() {
    for (int level = PIPELINE_LOG_ERROR; level <= PIPELINE_LOG_VERBOSE; ++level) {
        _log("mod", static_cast<pipeline_loglevel>(level)).__print_log_("number\n%d", level);
    }
}

TEST(HostProperties, FaultsOfTheFileAreReportedAndTheRestIsUsed) {
    const std::string path = std::string(program_invocation_name) + ".properties";
    const std::string longest(91, 'x');
    std::ofstream(path) << "# a comment = none\n\n  plain = a=b \r\nno sign\n = no key\nlong=" << longest
                        << "\nlong=" << longest << "y\nset=by the file\nlast=no line end # told";
    const std::string place = "host properties: " + path;
    expectPrinted(printProperties, "PARAMSET_PROPERTIES", path,
                  place + ":4: no '=' in this line\n" + place + ":5: no key before '='\n" + place +
                      ":7: value of 92 bytes, the longest allowed has 91\n" +
                      "set=by the process 14\nplain=a=b 3\nlast=no line end 11\nlong=" + longest + " 91\n");
    unlink(path.c_str());
    const std::string unset = "set=by the process 14\nplain=unset 5\nlast=unset 5\nlong=unset 5\n";
    expectPrinted(printProperties, "PARAMSET_PROPERTIES", "/proc/self",
                  "host properties: /proc/self: Is a directory\n" + unset);
    expectPrinted(printProperties, "PARAMSET_PROPERTIES", "/proc/self/none",
                  "host properties: /proc/self/none: No such file or directory\n" + unset);
}

TEST(HostProperties, ValueNeverOverrunsItsBuffer) {
    char value[PROP_VALUE_MAX + 2] = {};
    value[PROP_VALUE_MAX] = '!';
    EXPECT_EQ(property_get("unset", value, std::string(500, 'x').c_str()), 91);
    EXPECT_EQ(value, std::string(91, 'x'));
    EXPECT_EQ(value[PROP_VALUE_MAX], '!');
    EXPECT_EQ(property_get(nullptr, value, nullptr), 0);
    EXPECT_STREQ(value, "");
    EXPECT_EQ(property_set("key", std::string(92, 'x').c_str()), -1);
    EXPECT_EQ(property_set("key", nullptr), 0);
    EXPECT_EQ(property_get("key", value, "default"), 7);
}

TEST(HostLog, EnvironmentDecidesTheLevelsPrinted) {
    const std::string three = "E mod: number 1\nW mod: number 2\nI mod: number 3\n";
    expectPrinted(printLevels, "UNUSED", "", three);
    expectPrinted(printLevels, "PARAMSET_LOG", "0", "");
    expectPrinted(printLevels, "PARAMSET_LOG", "1", "E mod: number 1\n");
    expectPrinted(printLevels, "PARAMSET_LOG", "5", three + "D mod: number 4\nV mod: number 5\n");
    for (const std::string bad : {"6", "-1", "1x", ""}) {
        expectPrinted(printLevels, "PARAMSET_LOG", bad,
                      "host log: PARAMSET_LOG is '" + bad + "', not a level from 0 to 5; using 3\n" + three);
    }
}

TEST(HostLog, EnvironmentPutsTimeAndThreadBeforeALine) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto print = [] { _log("mod", PIPELINE_LOG_ERROR).__print_log_("text"); };
    setenv("PARAMSET_LOG_TIME", "1", 1);
    EXPECT_EXIT((print(), exit(0)), testing::ExitedWithCode(0),
                "^[0-9]{2}-[0-9]{2} [0-9:]{8}\\.[0-9]{6} +[0-9]+ +[0-9]+ E mod: text\n$");
    setenv("PARAMSET_LOG_TIME", "0", 1);
    EXPECT_EXIT((print(), exit(0)), testing::ExitedWithCode(0), "^E mod: text\n$");
    unsetenv("PARAMSET_LOG_TIME");
}

TEST(HostLog, LongLinesOfThreadsAreNotInterleaved) {
    constexpr size_t kLong = 20000;  // far more than one write to a pipe can take
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    std::ifstream lines("/proc/self/fd/" + std::to_string(ends[0]));
    const int standardError = dup(STDERR_FILENO);
    dup2(ends[1], STDERR_FILENO);
    close(ends[0]);
    close(ends[1]);
    std::vector<std::thread> writers;
    for (char letter : {'a', 'b', 'c', 'd'}) {
        writers.emplace_back([message = std::string(kLong, letter)] {
            for (int line = 0; line < 50; ++line) {
                _log("mod", PIPELINE_LOG_ERROR).__print_log_("%s", message.c_str());
            }
        });
    }
    std::thread finisher([&] {
        for (std::thread& writer : writers) {
            writer.join();
        }
        dup2(standardError, STDERR_FILENO);  // closes the last writing end of the pipe
    });
    int whole = 0;
    for (std::string line; std::getline(lines, line);) {
        whole += line == "E mod: " + std::string(kLong, line.empty() ? ' ' : line.back()) ? 1 : 0;
    }
    EXPECT_EQ(whole, 4 * 50);
    finisher.join();
    close(standardError);
}

TEST(HostLog, SinkReplacesStandardErrorUntilItIsRemoved) {
    const int levelBefore = host::logLevel();
    std::string taken;
    const auto take = [](void* context, pipeline_loglevel level, const char* module, const char* message) {
        *static_cast<std::string*>(context) = std::to_string(level) + module + message;
    };
    host::setLogLevel(PIPELINE_LOG_WARNING);
    host::setLogSink(take, &taken);
    printLevels();
    EXPECT_EQ(taken, "2modnumber\n2");
    for (size_t length = 0; length < 1100; ++length) {  // below and above any likely size of a buffer
        const std::string message(length, 'x');
        _log("", PIPELINE_LOG_ERROR).__print_log_("%s", message.c_str());
        ASSERT_EQ(taken, "1" + message);
    }
    host::setLogSink(nullptr, nullptr);
    testing::internal::CaptureStderr();
    printLevels();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "E mod: number 1\nW mod: number 2\n");
    host::setLogLevel(levelBefore);
}

void logWithoutReader(int descriptor) {
    signal(SIGPIPE, SIG_DFL);
    descriptor < 0 ? close(STDERR_FILENO) : dup2(descriptor, STDERR_FILENO);
    errno = EDOM;
    _log("mod", PIPELINE_LOG_ERROR).__print_log_("lost");
    exit(errno == EDOM ? 0 : 1);
}

TEST(HostLog, StandardErrorWithoutAReaderDoesNoHarm) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    close(ends[0]);
    EXPECT_EXIT(logWithoutReader(ends[1]), testing::ExitedWithCode(0), "");
    EXPECT_EXIT(logWithoutReader(-1), testing::ExitedWithCode(0), "");
    close(ends[1]);
}

TEST(HostMetadata, CloneIsIndependentAndLiveRecordsAreCounted) {
    const size_t before = host::liveMetadata();
    camera_metadata* original = host::makeMetadata("four", 4);
    camera_metadata* clone = clone_camera_metadata(original);
    EXPECT_EQ(host::liveMetadata(), before + 2);
    free_camera_metadata(original);
    ASSERT_EQ(host::metadataSize(clone), 4u);
    EXPECT_EQ(memcmp(host::metadataBytes(clone), "four", 4), 0);
    free_camera_metadata(clone);
    free_camera_metadata(clone_camera_metadata(nullptr));
    EXPECT_EQ(host::liveMetadata(), before);
}

}  // namespace
