#include "codecs/depth.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <unordered_set>

#include "codecs/error.h"
#include "codecs/pixels.h"

namespace vexa {
namespace {

constexpr std::string_view kMethods[] = {"none",           "floyd-steinberg", "stucki",  "burkes",   "sierra",
                                         "stevenson-arce", "jarvis",          "ordered", "clustered"};

// With more grays than this, the steps are finer than the engine's table of colours: dithering would only add noise.
constexpr uint32_t kMostDitheredGrays = 16;

bool IsDepth(int32_t bits) {
  return (bits >= 1 && bits <= 8) || bits == 12 || bits == 16 || bits == 24 || bits == 32 || bits == 48 || bits == 64;
}

bool IsGrayPicture(const Bitmap& bitmap) {
  BITMAPHANDLE record = bitmap.Record();
  return V_IntIsGrayScaleBitmap(&record, 0) != V_GrayscaleNone;
}

bool IsFullGray(const Bitmap& bitmap) {
  return bitmap.Bits() == 8 && bitmap.IsGray() && bitmap.Palette().size() == 256;
}

bool HasNarrowSamples(const Bitmap& bitmap) {
  const uint32_t full = bitmap.Bits() == 24 || bitmap.Bits() == 32 ? 255 : 65535;
  return bitmap.Bits() >= 24 && bitmap.SampleMaximum() < full;
}

// --- calls of the engine ------------------------------------------------------------------------------------------

// The engine's percentages of one operation as the steps of the running part.
class EngineSteps {
 public:
  static constexpr int32_t kSteps = 100;

  explicit EngineSteps(Progress& progress) : progress_(progress) {
    V_SetStatusCallBack(OnStatus, this, &oldCallback_, &oldUserData_);
  }
  ~EngineSteps() { V_SetStatusCallBack(oldCallback_, oldUserData_, nullptr, nullptr); }
  EngineSteps(const EngineSteps&) = delete;
  EngineSteps& operator=(const EngineSteps&) = delete;

  void Require(int32_t status) const {
    if (stopped_) throw Stopped(status);
    CheckStatus(status);
  }

 private:
  static int32_t V_CALL OnStatus(int32_t percent, void* self) {
    EngineSteps& steps = *static_cast<EngineSteps*>(self);
    try {
      for (; steps.done_ < percent; ++steps.done_) steps.progress_.Step();
    } catch (const Stopped& stop) {
      steps.stopped_ = true;
      return stop.Status();
    }
    return V_StatusSuccess;
  }

  Progress& progress_;
  int32_t done_ = 0;
  bool stopped_ = false;
  STATUSCALLBACK oldCallback_ = nullptr;
  void* oldUserData_ = nullptr;
};

struct Reduction {
  int32_t bits = 0;
  uint32_t options = 0;
  std::vector<RGBQUAD> palette = {};  // none: the options say which
  int32_t colors = 0;
  int32_t method = V_DitheringNone;
};

void Reduce(Bitmap& from, const Reduction& reduction, Bitmap& to, Progress& progress) {
  const uint32_t match = reduction.method == V_DitheringNone ? V_ColorResSlowMatch : V_ColorResFastMatch;
  const bool given = !reduction.palette.empty();
  from.Record().DitherMethod = reduction.method;
  progress.BeginPart(from.Height(), EngineSteps::kSteps);
  EngineSteps steps(progress);
  BITMAPHANDLE made;
  steps.Require(V_ColorResBitmap(&from.Record(), &made, V_BITMAPHANDLE_SIZE, reduction.bits,
                                 reduction.options | (reduction.bits <= 8 ? match : 0),
                                 given ? reduction.palette.data() : nullptr, nullptr,
                                 given ? static_cast<int32_t>(reduction.palette.size()) : reduction.colors));
  to.Adopt(made);
}

// --- rows ---------------------------------------------------------------------------------------------------------

// Samples of colour brought to their whole range, and laid over a background where alpha goes.
class SampleRow {
 public:
  SampleRow(const Bitmap& bitmap, bool dropsAlpha)
      : maximum_(bitmap.SampleMaximum()),
        full_(bitmap.Bits() == 24 || bitmap.Bits() == 32 ? 255 : 65535),
        hasAlpha_(bitmap.HasAlpha()),
        dropsAlpha_(dropsAlpha && hasAlpha_),
        premultiplied_((bitmap.Flags() & V_FlagPremultiplyAlpha) != 0) {
    const RGBQUAD color = bitmap.Background();
    const bool redFirst = bitmap.Order() == V_OrderRgb;
    background_[0] = (redFirst ? color.rgbRed : color.rgbBlue) * (full_ / 255);
    background_[1] = color.rgbGreen * (full_ / 255);
    background_[2] = (redFirst ? color.rgbBlue : color.rgbRed) * (full_ / 255);
  }

