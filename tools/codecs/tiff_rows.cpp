#include "codecs/tiff_rows.h"

#include <tiff.h>

#include <cstring>

#include "codecs/pixels.h"

namespace vexa {

void TiffLayout::Choose(uint32_t photometric) {
  const bool direct = sampleBits == 8 || sampleBits == 16;
  const bool gray = photometric == PHOTOMETRIC_MINISBLACK || photometric == PHOTOMETRIC_MINISWHITE;
  inverted = photometric == PHOTOMETRIC_MINISWHITE;
  if (samples == 1 && (gray || photometric == PHOTOMETRIC_PALETTE) && sampleBits >= 1 && sampleBits <= 8) {
    kind = gray ? kGray : kPalette;
    bits = sampleBits;
  } else if (samples == 1 && gray && (sampleBits == 12 || sampleBits == 16)) {
    kind = kGray;
    bits = sampleBits;
  } else if (samples >= 2 && samples <= 16 && direct && gray && !inverted) {
    kind = kColor;
    alpha = grayWithAlpha = true;
    bits = sampleBits * 4;
  } else if (samples >= 3 && samples <= 16 && direct && photometric == PHOTOMETRIC_RGB) {
    kind = kColor;
    alpha = samples >= 4;
    bits = sampleBits * (alpha ? 4 : 3);
  } else if (sampleBits <= 16) {
    kind = kConverted;
    bits = 24;
  }
}

void TiffLayout::ForBitmap(const Bitmap& bitmap) {
  width = static_cast<uint32_t>(bitmap.Width());
  height = static_cast<uint32_t>(bitmap.Height());
  bits = bitmap.Bits();
  redFirst = bitmap.Order() == V_OrderRgb;
  if (bits > 16) {
    kind = kColor;
    alpha = bitmap.HasAlpha();
    samples = alpha ? 4 : 3;
    sampleBits = bits / samples;
    return;
  }
  // Other programs know samples of 1, 2, 4 and 8 bits: the rest become indices of the next width.
  sampleBits = WidenedBits(bits);
  const bool same = sampleBits == bits;
  const bool wholeRamp = bits > 8 || bitmap.Palette().size() == size_t{1} << bits;
  inverted = same && bitmap.IsInvertedGray();
  kind = inverted || (same && bitmap.IsGray() && wholeRamp) ? kGray : kPalette;
}

size_t TiffLayout::ScanBytes(uint32_t columns) const {
  return PackedBytes(int64_t{columns} * (separate ? 1 : samples), sampleBits);
}

void TiffLayout::Unpack(const uint8_t* scan, uint8_t* row, int32_t columns, int plane) const {
  if (bits <= 8) {
    std::memcpy(row, scan, PackedBytes(columns, bits));
    return;
  }
  if (bits == 12 || bits == 16) {
    const uint64_t flip = inverted ? (uint64_t{1} << bits) - 1 : 0;  // above 8 bits no palette can say it
    for (int32_t x = 0; x < columns; ++x) {
      if (bits == 16) {
        PutPixel<16>(row, x, GetPixel<16>(scan, x) ^ flip);
        continue;
      }
      // In the file two 12-bit pixels follow one another from the top bit on.
      const uint8_t* at = scan + x + x / 2;
      const unsigned value =
          x % 2 == 0 ? static_cast<unsigned>(at[0]) << 4 | at[1] >> 4 : static_cast<unsigned>(at[0] & 15) << 8 | at[1];
      PutPixel<12>(row, x, value ^ flip);
    }
    return;
  }
  const int bytes = sampleBits / 8;
  const int pixelBytes = bits / 8;
  const int colors = grayWithAlpha ? 1 : 3;
  const int kept = colors + (alpha ? 1 : 0);  // no record keeps further samples
  const int first = separate ? plane : 0, end = separate ? plane + 1 : kept;
  for (int sample = first; sample < end && sample < kept; ++sample) {
    const uint8_t* in = scan + (separate ? 0 : sample * bytes);
    const int step = separate ? bytes : samples * bytes;
    for (int32_t x = 0; x < columns; ++x, in += step) {
      uint8_t* pixel = row + static_cast<ptrdiff_t>(x) * pixelBytes;
      if (sample >= colors)
        std::memcpy(pixel + 3 * bytes, in, static_cast<size_t>(bytes));
      else if (!grayWithAlpha)
        std::memcpy(pixel + (2 - sample) * bytes, in, static_cast<size_t>(bytes));
      else
        for (int color = 0; color < 3; ++color) std::memcpy(pixel + color * bytes, in, static_cast<size_t>(bytes));
    }
  }
}

void TiffLayout::Pack(const uint8_t* row, uint8_t* scan, int32_t columns) const {
  if (bits != sampleBits && bits < 8) {
    WidenIndices(row, columns, bits, sampleBits, scan);
    return;
  }
  if (bits <= 8 || bits == 16) {
    std::memcpy(scan, row, PackedBytes(columns, bits));
    return;
  }
  if (bits == 12) {
    for (int32_t x = 0; x < columns; ++x) {
      const unsigned value = static_cast<unsigned>(GetPixel<12>(row, x));
      uint8_t* at = scan + x + x / 2;
      if (x % 2 == 0) {
        at[0] = static_cast<uint8_t>(value >> 4);
        at[1] = static_cast<uint8_t>(value << 4);
      } else {
        at[0] = static_cast<uint8_t>((at[0] & 0xF0) | value >> 8);
        at[1] = static_cast<uint8_t>(value);
      }
    }
    return;
  }
  const size_t bytes = static_cast<size_t>(sampleBits / 8);
  for (int32_t x = 0; x < columns; ++x, row += bits / 8, scan += bits / 8) {
    for (size_t color = 0; color < 3; ++color)
      std::memcpy(scan + color * bytes, row + (redFirst ? color : 2 - color) * bytes, bytes);
    if (alpha) std::memcpy(scan + 3 * bytes, row + 3 * bytes, bytes);
  }
}

}  // namespace vexa
