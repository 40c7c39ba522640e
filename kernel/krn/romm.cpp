// The wide-gamut encoding of 24- and 48-bit colour: a 3 x 3 matrix each way, in fixed point with divisor 8192.
//
// The components are taken in memory order, blue first. The first row of the forward matrix sums to 8193, which is
// meant: white stays white on 8-bit components, and on 16-bit components the result is limited.
#include <algorithm>
#include <cstring>

#include "krn/convertkernels.h"

namespace vexakrn {
namespace {

constexpr int32_t kHalf = 4095;

constexpr int32_t kForward[3][3] = {{7151, 897, 145}, {394, 7067, 731}, {1067, 2841, 4284}};
constexpr int32_t kBackward[3][3] = {{9467, -1151, -125}, {-305, 10232, -1735}, {-2156, -6498, 16846}};

// The largest sum, 16846 * 65535, fits 32 bits. Division truncates towards zero.
template <typename Component>
void Multiply(const int32_t (&matrix)[3][3], uint8_t* destination, const uint8_t* source, size_t pixels) noexcept {
  constexpr int32_t kMaximum = static_cast<Component>(~Component{0});
  for (size_t i = 0; i < pixels; ++i, source += 3 * sizeof(Component), destination += 3 * sizeof(Component)) {
    Component in[3], out[3];
    std::memcpy(in, source, sizeof in);
    for (int c = 0; c < 3; ++c) {
      const int32_t sum = matrix[c][0] * in[0] + matrix[c][1] * in[1] + matrix[c][2] * in[2] + kHalf;
      out[c] = static_cast<Component>(std::clamp(sum / 8192, 0, kMaximum));
    }
    std::memcpy(destination, out, sizeof out);
  }
}

}  // namespace

void ToRomm24(uint8_t* destination, const uint8_t* source, size_t pixels, const ConvertContext&) noexcept {
  Multiply<uint8_t>(kForward, destination, source, pixels);
}
void FromRomm24(uint8_t* destination, const uint8_t* source, size_t pixels, const ConvertContext&) noexcept {
  Multiply<uint8_t>(kBackward, destination, source, pixels);
}
void ToRomm48(uint8_t* destination, const uint8_t* source, size_t pixels, const ConvertContext&) noexcept {
  Multiply<uint16_t>(kForward, destination, source, pixels);
}
void FromRomm48(uint8_t* destination, const uint8_t* source, size_t pixels, const ConvertContext&) noexcept {
  Multiply<uint16_t>(kBackward, destination, source, pixels);
}

}  // namespace vexakrn
