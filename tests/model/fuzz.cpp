// Turns bytes into calls and compares the store with its model: a byte of switches, then seven bytes for each call.
// Ends the process at the first difference.

#include <cstdlib>
#include <iostream>
#include <optional>

#include "tests/model/driver.h"

namespace {

// How many of 64 calls are of each kind. Calls that force a new store for the next input are rare.
constexpr std::array<uint8_t, static_cast<size_t>(Kind::kCount)> kShares = {8, 12, 3, 8, 8, 8, 4, 4,
                                                                            1, 2,  1, 1, 1, 1, 1, 1};

// Values near which the behaviour changes.
constexpr uint32_t kFrames[] = {0,  1,   2,   6,          7,          8,          9,          14,
                                15, 100, 307, 0x7FFFFFFF, 0x80000000, 0x80000006, 0xFFFFFFFE, 0xFFFFFFFF};
constexpr uint32_t kTags[] = {0, 7, METADATA_TAG, 0xFFFFFFFF};
constexpr int32_t kRetains[] = {-1, -2, -3, 0, 7, 10, 20, 300};
constexpr uint32_t kSizes[] = {0, 1, 4, Driver::kRoom};
constexpr int32_t kTypes[] = {0, 1, 2, 2};

Kind toKind(int number) {
    size_t kind = 0;
    while (number >= kShares[kind]) number -= kShares[kind++];
    return static_cast<Kind>(kind);
}

Operation toOperation(const uint8_t* bytes, uint32_t& frame) {
    Operation operation;
    operation.kind = toKind(bytes[0] % 64);
    operation.request.cam = bytes[1] % 6u;
    operation.request.pipe = bytes[1] / 6 % 4 == 3 ? bytes[1] / 24 + 7 : bytes[1] / 6 % 4;
    // A frame id from the table, or the last one plus a number.
    frame = bytes[2] < 128 ? kFrames[bytes[2] % 16] + bytes[2] / 16 : frame + bytes[2] % 16 - 3;
    operation.request.frame = frame;
    operation.request.tag = kTags[bytes[3] % 4];
    operation.value = bytes[4];
    operation.number = bytes[5];
    operation.noPointer = bytes[6] % 32 == 31;
    if (operation.kind == Kind::kRegister) {
        operation.value = kSizes[bytes[4] % 4];
        operation.number = kTypes[bytes[5] % 4];
        operation.retain = kRetains[bytes[6] % 8];
    }
    if (operation.kind == Kind::kControl) operation.value = 0x7FFFu + bytes[4] % 13;
    return operation;
}

void check(const Operation& operation, const std::string& difference) {
    if (difference.empty()) return;
    std::cerr << toText(operation) << " differs: " << difference;
    abort();
}

// Prepares a store like a new one, with an empty registry or with two tags. Tag 0, the traced tag, is a queue; tag 7
// has a history. A store with the two tags is reused for many inputs.
void begin(std::optional<Driver>& driver, uint8_t switches) {
    Operation operation = {Kind::kCreate, {}, 0, switches, 0, false};
    const bool isEmpty = switches < 16;
    if (!isEmpty && driver && driver->canRenew()) {
        check(operation, driver->renew(operation));
        return;
    }
    driver.reset();
    driver.emplace();
    check(operation, driver->apply(operation));
    if (isEmpty) return;
    for (const auto& [tag, type, retain] : {std::array<int, 3>{0, 2, 10}, {7, 0, 6}}) {
        operation = {Kind::kRegister, {0, 0, 0, static_cast<uint32_t>(tag)}, 4, type, retain, false};
        check(operation, driver->apply(operation));
    }
    driver->keepAsNew();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    static std::optional<Driver> driver;
    int bursts = *data % 16 < 12 ? 0 : 5;
    begin(driver, *data++);
    Operation operation;
    uint32_t frame = 1;
    int waits = 0;
    for (size--; size >= 7; data += 7, size -= 7) {
        operation = toOperation(data, frame);
        // Repeats the call for consecutive frames, so that lists become long.
        for (int times = data[6] / 4 == 48 && bursts-- > 0 ? 65 : 1; times > 0;
             times--, operation.request.frame = ++frame) {
            const bool isGet = operation.kind == Kind::kGetSync || operation.kind == Kind::kGetSyncTimeout;
            if (isGet && driver->model().waits(operation.request)) {
                operation.kind = ++waits <= 3 ? Kind::kGetSyncTimeout : Kind::kSetSync;
                operation.number = 1;
            }
            check(operation, driver->apply(operation));
        }
    }
    check(operation, driver->compareAll());
    return 0;
}
