// Live bitmaps: the input is a sequence of calls on four records of both layouts in all kinds of storage, with hostile
// numbers but honest buffers. What the bytes of a bitmap must be is kept beside it and compared after each change.
#include <algorithm>
#include <cstring>
#include <filesystem>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "input.h"
#include "platform/fault.h"
#include "support/pixelmodel.h"
#include "vexakrn.h"

namespace {

using vexafuzz::Check;
using vexafuzz::Input;
namespace platform = vexakrn::platform;

constexpr uint64_t kLargest = 1 << 19;  // bytes of data that a bitmap may really have
constexpr uint32_t kRequests[] = {1, 1, 2, 4, 4, 8, 9, 128, 128, 256, 257, 260, 264, 265, 768, 1024, 1280, 129, 0};
constexpr int32_t kDepths[] = {1, 2, 3, 4, 5, 6, 7, 8, 12, 16, 24, 32, 48, 64};

// A host that refuses what its flags say, and otherwise leaves everything to the engine.
struct Host {
  bool refusesAccess = false, refusesRelease = false, refusesAllocation = false;
  static int32_t V_CALL Allocate(BITMAPHANDLE*, ALLOCATEBITMAPCALLBACKDATA*, void* self) {
    return static_cast<Host*>(self)->refusesAllocation ? -5001 : 1;
  }
  static int32_t V_CALL Access(BITMAPHANDLE*, void* self) {
    return static_cast<Host*>(self)->refusesAccess ? -5002 : 1;
  }
  static int32_t V_CALL Release(BITMAPHANDLE*, void* self) {
    return static_cast<Host*>(self)->refusesRelease ? -5003 : 1;
  }
  static uint64_t V_CALL Get(BITMAPHANDLE*, void*, int32_t, int32_t, uint64_t, void*) { return 0; }
  static uint64_t V_CALL Put(BITMAPHANDLE*, const void*, int32_t, int32_t, uint64_t, void*) { return 0; }

  BITMAPHANDLEDATACALLBACKS Table() {
    BITMAPHANDLEDATACALLBACKS table{};
    table.uStructSize = sizeof(table);
    table.pUserData = this;
    table.AllocateBitmapData = Allocate;
    table.AccessBitmap = Access;
    table.ReleaseBitmap = Release;
    table.GetBitmapRowCol = Get;
    table.PutBitmapRowCol = Put;
    return table;
  }
};

// A record of exactly its layout's bytes, so that a sanitizer sees what is touched beyond.
class Slot {
 public:
  Slot() { Renew(V_BITMAPHANDLE_SIZE); }
  ~Slot() { V_FreeBitmap(Get()); }
  Slot(const Slot&) = delete;

  BITMAPHANDLE* Get() { return reinterpret_cast<BITMAPHANDLE*>(record_.get()); }
  uint64_t DataSize() {
    return Get()->uStructSize == V_BITMAPHANDLE_SIZE ? uint64_t{Get()->Size64} : uint64_t{Get()->Size32};
  }
  bool IsAllocated() { return (Get()->Flags & V_FlagAllocated) != 0; }

  void Init(Input& input);
  void Create(Input& input);
  void Allocate(Input& input);
  void AttachUserData(Input& input);
  void Row(Input& input, bool put);
  void Segments(Input& input);
  void Pixel(Input& input);
  void ChangeHeight(Input& input);
  void Access(Input& input);
  void Callbacks(Input& input);
  void Palette(Input& input, Slot& other);
  void Overlay(Input& input, Slot& other);
  void Duplicate(Input& input, Slot& other);
  void Compare(Slot& other);
  void MemoryInfo();
  void Free();
  void Verify();

