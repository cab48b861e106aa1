// Bytes as calls, the store against its model: a byte of switches, then seven bytes for each. Ends the process at
// the first difference.

#include <cstdlib>
#include <iostream>

#include "tests/model/driver.h"

namespace {

// Values around which something changes.
constexpr uint32_t kFrames[] = {0,  1,   2,   6,          7,          8,          9,          14,
                                15, 100, 307, 0x7FFFFFFF, 0x80000000, 0x80000006, 0xFFFFFFFE, 0xFFFFFFFF};
constexpr uint32_t kTags[] = {0, 7, METADATA_TAG, 0xFFFFFFFF};
constexpr int32_t kRetains[] = {-1, -2, -3, 0, 7, 10, 20, 300};
constexpr uint32_t kSizes[] = {0, 1, 4, Driver::kRoom};
constexpr int32_t kTypes[] = {0, 1, 2, 2};

Operation toOperation(const uint8_t* bytes, uint32_t& frame) {
    Operation operation;
    operation.kind = static_cast<Kind>(bytes[0] % static_cast<uint8_t>(Kind::kCount));
    operation.request.cam = bytes[1] % 6u;
    operation.request.pipe = bytes[1] / 6 % 4 == 3 ? bytes[1] / 24 + 7 : bytes[1] / 6 % 4;
    // From the table, or so many after the last one.
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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    Driver driver;
    Operation operation = {Kind::kCreate, {}, 0, *data, 0, false};
    check(operation, driver.apply(operation));
    if (*data++ >= 64) {  // tag 0, the traced one, for a queue; tag 7 for a history
        operation = {Kind::kRegister, {}, 4, 2, 10, false};
        check(operation, driver.apply(operation));
        operation = {Kind::kRegister, {0, 0, 0, 7}, 4, 0, 6, false};
        check(operation, driver.apply(operation));
    }
    uint32_t frame = 1;
    int waits = 0;
    for (size--; size >= 7; data += 7, size -= 7) {
        operation = toOperation(data, frame);
        // The same for frames one after another reaches the long lists.
        for (int times = data[6] / 32 == 6 ? 65 : 1; times > 0; times--, operation.request.frame = ++frame) {
            const bool isGet = operation.kind == Kind::kGetSync || operation.kind == Kind::kGetSyncTimeout;
            if (isGet && driver.model().waits(operation.request)) {
                operation.kind = ++waits <= 3 ? Kind::kGetSyncTimeout : Kind::kSetSync;
                operation.number = 1;
            }
            check(operation, driver.apply(operation));
        }
    }
    check(operation, driver.compareAll());
    return 0;
}
