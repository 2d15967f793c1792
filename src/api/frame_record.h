// Reading the host's records. Their pointer fields are not naturally
// aligned on 64-bit targets, so every field is copied out at its offset.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "ql_is/ql_is.h"

namespace qlis {

template <typename T>
T read_field(const void *record, size_t offset) {
  T value;
  std::memcpy(&value, static_cast<const uint8_t *>(record) + offset, sizeof value);
  return value;
}

template <typename T>
void write_field(void *record, size_t offset, T value) {
  std::memcpy(static_cast<uint8_t *>(record) + offset, &value, sizeof value);
}

// The fields of a FrameParam the library uses.
struct FrameView {
  int32_t format;
  int32_t width;
  int32_t height;
  uint8_t *image;
  int32_t stride;
  uint8_t *side;
  uint32_t image_size;
  uint32_t side_size;
  int32_t mode;
};

inline FrameView read_frame(const FrameParam *frame) {
  return {read_field<int32_t>(frame, offsetof(FrameParam, format)),
          read_field<int32_t>(frame, offsetof(FrameParam, width)),
          read_field<int32_t>(frame, offsetof(FrameParam, height)),
          read_field<uint8_t *>(frame, offsetof(FrameParam, image)),
          read_field<int32_t>(frame, offsetof(FrameParam, stride)),
          read_field<uint8_t *>(frame, offsetof(FrameParam, side)),
          read_field<uint32_t>(frame, offsetof(FrameParam, image_size)),
          read_field<uint32_t>(frame, offsetof(FrameParam, side_size)),
          read_field<int32_t>(frame, offsetof(FrameParam, mode))};
}

// The job record of a frame: host pointers, geometry, the central half of
// the frame as region of interest, and whether it is a capture.
inline PrevParam make_job(const FrameView &f, int32_t capture) {
  PrevParam job = {};
  job.image = f.image;
  job.side = f.side;
  job.image_size = f.image_size;
  job.side_size = f.side_size;
  job.height = f.height;
  job.width = f.width;
  job.stride = f.stride;
  job.format = f.format;
  job.one = 1;
  job.roi_left = f.width >> 2;
  job.roi_top = f.height >> 2;
  // Formed in unsigned arithmetic: only absurd sizes would wrap.
  job.roi_right = static_cast<int32_t>(static_cast<uint32_t>(f.width) -
                                       static_cast<uint32_t>(f.width >> 2) - 1u);
  job.roi_bottom = static_cast<int32_t>(static_cast<uint32_t>(f.height) -
                                        static_cast<uint32_t>(f.height >> 2) - 1u);
  job.capture = capture;
  return job;
}

}  // namespace qlis
