// qlis: the library's host tool. Every failure ends in one line on standard
// error, "qlis: <message>", and exit status 1; a command line it cannot
// parse gives status 2; --help and --version print to standard output.
#include <CLI/CLI.hpp>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <new>
#include <string>
#include <system_error>

#include "cmd_demo.h"
#include "output_dir.h"
#include "png_image.h"
#include "ql_is/ql_is.h"
#include "subcommand.h"
#include "synth.h"
#include "synth_output.h"
#include "tool_error.h"

namespace {

using namespace qlis::tool;
namespace fs = std::filesystem;

constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;
constexpr const char *kDefaultPhoto = "coffee.png";

// The shipped photograph: beside an installed qlis in <prefix>/share/ql_is,
// else in the source tree the tool was built from.
std::string default_photo() {
  std::vector<fs::path> places;
  std::error_code ec;
  const fs::path exe = fs::read_symlink("/proc/self/exe", ec);
  if (!ec)
    places.push_back(exe.parent_path() / QLIS_DATA_FROM_BINDIR / kDefaultPhoto);
  places.push_back(fs::path(QLIS_SOURCE_DATA_DIR) / kDefaultPhoto);
  std::string tried;
  for (const fs::path &p : places) {
    if (fs::is_regular_file(p, ec)) return p.lexically_normal().string();
    tried += (tried.empty() ? "" : " or ") + p.lexically_normal().string();
  }
  throw ToolError(
      std::string("the shipped photograph is missing (looked for ") + tried +
      "); name a PNG file");
}

// A seed: digits only and within 64 bits, so that "-1" or an overlong
// number is refused instead of wrapping.
CLI::Validator seed_number() {
  return CLI::Validator(
      [](std::string &text) {
        uint64_t value = 0;
        const char *end = text.data() + text.size();
        const auto [stop, ec] = std::from_chars(text.data(), end, value);
        const bool whole = !text.empty() && ec == std::errc() && stop == end;
        return whole ? std::string()
                     : "\"" + text + "\" is not a whole number below 2^64";
      },
      "");
}

struct SynthOptions {
  std::string photo;
  std::string out;
  std::string format = "raw10";
  std::string packing = "library";
  bool force = false;
  SynthParams params;
};

void add_synth(CLI::App &app, SynthOptions &o) {
  CLI::App *cmd = app.add_subcommand("synth",
                                     "Generate a hand-held preview stream from "
                                     "a photograph: frames and a manifest");
  cmd->add_option("photo", o.photo,
                  "PNG photograph (gray, RGB or palette, 8 or 16 bits); "
                  "default: the shipped coffee.png");
  cmd->add_option("--out", o.out, "Output folder (created when missing)")
      ->required();
  cmd->add_option("--frames", o.params.frames, "Number of frames, 1 to 2000")
      ->capture_default_str();
  CLI::Option *width = cmd->add_option("--width", o.params.width,
                                       "Frame width in pixels, a multiple of 4")
                           ->capture_default_str();
  CLI::Option *height =
      cmd->add_option("--height", o.params.height, "Frame height, even")
          ->capture_default_str();
  width->needs(height);
  height->needs(width);
  cmd->add_option("--format", o.format,
                  "raw10 (packed Bayer, code 15), yuv (4:2:0, code 13) "
                  "or yuyv (code 20)")
      ->check(CLI::IsMember({"raw10", "yuv", "yuyv"}))
      ->capture_default_str();
  cmd->add_option("--packing", o.packing,
                  "RAW10 packing: library (byte 4 = high bits of pixel 3, the "
                  "byte the library samples) or mipi (bytes 0-3 = high bits, "
                  "byte 4 = low bits, as many sensors write it: replay and "
                  "score warn that the library's decisions on it are noise)")
      ->check(CLI::IsMember({"library", "mipi"}))
      ->capture_default_str();
  cmd->add_option("--seed", o.params.seed,
                  "Seed of every random draw: same seed, same bytes")
      ->check(seed_number())
      ->capture_default_str();
  cmd->add_option(
         "--max-blur", o.params.max_blur_px,
         "Longest shake smear in pixels, 0 to 64 (each frame draws 0 to this)")
      ->capture_default_str();
  cmd->add_flag("--force", o.force,
                "Write into an output folder that already holds files");
  cmd->footer(
      "Each frame is a straight shake smear of known length and angle, a\n"
      "small shift and fresh sensor noise over the photograph (cropped to the\n"
      "frame's aspect and resampled). Frames are named as the library's\n"
      "save_to_file dumps, <w>X<h>_stride<s>_fmt<f>_index<%2d>.yuv, so that\n"
      "replay recognises them. manifest.json holds the parameters and, per\n"
      "frame, the blur, shift, noise and ground-truth sharpness rank.\n"
      "RAW10 packing: low bits first; byte 4 = high 8 bits of pixel 3, the\n"
      "byte the library samples; --packing mipi writes high bits first and the\n"
      "low bits in byte 4. The default photograph is looked up in\n"
      "../share/ql_is beside the installed qlis, then in the source tree.");
}

int run_synth(SynthOptions &o) {
  o.params.format = parse_format(o.format);
  if (o.packing == "mipi") {
    if (o.params.format != kFormatRaw10)
      throw ToolError("--packing mipi applies to raw10 frames only");
    o.params.packing = Raw10Packing::kMipi;
  }
  validate_synth(o.params);
  const std::string photo_path = o.photo.empty() ? default_photo() : o.photo;
  const RgbImage photo = read_png_rgb(photo_path);
  prepare_output_dir(o.out, o.force);

  const auto start = std::chrono::steady_clock::now();
  const SynthReport report = write_synth(photo, photo_path, o.params, o.out);
  const std::chrono::duration<double> took =
      std::chrono::steady_clock::now() - start;

  const FrameDesc d = synth_frame_desc(o.params);
  std::printf(
      "qlis synth: %d %s frames %dx%d, stride %d, from %s (%dx%d), seed %llu\n",
      o.params.frames, format_name(d.format), d.width, d.height, d.stride,
      photo_path.c_str(), photo.width, photo.height,
      static_cast<unsigned long long>(o.params.seed));
  std::printf("layout: %s\n", layout_text(d.format, o.params.packing).c_str());
  std::printf("wrote %zu files of %llu bytes each and %s in %.2f s\n",
              report.files.size(),
              static_cast<unsigned long long>(frame_bytes(d)),
              report.manifest.c_str(), took.count());
  return 0;
}

}  // namespace

