#include "session_runner.h"

#include <pthread.h>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string_view>
#include <thread>

#include "tool_error.h"

namespace qlis::tool {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int32_t kReblurRadius = 5;
constexpr uint32_t kReblurMode = 1;
// compare_reblue_with_luminance_compensation's pieces are 64-byte aligned:
// at most 63 bytes of padding before each of its three requests.
constexpr uint64_t kReblurArenaSlack = 189;
constexpr auto kPollInterval = std::chrono::milliseconds(1);
// The worker takes a hand-over within microseconds of its wake-up; a job
// that stays pending while the worker idles this long lost its wake-up.
constexpr auto kMissedWakeUp = std::chrono::milliseconds(50);
constexpr auto kEvaluationTimeout = std::chrono::seconds(60);
// A worker that just finished may be queued on the mutex behind our look;
// it needs a moment to get back into its wait. A hand-over before that
// would lose its wake-up because of the tool, not of the stream.
constexpr auto kWorkerReturn = std::chrono::microseconds(500);
constexpr int32_t kVerdictSharper = 2;
constexpr int32_t kVerdictNewBase = 4;
constexpr int32_t kVerdictKeepBest = 3;

std::atomic<bool> g_runner_alive{false};

bool keeps(int32_t verdict) {
  return verdict == kVerdictSharper || verdict == kVerdictNewBase;
}

class WorkerLock {
 public:
  WorkerLock() { pthread_mutex_lock(&g_asIQThdInfo.mutex); }
  ~WorkerLock() { pthread_mutex_unlock(&g_asIQThdInfo.mutex); }
  WorkerLock(const WorkerLock &) = delete;
  WorkerLock &operator=(const WorkerLock &) = delete;
};

// Tells a job whose wake-up was lost: pending while the worker idles for
// longer than a wake-up takes. Call look_locked() under the worker mutex.
class MissedWakeUpWatch {
 public:
  bool look_locked() {
    const bool waiting = g_asIQThdInfo.pending == 1 && g_asIQThdInfo.idle == 1;
    if (!waiting) {
      since_ = kNever;
      return false;
    }
    if (since_ == kNever) {
      since_ = Clock::now();
      return false;
    }
    return Clock::now() - since_ >= kMissedWakeUp;
  }
  void reset() { since_ = kNever; }

 private:
  static constexpr Clock::time_point kNever = Clock::time_point::max();
  Clock::time_point since_ = kNever;
};

// The decision line of a burst: "<name>, <line>, bestId:<b>, replaceId:<r>".
bool parse_burst_line(std::string_view line, int32_t &best, int32_t &replace) {
  const size_t at = line.find("bestId:");
  if (at == std::string_view::npos) return false;
  const std::string tail(line.substr(at));
  int b = 0, r = 0;
  if (std::sscanf(tail.c_str(), "bestId:%d, replaceId:%d", &b, &r) != 2) return false;
  best = b;
  replace = r;
  return true;
}

}  // namespace

double reblur_score(const FrameDesc &desc, const std::vector<uint8_t> &bytes) {
  constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
  if (desc.format != kFormatRaw10 || desc.width <= 0 || desc.height <= 0 ||
      bytes.size() < plane_bytes(desc)) {
    return kNaN;
  }
  const uint64_t w4 = static_cast<uint64_t>(desc.width) / 4;
  const uint64_t h4 = static_cast<uint64_t>(desc.height) / 4;
  if (w4 <= 2 * kReblurRadius || h4 <= 2 * kReblurRadius) return kNaN;
  const uint64_t need = 2 * w4 * h4 + 4 * (w4 + 1) * (h4 + 1) + kReblurArenaSlack;
  if (need > std::numeric_limits<uint32_t>::max()) return kNaN;
  std::vector<uint8_t> block(static_cast<size_t>(need));
  const ScratchArena arena{block.data(), static_cast<uint32_t>(need), 0};
  return compare_reblue_with_luminance_compensation(
      bytes.data(), desc.height, desc.width, static_cast<uint32_t>(desc.stride),
      kReblurMode, kReblurRadius, arena);
}

SessionRunner::OneAtATime::OneAtATime() {
  if (g_runner_alive.exchange(true)) {
    throw ToolError("a session of the library is already running in this process");
  }
}

