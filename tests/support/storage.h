// The kinds of storage that a bitmap can have, as a parameter of tests: every body runs over all of them.
#ifndef VEXAKRN_TESTS_SUPPORT_STORAGE_H
#define VEXAKRN_TESTS_SUPPORT_STORAGE_H

#include <memory>
#include <optional>
#include <vector>

#include "support/bitmap.h"
#include "support/pixelmodel.h"
#include "support/settings.h"

namespace vexatest {

// A host that keeps the rows of one bitmap and counts the calls. The call number `refuseAt` (1 is the first, 0 none)
// is answered with `refusal`.
class HostStore {
 public:
  std::vector<uint8_t> bytes;
  int32_t accessed = 0, released = 0;
  int32_t calls = 0, refuseAt = 0, refusal = -4242;

  BITMAPHANDLEDATACALLBACKS Table() {
    BITMAPHANDLEDATACALLBACKS table{};
    table.uStructSize = sizeof(table);
    table.pUserData = this;
    table.AllocateBitmapData = [](BITMAPHANDLE*, ALLOCATEBITMAPCALLBACKDATA* data, void* host) {
      return Self(host).Answer([&] { Self(host).bytes.assign(data->Size, 0); });
    };
    table.FreeBitmapData = [](BITMAPHANDLE*, void* host) { return Self(host).Answer([] {}); };
    table.AccessBitmap = [](BITMAPHANDLE*, void* host) { return Self(host).Answer([&] { ++Self(host).accessed; }); };
    table.ReleaseBitmap = [](BITMAPHANDLE*, void* host) { return Self(host).Answer([&] { ++Self(host).released; }); };
    table.GetBitmapRowCol = [](BITMAPHANDLE* bitmap, void* buffer, int32_t row, int32_t column, uint64_t count,
                               void* host) {
      return Self(host).Move(*bitmap, row, column, count, [&](uint8_t* at) { memcpy(buffer, at, count); });
    };
    table.PutBitmapRowCol = [](BITMAPHANDLE* bitmap, const void* buffer, int32_t row, int32_t column, uint64_t count,
                               void* host) {
      return Self(host).Move(*bitmap, row, column, count, [&](uint8_t* at) { memcpy(at, buffer, count); });
    };
    return table;
  }

