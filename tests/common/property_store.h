// The test binary's Android property store, header-only so that the white-box and the black-box
// test binaries share one source. It exports __system_property_get from the program (the binaries
// link with ENABLE_EXPORTS), and the library's property reads find it there when "libc.so" offers
// none. Every translation unit that includes this header emits the same weak definitions; the
// linker keeps one, so each binary has exactly one store.
#pragma once

#include <string.h>

#include <map>
#include <mutex>
#include <string>

namespace keld_test {

constexpr size_t kPropertyValueMax = 92;  // Android's PROP_VALUE_MAX, the terminating zero included

struct PropertyStore {
    std::mutex lock;
    std::map<std::string, std::string> values;
};

inline PropertyStore& propertyStore() {
    static PropertyStore store;
    return store;
}

}  // namespace keld_test

// Sets a property (an empty value is the same as an unset one).
inline void keld_test_setProperty(const char* name, const char* value) {
    keld_test::PropertyStore& store = keld_test::propertyStore();
    std::lock_guard<std::mutex> guard(store.lock);
    store.values[name] = value;
}

// Forgets every property.
inline void keld_test_clearProperties() {
    keld_test::PropertyStore& store = keld_test::propertyStore();
    std::lock_guard<std::mutex> guard(store.lock);
    store.values.clear();
}

// Android's reader: the value, cut to the store's limit, or empty text when unset. `used` makes
// every including unit emit it although nothing in the program calls it by name.
extern "C" inline __attribute__((used, visibility("default"))) int __system_property_get(
    const char* name, char* value) {
    keld_test::PropertyStore& store = keld_test::propertyStore();
    std::lock_guard<std::mutex> guard(store.lock);
    auto it = store.values.find(name);
    const std::string text = it == store.values.end() ? std::string() : it->second;
    const size_t length = text.size() < keld_test::kPropertyValueMax - 1
                              ? text.size()
                              : keld_test::kPropertyValueMax - 1;
    memcpy(value, text.data(), length);
    value[length] = '\0';
    return static_cast<int>(length);
}