int main(int argc, char **argv) {
  CLI::App app{
      "qlis: run and inspect the ql_is image-selection library on the host"};
  app.name("qlis");
  app.set_version_flag("--version",
                       std::string("qlis with libql_is ") + ql_is_get_version(),
                       "Print the library's version and exit");
  app.require_subcommand(1);
  app.footer(
      "Errors print one line, \"qlis: <message>\", and exit with status 1\n"
      "(2 for a command line that does not parse).");
  const std::function<int()> demo = add_demo_command(app, default_photo);
  SynthOptions synth;
  add_synth(app, synth);
  const Subcommand replay = add_replay_command(app);
  const Subcommand score = add_score_command(app);
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success &e) {
    return app.exit(e);
  } catch (const CLI::ParseError &e) {
    std::fprintf(stderr, "qlis: %s (see qlis --help)\n", e.what());
    return kExitUsage;
  }
  try {
    if (app.got_subcommand("demo")) return demo();
    if (app.got_subcommand("synth")) return run_synth(synth);
    if (replay.app->parsed()) return replay.run();
    if (score.app->parsed()) return score.run();
  } catch (const ToolError &e) {
    std::fprintf(stderr, "qlis: %s\n", e.what());
  } catch (const std::bad_alloc &) {
    std::fprintf(stderr, "qlis: out of memory\n");
  } catch (const std::exception &e) {
    std::fprintf(stderr, "qlis: %s\n", e.what());
  }
  return kExitFailure;
}
