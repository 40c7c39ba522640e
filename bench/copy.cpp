// Copying bitmaps, and lists of them.
//
// Source and destination are touched before. Large copies are compared with memcpy and with the libraries' own copy
// functions on the same pixels; a rectangle with memcpy of its own rows; a list with a vector of records.
#include <cstring>
#include <memory>
#include <vector>

#include "common.h"

#ifdef VEXABENCH_OPENCV
#include <opencv2/core.hpp>
#endif
#ifdef VEXABENCH_LIBYUV
#include <libyuv/planar_functions.h>
#endif

namespace vexabench {
namespace {

// Two 8-bit images of the same size.
struct Pair {
  explicit Pair(size_t bytes, uint32_t toMemory = V_MemoryConventional)
      : height(static_cast<int32_t>(bytes / kRowBytes)),
        from(V_MemoryConventional, kRowBytes, height, 8),
        to(toMemory, kRowBytes, height, 8) {}
  static constexpr int32_t kRowBytes = 4096;
  int32_t height;
  Image from, to;
};

void CopyData(Pair& pair) { Require(V_CopyBitmapData(pair.to.get(), pair.from.get()) == 1, "a copy was refused"); }

template <typename Peer>
void CompareCopy(size_t bytes, const std::string& name, Goal goal, Peer peer) {
  Compare("copy " + SizeName(bytes), name, goal, [=] {
    auto pair = std::make_shared<Pair>(bytes);
    return Contest{[=] { CopyData(*pair); }, [=] { peer(*pair); }};
  });
}

void RegisterCopies() {
  for (const size_t bytes : {size_t{512} << 10, size_t{4} << 20, size_t{16} << 20, size_t{64} << 20}) {
    const bool large = bytes >= size_t{4} << 20;
    CompareCopy(bytes, "memcpy", large ? TimesAtMost(0.82) : TimesAtMost(1.05),
                [bytes](Pair& pair) { std::memcpy(pair.to.Data(), pair.from.Data(), bytes); });
    [[maybe_unused]] const Goal goal = large ? SpeedAtLeast(1.4) : TimesAtMost(1.1);
#ifdef VEXABENCH_LIBYUV
    CompareCopy(bytes, "libyuv CopyPlane", goal, [](Pair& pair) {
      libyuv::CopyPlane(pair.from.Data(), Pair::kRowBytes, pair.to.Data(), Pair::kRowBytes, Pair::kRowBytes,
                        pair.height);
    });
#endif
#ifdef VEXABENCH_OPENCV
    CompareCopy(bytes, "OpenCV copyTo", goal, [](Pair& pair) {
      const cv::Mat from(pair.height, Pair::kRowBytes, CV_8UC1, pair.from.Data());
      cv::Mat to(pair.height, Pair::kRowBytes, CV_8UC1, pair.to.Data());
      from.copyTo(to);
    });
#endif
  }
}

void RegisterTiles() {
  Compare("copy 64 MB to tiles", "the same to conventional", TimesAtMost(1.1), [] {
    const TileSettings settings(1 << 20, 0);
    auto tiled = std::make_shared<Pair>(size_t{64} << 20, V_MemoryTiled);
    auto plain = std::make_shared<Pair>(size_t{64} << 20);
    return Contest{[=] { CopyData(*tiled); }, [=] { CopyData(*plain); }};
  });
}

// A hundredth of an image of 64 MiB: 1-bit at an odd column, and whole bytes.
void RegisterRectangles() {
  struct Case {
    int32_t bits, left;
    double limit;
  };
  for (const Case& c : {Case{8, 1001, 1.6}, Case{24, 1001, 1.6}, Case{1, 1001, 4.0}}) {
    Compare("rectangle of 1/100, " + std::to_string(c.bits) + " bits", "memcpy of its rows", TimesAtMost(c.limit), [=] {
      constexpr int32_t kSide = 8000, kPart = 2000;
      auto image = std::make_shared<Image>(V_MemoryConventional, kSide, kSide, c.bits);
      auto rows = std::make_shared<Memory>(image->Pitch() * kPart);
      const size_t bytes = size_t{kPart} * static_cast<size_t>(c.bits) / 8;
      return Contest{[=] {
                       BITMAPHANDLE part;
                       Require(V_CopyBitmapRect2(&part, image->get(), V_BITMAPHANDLE_SIZE, c.left, 3000, kPart, kPart,
                                                 V_MemoryConventional) == 1,
                               "a rectangle was refused");
                       V_FreeBitmap(&part);
                     },
                     [=] {
                       BITMAPHANDLE part;
                       V_CreateBitmap(&part, V_BITMAPHANDLE_SIZE, V_MemoryConventional, kPart, kPart, c.bits,
                                      V_OrderRgb, nullptr, V_ViewTopLeft, nullptr, 0);
                       for (size_t row = 0; row < kPart; ++row)
                         std::memcpy(part.Addr.Windows.pData + row * part.BytesPerLine,
                                     image->Data() + (3000 + row) * image->Pitch() +
                                         static_cast<size_t>(c.left) * static_cast<size_t>(c.bits) / 8,
                                     bytes);
                       V_FreeBitmap(&part);
                     }};
    });
  }
}

// Records without storage: what is measured is the list.
void FillList(HBITMAPLIST* list, uint32_t count) {
  BITMAPHANDLE record{};
  record.uStructSize = V_BITMAPHANDLE_SIZE;
  Require(V_CreateBitmapList(list) == 1, "no list");
  for (uint32_t i = 0; i < count; ++i) V_InsertBitmapListItem(*list, V_LIST_END, &record);
}

// Random gets: every item lies somewhere else in memory, as it does in the vector.
uint32_t NextIndex(uint32_t index, uint32_t count) {
  return static_cast<uint32_t>((index * uint64_t{48271} + 11) % count);
}

void RegisterLists() {
  static constexpr uint32_t kItems = 100000, kShort = 25000;
  Compare("append 100 000 list items", "as many in lists of 25 000", TimesAtMost(4), [] {
    return Contest{[] {
                     HBITMAPLIST list = nullptr;
                     FillList(&list, kItems);
                     V_DestroyBitmapList(list);
                   },
                   [] {
                     for (uint32_t i = 0; i < kItems / kShort; ++i) {
                       HBITMAPLIST list = nullptr;
                       FillList(&list, kShort);
                       V_DestroyBitmapList(list);
                     }
                   },
                   kItems};
  });
  Compare("get one of 100 000 list items", "a copy out of a vector", ExtraAtMost(10), [] {
    static HBITMAPLIST list = nullptr;
    if (!list) FillList(&list, kItems);
    auto records = std::make_shared<std::vector<BITMAPHANDLE>>(kItems);
    return Contest{[] {
                     BITMAPHANDLE record;
                     for (uint32_t i = 0, index = 0; i < kItems; ++i, index = NextIndex(index, kItems))
                       V_GetBitmapListItem(list, index, &record, V_BITMAPHANDLE_SIZE);
                   },
                   [=] {
                     BITMAPHANDLE record;
                     for (uint32_t i = 0, index = 0; i < kItems; ++i, index = NextIndex(index, kItems)) {
                       record = (*records)[index];
                       asm volatile("" : : "r"(&record) : "memory");
                     }
                   },
                   kItems};
  });
}

}  // namespace

void RegisterFamily() {
  RegisterCopies();
  RegisterTiles();
  RegisterRectangles();
  RegisterLists();
}

}  // namespace vexabench
