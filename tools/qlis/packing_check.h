// Does the byte the library samples carry a picture? The library reads
// byte 4 of each five-byte RAW10 group and never unpacks; in the packing
// many sensors write, that byte holds the two low bits of four pixels,
// which is sensor noise, and every decision made on it is chance. The
// check compares how well neighbouring groups agree in byte 4 with how
// well they agree in bytes 0 to 3: a picture agrees with its neighbours,
// noise does not. Where no byte agrees (a flat or dark frame) it cannot
// tell, and says so rather than raise a false alarm.
#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "frame_file.h"

namespace qlis::tool {

enum class PackingFinding { kPicture, kLowBits, kCannotTell };

// "picture", "low bits", "could not tell".
const char *finding_name(PackingFinding f);

// A RAW10 frame's first plane (height * stride bytes at least).
PackingFinding check_raw10_packing(const FrameDesc &desc,
                                   const std::vector<uint8_t> &bytes);

// The findings over every frame a command reads, told once at the end.
class PackingWatch {
 public:
  // Frames of other formats are not counted.
  void add(const FrameDesc &desc, const std::vector<uint8_t> &bytes);
  // Low bits if any frame's sampled byte is noise, else picture if any
  // frame showed one, else could not tell.
  PackingFinding finding() const;
  // One line on standard error when the sampled byte holds the low bits;
  // nothing otherwise.
  void warn() const;
  // The finding in a sentence: what it rests on, what it means and, for
  // low bits, what to do.
  std::string summary() const;
  // The top-level "raw10_packing" field: null when no RAW10 frame was read.
  nlohmann::json to_json() const;

 private:
  int32_t counts_[3] = {0, 0, 0};  // by PackingFinding
};

}  // namespace qlis::tool
