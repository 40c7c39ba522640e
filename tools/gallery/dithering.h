// One photograph through all methods of dithering at several depths.
#ifndef VEXA_GALLERY_DITHERING_H
#define VEXA_GALLERY_DITHERING_H

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace vexa::gallery {

struct DitheredPicture {
  std::string method;
  std::string picture;  // file name in the gallery's folder; empty: none is shown
  double error = 0;  // mean difference of the samples, 0 to 255, from the original's after both were blurred a little
};

// A depth and its kind of palette, with every method.
struct DitheredDepth {
  std::string name;
  std::vector<DitheredPicture> pictures;
};

struct DitheringReport {
  std::string sample;  // its file name
  std::string original;
  int32_t width = 0;
  int32_t height = 0;
  std::vector<DitheredDepth> depths;
};

// Takes a part of a colour sample through all methods and puts the pictures into `folder`.
DitheringReport RunDithering(const std::filesystem::path& sample, const std::filesystem::path& folder);

}  // namespace vexa::gallery

#endif
