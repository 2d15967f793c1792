// Pieces shared by the single and the burst capture.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qlis {

inline constexpr const char *kPropDumpCapture = "debug.camera.dump_qlas_cap";
inline constexpr size_t kCaptureNameCapacity = 500;

// Takes the worker mutex for a capture and, when a preview frame has been
// handed over, waits once for the worker to report it done.
void lock_for_capture();

// Writes size bytes of data to a "/sdcard/" dump named by `format`, whose
// first conversion is a fresh time stamp and the rest the given integers.
void dump_capture(const uint8_t *data, uint32_t size, const char *format, int a,
                  int b, int c, int d = 0, int e = 0);

// Clears the base image and releases the worker mutex.
void finish_capture();

}  // namespace qlis
