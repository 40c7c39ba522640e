// The diagnostic comparison of two records.
#include <cstdio>
#include <cstring>

#include "common/buffer.h"
#include "common/record.h"
#include "krn/access.h"
#include "krn/rowcol.h"

namespace vexakrn {
namespace {

// Appends to the caller's text and counts differences.
class Report {
 public:
  Report(char* text, uint64_t size) noexcept {
    if (!text || size == 0) return;
    const uint64_t used = strnlen(text, size);
    if (used == size) return;  // no end: nothing may be appended
    at_ = text + used;
    left_ = size - used;
  }

  void Compare(const char* label, int64_t a, int64_t b) noexcept {
    if (a != b) Add("", label, a, b);
  }

  void CompareFlag(const char* name, uint32_t a, uint32_t b, uint32_t mask, uint32_t shift) noexcept {
    const uint32_t first = (a & mask) >> shift, second = (b & mask) >> shift;
    if (first != second) Add("Flags.", name, first, second);
  }

  bool Same() const noexcept { return same_; }

 private:
  void Add(const char* group, const char* label, int64_t a, int64_t b) noexcept {
    same_ = false;
    if (left_ == 0) return;
    const int length =
        std::snprintf(at_, left_, "\n %s%s\t%d\t%d", group, label, static_cast<int>(a), static_cast<int>(b));
    const uint64_t written = length < 0 ? 0 : static_cast<uint64_t>(length);
    const uint64_t advance = written < left_ ? written : left_ - 1;
    at_ += advance;
    left_ -= advance;
  }

