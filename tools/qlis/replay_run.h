// One replay: recorded frames through a live session of the library, with
// what the tool measures beside it (the packing check, the peer measure,
// the ground truth of synthesised frames) and, for a report, previews of
// the frames taken while they are in memory.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "packing_check.h"
#include "replay_inputs.h"
#include "report_image.h"
#include "session_runner.h"
#include "synth.h"

namespace qlis::tool {

struct ReplayOptions {
  std::vector<std::string> inputs;
  GeometryOptions geometry;
  double fps = 0.0;  // 0: every frame evaluated
  bool fps_given = false;
  std::string capture;
  std::vector<std::string> burst;
  bool json = false;
  bool log = false;
  std::string report;  // folder for a report; empty: none
  bool force = false;
};

// Previews for the report, made only when one is asked for.
struct ReplayPictures {
  std::vector<GreyImage> thumbs;  // one per preview frame
  std::vector<uint8_t> kept_bytes;  // bufmax when the stream ended
  GreyImage capture_before, capture_after;
  std::vector<GreyImage> burst_before, burst_after;
};

struct ReplayRun {
  std::vector<ReplayInput> frames;
  std::vector<PreviewRecord> records;
  std::vector<std::optional<FrameTruth>> truth;  // from a manifest beside the frames
  std::vector<double> peer;                      // laplacian_variance of each frame
  std::vector<int32_t> reblur_rank, peer_rank;   // 1 for the sharpest; 0: unranked
  int32_t kept_index = -1;
  std::optional<ReplayInput> capture_input;
  std::optional<CaptureRecord> capture;
  std::vector<ReplayInput> burst_inputs;
  std::optional<BurstRecord> burst;
  double seconds = 0.0;
  PackingWatch packing;
  ReplayPictures pictures;
};

// Throws ToolError for bad options or input, before the session starts
// wherever it can.
ReplayRun run_replay(const ReplayOptions &options);

// The truth ranks of the preview frames (0 where unknown).
std::vector<int32_t> truth_ranks(const ReplayRun &run);

// Burst frames and preview frames are both numbered from 0: every mention
// says which of the two it is.
std::string burst_frame(const ReplayRun &run, int32_t id);
std::string kept_preview(const ReplayRun &run);

struct BurstMeaning {
  std::string best, replace, result;
};
BurstMeaning burst_meaning(const ReplayRun &run, const BurstRecord &b);

}  // namespace qlis::tool
