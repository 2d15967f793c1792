// Synthetic scenes for the decision tests. A scene is a map of block
// brightness levels with a fine texture on top: neighbouring five-byte
// groups (RAW10) or bytes (YUV) alternate between level + amplitude and
// level - amplitude. That alternation is the finest detail a frame can
// hold and the first a blur removes, so the amplitude stands for the
// sharpness of the shot; since it averages out over every block, a blurred
// shot of a scene has exactly the block means of the sharp one.
#pragma once

#include <cstdint>
#include <vector>

namespace qlis::test {

struct Scene {
  int32_t width = 640;
  int32_t height = 480;
  int32_t stride = 800;
  int base_level = 60;   // level of the darkest block
  int level_step = 10;   // between the five levels of the block map
  int amplitude = 40;    // texture: larger is sharper
  bool mirrored = false; // the block map mirrored left to right: another scene
};

// A packed RAW10 frame of the scene: every byte of a group carries it.
std::vector<uint8_t> raw10_scene(const Scene &s);

// A YUV frame of the scene (first plane, then an untouched second plane).
std::vector<uint8_t> yuv_scene(const Scene &s);

}  // namespace qlis::test
