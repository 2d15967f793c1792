// One live session of the library, driven as a camera host drives it, with
// everything a tuning engineer needs to see why a frame won: the verdict of
// each evaluated preview frame, the lighting regime it was judged in, the
// frame's own re-blur score beside the base image's, and the library's own
// log lines of each call. The decisions are the library's; this class only
// hands frames over through the exported entry points and reads the
// exported session globals afterwards, under the worker's mutex.
//
// Which frame the worker took is told by the job record: every frame is
// handed over with a side pointer of its own (and a side size of 0, so
// nothing is copied from it), which the intake stores in prevParam.side.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "frame_file.h"
#include "library_log.h"
#include "ql_is/ql_is.h"

namespace qlis::tool {

// The remembered luminance at or below which a RAW10 frame is judged by the
// low-light procedure.
inline constexpr double kLowLightLuminance = 46.5;

// The outcome of one preview frame.
struct PreviewRecord {
  int32_t index = 0;         // position in the stream, from 0
  std::string name;          // file name or synthetic frame name
  FrameDesc desc;
  bool handed_over = false;  // false: the intake dropped it (worker busy)
  bool evaluated = false;    // the worker finished it and the fields below hold
  int32_t attempts = 0;      // calls of ql_is_process_preview for this frame
  int32_t verdict = 0;       // the evaluation's result (2, 3, 4, -1; 0 if none)
  bool kept = false;         // verdict 2 or 4: the frame is now the best (bufmax)
  bool low_light = false;    // the regime it was judged in (RAW10 only)
  double luminance_before = 0.0;  // the remembered luminance that chose it
  double luminance = 0.0;    // the remembered luminance after the evaluation
  double reblur = 0.0;       // the frame's own re-blur score; NaN if not RAW10
  double base_clarity = 0.0; // the base image's re-blur score afterwards
  std::vector<std::string> log;  // the library's lines, "<tag>: <text>"
  std::string reason;        // why it was not judged; empty when it was
};

struct CaptureRecord {
  int32_t status = -1;    // ql_is_process_takepicture's result
  int32_t verdict = 0;    // the capture's evaluation (3: replaced)
  bool replaced = false;  // the frame's bytes now hold the best preview frame
  double reblur = 0.0;    // the capture's own re-blur score as handed in
  std::vector<std::string> log;
};

struct BurstRecord {
  int32_t status = -1;      // ql_is_process_bat_takepicture's result
  int32_t result = 0;       // the record's result field
  int32_t best_id = -1;     // from the library's decision line
  int32_t replace_id = -1;
  bool replaced = false;    // frame replace_id's bytes changed (now bufmax's)
  std::vector<double> reblur;  // each frame's re-blur score as handed in
  std::vector<std::string> log;
};

// ql_is_init on construction (throws ToolError when it fails, for example
// when another session exists), ql_is_deinit on destruction. One at a time
// per process. While it lives, the library's log lines go to this runner
// (and, when QLIS_LOG is set and not "0", to standard error as well).
class SessionRunner {
 public:
  SessionRunner();
  ~SessionRunner();
  SessionRunner(const SessionRunner &) = delete;
  SessionRunner &operator=(const SessionRunner &) = delete;

  // Hands the frame over as a preview frame and waits until the worker has
  // evaluated it (offering it again while the intake drops it, and when the
  // worker missed the wake-up of a hand-over), so that every frame is
  // judged. `bytes` must stay alive during the call. Throws ToolError when
  // the worker does not finish within a minute.
  PreviewRecord evaluate(const FrameDesc &desc,
                         const std::vector<uint8_t> &bytes,
                         const std::string &name);

