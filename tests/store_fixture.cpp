// See store_fixture.h.

#include "tests/store_fixture.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <fstream>

namespace {

// Replaces the text between the key and the end by a star.
void hide(std::string& text, const char* key, const char* end) {
    const size_t at = text.find(key);
    if (at == std::string::npos) return;
    const size_t begin = at + std::strlen(key);
    text.replace(begin, std::min(text.find(end, begin), text.size()) - begin, "*");
}

std::string withoutRunDetails(const char* message) {
    std::string text = std::strchr(message, ' ') + 1;  // after the line number
    for (const char* key : {"intrData:", "extrData:", "mElem:"}) hide(text, key, ",");
    // No test waits for a thousand seconds: such a number is in another unit, and stays.
    const size_t wait = text.find("wait: ");
    if (wait != std::string::npos && text.find('.', wait) < wait + std::strlen("wait: 1000000"))
        hide(text, "wait: ", ".");
    return text;
}

// Whether a thread of this process sleeps, as the kernel sees it.
bool sleeps(pid_t thread) {
    std::ifstream stat("/proc/self/task/" + std::to_string(thread) + "/stat");
    std::string text;
    std::getline(stat, text);
    const size_t nameEnd = text.rfind(')');
    return nameEnd != std::string::npos && text.compare(nameEnd, 3, ") S") == 0;
}

}  // namespace

void StoreTest::SetUp() {
    host::setLogLevel(0);
    zarn::ParamSet::destroyInstance();
    zarn::gTagInfo.clear();
    for (const char* name : {"ps", "tag", "erase"}) {
        property_set((std::string("persist.vendor.cam.log.") + name).c_str(), "");
    }
    zarn::ParamSet::createInstance();
    // The traced tag is one that no test uses.
    __atomic_store_n(&zarn::ps_log_tag, -1, __ATOMIC_RELAXED);
    host::setLogLevel(5);
    host::setLogSink(keepLine, this);
}

void StoreTest::TearDown() {
    zarn::ParamSet::destroyInstance();
    host::setLogSink(nullptr, nullptr);
    host::setLogLevel(3);
    EXPECT_EQ(host::liveMetadata(), 0u) << "metadata leaked";
}

void StoreTest::keepLine(void* self, pipeline_loglevel level, const char* module, const char* message) {
    auto* test = static_cast<StoreTest*>(self);
    const std::lock_guard<std::mutex> lock(test->mLogMutex);
    EXPECT_STREQ(module, "ParamSet");
    test->mLog.push_back(std::to_string(level) + " " + withoutRunDetails(message));
}

Lines StoreTest::takeLog(int level) {
    const std::lock_guard<std::mutex> lock(mLogMutex);
    Lines taken;
    for (std::string& line : mLog) {
        if (line[0] - '0' <= level) taken.push_back(std::move(line));
    }
    mLog.clear();
    return taken;
}

size_t StoreTest::countLogged(const std::string& text) {
    const std::lock_guard<std::mutex> lock(mLogMutex);
    size_t count = 0;
    for (const std::string& line : mLog) count += line.find(text) != std::string::npos;
    return count;
}

zarn::pipe_elem& StoreTest::pipe(int index) {
    const int before = host::logLevel();
    host::setLogLevel(0);
    zarn::cam_elem* cam = zarn::ParamSet::getInstance()->getPsHandle(kCam);
    host::setLogLevel(before);
    return cam->mPipe[index];
}

std::vector<uint32_t> StoreTest::frames(int index) {
    std::vector<uint32_t> ids;
    for (const auto& [id, frame] : pipe(index).mFrames) {
        EXPECT_NE(frame, nullptr) << "an empty entry was left for frame " << id;
        ids.push_back(id);
    }
    return ids;
}

std::vector<uint32_t> StoreTest::checkpoints(uint32_t tag, int index) {
    const auto it = pipe(index).mCheckPoint.find(tag);
    if (it == pipe(index).mCheckPoint.end() || it->second == nullptr) return {};
    return *it->second;
}

uint32_t StoreTest::set(uint32_t frame, uint32_t value, uint32_t tag) {
    return setPsParam(kCam, kPipe, frame, tag, &value);
}

uint32_t StoreTest::deliver(uint32_t frame, uint32_t value, uint32_t tag) {
    return setPsParamSyn(kCam, kPipe, frame, tag, &value);
}

uint32_t StoreTest::get(uint32_t frame, uint32_t tag) {
    uint32_t value = kNothing;
    const uint32_t result = getPsParam(kCam, kPipe, frame, tag, &value);
    EXPECT_EQ(result == PS_OK, value != kNothing) << "result " << result << " for frame " << frame;
    return value;
}

std::ostream& operator<<(std::ostream& out, const Got& got) {
    return out << "result " << got.result << " value " << got.value;
}

Got getSyn(uint32_t frame, uint32_t tag, uint32_t timeout, int pipe) {
    Got got = {0, 0xEEEEEEEE};
    got.result = getPsParamSynTimeout(0, pipe, frame, tag, &got.value, timeout);
    return got;
}

void await(const std::function<bool()>& condition) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    while (!condition()) {
        ASSERT_LT(std::chrono::steady_clock::now(), end) << "the condition did not become true";
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

pid_t threadId() {
    return static_cast<pid_t>(syscall(SYS_gettid));
}

void awaitSleep(pid_t thread) {
    // Looks several times: at a single look the thread could be asleep on a mutex.
    int timesAsleep = 0;
    await([&] { return (timesAsleep = sleeps(thread) ? timesAsleep + 1 : 0) == 20; });
}

WaitingGet::WaitingGet(uint32_t frame, uint32_t tag, uint32_t timeout) {
    std::atomic<pid_t> thread{0};
    mThread = std::thread([this, frame, tag, timeout, &thread] {
        thread = threadId();
        mGot = getSyn(frame, tag, timeout);
    });
    await([&] { return thread != 0; });
    awaitSleep(thread);
}

Got WaitingGet::finish() {
    mThread.join();
    return mGot;
}
