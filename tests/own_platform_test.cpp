// A program that defines the platform's symbols itself: the dynamic linker finds its definitions first, so the store
// calls them and not the host's.

#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "paramset.h"
#include "platform/host/host_platform.h"

struct camera_metadata {
    int number;
};

namespace {

std::vector<std::string> gLines;
void (*gOnLine)(const std::string& line) = nullptr;
int gLiveMetadata = 0;

}  // namespace

int property_get(const char* key, char* value, const char*) {
    std::strcpy(value, std::strcmp(key, "persist.vendor.cam.log.tag") == 0 ? "31" : "");
    return static_cast<int>(std::strlen(value));
}

camera_metadata* clone_camera_metadata(const camera_metadata* source) {
    ++gLiveMetadata;
    return new camera_metadata{source->number + 1};
}

void free_camera_metadata(camera_metadata* metadata) {
    --gLiveMetadata;
    delete metadata;
}

void LogMessage::__print_log_(const char* format, ...) const noexcept {
    char text[200];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof(text), format, arguments);
    va_end(arguments);
    gLines.push_back(std::to_string(mLevel) + " " + mModule + std::strchr(text, ','));
    if (gOnLine != nullptr) gOnLine(gLines.back());
}

TEST(OwnPlatform, DefinitionsReplaceTheHosts) {
    zarn::ParamSet::createInstance();
    EXPECT_EQ(gLines, (std::vector<std::string>{"3 ParamSet, createInstance: create", "3 ParamSet, ParamSet: E",
                                                "3 ParamSet, ParamSet: X"}));
    EXPECT_EQ(zarn::ps_log_tag, 31);

    const camera_metadata own = {5};
    EXPECT_EQ(zarn::ParamSet::setMetadata(0, 10, &own), PS_OK);
    EXPECT_EQ(zarn::ParamSet::getMetadata(0, 11)->number, 6);
    EXPECT_EQ(gLiveMetadata, 1);
    zarn::ParamSet::destroyInstance();
    EXPECT_EQ(gLiveMetadata, 0);
}

// The call that logs keeps its store alive until it returns, even while it holds the store's mutex.
TEST(OwnPlatform, LogMayDestroyTheStoreOfTheCallThatLogs) {
    host::setLogLevel(5);
    uint32_t value = 7;
    registerPsDynamicParam(1, sizeof value, 0, "tag", "uint32_t");
    for (const char* function : {"createTag", "permiProc", "_setParam", "~ParamFrame"}) {
        zarn::ParamSet::createInstance();
        static const char* sFunction;
        sFunction = function;
        gOnLine = [](const std::string& line) {
            if (line.find(std::string(", ") + sFunction + ":") == line.npos) return;
            gOnLine = nullptr;
            zarn::ParamSet::destroyInstance();
        };
        // Frame 7 is below 8, so this erases nothing, but it constructs and destroys a frame.
        EXPECT_EQ(erasePs(0, 1, 7), PS_OK);
        EXPECT_EQ(setPsParam(0, 1, 10, 1, &value), std::strcmp(function, "~ParamFrame") == 0 ? PS_NO_DATA : PS_OK);
        EXPECT_EQ(gOnLine, nullptr) << function;
        EXPECT_EQ(getPsParam(0, 1, 10, 1, &value), PS_NO_DATA) << function;
        EXPECT_EQ(zarn::ParamSet::getInstance(), nullptr) << function;
    }
    host::setLogLevel(3);
}