  void Change(uint8_t* row, int32_t width) const {
    if (full_ == 255)
      ChangeSamples<uint8_t>(row, width);
    else
      ChangeSamples<uint16_t>(row, width);
  }

 private:
  template <typename Sample>
  void ChangeSamples(uint8_t* row, int32_t width) const {
    const int channels = hasAlpha_ ? 4 : 3;
    const size_t bytes = static_cast<size_t>(channels) * sizeof(Sample);
    for (int32_t x = 0; x < width; ++x, row += bytes) {
      Sample pixel[4] = {};
      std::memcpy(pixel, row, bytes);
      for (int i = 0; i < channels; ++i)
        pixel[i] =
            static_cast<Sample>((uint64_t{std::min<uint32_t>(pixel[i], maximum_)} * full_ + maximum_ / 2) / maximum_);
      if (dropsAlpha_) {
        for (int i = 0; i < 3; ++i) pixel[i] = static_cast<Sample>(Over(pixel[i], pixel[3], background_[i]));
        pixel[3] = static_cast<Sample>(full_);
      }
      std::memcpy(row, pixel, bytes);
    }
  }

  uint64_t Over(uint64_t sample, uint64_t alpha, uint64_t background) const {
    const uint64_t under = background * (full_ - alpha);
    if (premultiplied_) return std::min<uint64_t>(full_, sample + (under + full_ / 2) / full_);
    return (sample * alpha + under + full_ / 2) / full_;
  }

