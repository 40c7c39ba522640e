#include "codecs/exif.h"

#include <algorithm>
#include <cstring>

namespace vexa {
namespace {

constexpr uint8_t kStart[] = {'E', 'x', 'i', 'f', 0, 0};
enum Tag : uint32_t { kOrientation = 0x112, kXResolution = 0x11A, kYResolution = 0x11B, kResolutionUnit = 0x128 };

// Numbers of a TIFF structure in its own byte order; 0 outside of it.
class Structure {
 public:
  explicit Structure(std::span<const uint8_t> bytes) : bytes_(bytes), big_(!bytes.empty() && bytes[0] == 'M') {}

  uint32_t U16(uint64_t at) const { return Number(at, 2); }
  uint32_t U32(uint64_t at) const { return Number(at, 4); }
  double Rational(uint64_t at) const {
    const uint32_t denominator = U32(at + 4);
    return denominator ? static_cast<double>(U32(at)) / denominator : 0;
  }

 private:
  uint32_t Number(uint64_t at, uint32_t count) const {
    if (at + count > bytes_.size()) return 0;
    uint32_t value = 0;
    for (uint32_t i = 0; i < count; ++i) value = value << 8 | bytes_[at + (big_ ? i : count - 1 - i)];
    return value;
  }

  std::span<const uint8_t> bytes_;
  bool big_;
};

}  // namespace

ExifFacts ParseExif(std::span<const uint8_t> marker) {
  ExifFacts facts;
  if (marker.size() < sizeof kStart + 8 || !std::equal(kStart, kStart + sizeof kStart, marker.begin())) return facts;
  const Structure structure(marker.subspan(sizeof kStart));
  const uint64_t directory = structure.U32(4);
  const uint32_t entries = structure.U16(directory);
  double unit = 1;
  for (uint32_t i = 0; i < entries; ++i) {
    const uint64_t entry = directory + 2 + uint64_t{12} * i;
    const uint32_t value = structure.U16(entry + 8);
    switch (structure.U16(entry)) {
      case kOrientation:
        if (value >= 1 && value <= 8) facts.orientation = static_cast<int32_t>(value);
        break;
      case kXResolution:
        facts.xResolution = structure.Rational(structure.U32(entry + 8));
        break;
      case kYResolution:
        facts.yResolution = structure.Rational(structure.U32(entry + 8));
        break;
      case kResolutionUnit:
        unit = value == 3 ? 2.54 : 1;
        break;
      default:
        break;
    }
  }
  facts.xResolution *= unit;
  facts.yResolution *= unit;
  return facts;
}

std::vector<uint8_t> MakeExif(int32_t orientation) {
  return {'E',  'x', 'i', 'f', 0, 0,                                                    // marker
          'I',  'I', 42,  0,   8, 0, 0, 0,                                              // header of the structure
          1,    0,                                                                      // one entry
          0x12, 1,   3,   0,   1, 0, 0, 0, static_cast<uint8_t>(orientation), 0, 0, 0,  // a short
          0,    0,   0,   0};                                                           // no more directories
}

}  // namespace vexa
