// Pixel formats, in place by V_ConvertBuffer.
//
// The lines here have no padding, so that an image is one long line; what a call costs shows where it is converted line by
// line. The limit is a memcpy of half the bytes that are read and written. Peers convert an image from one memory to
// another, in one call too.
#include <cstring>
#include <memory>
#include <vector>

#include "common.h"

#ifdef VEXABENCH_LEPTONICA
#include <allheaders.h>
#endif
#ifdef VEXABENCH_LIBYUV
#include <libyuv/convert.h>
#include <libyuv/convert_argb.h>
#include <libyuv/convert_from_argb.h>
#include <libyuv/planar_functions.h>
#endif
#ifdef VEXABENCH_OPENCVIMGPROC
#include <opencv2/imgproc.hpp>
#endif
#ifdef VEXABENCH_SWSCALE
extern "C" {
#include <libswscale/swscale.h>
}
#endif

namespace vexabench {
namespace {

struct Format {
  int32_t bits, order;
};

// How much a conversion may cost beside the limit at both sizes, and how much faster than its best peer it is to be.
struct Pair {
  const char* name;
  Format from, to;
  double small, large, faster;
};

constexpr Format kBits1{1, V_OrderRgb}, kPalette8{8, V_OrderRgb}, kGray8{8, V_OrderGray}, kGray16{16, V_OrderGray},
    kRgb555{16, V_OrderBgr}, kRgb565{16, V_OrderRgb565}, kBgr24{24, V_OrderBgr}, kRgb24{24, V_OrderRgb},
    kBgr32{32, V_OrderBgr}, kBgr48{48, V_OrderBgr};

constexpr Pair kToGray{"BGR to gray", kBgr24, kGray8, 1.4, 1.1, 3}, kSwap{"BGR to RGB", kBgr24, kRgb24, 1.2, 0.8, 1.6},
    kTo32{"24 to 32 bits", kBgr24, kBgr32, 1.0, 0.8, 1.1}, kFrom32{"32 to 24 bits", kBgr32, kBgr24, 1.0, 0.8, 1.1},
    kTo555{"24 bits to 5-5-5", kBgr24, kRgb555, 1.2, 0.9, 3}, kTo565{"24 bits to 5-6-5", kBgr24, kRgb565, 1.2, 0.9, 3},
    kTo48{"24 to 48 bits", kBgr24, kBgr48, 1.0, 0.7, 1.6},
    kPaletteTo24{"8-bit palette to 24 bits", kPalette8, kBgr24, 6, 1.2, 3},
    kPaletteTo32{"8-bit palette to 32 bits", kPalette8, kBgr32, 4, 0.9, 2},
    kGray16To8{"16- to 8-bit gray", kGray16, kGray8, 0.85, 0.85, 1.0}, k1To8{"1 bit to 8", kBits1, kGray8, 2, 0.8, 9},
    k1To24{"1 bit to 24", kBits1, kBgr24, 2, 0.8, 20},
    kGrayTo24{"8-bit gray to 24 bits", kGray8, kBgr24, 1.2, 0.75, 1.7},
    kTo1{"8-bit gray to 1 bit", kGray8, kBits1, 1.3, 0.9, 25};

constexpr int32_t kSmall = 512, kLarge = 4096;

size_t LineBytes(int32_t side, const Format& format) {
  return static_cast<size_t>(side) * static_cast<size_t>(format.bits) / 8;
}

// Converts an image in `calls` equal pieces, each in a place with room for either format.
std::function<void()> Ours(const Pair& pair, int32_t side, int32_t calls = 1) {
  const int32_t pixels = side * side / calls;
  const size_t bytes = V_CalcConvertSize(pixels, pair.from.bits, pixels, pair.to.bits);
  auto memory = std::make_shared<Memory>(bytes * static_cast<size_t>(calls));
  return [=] {
    static constexpr RGBQUAD kBlackWhite[2] = {{0, 0, 0, 0}, {255, 255, 255, 0}};
    const RGBQUAD* palette = pair.to.bits == 1 ? kBlackWhite : nullptr;
    for (int32_t i = 0; i < calls; ++i)
      Require(V_ConvertBuffer(memory->data() + bytes * static_cast<size_t>(i), pixels, pair.from.bits, pair.to.bits,
                              pair.from.order, pair.to.order, nullptr, palette) == 1,
              "a line was refused");
  };
}

Contest AgainstCopy(const Pair& pair, int32_t side, int32_t calls = 1) {
  const size_t bytes = (LineBytes(side, pair.from) + LineBytes(side, pair.to)) / 2 * static_cast<size_t>(side);
  auto from = std::make_shared<Memory>(bytes), to = std::make_shared<Memory>(bytes);
  return {Ours(pair, side, calls), [=] { std::memcpy(to->data(), from->data(), bytes); }};
}

// A peer's whole image: its function takes both memories and their pitches.
using Convert = void (*)(const uint8_t* from, int fromPitch, uint8_t* to, int toPitch, int side);

Contest AgainstFunction(const Pair& pair, int32_t side, Convert convert) {
  const size_t fromPitch = LineBytes(side, pair.from), toPitch = LineBytes(side, pair.to);
  auto from = std::make_shared<Memory>(fromPitch * static_cast<size_t>(side));
  auto to = std::make_shared<Memory>(toPitch * static_cast<size_t>(side));
  return {Ours(pair, side),
          [=] { convert(from->data(), static_cast<int>(fromPitch), to->data(), static_cast<int>(toPitch), side); }};
}

std::string Name(const Pair& pair, int32_t side) {
  return std::string(pair.name) + ", " + std::to_string(side) + " x " + std::to_string(side);
}

void Limit(const Pair& pair) {
  Compare(Name(pair, kSmall), "memcpy", TimesAtMost(pair.small), [=] { return AgainstCopy(pair, kSmall); });
  Compare(
      Name(pair, kSmall) + ", by lines", "memcpy", kNoGoal, [=] { return AgainstCopy(pair, kSmall, kSmall); }, 15);
  Compare(
      Name(pair, kLarge), "memcpy", TimesAtMost(pair.large), [=] { return AgainstCopy(pair, kLarge); }, 15);
}

[[maybe_unused]] void Peer(const Pair& pair, const std::string& peer,
                           const std::function<Contest(int32_t side)>& prepare) {
  Compare(Name(pair, kSmall), peer, SpeedAtLeast(pair.faster), [=] { return prepare(kSmall); });
  Compare(
      Name(pair, kLarge), peer, kNoGoal, [=] { return prepare(kLarge); }, 15);
}

[[maybe_unused]] void Peer(const Pair& pair, const std::string& peer, Convert convert) {
  Peer(pair, peer, [=](int32_t side) { return AgainstFunction(pair, side, convert); });
}

#ifdef VEXABENCH_LIBYUV
void RegisterLibyuv() {
  Peer(kToGray, "libyuv", [](const uint8_t* from, int fromPitch, uint8_t* to, int toPitch, int side) {
    libyuv::RGB24ToJ400(from, fromPitch, to, toPitch, side, side);
  });
  Peer(kSwap, "libyuv", [](const uint8_t* from, int fromPitch, uint8_t* to, int toPitch, int side) {
    libyuv::RAWToRGB24(from, fromPitch, to, toPitch, side, side);
  });
  Peer(kTo32, "libyuv", [](const uint8_t* from, int fromPitch, uint8_t* to, int toPitch, int side) {
    libyuv::RGB24ToARGB(from, fromPitch, to, toPitch, side, side);
  });
  Peer(kFrom32, "libyuv", [](const uint8_t* from, int fromPitch, uint8_t* to, int toPitch, int side) {
    libyuv::ARGBToRGB24(from, fromPitch, to, toPitch, side, side);
  });
  Peer(kGray16To8, "libyuv", [](const uint8_t* from, int fromPitch, uint8_t* to, int toPitch, int side) {
    libyuv::Convert16To8Plane(reinterpret_cast<const uint16_t*>(from), fromPitch / 2, to, toPitch, 256, side, side);
  });
}
#endif

#ifdef VEXABENCH_OPENCVIMGPROC
// The matrices are on the memories: OpenCV keeps a result of the right size and type where it is.
template <int FromType, int ToType, typename Work>
void WithMatrices(const uint8_t* from, int fromPitch, uint8_t* to, int toPitch, int side, Work work) {
  const cv::Mat source(side, side, FromType, const_cast<uint8_t*>(from), static_cast<size_t>(fromPitch));
  cv::Mat destination(side, side, ToType, to, static_cast<size_t>(toPitch));
  work(source, destination);
  Require(destination.data == to, "the result went elsewhere");
}

template <int FromType, int ToType, int Code>
void CvtColor(const uint8_t* from, int fromPitch, uint8_t* to, int toPitch, int side) {
  WithMatrices<FromType, ToType>(from, fromPitch, to, toPitch, side, [](const cv::Mat& source, cv::Mat& destination) {
    cv::cvtColor(source, destination, Code);
  });
}

void RegisterOpenCv() {
  cv::setNumThreads(1);
  Peer(kToGray, "OpenCV", CvtColor<CV_8UC3, CV_8UC1, cv::COLOR_BGR2GRAY>);
  Peer(kSwap, "OpenCV", CvtColor<CV_8UC3, CV_8UC3, cv::COLOR_BGR2RGB>);
  Peer(kTo32, "OpenCV", CvtColor<CV_8UC3, CV_8UC4, cv::COLOR_BGR2BGRA>);
  Peer(kFrom32, "OpenCV", CvtColor<CV_8UC4, CV_8UC3, cv::COLOR_BGRA2BGR>);
  Peer(kTo555, "OpenCV", CvtColor<CV_8UC3, CV_8UC2, cv::COLOR_BGR2BGR555>);
  Peer(kTo565, "OpenCV", CvtColor<CV_8UC3, CV_8UC2, cv::COLOR_BGR2BGR565>);
  Peer(kGrayTo24, "OpenCV", CvtColor<CV_8UC1, CV_8UC3, cv::COLOR_GRAY2BGR>);
  Peer(kTo48, "OpenCV", [](const uint8_t* from, int fromPitch, uint8_t* to, int toPitch, int side) {
    WithMatrices<CV_8UC3, CV_16UC3>(
        from, fromPitch, to, toPitch, side,
        [](const cv::Mat& source, cv::Mat& destination) { source.convertTo(destination, CV_16U, 257); });
  });
  Peer(kPaletteTo24, "OpenCV", [](const uint8_t* from, int fromPitch, uint8_t* to, int toPitch, int side) {
    static const cv::Mat palette(256, 1, CV_8UC3, cv::Scalar(1, 2, 3));
    WithMatrices<CV_8UC1, CV_8UC3>(from, fromPitch, to, toPitch, side, [](const cv::Mat& source, cv::Mat& destination) {
      cv::applyColorMap(source, destination, palette);
    });
  });
}
#endif

#ifdef VEXABENCH_SWSCALE
Contest AgainstSwscale(const Pair& pair, int32_t side, AVPixelFormat from, AVPixelFormat to) {
  struct State {
    State(const Pair& pair, int32_t side, AVPixelFormat from, AVPixelFormat to)
        : source(LineBytes(side, pair.from) * static_cast<size_t>(side)),
          destination(LineBytes(side, pair.to) * static_cast<size_t>(side)),
          palette(1024),
          context(sws_getContext(side, side, from, side, side, to, SWS_POINT, nullptr, nullptr, nullptr)) {}
    ~State() { sws_freeContext(context); }
    State(const State&) = delete;
    State& operator=(const State&) = delete;
    Memory source, destination, palette;
    SwsContext* context;
  };
  auto state = std::make_shared<State>(pair, side, from, to);
  Require(state->context != nullptr, "no converter");
  return {Ours(pair, side), [=] {
            const uint8_t* sources[4] = {state->source.data(), state->palette.data(), nullptr, nullptr};
            uint8_t* destinations[4] = {state->destination.data(), nullptr, nullptr, nullptr};
            const int sourcePitch[4] = {static_cast<int>(LineBytes(side, pair.from)), 0, 0, 0};
            const int destinationPitch[4] = {static_cast<int>(LineBytes(side, pair.to)), 0, 0, 0};
            sws_scale(state->context, sources, sourcePitch, 0, side, destinations, destinationPitch);
          }};
}

void RegisterSwscale() {
  const auto peer = [](const Pair& pair, AVPixelFormat from, AVPixelFormat to) {
    Peer(pair, "swscale", [=](int32_t side) { return AgainstSwscale(pair, side, from, to); });
  };
  peer(kPaletteTo24, AV_PIX_FMT_PAL8, AV_PIX_FMT_BGR24);
  peer(kPaletteTo32, AV_PIX_FMT_PAL8, AV_PIX_FMT_BGRA);
  peer(kSwap, AV_PIX_FMT_BGR24, AV_PIX_FMT_RGB24);
  peer(kTo32, AV_PIX_FMT_BGR24, AV_PIX_FMT_BGRA);
}
#endif

#ifdef VEXABENCH_LEPTONICA
struct DestroyPix {
  void operator()(Pix* pix) const { pixDestroy(&pix); }
};
std::shared_ptr<Pix> MakePix(int32_t side, int32_t bits) { return {pixCreate(side, side, bits), DestroyPix{}}; }

// Its 24 bits are 32.
void RegisterLeptonica() {
  Peer(k1To8, "Leptonica", [](int32_t side) -> Contest {
    auto from = MakePix(side, 1), to = MakePix(side, 8);
    return {Ours(k1To8, side), [=] { pixConvert1To8(to.get(), from.get(), 0, 255); }};
  });
  Peer(k1To24, "Leptonica", [](int32_t side) -> Contest {
    auto from = MakePix(side, 1), to = MakePix(side, 32);
    return {Ours(k1To24, side), [=] { pixConvert1To32(to.get(), from.get(), 0, 0xFFFFFF00); }};
  });
  Peer(kTo1, "Leptonica", [](int32_t side) -> Contest {
    auto from = MakePix(side, 8);
    return {Ours(kTo1, side), [=] { DestroyPix{}(pixThresholdToBinary(from.get(), 128)); }};
  });
}
#endif

}  // namespace

void RegisterFamily() {
  for (const Pair& pair : {kToGray, kSwap, kTo32, kFrom32, kTo555, kTo565, kTo48, kPaletteTo24, kPaletteTo32,
                           kGray16To8, k1To8, k1To24, kGrayTo24, kTo1})
    Limit(pair);
#ifdef VEXABENCH_LIBYUV
  RegisterLibyuv();
#endif
#ifdef VEXABENCH_OPENCVIMGPROC
  RegisterOpenCv();
#endif
#ifdef VEXABENCH_SWSCALE
  RegisterSwscale();
#endif
#ifdef VEXABENCH_LEPTONICA
  RegisterLeptonica();
#endif
}

}  // namespace vexabench
