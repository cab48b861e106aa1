// Makes the same calls to the store and to its model, and reports the first difference. For one thread.

#ifndef PARAMSET_TESTS_MODEL_DRIVER_H
#define PARAMSET_TESTS_MODEL_DRIVER_H

#include "paramset.h"
#include "platform/host/host_platform.h"
#include "tests/model/model.h"

// clang-format off
enum class Kind : uint8_t {
    kGet, kSet, kGetSync, kGetSyncTimeout, kSetSync, kErase, kSetMetadata, kGetMetadata, kRegister, kControl,
    kGetExternal, kSetOperations, kSetHandles, kGetHandle, kCreate, kDestroy, kCount
};
// clang-format on

/// One call. Members that are not arguments of the call are ignored.
struct Operation {
    Kind kind = Kind::kGet;
    model::Request request;
    uint32_t value = 0;      ///< stands for the bytes; size of a registration, code of a command
    int32_t number = 0;      ///< time-out, tag type, argument of a command, choice of the log switches
    int32_t retain = 0;      ///< of a registration; -1: as static, -2: as dynamic, -3: without a creator
    bool noPointer = false;  ///< null instead of data, metadata or name
};

std::string toText(const Operation& operation);

/// The number in an environment variable, or the default if it is not set.
uint64_t fromEnvironment(const char* name, uint64_t otherwise);

/// Resets a pipe of the store to the state of a new one. No other thread may use that pipe meanwhile.
void emptyPipe(uint32_t cam, int index);

class Driver {
public:
    static constexpr size_t kRoom = 64;  ///< bytes of the largest value

    /// Begins with an empty registry and no store.
    Driver();
    ~Driver();
    Driver(const Driver&) = delete;
    Driver& operator=(const Driver&) = delete;

    /// Returns what differs after it, or an empty text. Compares the pipe of the call completely; a large pipe only
    /// after every few calls, and all pipes after every thousand calls.
    std::string apply(const Operation& operation);
    std::string compareAll();
    const model::Model& model() const { return mModel; }

    /// Remembers the present store, with its registered tags, as the state of a new store.
    void keepAsNew() { mNew = mModel; }
    /// Whether the store can be reset to that state; not if it was destroyed, or tags were registered since.
    bool canRenew() const { return mNew && mModel.exists && mModel.registry.size() == mNew->registry.size(); }
    /// Resets the store, and sets the log switches as the creation does. Returns what differs from a new store, or an
    /// empty text.
    std::string renew(const Operation& creation);

    /// An additional check after each call, for a program that can look into the library. Returns what is wrong, or an
    /// empty text.
    static inline std::string (*sAlsoCheck)() = nullptr;

private:
    struct Results {
        int64_t expected = 0;
        int64_t found = 0;
    };

    Results callValue(const Operation& operation, char* data, model::Value& value);
    Results call(const Operation& operation, char* data);
    void registerTag(const Operation& operation);
    Results setMetadata(const Operation& operation);
    Results getMetadata(const Operation& operation);
    void create(const Operation& operation);
    std::string compareAfter(const Operation& operation);
    std::string comparePipe(uint32_t cam, int pipe);
    bool isRegistry(const std::map<uint32_t, zarn::tag_info_t>& found) const;

    model::Model mModel;
    std::optional<model::Model> mNew;
    std::array<char, kRoom + 32> mMemory, mExpected;  // the caller's buffer and the bytes around it
    std::array<zarn::cam_elem*, 5> mCameras = {};
    std::array<std::array<size_t, 14>, 5> mUncompared = {};  // calls since the pipe was compared
    size_t mStep = 0;
};

#endif  // PARAMSET_TESTS_MODEL_DRIVER_H
