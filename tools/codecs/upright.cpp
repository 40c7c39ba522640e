#include "codecs/upright.h"

#include <algorithm>

#include "codecs/pixels.h"

namespace vexa {
namespace {

constexpr size_t kBandBytes = size_t{4} << 20;

}  // namespace

UprightRows::UprightRows(Bitmap& bitmap)
    : bitmap_(bitmap),
      turned_(bitmap.Perspective() >= V_ViewLeftTop),
      rowsBackward_(bitmap.Perspective() == V_ViewBottomRight || bitmap.Perspective() == V_ViewBottomLeft ||
                    bitmap.Perspective() == V_ViewRightTop || bitmap.Perspective() == V_ViewRightBottom),
      pixelsBackward_(bitmap.Perspective() == V_ViewTopRight || bitmap.Perspective() == V_ViewBottomRight ||
                      bitmap.Perspective() == V_ViewRightBottom || bitmap.Perspective() == V_ViewLeftBottom),
      width_(turned_ ? bitmap.Height() : bitmap.Width()),
      height_(turned_ ? bitmap.Width() : bitmap.Height()),
      row_(PackedBytes(width_, bitmap.Bits())) {
  if (!turned_) {
    stored_.resize(bitmap.RowBytes());
    return;
  }
  const size_t fitting = std::min<size_t>(kBandBytes / row_.size(), size_t{1} << 16);
  bandColumns_ = std::max<int32_t>(8, static_cast<int32_t>(fitting) / 8 * 8);
  stored_.resize(PackedBytes(bandColumns_, bitmap.Bits()));
}

int32_t UprightRows::XResolution() const {
  return turned_ ? bitmap_.Record().YResolution : bitmap_.Record().XResolution;
}

int32_t UprightRows::YResolution() const {
  return turned_ ? bitmap_.Record().XResolution : bitmap_.Record().YResolution;
}

void UprightRows::LoadBand(int32_t firstColumn) {
  bandFirst_ = firstColumn;
  bandCount_ = std::min(bandColumns_, bitmap_.Width() - firstColumn);
  band_.assign(static_cast<size_t>(bandCount_) * row_.size(), 0);
  const size_t bytes = PackedBytes(bandCount_, bitmap_.Bits());
  WithDepth(bitmap_.Bits(), [&](auto depth) {
    for (int32_t row = 0; row < bitmap_.Height(); ++row) {
      bitmap_.GetPart(row, firstColumn, stored_.data(), bytes);
      const int32_t x = rowsBackward_ ? bitmap_.Height() - 1 - row : row;
      uint8_t* line = band_.data();
      for (int32_t i = 0; i < bandCount_; ++i, line += row_.size())
        PutPixel<depth>(line, x, GetPixel<depth>(stored_.data(), i));
    }
  });
}

const uint8_t* UprightRows::Row(int32_t y) {
  if (turned_) {
    const int32_t column = pixelsBackward_ ? bitmap_.Width() - 1 - y : y;
    if (bandFirst_ < 0 || column < bandFirst_ || column >= bandFirst_ + bandCount_)
      LoadBand(column / bandColumns_ * bandColumns_);
    return band_.data() + static_cast<size_t>(column - bandFirst_) * row_.size();
  }
  bitmap_.GetRow(rowsBackward_ ? height_ - 1 - y : y, stored_.data());
  if (!pixelsBackward_) return stored_.data();
  WithDepth(bitmap_.Bits(), [&](auto depth) {
    for (int32_t x = 0; x < width_; ++x)
      PutPixel<depth>(row_.data(), x, GetPixel<depth>(stored_.data(), width_ - 1 - x));
  });
  return row_.data();
}

}  // namespace vexa
