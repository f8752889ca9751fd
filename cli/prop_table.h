// The program's own Android property store. The library reads its debug switches through
// __system_property_get, which it looks up in the running process when no system store exists;
// this program exports one (it is linked with -rdynamic) that answers from this table.
#pragma once

#include <string>

// Sets a property for the rest of the run; an empty value reads as unset.
void tsr_setProperty(const std::string& name, const std::string& value);
// True when the table holds `name`.
bool tsr_hasProperty(const std::string& name);
// Longest value the store can hand out (Android's PROP_VALUE_MAX less the terminator).
constexpr size_t kTsrPropertyValueMax = 91;
