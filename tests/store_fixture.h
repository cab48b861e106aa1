// What the store's tests share: a new store for each test, the lines that it logs, and access to its pipes.

#ifndef PARAMSET_TESTS_STORE_FIXTURE_H
#define PARAMSET_TESTS_STORE_FIXTURE_H

#include <gtest/gtest.h>
#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "paramset.h"
#include "platform/host/host_platform.h"

// Lines as "<level> <function>: <text>". A star replaces what differs from run to run: addresses, and the milliseconds
// of a wait, if there are fewer than a million.
using Lines = std::vector<std::string>;

class StoreTest : public ::testing::Test {
protected:
    static constexpr uint32_t kCam = 0;
    static constexpr int kPipe = 2;
    static constexpr uint32_t kTag = 7;

    void SetUp() override;
    void TearDown() override;

    // The lines that were logged since the last call of takeLog, up to this level.
    Lines takeLog(int level = 5);
    // How many of the lines since takeLog contain the text; keeps the lines.
    size_t countLogged(const std::string& text);

    static zarn::pipe_elem& pipe(int index = kPipe);
    static std::vector<uint32_t> frames(int index = kPipe);
    static std::vector<uint32_t> checkpoints(uint32_t tag, int index = kPipe);

    // Four-byte values at camera 0, pipe 2.
    static uint32_t set(uint32_t frame, uint32_t value, uint32_t tag = kTag);
    static uint32_t deliver(uint32_t frame, uint32_t value, uint32_t tag = kTag);
    static constexpr uint32_t kNothing = 0xEEEEEEEE;  // what get returns if nothing was copied
    static uint32_t get(uint32_t frame, uint32_t tag = kTag);

private:
    static void keepLine(void* self, pipeline_loglevel level, const char* module, const char* message);

    std::mutex mLogMutex;
    Lines mLog;  // guarded by mLogMutex
};

struct Got {
    uint32_t result;
    uint32_t value;
    bool operator==(const Got& other) const { return result == other.result && value == other.value; }
};
std::ostream& operator<<(std::ostream& out, const Got& got);

Got getSyn(uint32_t frame, uint32_t tag, uint32_t timeout, int pipe = 2);

// Waits until the condition is true; fails the test after a minute.
void await(const std::function<bool()>& condition);

pid_t threadId();

// Waits until the thread sleeps in its wait, and not on a mutex before it.
void awaitSleep(pid_t thread);

// A synchronous get on its own thread. When the constructor returns, the thread is asleep in its wait.
class WaitingGet {
public:
    WaitingGet(uint32_t frame, uint32_t tag, uint32_t timeout);
    Got finish();

private:
    Got mGot = {};
    std::thread mThread;
};

#endif  // PARAMSET_TESTS_STORE_FIXTURE_H