  uint32_t maximum_;
  uint32_t full_;
  bool hasAlpha_;
  bool dropsAlpha_;
  bool premultiplied_;
  uint32_t background_[3];
};

// Whether the picture has at most so many colours. A photograph has more in its first rows.
bool HasFewColors(Bitmap& bitmap, int32_t most, Progress& progress) {
  const int32_t width = bitmap.Width();
  std::vector<RGBQUAD> palette = bitmap.Palette();
  palette.resize(256);
  std::vector<uint8_t> row(V_CalcConvertSize(width, bitmap.Bits(), width, 24));
  std::unordered_set<uint32_t> colors;
  progress.BeginPart(bitmap.Height(), bitmap.Height());
  for (int32_t y = 0; y < bitmap.Height(); ++y) {
    bitmap.GetRow(y, row.data());
    CheckStatus(
        V_ConvertBuffer(row.data(), width, bitmap.Bits(), 24, bitmap.Order(), V_OrderBgr, palette.data(), nullptr));
    uint32_t last = ~uint32_t{0};
    for (int32_t x = 0; x < width; ++x) {
      const uint32_t color = static_cast<uint32_t>(GetPixel<24>(row.data(), x));
      if (color != last && colors.insert(color).second && colors.size() > static_cast<size_t>(most)) return false;
      last = color;
    }
    progress.Step();
  }
  return true;
}

// Every row converted by itself. `to` is `from` or a bitmap of other depth with storage.
void ConvertRows(Bitmap& from, Bitmap& to, int32_t order, Progress& progress) {
  const int32_t width = from.Width();
  std::vector<RGBQUAD> palette = from.Palette();
  palette.resize(256);
  std::vector<uint8_t> row(V_CalcConvertSize(width, from.Bits(), width, to.Bits()));
  progress.BeginPart(from.Height(), from.Height());
  for (int32_t y = 0; y < from.Height(); ++y) {
    from.GetRow(y, row.data());
    CheckStatus(
        V_ConvertBuffer(row.data(), width, from.Bits(), to.Bits(), from.Order(), order, palette.data(), nullptr));
    to.PutRow(y, row.data());
    progress.Step();
  }
  to.Record().Order = order;
}

void ChangeOrder(Bitmap& bitmap, int32_t order, Progress& progress) { ConvertRows(bitmap, bitmap, order, progress); }

void WidenToGray(Bitmap& bitmap, StorageChoice storage, Progress& progress) {
  if (!StorageHolds(storage.memoryType, 16)) storage.memoryType = V_MemoryConventional;
  Bitmap wide;
  wide.DescribeLike(bitmap, 16);
  AllocateStorage(wide, storage);
  ConvertRows(bitmap, wide, V_OrderGray, progress);
  bitmap.Adopt(wide.Surrender());
}

std::vector<RGBQUAD> GrayRamp(uint32_t grays) {
  Bitmap bitmap;
  bitmap.SetGrayRamp(grays);
  return bitmap.Palette();
}

std::vector<RGBQUAD> FixedPalette(int32_t bits) {
  Bitmap bitmap;
  bitmap.SetFixedPalette(bits);
  return bitmap.Palette();
}

}  // namespace

// --- the choice ---------------------------------------------------------------------------------------------------

int32_t DitherMethodOfName(std::string_view name) {
  const auto* found = std::find(std::begin(kMethods), std::end(kMethods), name);
  return found == std::end(kMethods) ? -1 : static_cast<int32_t>(found - std::begin(kMethods));
}

std::string_view NameOfDitherMethod(int32_t method) { return kMethods[method]; }

std::string DitherNames() {
  std::string names;
  for (const std::string_view name : kMethods) names.append(names.empty() ? "" : ", ").append(name);
  return names;
}

void CheckChoice(const DepthChoice& choice) {
  using Samples = DepthChoice::Samples;
  using Palette = DepthChoice::Palette;
  const int32_t bits = choice.bits;
  const bool gray = choice.samples == Samples::kGray;
  const bool colored = choice.samples == Samples::kRgb || choice.samples == Samples::kBgr;
  const auto refuse = [](bool wrong, const std::string& reason) {
    if (wrong) throw UsageError(reason);
  };
  refuse(!IsDepth(bits), "the bits of a pixel are 1 to 8, 12, 16, 24, 32, 48 or 64");
  refuse(gray && bits > 16, "gray has 1 to 8, 12 or 16 bits");
  refuse(colored && bits < 16, "the orders rgb and bgr are of 16 bits and more; colours of fewer are in a palette");
  refuse(bits > 8 && choice.method >= 0, "pixels of 1 to 8 bits are dithered, not of " + std::to_string(bits));
  refuse(bits > 8 && (choice.palette != Palette::kUsual || choice.colors != 0),
         "pixels of 1 to 8 bits have a palette, not of " + std::to_string(bits));
  refuse(gray && choice.palette != Palette::kUsual, "the order gray makes a palette of its own");
  refuse(choice.colors != 0 && (choice.palette == Palette::kFixed || choice.palette == Palette::kGiven),
         "a number of colours goes with a palette that is made: optimized, or gray");
  const int32_t most = 1 << std::min(bits, 8);
  const std::string words = std::to_string(bits) + (bits == 1 ? " bit" : " bits");
  refuse(choice.colors != 0 && (choice.colors < 2 || choice.colors > most),
         "a palette of " + words + " has 2 to " + std::to_string(most) + " colours");
  refuse(choice.given.size() > static_cast<size_t>(most),
         "the palette has " + std::to_string(choice.given.size()) + " colours, too many for " + words);
}

// --- what becomes of a page ---------------------------------------------------------------------------------------

DepthChange::DepthChange(const DepthChoice& choice, const Bitmap& source)
    : choice_(choice), methodGiven_(choice.method >= 0) {
  if (IsUnchanged(source)) return;
  if (source.Flags() & V_FlagSigned) throw Error("signed samples keep their depth");
  FindKey(source);
  way_ = ChooseWay(source);
  if (way_ == Way::kPalette && choice.palette == DepthChoice::Palette::kUsual) ChoosePalette(source);
  if (keyed_) key_ = ChooseKey();
  const bool keepsAlpha = choice.bits == 32 || choice.bits == 64;
  flattens_ = way_ != Way::kOrder && ((source.HasAlpha() && !keepsAlpha) || HasNarrowSamples(source));
  if (choice_.method < 0)
    choice_.method = way_ == Way::kGray && MostColors() > kMostDitheredGrays ? V_DitheringNone : V_DitheringFloydStein;
  const bool countsColors = choice_.palette == DepthChoice::Palette::kOptimized && !methodGiven_;
  passes_ = 1 + flattens_ + countsColors + (way_ == Way::kGray && !IsFullGray(source) && !IsAllGray()) +
            (key_ == Key::kIndex || key_ == Key::kAlpha) + (way_ == Way::kConvert && WantedOrder() >= 0);
}

// The same depth, and nothing else is asked for.
bool DepthChange::IsUnchanged(const Bitmap& source) const {
  if (choice_.bits != source.Bits()) return false;
  if (WantedOrder() >= 0) return source.Order() == WantedOrder();
  if (choice_.samples == DepthChoice::Samples::kGray)
    return source.IsGray() && (source.Bits() > 8 || source.Palette().size() == MostColors());
  return choice_.palette == DepthChoice::Palette::kUsual && (source.Bits() > 8 || FitsOwnPalette(source));
}

DepthChange::Way DepthChange::ChooseWay(const Bitmap& source) const {
  const bool gray = IsGrayPicture(source);
  const bool usual = choice_.samples == DepthChoice::Samples::kUsual && choice_.palette == DepthChoice::Palette::kUsual;
  const bool grayResult = choice_.samples == DepthChoice::Samples::kGray || (usual && (gray || choice_.bits == 1));
  if (choice_.bits <= 8) return grayResult ? Way::kGray : Way::kPalette;
  if (choice_.bits == 16 && grayResult && !(gray && source.Bits() > 8)) return Way::kWideGray;
  return choice_.bits == source.Bits() ? Way::kOrder : Way::kConvert;
}

void DepthChange::FindKey(const Bitmap& source) {
  const uint32_t color = static_cast<uint32_t>(source.Record().Transparency);
  keyIndex_ = color & 0xFFFF;
  keyed_ = (source.Flags() & V_FlagTransparency) && color >> 24 == 1 && source.Bits() <= 8 &&
           keyIndex_ < source.Palette().size();
}

// The picture's own palette, where it fits, is a given one without dithering. A transparent entry comes back later:
// no other pixel takes its index.
void DepthChange::ChoosePalette(const Bitmap& source) {
  choice_.palette = DepthChoice::Palette::kOptimized;
  if (source.Bits() > 8 || !FitsOwnPalette(source)) return;
  choice_.palette = DepthChoice::Palette::kGiven;
  choice_.given = source.Palette();
  if (keyed_ && choice_.given.size() > 1) choice_.given.erase(choice_.given.begin() + keyIndex_);
  choice_.method = V_DitheringNone;
}

DepthChange::Key DepthChange::ChooseKey() const {
  using Palette = DepthChoice::Palette;
  if (way_ == Way::kConvert && (choice_.bits == 32 || choice_.bits == 64)) return Key::kAlpha;
  const bool room = choice_.palette == Palette::kOptimized
                        ? MostColors() > 2
                        : choice_.palette == Palette::kGiven && choice_.given.size() < MostColors();
  return way_ == Way::kPalette && room ? Key::kIndex : Key::kFlattened;
}

bool DepthChange::FitsOwnPalette(const Bitmap& source) const { return source.Palette().size() <= MostColors(); }

uint32_t DepthChange::MostColors() const {
  return choice_.colors != 0 ? static_cast<uint32_t>(choice_.colors) : 1u << std::min(choice_.bits, 8);
}

bool DepthChange::IsAllGray() const { return choice_.bits == 8 && MostColors() == 256; }

int32_t DepthChange::WantedOrder() const {
  if (choice_.samples == DepthChoice::Samples::kRgb) return V_OrderRgb;
  return choice_.samples == DepthChoice::Samples::kBgr ? V_OrderBgr : -1;
}

void DepthChange::DescribeResult(const Bitmap& source, Bitmap& result) const {
  if (way_ == Way::kNothing) return result.DescribeLike(source, source.Bits());
  result.DescribeLike(source, choice_.bits);
  if (choice_.bits != 32 && choice_.bits != 64) result.Record().Flags &= ~uint32_t{V_FlagPremultiplyAlpha};
  if (way_ == Way::kGray) return result.SetGrayRamp(MostColors());
  if (way_ == Way::kPalette) return result.SetPalette(PaletteInOutline());
  const bool gray = way_ == Way::kWideGray || choice_.bits == 12 ||
                    (choice_.bits == 16 && source.Order() == V_OrderGray && WantedOrder() < 0);
  result.Record().Order = gray ? V_OrderGray : WantedOrder() >= 0 ? WantedOrder() : V_OrderBgr;
}

// The palette as far as it is known before the picture has been read: one that is made counts as one of colours.
std::vector<RGBQUAD> DepthChange::PaletteInOutline() const {
  if (choice_.palette == DepthChoice::Palette::kFixed) return FixedPalette(choice_.bits);
  if (choice_.palette == DepthChoice::Palette::kGiven) return choice_.given;
  return {RGBQUAD{0, 0, 255, 0}, RGBQUAD{255, 0, 0, 0}};
}

// --- the change ---------------------------------------------------------------------------------------------------

void DepthChange::Apply(Bitmap& bitmap, const StorageChoice& storage, Progress& progress) const {
  if (way_ == Way::kNothing) return;
  Flatten(bitmap, progress);
  switch (way_) {
    case Way::kConvert:
      Convert(bitmap, progress);
      break;
    case Way::kWideGray:
      WidenToGray(bitmap, storage, progress);
      break;
    case Way::kGray:
      ReduceToGray(bitmap, progress);
      break;
    case Way::kPalette:
      ReduceToPalette(bitmap, progress);
      break;
    default:
      ChangeOrder(bitmap, WantedOrder(), progress);
  }
}

void DepthChange::Flatten(Bitmap& bitmap, Progress& progress) const {
  if (key_ == Key::kFlattened) {
    const RGBQUAD background = bitmap.Background();
    CheckStatus(V_PutBitmapColors(&bitmap.Record(), static_cast<int32_t>(keyIndex_), 1, &background));
    bitmap.Record().Flags &= ~uint32_t{V_FlagTransparency};
  }
  if (!flattens_) return;
  const bool dropsAlpha = choice_.bits != 32 && choice_.bits != 64;
  const SampleRow samples(bitmap, dropsAlpha);
  std::vector<uint8_t> row(bitmap.RowBytes());
  progress.BeginPart(bitmap.Height(), bitmap.Height());
  for (int32_t y = 0; y < bitmap.Height(); ++y) {
    bitmap.GetRow(y, row.data());
    samples.Change(row.data(), bitmap.Width());
    bitmap.PutRow(y, row.data());
    progress.Step();
  }
  if (dropsAlpha) bitmap.Record().Flags &= ~uint32_t{V_FlagPremultiplyAlpha};
}

void DepthChange::Convert(Bitmap& bitmap, Progress& progress) const {
  Bitmap made;
  Reduce(bitmap, {.bits = choice_.bits}, made, progress);
  if (key_ == Key::kAlpha) PutKey(bitmap, made, progress);
  bitmap.Adopt(made.Surrender());
  if (WantedOrder() >= 0) ChangeOrder(bitmap, WantedOrder(), progress);
}

void DepthChange::ReduceToGray(Bitmap& bitmap, Progress& progress) const {
  Bitmap gray, made;
  const bool isGray = IsFullGray(bitmap);
  if (!isGray) Reduce(bitmap, {.bits = 0}, gray, progress);
  if (IsAllGray()) return bitmap.Adopt(gray.Surrender());
  Reduce(isGray ? bitmap : gray,
         {.bits = choice_.bits,
          .options = V_ColorResUsePalette,
          .palette = GrayRamp(MostColors()),
          .method = choice_.method},
         made, progress);
  bitmap.Adopt(made.Surrender());
}

void DepthChange::ReduceToPalette(Bitmap& bitmap, Progress& progress) const {
  using Palette = DepthChoice::Palette;
  Reduction reduction{.bits = choice_.bits, .method = choice_.method};
  if (choice_.palette == Palette::kFixed) {
    reduction.options = V_ColorResFixedPalette;
  } else if (choice_.palette == Palette::kGiven) {
    reduction.options = V_ColorResUsePalette;
    reduction.palette = choice_.given;
  } else {
    reduction.options = V_ColorResOptimized;
    reduction.colors = static_cast<int32_t>(MostColors()) - (key_ == Key::kIndex);
    if (!methodGiven_ && HasFewColors(bitmap, reduction.colors, progress)) reduction.method = V_DitheringNone;
  }
  Bitmap made;
  Reduce(bitmap, reduction, made, progress);
  if (key_ == Key::kIndex) PutKey(bitmap, made, progress);
  bitmap.Adopt(made.Surrender());
}

// Transparent pixels get an index of their own behind the palette, or no alpha.
void DepthChange::PutKey(Bitmap& source, Bitmap& result, Progress& progress) const {
  uint64_t value = 0, kept = ~uint64_t{0} >> (result.Bits() == 32 ? 40 : 16);
  if (key_ == Key::kIndex) {
    std::vector<RGBQUAD> palette = result.Palette();
    value = palette.size(), kept = 0;
    palette.push_back(source.Palette()[keyIndex_]);
    result.SetPalette(palette);
    result.Record().Transparency = IndexColor(static_cast<uint32_t>(value));
  } else {
    result.Record().Flags &= ~uint32_t{V_FlagTransparency};
  }
  const int32_t width = source.Width();
  std::vector<uint8_t> row(source.RowBytes()), out(result.RowBytes()), transparent(static_cast<size_t>(width));
  progress.BeginPart(source.Height(), source.Height());
  for (int32_t y = 0; y < source.Height(); ++y) {
    source.GetRow(y, row.data());
    result.GetRow(y, out.data());
    WithDepth(source.Bits(), [&](auto depth) {
      for (int32_t x = 0; x < width; ++x)
        transparent[static_cast<size_t>(x)] = GetPixel<depth>(row.data(), x) == keyIndex_;
    });
    WithDepth(result.Bits(), [&](auto depth) {
      for (int32_t x = 0; x < width; ++x)
        if (transparent[static_cast<size_t>(x)])
          PutPixel<depth>(out.data(), x, (GetPixel<depth>(out.data(), x) & kept) | value);
    });
    result.PutRow(y, out.data());
    progress.Step();
  }
}

}  // namespace vexa