 private:
  void Renew(uint32_t structSize) {
    record_.reset(new uint8_t[structSize]());
    Get()->uStructSize = structSize;
    bytes_.reset();
  }
  // The whole data, when it can be read.
  std::optional<std::vector<uint8_t>> Read() {
    std::vector<uint8_t> data(DataSize());
    if (V_AccessBitmap(Get()) != 1) return std::nullopt;
    const int64_t done = V_GetBitmapRow(Get(), data.data(), 0, data.size());
    V_ReleaseBitmap(Get());
    Check(done == static_cast<int64_t>(data.size()), "the whole data can be read");
    return data;
  }

  std::unique_ptr<uint8_t[]> record_;
  std::optional<std::vector<uint8_t>> bytes_;  // what the data must be; none when there is no data to read
  std::vector<uint8_t> user_;                  // the caller's buffer of a user bitmap
  Host host_;
};

int32_t AnyDepth(Input& input) {
  return input.OneIn(12) ? input.Hostile(70) : kDepths[input.Below(std::size(kDepths))];
}
uint32_t AnyLayout(Input& input) { return input.OneIn(3) ? V_BITMAPHANDLE_OLD_SIZE : V_BITMAPHANDLE_SIZE; }
uint32_t AnyRequest(Input& input) {
  return input.OneIn(16) ? input.Number<uint16_t>() : kRequests[input.Below(std::size(kRequests))];
}

void Slot::Free() {
  V_FreeBitmap(Get());
  Check(!IsAllocated(), "a freed bitmap is not allocated");
  V_FreeBitmap(Get());
  bytes_.reset();
}

void Slot::Init(Input& input) {
  Free();
  const uint32_t layout = AnyLayout(input);
  Renew(layout);
  const BITMAPHANDLEDATACALLBACKS table = host_.Table();
  const int32_t width = input.Hostile(600), height = input.Hostile(200), bits = AnyDepth(input);
  const int32_t status =
      V_InitBitmapWithCallbacks(Get(), layout, width, height, bits, input.OneIn(5) ? &table : nullptr);
  Check(status == 1 || (DataSize() == 0 && Get()->Width == 0), "a refused record is empty");
  Check(Get()->uStructSize == (status == V_StatusMemoryTooLow ? 0 : layout) && !IsAllocated(), "a new record");
  if (status == V_StatusMemoryTooLow) Renew(layout);
}

void Slot::Create(Input& input) {
  Free();
  const uint32_t layout = AnyLayout(input), request = AnyRequest(input);
  Renew(layout);
  const int32_t width = input.Hostile(600), height = input.Hostile(200), bits = AnyDepth(input);
  const int32_t order = input.OneIn(8) ? input.Hostile(9) : static_cast<int32_t>(input.Below(3));
  const int32_t perspective = input.OneIn(8) ? input.Hostile(10) : static_cast<int32_t>(input.Below(9));
  // The size is that of an initialised record: nothing larger than the limit is really asked for.
  if (V_InitBitmap(Get(), layout, width, height, bits == 0 ? 8 : bits) == 1 && DataSize() > kLargest) return;
  const uint64_t size = DataSize();
  user_.assign(request == V_MemoryUser && !input.OneIn(8) ? size : 0, static_cast<uint8_t>(input.Byte()));
  std::vector<RGBQUAD> palette(input.OneIn(3) && bits >= 1 && bits <= 8 ? size_t{1} << bits : 0);
  for (RGBQUAD& entry : palette) entry.rgbGreen = input.Byte();
  const BITMAPHANDLEDATACALLBACKS table = host_.Table();
  const int32_t status = V_CreateBitmapWithCallbacks(
      Get(), layout, request, width, height, bits, order, palette.empty() ? nullptr : palette.data(), perspective,
      user_.empty() ? nullptr : user_.data(), input.OneIn(8) ? input.Number<uint16_t>() : user_.size(),
      input.OneIn(5) && layout == V_BITMAPHANDLE_SIZE ? &table : nullptr);
  Check((status == 1) == IsAllocated(), "a created bitmap is allocated, and only then");
  if (status == V_StatusMemoryTooLow) Renew(layout);
  if (status != 1) return;
  if (!(request & V_MemoryUser)) {
    bytes_.emplace(size, uint8_t{0});
  } else if (!user_.empty()) {
    bytes_ = user_;
  }
}

void Slot::Allocate(Input& input) {
  const uint32_t request = AnyRequest(input);
  const uint64_t size = DataSize();
  const bool pitchHolds = (static_cast<int64_t>(Get()->Width) * Get()->BitsPerPixel + 7) / 8 <= Get()->BytesPerLine;
  if (size > kLargest && pitchHolds) return;
  const bool wasAllocated = IsAllocated();
  const int32_t status = V_AllocateBitmap(Get(), request);
  if (size == 0 || !pitchHolds) {
    Check(status == V_StatusInvalidRange && IsAllocated() == wasAllocated, "nothing to allocate");
    return;
  }
  bytes_.reset();
  Check((status == 1) == IsAllocated(), "an allocation that fails leaves nothing");
  if (status == 1 && !(request & V_MemoryUser)) bytes_.emplace(size, uint8_t{0});
}

void Slot::AttachUserData(Input& input) {
  const uint64_t size = DataSize();
  if (size > kLargest) return;
  const bool isUser =
      (Get()->Flags & (V_FlagAllocated | V_FlagMirror | V_FlagGlobal)) == (V_FlagAllocated | V_FlagMirror);
  std::vector<uint8_t> buffer(size + 1, input.Byte());
  buffer.resize(size);
  uint8_t* data = input.OneIn(6) || size == 0 ? nullptr : buffer.data();
  const int32_t status = V_SetBitmapDataPointer(Get(), data, input.OneIn(4) ? input.Number<uint32_t>() : size);
  if (status != 1) return;
  user_ = std::move(buffer);  // the address stays
  bytes_.reset();
  if (isUser && data) bytes_ = user_;
}

void Slot::Row(Input& input, bool put) {
  const bool column = input.OneIn(2);
  const int32_t row = input.Hostile(Get()->Height), col = column ? input.Hostile(Get()->Width) : 0;
  const bool inside = row >= 0 && row < Get()->Height && col >= 0 && col < Get()->Width;
  const uint64_t size = bytes_ ? bytes_->size() : 0;
  const uint64_t offset = inside ? static_cast<uint64_t>(Get()->BytesPerLine) * static_cast<uint64_t>(row) +
                                       vexatest::ColumnByte(col, Get()->BitsPerPixel)
                                 : 0;
  const uint64_t left = inside && offset < size ? size - offset : 0;
  uint64_t count =
      input.OneIn(2) ? input.Below(Get()->BytesPerLine % 4096 + 2) : input.Below(static_cast<uint32_t>(left + 3));
  if (input.OneIn(10)) count = uint64_t{std::numeric_limits<int64_t>::max()} - input.Below(3);
  const uint64_t honest = std::min(count, left);  // no more can be moved
  const std::unique_ptr<uint8_t[]> buffer(new uint8_t[honest]());
  const uint8_t seed = input.Byte();
  for (uint64_t i = 0; put && i < honest; ++i) buffer[i] = static_cast<uint8_t>(seed + i * 7);
  BITMAPHANDLE* bitmap = Get();
  const int64_t done = put      ? column ? V_PutBitmapRowCol(bitmap, buffer.get(), row, col, count)
                                         : V_PutBitmapRow(bitmap, buffer.get(), row, count)
                            : column ? V_GetBitmapRowCol(bitmap, buffer.get(), row, col, count)
                                : V_GetBitmapRow(bitmap, buffer.get(), row, count);
  if (!bytes_) {
    Check(done < 0, "rows of nothing");
    return;
  }
  const bool tiled = (bitmap->Flags & V_FlagTiled) != 0;
  if (!inside || (count > left && !tiled)) {
    Check(done == V_StatusInvalidParameter, "a transfer outside");
    return;
  }
  Check(done == static_cast<int64_t>(count), "bytes moved");
  uint8_t* at = bytes_->data() + offset;
  if (put) {
    std::copy_n(buffer.get(), honest, at);
  } else {
    Check(honest == 0 || std::memcmp(buffer.get(), at, honest) == 0, "a row's contents");
  }
}

void Slot::Segments(Input& input) {
  const int32_t bits = Get()->BitsPerPixel, width = Get()->Width;
  if (width > 4096) return;
  const int32_t row = input.Hostile(Get()->Height);
  const uint32_t count = input.Below(4);
  std::vector<BITMAPROWSEGMENT> segments(count);
  std::vector<std::vector<uint8_t>> data;
  bool inside = row >= 0 && row < Get()->Height;
  for (BITMAPROWSEGMENT& segment : segments) {
    segment.column = input.Hostile(width);
    segment.pixels = input.Hostile(40);
    const int64_t end = int64_t{segment.column} + segment.pixels;
    const bool fits = segment.column >= 0 && segment.pixels >= 0 && end <= width;
    inside = inside && fits;
    data.emplace_back(fits ? (static_cast<size_t>(segment.pixels) * static_cast<size_t>(bits) + 7) / 8 : 0);
    for (uint8_t& byte : data.back()) byte = static_cast<uint8_t>(input.Byte() * 37);
    segment.data = data.back().data();
    if (segment.pixels > 0 && data.back().empty()) data.back().resize(1), segment.data = data.back().data();
  }
  const int64_t done =
      V_PutBitmapRowSegments(Get(), count ? segments.data() : nullptr, static_cast<int32_t>(count), row);
  if (!inside || count == 0) {
    Check(done < 0, "segments outside");
    return;
  }
  if (!bytes_) return;
  uint8_t* stored = bytes_->data() + static_cast<size_t>(Get()->BytesPerLine) * static_cast<size_t>(row);
  int64_t touched = 0;
  for (size_t i = 0; i < count; ++i) {
    const int32_t column = segments[i].column, pixels = segments[i].pixels;
    if (pixels == 0) continue;
    std::vector<uint8_t> padded = data[i];
    padded.resize(padded.size() + 2);  // the model reads 12-bit pixels as words
    std::vector<uint8_t> line(stored, stored + Get()->BytesPerLine);
    line.resize(line.size() + 2);
    for (int32_t x = 0; x < pixels; ++x)
      vexatest::PutPixelAt(line.data(), column + x, bits, vexatest::PixelAt(padded.data(), x, bits));
    std::copy_n(line.begin(), static_cast<size_t>(Get()->BytesPerLine), stored);
    const int64_t firstBit = int64_t{column} * bits, endBit = firstBit + int64_t{pixels} * bits;
    touched += (endBit + 7) / 8 - firstBit / 8;
  }
  Check(done == touched, "bytes touched by segments");
}

// A pixel that is written reads back, and nothing but its bytes changes.
void Slot::Pixel(Input& input) {
  const int32_t row = input.Hostile(std::max<int32_t>(Get()->Height, Get()->Width));
  const int32_t column = input.Hostile(std::max<int32_t>(Get()->Height, Get()->Width));
  const int32_t bits = Get()->BitsPerPixel;
  const uint64_t needed = bits <= 8 ? 1 : bits <= 16 ? 2 : static_cast<uint64_t>(bits) / 8;
  if (input.OneIn(2)) {
    uint32_t color = input.Number<uint32_t>(), read = 0;
    if (!input.OneIn(3)) color &= 0xFFFFFF;
    const int32_t status = V_PutPixelColor(Get(), row, column, color);
    const int32_t got = V_GetPixelColor(Get(), row, column, &read);
    Check(status != 1 || got == 1, "a pixel that can be written can be read");
    Check(got != 1 || read >> 24 == 0, "a colour that is read is plain");
  } else {
    const uint64_t room = input.OneIn(6) ? input.Below(10) : needed;
    std::vector<uint8_t> value(std::max<uint64_t>(room, 1)), read(value.size());
    for (uint8_t& byte : value) byte = input.Byte();
    const int32_t status = V_PutPixelData(Get(), value.data(), row, column, room);
    Check(status != 1 || room >= needed, "too little room");
    if (status == 1) {
      Check(V_GetPixelData(Get(), read.data(), row, column, room) == 1, "a pixel that can be written can be read");
      uint8_t differing = bits < 8 ? static_cast<uint8_t>((value[0] ^ read[0]) & ((1 << bits) - 1)) : uint8_t{0};
      for (size_t i = 0; bits >= 8 && i < needed; ++i)
        differing |= static_cast<uint8_t>((value[i] ^ read[i]) & (bits == 12 && i == 1 ? 0x0F : 0xFF));
      Check(differing == 0, "the value that was written");
    }
  }
  if (!bytes_) return;
  const auto now = Read();
  if (!now) return;
  const auto [first, unused] = std::mismatch(bytes_->begin(), bytes_->end(), now->begin());
  const auto [last, unused2] = std::mismatch(bytes_->rbegin(), bytes_->rend(), now->rbegin());
  if (first != bytes_->end()) Check(last.base() - first <= (bits + 14) / 8, "bytes of other pixels changed");
  bytes_ = now;
  if (!user_.empty() && (Get()->Flags & V_FlagMirror)) Check(user_ == *bytes_, "the caller's own buffer");
}

void Slot::ChangeHeight(Input& input) {
  const int32_t height = input.Hostile(250);
  if (height > 0 && static_cast<uint64_t>(height) * Get()->BytesPerLine > kLargest) return;
  const int32_t old = Get()->Height;
  const int32_t status = V_ChangeBitmapHeight(Get(), height);
  Check(Get()->Height == (status == 1 ? height : old), "the height");
  Check(height > 0 || status != 1, "a height that is none");
  if (bytes_ && status == 1) bytes_->resize(static_cast<size_t>(Get()->BytesPerLine) * static_cast<size_t>(height));
}

void Slot::Access(Input& input) {
  int32_t locked = 0;
  for (uint32_t i = input.Below(4); i > 0; --i) V_AccessBitmap(Get());
  V_IntAccessBitmap(Get(), input.OneIn(4) ? nullptr : &locked);
  V_IntReleaseBitmap(Get(), locked, input.Hostile(2));
  for (uint32_t i = input.Below(4); i > 0; --i) V_ReleaseBitmap(Get());
}

void Slot::Callbacks(Input& input) {
  BITMAPHANDLEDATACALLBACKS table = host_.Table(), out;
  if (input.OneIn(4)) table.uStructSize = input.Number<uint32_t>();
  const int32_t status = V_SetBitmapDataCallbacks(Get(), input.OneIn(3) ? nullptr : &table);
  Check(status == 1 || status < 0, "setting callbacks");
  Check(V_GetBitmapDataCallbacks(Get(), &out) == 1 && out.uStructSize == sizeof(out), "reading callbacks");
  const uint8_t refusals = input.Byte();
  host_ = {(refusals & 7) == 1, (refusals & 7) == 2, (refusals & 7) == 3};
}

void Slot::Palette(Input& input, Slot& other) {
  if (input.OneIn(3)) {
    V_CopyBitmapPalette(Get(), other.Get());
    return;
  }
  const uint32_t colors = input.OneIn(6) ? input.Number<uint32_t>() : input.Below(257);
  std::vector<RGBQUAD> palette(std::min<uint32_t>(colors, 256));
  for (RGBQUAD& entry : palette) entry.rgbRed = input.Byte();
  const int32_t status = V_SetBitmapNewPalette(Get(), input.OneIn(8) ? nullptr : palette.data(), colors);
  Check(status == 1 || colors > 256 || platform::HasFailed(), "a palette");
  V_FindPaletteIndex(palette.data(), static_cast<uint32_t>(palette.size()), input.Byte(), input.Byte(), input.Byte());
}

void Slot::Overlay(Input& input, Slot& other) {
  const int32_t slot = input.Hostile(16);
  BITMAPOVERLAY overlay = {24, input.Number<int32_t>(), input.Number<int32_t>(), input.Byte(), other.Get()};
  if (input.OneIn(10)) overlay.uStructSize = input.Byte();
  if (input.OneIn(10)) overlay.pBitmap = nullptr;
  switch (input.Below(3)) {
    case 0:
      V_FreeBitmapOverlay(Get(), slot);
      return;
    case 1: {
      const int32_t status = V_SetBitmapOverlay(Get(), slot, &overlay);
      Check(status != 1 || (overlay.pBitmap && other.IsAllocated() && slot >= 0 && slot < 16), "an overlay");
      return;
    }
    default: {
      overlay.uStructSize = 24;
      const int32_t status = V_GetBitmapOverlay(Get(), slot, &overlay);
      if (status != 1) return;
      BITMAPHANDLE* copy = overlay.pBitmap;
      Check(copy && (copy->Flags & V_FlagAllocated), "an overlay's own copy");
      std::vector<uint8_t> row(copy->BytesPerLine);
      V_AccessBitmap(copy);
      V_GetBitmapRow(copy, row.data(), copy->Height - 1, row.size());
      V_PutBitmapRow(copy, row.data(), 0, row.size());
      V_ReleaseBitmap(copy);
    }
  }
}

void Slot::Duplicate(Input& input, Slot& other) {
  if (&other == this) {
    Check(V_DupBitmapNewDim(Get(), Get(), Get()->uStructSize, 1, 1, 8) == V_StatusInvalidParameter, "one record twice");
    return;
  }
  Free();
  const uint32_t layout = AnyLayout(input);
  Renew(layout);
  const int32_t status =
      V_DupBitmapNewDim(Get(), other.Get(), input.OneIn(10) ? input.Byte() : layout, input.Hostile(600),
                        input.Hostile(200), input.OneIn(2) ? 0 : AnyDepth(input));
  Check(!IsAllocated(), "a duplicate is not allocated");
  if (status != 1) Renew(layout);
}

void Slot::Compare(Slot& other) {
  for (size_t room : {size_t{0}, size_t{1}, size_t{30}, size_t{3000}}) {
    const std::unique_ptr<char[]> text(new char[room]());
    const int32_t status = V_CompareBitmapHandles(Get(), other.Get(), text.get(), room);
    Check(status == 0 || status == 1 || status < 0, "a comparison");
    Check(room == 0 || std::memchr(text.get(), 0, room), "an unended text");
    Check(status != 1 || room == 0 || text[0] == 0, "a line without a difference");
  }
  Check(V_CompareBitmapHandles(Get(), Get(), nullptr, 0) != 0, "a bitmap that differs from itself");
}

void Slot::MemoryInfo() {
  uint32_t type = 0;
  int64_t tileSize = 0, viewSize = 0;
  int32_t tiles = 0, inMemory = 0;
  const int32_t status = V_GetBitmapMemoryInfo(Get(), &type, &tileSize, &tiles, &inMemory, &viewSize);
  Check(status == (IsAllocated() ? 1 : V_StatusNoImage), "information on storage");
  if (status != 1 || type != V_MemoryTiled) return;
  Check(tiles > 0 && inMemory >= 0 && inMemory <= tiles && tileSize > 0, "numbers of tiles");
  const uint64_t tile = std::max<uint64_t>(static_cast<uint64_t>(tileSize), Get()->BytesPerLine);  // one row at least
  Check(tile * static_cast<uint64_t>(tiles) >= DataSize(), "tiles hold the data");
}

void Slot::Verify() {
  if (!bytes_) return;
  Check(bytes_->size() == DataSize(), "the data size");
  if (const auto now = Read()) Check(*now == *bytes_, "the data");
}

void ChangeSettings(Input& input) {
  switch (input.Below(5)) {
    case 0:
      V_SetMemoryThresholds(0, 0, input.Below(20000), 0, 0, V_ThresholdTileSize);
      break;
    case 1:
      V_SetMemoryThresholds(0, 0, 0, 0, input.Hostile(5), V_ThresholdFifth);
      break;
    case 2:
      V_SetMemoryThresholds(0, input.Hostile(100000), 0, 0, 0, V_ThresholdMaxConventional);
      break;
    case 3:
      V_SetMemoryThresholds(input.Hostile(2), 0, 0, 0, 0, V_ThresholdReserve);
      break;
    default: {
      uint64_t used = 0;
      V_ManageMemory(V_MemoryGetUsed, 0, &used);
      V_ManageMemory(V_MemorySetLimit, input.OneIn(2) ? 0 : used + input.Below(200000), nullptr);
    }
  }
}

void ResetSettings() {
  V_SetMemoryThresholds(0, 0, 0, 0, 0, 31);
  V_ManageMemory(V_MemorySetLimit, 0, nullptr);
}

// A folder of this process's own for temporary files.
struct Directory {
  std::filesystem::path path;
  Directory() {
    for (int i = 0; path.empty(); ++i) {
      const auto candidate = std::filesystem::temp_directory_path() / ("vexakrn-fuzz-" + std::to_string(i));
      if (std::filesystem::create_directory(candidate)) path = candidate;
    }
    SetGlobalTempFileDirectory(path.string().c_str());
  }
  ~Directory() {
    std::error_code ignored;
    std::filesystem::remove(path, ignored);
  }
};

// Of these calls each may run out of memory, files or disk.
bool MayFail(uint32_t operation) { return operation <= 3 || (operation >= 13 && operation <= 20); }

void Step(Input& input, Slot& slot, Slot& other) {
  const uint32_t operation = input.Below(24);
  platform::FailCall(0, false);
  if (MayFail(operation) && input.OneIn(6)) platform::FailCall(1 + input.Below(12), input.OneIn(2));
  switch (operation) {
    case 0:
      slot.Init(input);
      break;
    case 1:
    case 2:
      slot.Create(input);
      break;
    case 3:
      slot.Allocate(input);
      break;
    case 4:
    case 5:
    case 6:
      slot.Row(input, true);
      break;
    case 7:
    case 8:
      slot.Row(input, false);
      break;
    case 9:
    case 10:
      slot.Segments(input);
      break;
    case 11:
    case 12:
      slot.Pixel(input);
      break;
    case 13:
    case 14:
      slot.ChangeHeight(input);
      break;
    case 15:
      slot.Access(input);
      break;
    case 16:
      slot.Callbacks(input);
      break;
    case 17:
      slot.Palette(input, other);
      break;
    case 18:
      slot.Overlay(input, other);
      break;
    case 19:
      slot.Duplicate(input, other);
      break;
    case 20:
      slot.Compare(other);
      break;
    case 21:
      slot.AttachUserData(input);
      break;
    case 22:
      slot.MemoryInfo();
      break;
    default:
      input.OneIn(3) ? slot.Free() : ChangeSettings(input);
  }
  platform::StopFailing();
  slot.Verify();
}

}  // namespace

extern "C" const char* __asan_default_options() { return "allocator_may_return_null=1"; }

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  static const Directory directory;
  ResetSettings();
  const platform::LiveResources before = platform::Live();
  uint64_t usedBefore = 0, usedAfter = 0;
  V_ManageMemory(V_MemoryGetUsed, 0, &usedBefore);
  {
    Slot slots[4];
    for (int step = 0; step < 200 && !input.Ended(); ++step) {
      const uint8_t which = input.Byte();
      Step(input, slots[which % 4], slots[which / 4 % 4]);
    }
    for (Slot& slot : slots) slot.Verify();
  }
  ResetSettings();
  V_ManageMemory(V_MemoryGetUsed, 0, &usedAfter);
  Check(usedAfter == usedBefore, "the memory account");
  Check(platform::Live() == before, "something was leaked");
  Check(std::filesystem::is_empty(directory.path), "a temporary file was left");
  return 0;
}
