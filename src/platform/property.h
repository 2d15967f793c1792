// System properties, read afresh at every use: the value lands in a buffer
// preset to "0" (so an unset property reads as 0) and is converted with atoi.
#pragma once

namespace qlis {

// Longest property value including its terminating zero, as on Android.
inline constexpr int kPropertyValueMax = 92;

int read_property_int(const char *name);

}  // namespace qlis
