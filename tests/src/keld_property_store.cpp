// Property store of the test binary, served through an exported __system_property_get.
#include "tests/src/keld_property_store.h"

#include <string.h>

#include <map>
#include <mutex>
#include <string>

namespace {

constexpr size_t kValueMax = 92;  // Android's PROP_VALUE_MAX, the terminating zero included

std::mutex& storeLock() {
    static std::mutex lock;
    return lock;
}

std::map<std::string, std::string>& store() {
    static std::map<std::string, std::string> properties;
    return properties;
}

}  // namespace

void keld_test_setProperty(const char* name, const char* value) {
    std::lock_guard<std::mutex> guard(storeLock());
    store()[name] = value;
}

void keld_test_clearProperties() {
    std::lock_guard<std::mutex> guard(storeLock());
    store().clear();
}

extern "C" __attribute__((visibility("default"))) int __system_property_get(const char* name,
                                                                            char* value) {
    std::lock_guard<std::mutex> guard(storeLock());
    auto it = store().find(name);
    const std::string text = it == store().end() ? std::string() : it->second;
    const size_t length = text.size() < kValueMax - 1 ? text.size() : kValueMax - 1;
    memcpy(value, text.data(), length);
    value[length] = '\0';
    return static_cast<int>(length);
}