SessionRunner::OneAtATime::~OneAtATime() { g_runner_alive = false; }

SessionRunner::SessionRunner() {
  if (ql_is_init() != 0) {
    throw ToolError("the library refused to start a session (ql_is_init returned -1)");
  }
  WorkerLock lock;
  luminance_seen_ = last_luminance;
}

SessionRunner::~SessionRunner() {
  ql_is_deinit();
}

FrameParam SessionRunner::frame_param(const FrameDesc &desc, Bytes bytes,
                                      const uint8_t *tag, int32_t mode) const {
  if (bytes.size() > kImageBufferBytes || bytes.size() < plane_bytes(desc)) {
    throw ToolError("a frame of " + std::to_string(bytes.size()) +
                    " bytes does not fit its geometry or the library's image buffer");
  }
  FrameParam p{};
  p.format = desc.format;
  p.width = desc.width;
  p.height = desc.height;
  p.stride = desc.stride;
  // The library copies preview frames and writes into captures only.
  p.image.ptr = const_cast<uint8_t *>(bytes.data());
  p.side.ptr = const_cast<uint8_t *>(tag);
  p.image_size = static_cast<uint32_t>(bytes.size());
  p.side_size = 0;
  p.mode = mode;
  return p;
}

int32_t SessionRunner::add_record(const FrameDesc &desc,
                                  const std::vector<uint8_t> &bytes,
                                  const std::string &name) {
  validate_frame(desc);
  frame_param(desc, bytes, nullptr, 0);  // refuses a frame that does not fit
  PreviewRecord r;
  r.index = static_cast<int32_t>(records_.size());
  r.name = name;
  r.desc = desc;
  r.reblur = std::numeric_limits<double>::quiet_NaN();
  records_.push_back(std::move(r));
  tags_.push_back(0);
  return records_.back().index;
}

void SessionRunner::hand_over(int32_t index, Bytes bytes) {
  PreviewRecord &r = records_[static_cast<size_t>(index)];
  const FrameParam p = frame_param(r.desc, bytes, &tags_[static_cast<size_t>(index)], 0);
  ++r.attempts;
  intake_(p);
  unresolved_.push_back(index);
  // Only this thread hands over, and the worker never writes the job's
  // side pointer: it can be read without the lock.
  if (prevParam.side == p.side.ptr) {
    last_index_ = index;
    last_bytes_ = bytes;
  }
}

void SessionRunner::hand_over_until(int32_t index, Bytes bytes, bool until_judged) {
  const PreviewRecord &r = records_[static_cast<size_t>(index)];
  const auto deadline = Clock::now() + kEvaluationTimeout;
  while (!r.evaluated) {
    look();
    hand_over(index, bytes);
    MissedWakeUpWatch watch;
    while (Clock::now() < deadline) {
      std::this_thread::sleep_for(kPollInterval);
      bool missed = false, taken = false;
      {
        WorkerLock lock;
        look_locked();
        missed = watch.look_locked();
        taken = in_flight_ == index && g_asIQThdInfo.idle == 0;
      }
      if (r.evaluated || (taken && !until_judged)) return;
      if (!r.handed_over || in_flight_ != index || missed) break;  // offer again
    }
    if (Clock::now() >= deadline) {
      throw ToolError("the library's worker did not evaluate frame " + r.name +
                      " within a minute");
    }
  }
}