  // Paced mode (replay --fps): offers the frame once, as a host's preview
  // thread does, without waiting; the worker drops it while it is busy.
  // The session's first frame is the exception: it is offered until the
  // worker has taken it, so that the stream starts once the worker waits
  // (as a phone's preview starts after the camera opens) and pacing can be
  // timed from the return. Outcomes are collected by later offers, poll()
  // and settle(). The buffer of `bytes` must stay alive and unchanged until
  // the next offer() or settle(); moving or swapping the vector that holds
  // it is fine. Returns the frame's index.
  int32_t offer(const FrameDesc &desc, const std::vector<uint8_t> &bytes,
                const std::string &name);
  // Collects a finished evaluation without waiting (the worker's mutex is
  // only tried); call it while pacing so that no result is overwritten by
  // the next hand-over before it is read.
  void poll();
  // Waits until the frame handed over last is evaluated; a hand-over whose
  // wake-up the worker missed is offered once more, as the next preview
  // frame would on the phone. Every record is final afterwards, and each
  // frame not judged has its reason.
  void settle();

  // Every preview frame so far, in stream order (evaluated or offered).
  const std::vector<PreviewRecord> &records() const { return records_; }

  // A single capture: `bytes` is overwritten with the best preview frame
  // when the library replaces the capture. Settles first.
  CaptureRecord capture(const FrameDesc &desc, std::vector<uint8_t> &bytes);

  // A burst of 2 to 6 frames of the same geometry and size (ToolError
  // otherwise); the blurriest may be overwritten with the best preview
  // frame. Settles first.
  BurstRecord burst(const FrameDesc &desc,
                    std::vector<std::vector<uint8_t>> &frames);

  // The best frame kept so far (bufmax's image, as many bytes as that frame
  // was handed over with), copied out; empty when nothing was kept.
  std::vector<uint8_t> kept_frame() const;
  // The geometry of that frame.
  FrameDesc kept_desc() const { return kept_desc_; }
  // Index of the preview frame in bufmax, -1 if none (also after a capture
  // that stood, which takes its place).
  int32_t kept_index() const { return kept_index_; }

  // Stands in for ql_is_process_preview on every hand-over, so that a test
  // can lose a hand-over's wake-up when it chooses to.
  using Intake = std::function<void(const FrameParam &)>;
  void set_intake(Intake intake) { intake_ = std::move(intake); }

 private:
  int32_t add_record(const FrameDesc &desc, const std::vector<uint8_t> &bytes,
                     const std::string &name);
  using Bytes = std::span<const uint8_t>;
  FrameParam frame_param(const FrameDesc &desc, Bytes bytes, const uint8_t *tag,
                         int32_t mode) const;
  void hand_over(int32_t index, Bytes bytes);
  // Hands the frame over until the worker has taken it, or judged it with
  // `until_judged`: again while the intake drops it and when the worker
  // missed the wake-up of its hand-over.
  void hand_over_until(int32_t index, Bytes bytes, bool until_judged);
  void give_reasons();
  // Reads the job record with the worker's mutex held by the caller.
  void look_locked();
  bool try_look();
  void look();

  // Claims the process's one session before anything else is touched.
  struct OneAtATime {
    OneAtATime();
    ~OneAtATime();
    OneAtATime(const OneAtATime &) = delete;
    OneAtATime &operator=(const OneAtATime &) = delete;
  };
  OneAtATime claim_;

  std::vector<PreviewRecord> records_;
  std::deque<uint8_t> tags_;        // one per preview frame: stable addresses
  uint8_t capture_tags_[QL_IS_BURST_MAX_FRAMES] = {};
  std::vector<int32_t> unresolved_;  // offered, hand-over not yet known
  int32_t in_flight_ = -1;  // handed over, evaluation not yet seen
  double luminance_seen_ = 0.0;  // last_luminance at the last look
  std::chrono::steady_clock::time_point completion_seen_;  // of the last evaluation
  // The frame the job names and the bytes it was handed over with, which
  // settle() hands over again when the worker missed that wake-up.
  int32_t last_index_ = -1;
  Bytes last_bytes_;
  Intake intake_ = [](const FrameParam &p) { ql_is_process_preview(&p); };
  int32_t kept_index_ = -1;
  FrameDesc kept_desc_;
  size_t kept_size_ = 0;
  LibraryLog log_;  // installed before the session starts, removed after
};

// The frame's own re-blur score as the judgements compute it (radius 5),
// with a scratch arena of its own; NaN for frames that are not RAW10 or too
// small, or whose bytes do not hold height x stride.
double reblur_score(const FrameDesc &desc, const std::vector<uint8_t> &bytes);

}  // namespace qlis::tool