 private:
  static HostStore& Self(void* host) { return *static_cast<HostStore*>(host); }
  template <typename Work>
  int32_t Answer(Work work) {  // 2: handled
    if (++calls == refuseAt) return refusal;
    work();
    return 2;
  }
  template <typename Work>
  uint64_t Move(const BITMAPHANDLE& bitmap, int32_t row, int32_t column, uint64_t count, Work work) {
    if (++calls == refuseAt) return static_cast<uint64_t>(int64_t{refusal});
    const uint64_t offset =
        uint64_t{bitmap.BytesPerLine} * static_cast<uint64_t>(row) + ColumnByte(column, int32_t{bitmap.BitsPerPixel});
    if (row < 0 || column < 0 || offset > bytes.size() || count > bytes.size() - offset)
      return static_cast<uint64_t>(int64_t{V_StatusInvalidParameter});
    work(bytes.data() + offset);
    return count;
  }
};

struct StorageKind {
  enum Setup { kRequest, kUser, kHost, kMovable };
  const char* name;
  Setup setup;
  uint32_t memory;          // the request
  uint32_t flags;           // the storage bits that it gives
  int32_t tileRows = 0;     // rows that fit a tile, 0 for tiles smaller than a row
  int32_t fifth = 0;        // threshold: tiles in memory
  int32_t roomInTiles = 0;  // account limit in tiles, 0 for none
  bool IsTiled() const { return (flags & V_FlagTiled) != 0; }
  bool IsRuns() const { return (flags & V_FlagCompressed) != 0; }
  bool KnowsItsEnd() const { return !IsTiled() && setup != kHost; }
  bool Holds(int32_t bits) const {
    if ((flags & V_FlagSuperCompressed) != 0) return bits == 1 || bits == 8 || bits == 24;
    return bits == 1 || !IsRuns();
  }
  bool InOlderLayout() const { return setup == kRequest || setup == kUser; }
};
inline void PrintTo(const StorageKind& kind, std::ostream* out) { *out << kind.name; }

inline constexpr uint32_t kInMemory = V_FlagAllocated | V_FlagConventionalMemory;
inline constexpr StorageKind kConventionalKind = {"Conventional", StorageKind::kRequest, V_MemoryConventional,
                                                  kInMemory};
inline constexpr StorageKind kHostKind = {"Host", StorageKind::kHost, V_MemoryConventional,
                                          V_FlagAllocated | V_FlagMirror};
inline constexpr StorageKind kMovableKind = {"Movable", StorageKind::kMovable, V_MemoryConventional,
                                             kInMemory | V_FlagGlobal};
inline constexpr StorageKind kStorageKinds[] = {
    kConventionalKind,
    {"User", StorageKind::kUser, V_MemoryUser, kInMemory | V_FlagMirror},
    {"TilesOfOneRow", StorageKind::kRequest, V_MemoryTiled, kInMemory | V_FlagTiled, 0},
    {"TilesOfThreeRows", StorageKind::kRequest, V_MemoryTiled, kInMemory | V_FlagTiled, 3},
    {"TilesMostlyInFile", StorageKind::kRequest, V_MemoryTiled, kInMemory | V_FlagTiled, 3, 1},
    {"TilesThatOutgrowMemory", StorageKind::kRequest, V_MemoryTiled, kInMemory | V_FlagTiled, 2, 6},
    {"TilesUnderAccountLimit", StorageKind::kRequest, V_MemoryTiled, kInMemory | V_FlagTiled, 2, 0, 2},
    {"Disk", StorageKind::kRequest, V_MemoryDisk, V_FlagAllocated | V_FlagDiskMemory},
    {"Compressed", StorageKind::kRequest, V_MemoryCompressed, kInMemory | V_FlagCompressed},
    {"SuperCompressed", StorageKind::kRequest, V_MemorySuperCompressed, kInMemory | V_FlagSuperCompressed},
    kHostKind,
    kMovableKind,
};

// Zeroes what follows the last pixel of 1-bit rows.
inline void ZeroPadding(std::vector<uint8_t>& pixels, size_t width, size_t pitch) {
  for (size_t row = 0; row < pixels.size() / pitch; ++row)
    for (size_t bit = width; bit < 8 * pitch; ++bit)
      pixels[row * pitch + bit / 8] &= static_cast<uint8_t>(~(0x80u >> bit % 8));
}

// A bitmap in one kind of storage, all bytes zero, with the settings that keep it there. Tiled kinds need more rows
// than fit one tile.
class StoredBitmap {
 public:
  StoredBitmap(const StorageKind& kind, uint32_t structSize, int32_t width, int32_t height, int32_t bits,
               int32_t order = V_OrderRgb)
      : kind_(kind), record_(structSize) {
    const uint64_t pitch = RowBytes(width, bits);
    const uint64_t size = pitch * static_cast<uint64_t>(height);
    if (kind.IsTiled()) {
      const uint64_t tile = kind.tileRows == 0 ? pitch - 1 : pitch * static_cast<uint64_t>(kind.tileRows) + 1;
      thresholds_.TileSize(static_cast<int64_t>(tile));
      thresholds_.Fifth(kind.fifth);
      if (kind.roomInTiles > 0) limit_.emplace(tile * static_cast<uint64_t>(kind.roomInTiles));
    }
    status_ = Create(width, height, bits, order, size);
  }

  int32_t Status() const { return status_; }
  Bitmap& Record() { return record_; }
  operator BITMAPHANDLE*() { return record_; }  // NOLINT: a test passes it where the interface takes a record
  BITMAPHANDLE* operator->() { return record_.get(); }
  HostStore& Host() { return host_; }
  ScopedThresholds& Thresholds() { return thresholds_; }

  // What is got after bytes were put: run-length rows do not keep what follows the last pixel.
  void DropPadding(std::vector<uint8_t>& pixels) {
    if (kind_.IsRuns()) ZeroPadding(pixels, static_cast<size_t>(record_->Width), record_->BytesPerLine);
  }

 private:
  int32_t Create(int32_t width, int32_t height, int32_t bits, int32_t order, uint64_t size) {
    if (kind_.setup == StorageKind::kMovable) {
      record_.Init(width, height, bits);
      record_->ViewPerspective = V_ViewTopLeft;
      if (bits > 8) record_->Order = order;
      record_->DataOffset = kMovableOffset;
      record_->Addr.Windows.hMemory = V_SysAllocBlock(size + kMovableOffset);
      record_->Flags |= kInMemory | V_FlagGlobal;
      return record_->Addr.Windows.hMemory != nullptr ? 1 : V_StatusNoMemory;
    }
    user_.assign(kind_.setup == StorageKind::kUser ? size : 0, 0);
    const BITMAPHANDLEDATACALLBACKS table = host_.Table();
    return V_CreateBitmapWithCallbacks(record_, record_.StructSize(), kind_.memory, width, height, bits, order, nullptr,
                                       V_ViewTopLeft, user_.empty() ? nullptr : user_.data(), user_.size(),
                                       kind_.setup == StorageKind::kHost ? &table : nullptr);
  }

  static constexpr uint64_t kMovableOffset = 24;  // bytes before the first row

  const StorageKind& kind_;
  ScopedThresholds thresholds_;
  std::optional<ScopedAccountLimit> limit_;
  std::vector<uint8_t> user_;
  HostStore host_;
  int32_t status_ = 0;
  Bitmap record_;  // last: it is freed before what holds its data
};

}  // namespace vexatest

#endif