void SessionRunner::look_locked() {
  const uint8_t *named_tag = prevParam.side;
  int32_t named = -1;
  if (in_flight_ >= 0 && named_tag == &tags_[static_cast<size_t>(in_flight_)]) {
    named = in_flight_;
  }
  for (int32_t i : unresolved_) {
    if (named_tag == &tags_[static_cast<size_t>(i)]) named = i;
  }
  // Each hand-over renames the job, so every offer since the last look
  // that the job does not name was dropped by the intake: its record stays
  // not handed over.
  unresolved_.clear();
  const bool finished = g_asIQThdInfo.pending == 0 && g_asIQThdInfo.idle == 1;
  if (named >= 0) {
    PreviewRecord &r = records_[static_cast<size_t>(named)];
    if (in_flight_ >= 0 && in_flight_ != named) in_flight_ = -1;  // superseded
    if (!r.handed_over) {
      r.handed_over = true;
      // Seen still pending: the worker has not begun, so this is the
      // luminance its judgement starts from; seen finished: the last look
      // came before its hand-over.
      r.luminance_before = finished ? luminance_seen_ : last_luminance;
    }
    if (finished && !r.evaluated) {
      r.evaluated = true;
      r.verdict = prevParam.result;
      r.kept = keeps(r.verdict);
      r.low_light = r.desc.format == kFormatRaw10 && !(r.luminance_before > kLowLightLuminance);
      r.luminance = last_luminance;
      r.base_clarity = base_clarity;
      std::vector<std::string> lines = log_.take();
      r.log.insert(r.log.end(), lines.begin(), lines.end());
      if (r.kept) {
        kept_index_ = named;
        kept_desc_ = r.desc;
        kept_size_ = static_cast<size_t>(prevParam.image_size);
      }
      in_flight_ = -1;
      completion_seen_ = Clock::now();
    } else if (!finished) {
      in_flight_ = named;
    }
  }
  if (finished) luminance_seen_ = last_luminance;
}

bool SessionRunner::try_look() {
  if (pthread_mutex_trylock(&g_asIQThdInfo.mutex) != 0) return false;
  look_locked();
  pthread_mutex_unlock(&g_asIQThdInfo.mutex);
  return true;
}

void SessionRunner::look() {
  WorkerLock lock;
  look_locked();
}

PreviewRecord SessionRunner::evaluate(const FrameDesc &desc,
                                      const std::vector<uint8_t> &bytes,
                                      const std::string &name) {
  settle();
  const int32_t index = add_record(desc, bytes, name);
  log_.take();  // what came before belongs to no frame
  hand_over_until(index, bytes, true);
  PreviewRecord done = records_[static_cast<size_t>(index)];
  done.reblur = reblur_score(desc, bytes);
  records_[static_cast<size_t>(index)].reblur = done.reblur;
  return done;
}

int32_t SessionRunner::offer(const FrameDesc &desc, const std::vector<uint8_t> &bytes,
                             const std::string &name) {
  const int32_t index = add_record(desc, bytes, name);
  if (index == 0) {
    // Right after init the worker may not have reached its wait yet: a
    // hand-over then loses its wake-up, and the next frame replaces it.
    hand_over_until(index, bytes, false);
  } else {
    // Read the last evaluation before this hand-over can rename the job.
    try_look();
    std::this_thread::sleep_until(completion_seen_ + kWorkerReturn);
    hand_over(index, bytes);
  }
  // The tool's own measurement runs on this thread while the worker judges.
  records_[static_cast<size_t>(index)].reblur = reblur_score(desc, bytes);
  try_look();
  return index;
}

void SessionRunner::poll() { try_look(); }

void SessionRunner::settle() {
  const auto deadline = Clock::now() + kEvaluationTimeout;
  MissedWakeUpWatch watch;
  for (;;) {
    bool missed = false;
    {
      WorkerLock lock;
      look_locked();
      if (in_flight_ < 0) break;
      missed = watch.look_locked();
    }
    if (Clock::now() >= deadline) {
      throw ToolError("the library's worker did not finish frame " +
                      records_[static_cast<size_t>(in_flight_)].name + " within a minute");
    }
    if (missed && in_flight_ == last_index_) {
      hand_over(in_flight_, last_bytes_);
      watch.reset();
    }
    std::this_thread::sleep_for(kPollInterval);
  }
  last_index_ = -1;
  last_bytes_ = {};
  give_reasons();
}

void SessionRunner::give_reasons() {
  // A frame is dropped while the worker holds its lock, which it does for
  // the whole judgement of the frame handed over before (and a moment
  // after, on its way back to its wait); a frame handed
  // over is left unjudged only when the next hand-over renamed the job
  // before the worker woke up to it.
  int32_t before = -1;
  for (PreviewRecord &r : records_) {
    if (!r.handed_over && r.reason.empty()) {
      const bool judging = before >= 0 && records_[static_cast<size_t>(before)].evaluated;
      r.reason = judging ? "the worker was judging frame " + std::to_string(before)
                         : "the worker held its lock";
    }
    if (r.handed_over) before = r.index;
  }
  int32_t after = -1;
  for (auto r = records_.rbegin(); r != records_.rend(); ++r) {
    if (r->handed_over && !r->evaluated && r->reason.empty() && after >= 0) {
      r->reason = "frame " + std::to_string(after) + " replaced it before the worker woke";
    }
    if (r->handed_over) after = r->index;
  }
}

