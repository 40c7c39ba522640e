// An image record with its owner: described by a codec, then given storage, then filled row by row.
#ifndef VEXA_CODECS_BITMAP_H
#define VEXA_CODECS_BITMAP_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "vexakrn.h"

namespace vexa {

// Refuses sizes that no record can hold.
void CheckSize(uint64_t width, uint64_t height);

class Bitmap {
 public:
  Bitmap();
  ~Bitmap();
  Bitmap(const Bitmap&) = delete;
  Bitmap& operator=(const Bitmap&) = delete;

  // Starts again with an empty image of this size, top left, without storage.
  void Describe(uint64_t width, uint64_t height, int bits);
  // Starts again with the size and the attributes of another bitmap, in any depth, without storage.
  void DescribeLike(const Bitmap& other, int bits);
  void SetPalette(const std::vector<RGBQUAD>& palette);
  void SetFixedPalette(int bits);          // the engine's own of 2^bits colours
  void SetGrayRamp(uint32_t grays);        // black to white in this many steps
  void SetResolution(double x, double y);  // dots per inch; values that no picture has are ignored

  // What shows where the picture is transparent: white until a file names a colour.
  void SetBackground(const RGBQUAD& color) { background_ = color; }
  RGBQUAD Background() const { return background_; }

  // Storage by a memory request of the engine, or in the caller's own bytes. The bitmap is accessed from here on.
  void Allocate(uint32_t memoryType);
  void AllocateUser(std::vector<uint8_t>& storage);

  // Hands over the record with all that it owns and is empty afterwards; takes one over, accessed from here on.
  BITMAPHANDLE Surrender();
  void Adopt(const BITMAPHANDLE& record);

  // Keeps a rectangle of the stored pixels, in storage of its own by a memory request.
  void Crop(const RECT& stored, uint32_t memoryType);

  int32_t Width() const { return record_.Width; }
  int32_t Height() const { return record_.Height; }
  int32_t Bits() const { return record_.BitsPerPixel; }
  int32_t Order() const { return record_.Order; }
  int32_t Perspective() const { return record_.ViewPerspective; }
  uint32_t Flags() const { return record_.Flags; }
  uint64_t DataBytes() const { return record_.Size64; }
  size_t RowBytes() const;  // of the pixels of a row, without padding
  std::vector<RGBQUAD> Palette() const;
  bool ResolutionStated() const { return record_.XResolution > 0 && record_.YResolution > 0; }

  // Up to 8 bits the palette says what is gray: `IsGray` black to white in equal steps (any number of them),
  // `IsInvertedGray` white to black in 2^bits steps. Above, the order says it.
  bool IsGray() const;
  bool IsInvertedGray() const;
  bool HasAlpha() const { return record_.BitsPerPixel == 32 || record_.BitsPerPixel == 64; }

  // The greatest value that a sample can have by HighBit.
  uint32_t SampleMaximum() const;

  void GetRow(int32_t row, uint8_t* buffer);
  void PutRow(int32_t row, const uint8_t* buffer);
  void GetPart(int32_t row, int32_t column, uint8_t* buffer, size_t bytes);
  void PutPart(int32_t row, int32_t column, const uint8_t* buffer, size_t bytes);

  BITMAPHANDLE& Record() { return record_; }
  const BITMAPHANDLE& Record() const { return record_; }

 private:
  static constexpr RGBQUAD kWhite = {255, 255, 255, 0};

  void Access();
  void Free();

  BITMAPHANDLE record_;
  bool accessed_ = false;
  RGBQUAD background_ = kWhite;
};

// Colour value of a palette index, for Transparency and Background.
inline int32_t IndexColor(uint32_t index) { return static_cast<int32_t>(0x01000000u | index); }

}  // namespace vexa

#endif
