// Lines to the wide-gamut encoding and back.
#include "krn/romm.h"

#include <cstring>

#include "krn/convertkernels.h"

namespace vexakrn {
namespace {

template <typename Component>
void Multiply(const RommMatrix& matrix, uint8_t* destination, const uint8_t* source, size_t pixels) noexcept {
  for (size_t i = 0; i < pixels; ++i, source += 3 * sizeof(Component), destination += 3 * sizeof(Component)) {
    Component pixel[3];
    std::memcpy(pixel, source, sizeof pixel);
    MultiplyRomm(matrix, pixel, static_cast<Component>(~Component{0}));
    std::memcpy(destination, pixel, sizeof pixel);
  }
}

}  // namespace

void ToRomm24(uint8_t* destination, const uint8_t* source, size_t pixels, const ConvertContext&) noexcept {
  Multiply<uint8_t>(kToRomm, destination, source, pixels);
}
void FromRomm24(uint8_t* destination, const uint8_t* source, size_t pixels, const ConvertContext&) noexcept {
  Multiply<uint8_t>(kFromRomm, destination, source, pixels);
}
void ToRomm48(uint8_t* destination, const uint8_t* source, size_t pixels, const ConvertContext&) noexcept {
  Multiply<uint16_t>(kToRomm, destination, source, pixels);
}
void FromRomm48(uint8_t* destination, const uint8_t* source, size_t pixels, const ConvertContext&) noexcept {
  Multiply<uint16_t>(kFromRomm, destination, source, pixels);
}

}  // namespace vexakrn
