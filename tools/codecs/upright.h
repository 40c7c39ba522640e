// A bitmap as it is displayed: its rows, for formats that cannot say how a picture lies, and the place of a rectangle.
//
// Perspectives 1 to 4 are whole rows, in one direction or the other. For 5 to 8 a displayed row is a stored column:
// a band of columns is taken from all stored rows at once and turned, so that a big image is not fetched
// pixel by pixel. The band has a few megabytes whatever the size of the image.
#ifndef VEXA_CODECS_UPRIGHT_H
#define VEXA_CODECS_UPRIGHT_H

#include <cstdint>
#include <vector>

#include "codecs/bitmap.h"

namespace vexa {

// The displayed picture: from which ends stored rows and pixels are counted, and its measures.
struct View {
  explicit View(const Bitmap& bitmap);
  bool turned;          // displayed rows are stored columns
  bool rowsBackward;    // the first stored row is at the bottom or the right
  bool pixelsBackward;  // the first stored pixel is at the other end
  int32_t width;
  int32_t height;
  int32_t xResolution;
  int32_t yResolution;
};

// The stored pixels of a rectangle of displayed ones, which lies inside the picture.
RECT StoredRectangle(const Bitmap& bitmap, const RECT& displayed);

class UprightRows {
 public:
  explicit UprightRows(Bitmap& bitmap);

  int32_t Width() const { return view_.width; }
  int32_t Height() const { return view_.height; }
  int32_t XResolution() const { return view_.xResolution; }
  int32_t YResolution() const { return view_.yResolution; }

  // The packed pixels of a displayed row, valid until the next call. Rows in rising order are quick.
  const uint8_t* Row(int32_t y);

 private:
  void LoadBand(int32_t firstColumn);

  Bitmap& bitmap_;
  View view_;
  std::vector<uint8_t> stored_;
  std::vector<uint8_t> row_;
  int32_t bandColumns_ = 0;  // most columns of a band, a multiple of 8
  int32_t bandFirst_ = -1;   // stored column of the band's first row
  int32_t bandCount_ = 0;
  std::vector<uint8_t> band_;  // a displayed row for each stored column
};

}  // namespace vexa

#endif
