#include "cmd_demo.h"

#include <CLI/CLI.hpp>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>

#include "demo.h"
#include "output_dir.h"
#include "png_image.h"
#include "tool_error.h"

namespace qlis::tool {
namespace {

constexpr const char *kDefaultOut = "qlis-demo-report";

struct DemoCommand {
  std::string out = kDefaultOut;
  bool force = false;
  DemoOptions options;
  std::function<std::string()> shipped_photo;
};

// Digits only, within 64 bits: "-1" is refused rather than wrapped.
CLI::Validator whole_number() {
  return CLI::Validator(
      [](std::string &text) {
        uint64_t value = 0;
        const char *end = text.data() + text.size();
        const auto [stop, ec] = std::from_chars(text.data(), end, value);
        return !text.empty() && ec == std::errc() && stop == end
                   ? std::string()
                   : "\"" + text + "\" is not a whole number below 2^64";
      },
      "");
}

int run(const DemoCommand &c) {
  if (c.options.frames < 1 || c.options.frames > kSynthMaxFrames) {
    throw ToolError("--frames must be 1 to " + std::to_string(kSynthMaxFrames));
  }
  prepare_output_dir(c.out, c.force);
  const auto start = std::chrono::steady_clock::now();
  const std::string photo_path = c.shipped_photo();
  const SessionReport report =
      run_demo(read_png_rgb(photo_path), photo_path, c.options);
  for (const std::string &line : report.account)
    std::printf("%s\n", line.c_str());
  const std::string page = write_report(report, c.out);
  const std::chrono::duration<double> took =
      std::chrono::steady_clock::now() - start;
  std::error_code ec;
  const auto bytes = std::filesystem::file_size(page, ec);
  std::printf("report: %s (%.0f KB), open it in a browser; %.1f s\n",
              std::filesystem::absolute(page).lexically_normal().c_str(),
              ec ? 0.0 : static_cast<double>(bytes) / 1024.0, took.count());
  return 0;
}

}  // namespace

std::function<int()> add_demo_command(
    CLI::App &app, std::function<std::string()> shipped_photo) {
  auto c = std::make_shared<DemoCommand>();
  c->shipped_photo = std::move(shipped_photo);
  CLI::App *cmd = app.add_subcommand(
      "demo",
      "Run the library on a synthetic hand-held stream made from the shipped "
      "photograph and write a visual report");
  cmd->add_option("--out", c->out,
                  "Folder for report.html and its pictures (created when "
                  "missing)")
      ->capture_default_str();
  cmd->add_flag("--force", c->force,
                "Write into an output folder that already holds files");
  cmd->add_option("--frames", c->options.frames,
                  "Preview frames in the stream, 1 to 2000")
      ->capture_default_str();
  cmd->add_option("--seed", c->options.seed,
                  "Seed of the stream's shake, shifts and noise: same seed, "
                  "same run")
      ->check(whole_number())
      ->capture_default_str();
  cmd->footer(
      "No input is needed. The demo synthesises a preview stream of packed\n"
      "RAW10 frames (1600x1200, Bayer mosaic, random shake smear of known\n"
      "length, sensor noise, small shifts) from coffee.png, starts a session\n"
      "(ql_is_init), hands every frame to the preview intake and waits for\n"
      "the worker's verdict, then takes a single capture with a long smear\n"
      "(ql_is_process_takepicture) and a burst of 4 frames\n"
      "(ql_is_process_bat_takepicture), and ends the session. It prints which\n"
      "frames became the best and why (verdict, re-blur score against the\n"
      "base's, lighting regime), whether the capture was replaced, which\n"
      "burst frames were named, and how all that compares with the known\n"
      "blur. report.html (self-contained: open it offline) shows a contact\n"
      "sheet with each frame's score stamped by add_water_marking, the\n"
      "scores over time, the kept frame with its block heatmap, the capture\n"
      "before and after, the burst, and a table of every frame; the PNG\n"
      "files it embeds are written beside it.\n"
      "RAW10 packing: low bits first; byte 4 = high 8 bits of pixel 3, the\n"
      "byte the library samples.");
  return [c] { return run(*c); };
}

}  // namespace qlis::tool
