// Host properties: those of the file that PARAMSET_PROPERTIES names, overridden by those that this process sets.
// State: gProperties, guarded by gPropertyMutex. Both outlive every static destructor, since libraries may still ask
// for a property while the process exits.

#include <stdio.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <string_view>

#include "platform/host/error_line.h"
#include "platform/host/host_platform.h"

namespace {

using Properties = std::map<std::string, std::string, std::less<>>;

constexpr size_t kLongestValue = PROP_VALUE_MAX - 1;

std::mutex gPropertyMutex;
Properties* gProperties = nullptr;  // made at first use, never destroyed

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view kBlanks = " \t\r\n";
    const size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

/// Takes one line of a property file. Returns what is wrong with it, or an empty text.
std::string takeLine(std::string_view line, Properties& properties) {
    const std::string_view text = trimmed(line.substr(0, line.find('#')));
    if (text.empty()) {
        return {};
    }
    const size_t equals = text.find('=');
    if (equals == std::string_view::npos) {
        return "no '=' in this line";
    }
    const std::string_view key = trimmed(text.substr(0, equals));
    const std::string_view value = trimmed(text.substr(equals + 1));
    if (key.empty()) {
        return "no key before '='";
    }
    if (text.find('\0') != std::string_view::npos) {
        return "zero byte in this line";
    }
    if (value.size() > kLongestValue) {
        return "value of " + std::to_string(value.size()) + " bytes, the longest allowed has " +
               std::to_string(kLongestValue);
    }
    properties[std::string(key)] = value;
    return {};
}

void complain(const std::string& place, const std::string& fault) {
    host::writeErrorLine("host properties: " + place + ": " + fault);
}

void readFile(const std::string& path, Properties& properties) {
    FILE* file = fopen(path.c_str(), "re");
    if (file == nullptr) {
        complain(path, strerror(errno));
        return;
    }
    char* line = nullptr;
    size_t capacity = 0;
    ssize_t length = 0;
    for (int number = 1; (length = getline(&line, &capacity, file)) >= 0; ++number) {
        const std::string fault = takeLine({line, static_cast<size_t>(length)}, properties);
        if (!fault.empty()) {
            complain(path + ":" + std::to_string(number), fault);
        }
    }
    const int readError = errno;
    if (!feof(file)) {  // a directory can be opened like a file; reading it fails
        complain(path, strerror(readError));
    }
    free(line);
    fclose(file);
}

/// gPropertyMutex held.
Properties& loadedProperties() {
    if (gProperties == nullptr) {
        gProperties = new Properties;
        if (const char* path = getenv("PARAMSET_PROPERTIES")) {
            readFile(path, *gProperties);
        }
    }
    return *gProperties;
}

/// gPropertyMutex held, also while the result is used. Null if the property is unset.
const char* findValue(const char* key) {
    if (key == nullptr) {
        return nullptr;
    }
    const Properties& properties = loadedProperties();
    const auto found = properties.find(key);
    return found == properties.end() || found->second.empty() ? nullptr : found->second.c_str();
}

}  // namespace

extern "C" int property_get(const char* key, char* value, const char* default_value) {
    std::lock_guard<std::mutex> lock(gPropertyMutex);
    const char* source = findValue(key);
    if (source == nullptr) {
        source = default_value != nullptr ? default_value : "";
    }
    const size_t length = strnlen(source, kLongestValue);
    memmove(value, source, length);  // the default may overlap the caller's buffer
    value[length] = '\0';
    return static_cast<int>(length);
}

extern "C" int property_set(const char* key, const char* value) {
    const std::string_view text = value != nullptr ? value : "";
    if (key == nullptr || *key == '\0' || text.size() > kLongestValue) {
        return -1;
    }
    std::lock_guard<std::mutex> lock(gPropertyMutex);
    loadedProperties()[key] = text;
    return 0;
}
