// The test binary's Android property store: it exports __system_property_get, which the
// library's property reads find in the running process. One store per binary.
#pragma once

// Sets a property (an empty value is the same as an unset one).
void keld_test_setProperty(const char* name, const char* value);
// Forgets every property.
void keld_test_clearProperties();
