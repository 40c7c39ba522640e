#include "codecs/upright.h"

#include <algorithm>

#include "codecs/pixels.h"

namespace vexa {
namespace {

constexpr size_t kBandBytes = size_t{4} << 20;

}  // namespace

View::View(const Bitmap& bitmap) {
  const int32_t perspective = bitmap.Perspective();
  turned = perspective >= V_ViewLeftTop;
  rowsBackward = perspective == V_ViewBottomRight || perspective == V_ViewBottomLeft || perspective == V_ViewRightTop ||
                 perspective == V_ViewRightBottom;
  pixelsBackward = perspective == V_ViewTopRight || perspective == V_ViewBottomRight ||
                   perspective == V_ViewRightBottom || perspective == V_ViewLeftBottom;
  width = turned ? bitmap.Height() : bitmap.Width();
  height = turned ? bitmap.Width() : bitmap.Height();
  xResolution = turned ? bitmap.Record().YResolution : bitmap.Record().XResolution;
  yResolution = turned ? bitmap.Record().XResolution : bitmap.Record().YResolution;
}

RECT StoredRectangle(const Bitmap& bitmap, const RECT& displayed) {
  const View view(bitmap);
  RECT stored = displayed;
  if (view.turned) stored = {displayed.top, displayed.left, displayed.bottom, displayed.right};
  if (view.rowsBackward) {
    const auto top = stored.top;
    stored.top = bitmap.Height() - stored.bottom;
    stored.bottom = bitmap.Height() - top;
  }
  if (view.pixelsBackward) {
    const auto left = stored.left;
    stored.left = bitmap.Width() - stored.right;
    stored.right = bitmap.Width() - left;
  }
  return stored;
}

UprightRows::UprightRows(Bitmap& bitmap)
    : bitmap_(bitmap), view_(bitmap), row_(PackedBytes(view_.width, bitmap.Bits())) {
  if (!view_.turned) {
    stored_.resize(bitmap.RowBytes());
    return;
  }
  const size_t fitting = std::min<size_t>(kBandBytes / row_.size(), size_t{1} << 16);
  bandColumns_ = std::max<int32_t>(8, static_cast<int32_t>(fitting) / 8 * 8);
  stored_.resize(PackedBytes(bandColumns_, bitmap.Bits()));
}

void UprightRows::LoadBand(int32_t firstColumn) {
  bandFirst_ = firstColumn;
  bandCount_ = std::min(bandColumns_, bitmap_.Width() - firstColumn);
  band_.assign(static_cast<size_t>(bandCount_) * row_.size(), 0);
  const size_t bytes = PackedBytes(bandCount_, bitmap_.Bits());
  WithDepth(bitmap_.Bits(), [&](auto depth) {
    for (int32_t row = 0; row < bitmap_.Height(); ++row) {
      bitmap_.GetPart(row, firstColumn, stored_.data(), bytes);
      const int32_t x = view_.rowsBackward ? bitmap_.Height() - 1 - row : row;
      uint8_t* line = band_.data();
      for (int32_t i = 0; i < bandCount_; ++i, line += row_.size())
        PutPixel<depth>(line, x, GetPixel<depth>(stored_.data(), i));
    }
  });
}

const uint8_t* UprightRows::Row(int32_t y) {
  if (view_.turned) {
    const int32_t column = view_.pixelsBackward ? bitmap_.Width() - 1 - y : y;
    if (bandFirst_ < 0 || column < bandFirst_ || column >= bandFirst_ + bandCount_)
      LoadBand(column / bandColumns_ * bandColumns_);
    return band_.data() + static_cast<size_t>(column - bandFirst_) * row_.size();
  }
  bitmap_.GetRow(view_.rowsBackward ? view_.height - 1 - y : y, stored_.data());
  if (!view_.pixelsBackward) return stored_.data();
  WithDepth(bitmap_.Bits(), [&](auto depth) {
    for (int32_t x = 0; x < view_.width; ++x)
      PutPixel<depth>(row_.data(), x, GetPixel<depth>(stored_.data(), view_.width - 1 - x));
  });
  return row_.data();
}

}  // namespace vexa
