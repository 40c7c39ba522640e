// Pages in another depth: what is asked for, what becomes of a page, and the change itself.
//
// A picture of gray and a result of 1 bit are gray: the luminance first, then equal steps from black to white. A
// picture of colours gets a palette made for it, unless its own fits; where the palette has all of its colours, nothing
// is dithered unless that is asked for. What a result cannot hold of an alpha channel or a transparent index is laid
// over the picture's background colour: (sample * alpha + background * (full - alpha) + full / 2) / full in integers,
// full being 255 or 65535.
#ifndef VEXA_CODECS_DEPTH_H
#define VEXA_CODECS_DEPTH_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "codecs/bitmap.h"
#include "codecs/progress.h"
#include "codecs/storage.h"

namespace vexa {

// Methods of dithering by the names that users give them; -1 for a name that is none. The names: "none, ...".
int32_t DitherMethodOfName(std::string_view name);
std::string_view NameOfDitherMethod(int32_t method);
std::string DitherNames();

struct DepthChoice {
  enum class Samples { kUsual, kRgb, kBgr, kGray };
  enum class Palette { kUsual, kFixed, kOptimized, kGiven };

  int32_t bits = 8;
  Samples samples = Samples::kUsual;
  Palette palette = Palette::kUsual;
  std::vector<RGBQUAD> given = {};
  int32_t colors = 0;   // most entries of a palette that is made; 0: as many as fit
  int32_t method = -1;  // of dithering; -1: the usual one
};

// A UsageError for a choice that contradicts itself.
void CheckChoice(const DepthChoice& choice);

// What a choice means for one page.
class DepthChange {
 public:
  // Of a described page; an Error when it cannot be changed.
  DepthChange(const DepthChoice& choice, const Bitmap& source);

  // Rows of the page that are touched, as the weight of the work.
  int64_t Work(int64_t rows) const { return rows * passes_; }

  // Describes a bitmap of the result's depth, order and kind of palette: enough to ask a format whether it holds it.
  void DescribeResult(const Bitmap& source, Bitmap& result) const;

  // Changes a page that was described so and has been read. The result lies where the page did, if that kind of storage
  // takes its depth.
  void Apply(Bitmap& bitmap, const StorageChoice& storage, Progress& progress) const;

 private:
  enum class Way {
    kNothing,
    kOrder,     // only the order of the samples
    kConvert,   // without a palette, by the engine
    kWideGray,  // 16-bit gray from anything but deep gray
    kGray,      // gray of up to 8 bits
    kPalette
  };
  enum class Key { kNone, kFlattened, kIndex, kAlpha };  // what becomes of a transparent index

  bool IsUnchanged(const Bitmap& source) const;
  Way ChooseWay(const Bitmap& source) const;
  void FindKey(const Bitmap& source);
  void ChoosePalette(const Bitmap& source);
  Key ChooseKey() const;
  bool FitsOwnPalette(const Bitmap& source) const;
  uint32_t MostColors() const;
  bool IsAllGray() const;       // with every level that 8 bits have
  int32_t WantedOrder() const;  // -1: whichever
  std::vector<RGBQUAD> PaletteInOutline() const;

  void Flatten(Bitmap& bitmap, Progress& progress) const;
  void Convert(Bitmap& bitmap, Progress& progress) const;
  void ReduceToGray(Bitmap& bitmap, Progress& progress) const;
  void ReduceToPalette(Bitmap& bitmap, Progress& progress) const;
  void PutKey(Bitmap& source, Bitmap& result, Progress& progress) const;

  DepthChoice choice_;
  bool methodGiven_;
  Way way_ = Way::kNothing;
  Key key_ = Key::kNone;
  bool keyed_ = false;
  uint32_t keyIndex_ = 0;  // in the source
  bool flattens_ = false;  // there is alpha that goes, or samples that do not use their whole range
  int passes_ = 0;
};

}  // namespace vexa

#endif
