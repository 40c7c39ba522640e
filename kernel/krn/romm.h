// The wide-gamut encoding of 24- and 48-bit colour: a 3 x 3 matrix each way, in fixed point with divisor 8192.
//
// The components are taken in memory order, blue first. The first row of the forward matrix sums to 8193, which is
// meant: white stays white on 8-bit components, and on 16-bit components the result is limited.
#ifndef VEXAKRN_KRN_ROMM_H
#define VEXAKRN_KRN_ROMM_H

#include <algorithm>
#include <cstdint>

namespace vexakrn {

using RommMatrix = int32_t[3][3];
inline constexpr RommMatrix kToRomm = {{7151, 897, 145}, {394, 7067, 731}, {1067, 2841, 4284}};
inline constexpr RommMatrix kFromRomm = {{9467, -1151, -125}, {-305, 10232, -1735}, {-2156, -6498, 16846}};

// A pixel of components up to `maximum`, 255 or 65535. The largest sum, 16846 * 65535, fits 32 bits; division truncates
// towards zero.
template <typename Component>
void MultiplyRomm(const RommMatrix& matrix, Component (&pixel)[3], int32_t maximum) noexcept {
  const auto c0 = static_cast<int32_t>(pixel[0]), c1 = static_cast<int32_t>(pixel[1]),
             c2 = static_cast<int32_t>(pixel[2]);
  for (int c = 0; c < 3; ++c) {
    const int32_t sum = matrix[c][0] * c0 + matrix[c][1] * c1 + matrix[c][2] * c2 + 4095;
    pixel[c] = static_cast<Component>(std::clamp(sum / 8192, 0, maximum));
  }
}

}  // namespace vexakrn

#endif
