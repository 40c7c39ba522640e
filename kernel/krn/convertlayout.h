// Where the components of a pixel lie, for steps that move bytes and change none. Nothing here is code at run time, so
// that variant files may use it.
#ifndef VEXAKRN_KRN_CONVERTLAYOUT_H
#define VEXAKRN_KRN_CONVERTLAYOUT_H

#include "krn/convertkernels.h"

namespace vexakrn {

// Bytes of a pixel and of a component, and the first byte of blue, green, red and alpha; no alpha: -1. Gray is all three.
struct PixelBytes {
  int bytes, component;
  int at[4];
};

constexpr bool IsPlainGray(Layout layout) { return layout == Layout::Gray8 || layout == Layout::Gray16; }

// Each order with red first follows its like.
constexpr bool IsRgb(Layout layout) {
  return layout == Layout::Rgb24 || layout == Layout::Rgb32 || layout == Layout::Rgb48 || layout == Layout::Rgb64;
}
constexpr Layout BgrOf(Layout layout) {
  return static_cast<Layout>(static_cast<int>(layout) - (IsRgb(layout) ? 1 : 0));
}
constexpr Layout RgbOf(Layout layout) { return static_cast<Layout>(static_cast<int>(BgrOf(layout)) + 1); }

constexpr PixelBytes BytesOf(Layout layout) {
  if (IsRgb(layout)) {
    const PixelBytes bgr = BytesOf(BgrOf(layout));
    return {bgr.bytes, bgr.component, {bgr.at[2], bgr.at[1], bgr.at[0], bgr.at[3]}};
  }
  switch (layout) {
    case Layout::Gray8:
      return {1, 1, {0, 0, 0, -1}};
    case Layout::Gray16:
      return {2, 2, {0, 0, 0, -1}};
    case Layout::Bgr24:
      return {3, 1, {0, 1, 2, -1}};
    case Layout::Bgr32:
      return {4, 1, {0, 1, 2, 3}};
    case Layout::Bgr48:
      return {6, 2, {0, 2, 4, -1}};
    case Layout::Bgr64:
      return {8, 2, {0, 2, 4, 6}};
    default:
      return {};
  }
}

// The byte of a source pixel that becomes byte `index` of a destination pixel; -1 for alpha that the source has not. An
// 8-bit component fills both bytes of a 16-bit one; the top byte of a 16-bit one becomes an 8-bit one.
constexpr int SourceByte(Layout from, Layout to, int index) {
  const PixelBytes source = BytesOf(from), destination = BytesOf(to);
  int component = 0;
  for (int c = 0; c < 4; ++c)
    if (destination.at[c] >= 0 && index >= destination.at[c] && index < destination.at[c] + destination.component)
      component = c;
  const int first = source.at[component];
  if (first < 0 || source.component == 1) return first;
  return destination.component == 1 ? first + 1 : first + (index - destination.at[component]);
}

}  // namespace vexakrn

#endif