  char* at_ = nullptr;
  uint64_t left_ = 0;
  bool same_ = true;
};

// In bit order; 19 and 20 have no names and are not compared.
constexpr const char* kFlagNames[] = {"Allocated",     "ConventionalMemory",
                                      "DiskMemory",    "ProgressiveAvailable",
                                      "LockedMemory",  "Interlaced",
                                      "WaitUserInput", "Transparency",
                                      "Compressed",    "Signed",
                                      "Mirror",        "UseLUT",
                                      "Global",        "UsePaintLUT",
                                      "Tiled",         "SuperCompressed",
                                      "NoClip",        "PremultiplyAlpha",
                                      "NonLinearLUT"};
constexpr uint32_t kDummyShift = 21;

void CompareFlags(Report& report, uint32_t a, uint32_t b) noexcept {
  uint32_t bit = 0;
  for (const char* name : kFlagNames) {
    report.CompareFlag(name, a, b, 1u << bit, bit);
    ++bit;
  }
  report.CompareFlag("Dummy", a, b, ~0u << kDummyShift, kDummyShift);
}

// The first differing byte of two blocks of one length, as one line with the two byte values.
void CompareBlocks(Report& report, const char* label, const void* a, const void* b, uint64_t bytes) noexcept {
  if (!a || !b) {
    report.Compare(label, a != nullptr, b != nullptr);
    return;
  }
  const auto* first = static_cast<const uint8_t*>(a);
  const auto* second = static_cast<const uint8_t*>(b);
  if (std::memcmp(first, second, bytes) == 0) return;
  uint64_t i = 0;
  while (first[i] == second[i]) ++i;
  report.Compare(label, first[i], second[i]);
}

// The bytes of a row that its pixels fill; bits behind the last pixel do not count.
void MaskRowEnd(uint8_t* line, const BITMAPHANDLE& bitmap) noexcept {
  const uint64_t bits =
      static_cast<uint64_t>(static_cast<uint32_t>(bitmap.Width)) * static_cast<uint32_t>(bitmap.BitsPerPixel);
  const uint32_t rest = bits % 8;
  if (rest == 0) return;
  // Below 8 bits pixels fill a byte from its top, at 12 bits from its low nibble.
  const auto mask = static_cast<uint8_t>(bitmap.BitsPerPixel == 12 ? 0x0F : 0xFF00 >> rest);
  line[bits / 8] = static_cast<uint8_t>(line[bits / 8] & mask);
}

int32_t CompareRows(Report& report, BITMAPHANDLE& a, BITMAPHANDLE& b) noexcept {
  const uint64_t bits = static_cast<uint64_t>(static_cast<uint32_t>(a.Width)) * static_cast<uint32_t>(a.BitsPerPixel);
  const uint64_t bytes = (bits + 7) / 8;
  AccessGuard first(a), second(b);
  V_TRY(first.Status());
  V_TRY(second.Status());
  const Buffer<uint8_t> lineA(bytes), lineB(bytes);
  if (!lineA || !lineB) return kNoMemory;
  for (int32_t row = 0; row < a.Height; ++row) {
    V_TRY(GetWholeRowPart(a, lineA.data(), {row, 0, bytes}));
    V_TRY(GetWholeRowPart(b, lineB.data(), {row, 0, bytes}));
    MaskRowEnd(lineA.data(), a);
    MaskRowEnd(lineB.data(), b);
    if (std::memcmp(lineA.data(), lineB.data(), bytes) == 0) continue;
    CompareBlocks(report, "V_GetBitmapRow", lineA.data(), lineB.data(), bytes);
    break;
  }
  V_TRY(second.Release());
  return first.Release();
}

bool HaveComparableRows(const BITMAPHANDLE& a, const BITMAPHANDLE& b) noexcept {
  return HasFlag(a, V_FlagAllocated) && HasFlag(b, V_FlagAllocated) && a.Width == b.Width && a.Height == b.Height &&
         a.BitsPerPixel == b.BitsPerPixel;
}

void ComparePalettes(Report& report, const BITMAPHANDLE& a, const BITMAPHANDLE& b) noexcept {
  report.Compare("nColors", a.nColors, b.nColors);
  if (a.nColors != b.nColors || a.nColors <= 0) return;
  CompareBlocks(report, "pPalette", a.pPalette, b.pPalette, static_cast<uint64_t>(a.nColors) * sizeof(RGBQUAD));
}

void CompareAttributes(Report& report, const BITMAPHANDLE& a, const BITMAPHANDLE& b) noexcept {
  report.Compare("ViewPerspective", a.ViewPerspective, b.ViewPerspective);
  report.Compare("Order", a.Order, b.Order);
  report.Compare("XResolution", a.XResolution, b.XResolution);
  report.Compare("YResolution", a.YResolution, b.YResolution);
  report.Compare("Left", a.Left, b.Left);
  report.Compare("Top", a.Top, b.Top);
  report.Compare("Delay", a.Delay, b.Delay);
  report.Compare("Background", a.Background, b.Background);
  report.Compare("Transparency", a.Transparency, b.Transparency);
  report.Compare("DisposalMethod", a.DisposalMethod, b.DisposalMethod);
  report.Compare("LowBit", a.LowBit, b.LowBit);
  report.Compare("HighBit", a.HighBit, b.HighBit);
  report.Compare("PaintLowBit", a.PaintLowBit, b.PaintLowBit);
  report.Compare("PaintHighBit", a.PaintHighBit, b.PaintHighBit);
}

void CompareTables(Report& report, const BITMAPHANDLE& a, const BITMAPHANDLE& b) noexcept {
  report.Compare("LUTLength", a.LUTLength, b.LUTLength);
  if (a.LUTLength == b.LUTLength && a.LUTLength != 0)
    CompareBlocks(report, "pLUT", a.pLUT, b.pLUT, static_cast<uint64_t>(a.LUTLength) * sizeof(RGBQUAD));
  const uint32_t lengthA = IsOldLayout(a) ? 0 : a.LUTLength16, lengthB = IsOldLayout(b) ? 0 : b.LUTLength16;
  report.Compare("LUTLength16", lengthA, lengthB);
  constexpr uint64_t kWideEntry = 8;
  if (lengthA == lengthB && lengthA != 0) CompareBlocks(report, "pLUT16", a.pLUT16, b.pLUT16, lengthA * kWideEntry);
}

}  // namespace
}  // namespace vexakrn

using namespace vexakrn;

int32_t V_CALL V_CompareBitmapHandles(BITMAPHANDLE* a, BITMAPHANDLE* b, char* text, uint64_t textSize) noexcept {
  V_TRY(CheckRecord(a));
  V_TRY(CheckRecord(b));
  Report report(text, textSize);
  report.Compare("Width", a->Width, b->Width);
  report.Compare("Height", a->Height, b->Height);
  report.Compare("BitsPerPixel", a->BitsPerPixel, b->BitsPerPixel);
  report.Compare("BytesPerLine", a->BytesPerLine, b->BytesPerLine);
  const uint32_t flagsA = a->Flags, flagsB = b->Flags;  // accesses below lock movable blocks
  const int32_t rowStatus = a != b && HaveComparableRows(*a, *b) ? CompareRows(report, *a, *b) : int32_t{kSuccess};
  CompareFlags(report, flagsA, flagsB);
  ComparePalettes(report, *a, *b);
  CompareAttributes(report, *a, *b);
  CompareTables(report, *a, *b);
  report.Compare("PaintGamma", a->PaintGamma, b->PaintGamma);
  report.Compare("PaintContrast", a->PaintContrast, b->PaintContrast);
  report.Compare("PaintIntensity", a->PaintIntensity, b->PaintIntensity);
  if (rowStatus != kSuccess) return rowStatus;
  return report.Same() ? kSuccess : kFailure;
}
