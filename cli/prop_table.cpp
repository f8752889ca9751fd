// The property table behind the exported __system_property_get.
//
// __system_property_get(name, value): copies the value (at most 91 bytes and a terminator, as
//   Android does) into `value` and returns its length; an unknown name gives "" and 0.
// The table is filled from the command line before the library is first called and only read
// afterwards, so it needs no lock.
#include "cli/prop_table.h"

#include <string.h>

#include <map>

namespace {

std::map<std::string, std::string>& table() {
    static std::map<std::string, std::string> properties;
    return properties;
}

}  // namespace

void tsr_setProperty(const std::string& name, const std::string& value) {
    table()[name] = value;
}

bool tsr_hasProperty(const std::string& name) {
    return table().count(name) != 0;
}

extern "C" __attribute__((visibility("default"))) int __system_property_get(const char* name,
                                                                            char* value) {
    const auto it = table().find(name ? name : "");
    const std::string text = it == table().end() ? std::string() : it->second;
    const size_t length = text.size() < kTsrPropertyValueMax ? text.size() : kTsrPropertyValueMax;
    memcpy(value, text.data(), length);
    value[length] = '\0';
    return static_cast<int>(length);
}