CaptureRecord SessionRunner::capture(const FrameDesc &desc, std::vector<uint8_t> &bytes) {
  validate_frame(desc);
  settle();
  CaptureRecord c;
  c.reblur = reblur_score(desc, bytes);
  FrameParam p = frame_param(desc, bytes, &capture_tags_[0], 1);
  log_.take();
  c.status = ql_is_process_takepicture(&p);
  if (c.status == 0) {
    WorkerLock lock;
    if (prevParam.side == &capture_tags_[0]) c.verdict = prevParam.result;
  }
  c.replaced = c.status == 0 && c.verdict == kVerdictKeepBest;
  if (c.status == 0 && keeps(c.verdict)) {
    kept_index_ = -1;
    kept_desc_ = desc;
    kept_size_ = bytes.size();
  }
  c.log = log_.take();
  return c;
}

BurstRecord SessionRunner::burst(const FrameDesc &desc,
                                 std::vector<std::vector<uint8_t>> &frames) {
  validate_frame(desc);
  const size_t count = frames.size();
  if (count < 2 || count > QL_IS_BURST_MAX_FRAMES) {
    throw ToolError("a burst takes 2 to " + std::to_string(QL_IS_BURST_MAX_FRAMES) +
                    " frames, not " + std::to_string(count));
  }
  for (const std::vector<uint8_t> &f : frames) {
    if (f.size() != frames[0].size()) {
      throw ToolError("the frames of a burst must all have the same size");
    }
    frame_param(desc, f, nullptr, 1);  // refuses a frame that does not fit
  }
  settle();
  BurstRecord b;
  for (const std::vector<uint8_t> &f : frames) b.reblur.push_back(reblur_score(desc, f));
  const std::vector<std::vector<uint8_t>> before = frames;

  alignas(8) uint8_t record[QL_IS_BURST_RECORD_SIZE] = {};
  for (size_t i = 0; i < count; ++i) {
    const int k = static_cast<int>(i);
    ql_is_record_put_i32(record, QL_IS_BURST_WIDTH(k), desc.width);
    ql_is_record_put_i32(record, QL_IS_BURST_HEIGHT(k), desc.height);
    ql_is_record_put_ptr(record, QL_IS_BURST_IMAGE(k), frames[i].data());
    ql_is_record_put_i32(record, QL_IS_BURST_STRIDE(k), desc.stride);
    ql_is_record_put_ptr(record, QL_IS_BURST_SIDE(k), &capture_tags_[i]);
  }
  const uint32_t image_size = static_cast<uint32_t>(frames[0].size());
  std::memcpy(record + QL_IS_BURST_IMAGE_SIZE, &image_size, sizeof image_size);
  ql_is_record_put_i32(record, QL_IS_BURST_SIDE_SIZE, 0);
  ql_is_record_put_i32(record, QL_IS_BURST_COUNT, static_cast<int32_t>(count));
  ql_is_record_put_i32(record, QL_IS_BURST_MODE, 1);

  log_.take();
  b.status = ql_is_process_bat_takepicture(record);
  b.log = log_.take();
  b.result = ql_is_record_get_i32(record, QL_IS_BURST_RESULT);
  for (const std::string &line : b.log) {
    if (parse_burst_line(line, b.best_id, b.replace_id)) break;
  }
  b.replaced = b.replace_id >= 0 && static_cast<size_t>(b.replace_id) < count &&
               frames[static_cast<size_t>(b.replace_id)] != before[static_cast<size_t>(b.replace_id)];
  return b;
}

std::vector<uint8_t> SessionRunner::kept_frame() const {
  WorkerLock lock;
  if (kept_size_ == 0 || bufmax.image == nullptr) return {};
  return std::vector<uint8_t>(bufmax.image, bufmax.image + kept_size_);
}

}  // namespace qlis::tool
