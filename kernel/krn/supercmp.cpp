// Super-compressed storage: rows of 1, 8 or 24 bits, lossless, in strips that are coded one by one.
//
// A strip is as many rows as 64 KiB hold, at least one. What was never written is zero and takes no memory. One or two
// strips at a time are open: decoded in a slot, where their bytes can be changed. An open strip that was changed has no
// coded form until it is closed: when all its bytes have been written in a row, from either end, or the last of them.
// Whoever writes all rows in order codes each strip once. Two slots, so that rows can be exchanged or copied between two
// places without coding at every step.
//
// Whatever fails for lack of memory fails before anything has changed; a strip that cannot be coded stays open.
#include <algorithm>
#include <cstring>

#include "common/buffer.h"
#include "krn/changes.h"
#include "krn/lz.h"
#include "krn/storage.h"

namespace vexakrn {
namespace {

constexpr uint64_t kStripBytes = 65536;
constexpr uint64_t kNoStrip = ~uint64_t{0};

enum class Form : uint8_t { kZeros, kRaw, kChanges, kLz };

struct Strip {
  uint8_t* data;    // coded
  uint32_t size;    // of it
  uint32_t covers;  // bytes that it decodes to; those of rows that were added later are zero
  Form form;
};

struct Slot {
  uint8_t* data;  // room for OpenBytes
  uint64_t index;
  bool changed;
  uint64_t from, to;  // bytes that were written one after the other, in either direction
};

struct Store {
  uint64_t pitch;
  uint64_t stripBytes;  // of a whole one
  uint64_t bytes;       // of all rows
  uint64_t count;       // strips
  Strip* strips;
  uint64_t codedBytes;  // of all strips
  LzDistances distances;
  bool bilevel;
  Slot slots[2];
  uint32_t latest;  // the slot that was used last
};

Store* StoreOf(const BITMAPHANDLE& bitmap) noexcept { return static_cast<Store*>(bitmap.Addr.SuperCompressed.hStore); }

// Bytes of one strip in an image of `bytes` bytes; the last one may be shorter.
uint64_t BytesOf(const Store& store, uint64_t index, uint64_t bytes) noexcept {
  return std::min(store.stripBytes, bytes - index * store.stripBytes);
}
uint64_t BytesOf(const Store& store, uint64_t index) noexcept { return BytesOf(store, index, store.bytes); }

uint64_t CountFor(const Store& store, uint64_t bytes) noexcept {
  return (bytes + store.stripBytes - 1) / store.stripBytes;
}

uint64_t OpenBytes(const Store& store, uint64_t bytes) noexcept { return std::min(store.stripBytes, bytes); }

// --- coded strips ---

void DropCoded(Store& store, uint64_t index) noexcept {
  Strip& strip = store.strips[index];
  platform::Free(strip.data);
  store.codedBytes -= strip.size;
  strip = {};
}

struct Coded {
  Form form;
  uint64_t size;
};

// Raw, and nothing in `work`, where coding does not save an eighth. 1-bit rows are tried first with the coder
// that is made for them; what it does not halve is likely to be a pattern of dots, which repeats itself.
Coded Code(const Store& store, uint8_t* work, const uint8_t* bytes, uint64_t size) noexcept {
  if (store.bilevel)
    if (const uint64_t coded = EncodeChanges(work, size / 2, bytes, size, store.distances.above))
      return {Form::kChanges, coded};
  if (const uint64_t coded = LzEncode(work, size - size / 8, bytes, size, store.distances)) return {Form::kLz, coded};
  return {Form::kRaw, size};
}

// Replaces the coded form of a strip. False for lack of memory.
bool PutCoded(Store& store, uint64_t index, const uint8_t* bytes) noexcept {
  const uint64_t size = BytesOf(store, index);
  const Buffer<uint8_t> work(size);
  if (!work) return false;
  const Coded coded = Code(store, work.data(), bytes, size);
  Buffer<uint8_t> data(coded.size);
  if (!data) return false;
  std::memcpy(data.data(), coded.form == Form::kRaw ? bytes : work.data(), coded.size);
  DropCoded(store, index);
  store.codedBytes += coded.size;
  store.strips[index] = {data.Release(), static_cast<uint32_t>(coded.size), static_cast<uint32_t>(size), coded.form};
  return true;
}

bool GetCoded(const Store& store, uint64_t index, uint8_t* bytes) noexcept {
  const Strip& strip = store.strips[index];
  std::memset(bytes + strip.covers, 0, BytesOf(store, index) - strip.covers);
  switch (strip.form) {
    case Form::kChanges:
      return DecodeChanges(bytes, strip.covers, strip.data, strip.size, store.distances.above);
    case Form::kLz:
      return LzDecode(bytes, strip.covers, strip.data, strip.size, store.distances);
    case Form::kRaw:
      std::memcpy(bytes, strip.data, strip.size);
      return true;
    default:
      return true;
  }
}

// --- open strips ---

Slot* FindSlot(Store& store, uint64_t index) noexcept {
  for (Slot& slot : store.slots)
    if (slot.index == index) return &slot;
  return nullptr;
}

void Forget(Slot& slot) noexcept {
  slot.index = kNoStrip;
  slot.changed = false;
  slot.from = slot.to = 0;
}

bool Close(Store& store, Slot& slot) noexcept {
  if (slot.changed && !PutCoded(store, slot.index, slot.data)) return false;
  slot.changed = false;
  slot.from = slot.to = 0;
  return true;
}

// A slot that can be given to another strip: one that is free of charge, then a new one, then the one that was not
// used for longer. Null for lack of memory.
Slot* ChooseSlot(Store& store) noexcept {
  Slot& latest = store.slots[store.latest];
  Slot& other = store.slots[1 - store.latest];
  for (Slot* slot : {&other, &latest})
    if (slot->data && !slot->changed) return slot;
  for (Slot* slot : {&latest, &other}) {
    if (slot->data) continue;
    slot->data = AllocateArray<uint8_t>(OpenBytes(store, store.bytes));
    if (slot->data) return slot;
  }
  for (Slot* slot : {&other, &latest})
    if (slot->data && Close(store, *slot)) return slot;
  return nullptr;
}

// The slot of a strip; null for lack of memory.
Slot* Open(Store& store, uint64_t index) noexcept {
  Slot* slot = FindSlot(store, index);
  if (!slot) {
    slot = ChooseSlot(store);
    if (!slot) return nullptr;
    Forget(*slot);
    if (!GetCoded(store, index, slot->data)) return nullptr;
    slot->index = index;
  }
  store.latest = static_cast<uint32_t>(slot - store.slots);
  return slot;
}

void NoteChange(Store& store, Slot& slot) noexcept {
  if (slot.changed) return;
  slot.changed = true;
  DropCoded(store, slot.index);
}

// Extends the stretch that is being written, or begins another one. Whether it is the whole strip now.
bool NoteWritten(Slot& slot, uint64_t from, uint64_t count, uint64_t size) noexcept {
  const uint64_t to = from + count;
  const bool touches = from <= slot.to && to >= slot.from;
  slot.from = touches ? std::min(slot.from, from) : from;
  slot.to = touches ? std::max(slot.to, to) : to;
  return slot.from == 0 && slot.to == size;
}

// --- transfers ---

// A transfer's bytes in one strip.
struct Piece {
  uint64_t index;
  uint64_t from;
  uint64_t count;
};

// Calls `move` with the pieces of a transfer; stops at the first that fails.
template <typename Byte, typename Move>
int64_t Transfer(BITMAPHANDLE& bitmap, Byte* buffer, int32_t row, uint32_t offset, uint64_t count, Move move) noexcept {
  Store* store = StoreOf(bitmap);
  if (!store) return kNoImage;
  uint64_t position = store->pitch * static_cast<uint32_t>(row) + offset;
  if (!InsideRange(position, count, store->bytes)) return kInvalidParameter;
  for (uint64_t left = count; left > 0;) {
    const uint64_t index = position / store->stripBytes, from = position % store->stripBytes;
    const Piece piece = {index, from, std::min(left, BytesOf(*store, index) - from)};
    if (!move(*store, buffer, piece)) return kNoMemory;
    buffer += piece.count;
    position += piece.count;
    left -= piece.count;
  }
  return static_cast<int64_t>(count);
}

bool ReadPiece(Store& store, uint8_t* buffer, const Piece& piece) noexcept {
  const Strip& strip = store.strips[piece.index];
  const Slot* slot = FindSlot(store, piece.index);
  if (!slot) {
    if (piece.count == BytesOf(store, piece.index)) return GetCoded(store, piece.index, buffer);
    if (strip.form == Form::kZeros) {
      std::memset(buffer, 0, piece.count);
      return true;
    }
    if (strip.form == Form::kRaw && piece.from + piece.count <= strip.covers) {
      std::memcpy(buffer, strip.data + piece.from, piece.count);
      return true;
    }
    slot = Open(store, piece.index);
    if (!slot) return false;
  }
  std::memcpy(buffer, slot->data + piece.from, piece.count);
  return true;
}

bool WritePiece(Store& store, const uint8_t* buffer, const Piece& piece) noexcept {
  const uint64_t size = BytesOf(store, piece.index);
  if (piece.count == size) {  // nothing of the old strip is left: it need not be opened
    if (!PutCoded(store, piece.index, buffer)) return false;
    if (Slot* slot = FindSlot(store, piece.index)) Forget(*slot);
    return true;
  }
  Slot* slot = Open(store, piece.index);
  if (!slot) return false;
  NoteChange(store, *slot);
  std::memcpy(slot->data + piece.from, buffer, piece.count);
  const bool whole = NoteWritten(*slot, piece.from, piece.count, size);
  if (whole || piece.from + piece.count == size) Close(store, *slot);  // it stays open where memory lacks
  return true;
}

int64_t ReadSuper(BITMAPHANDLE& bitmap, uint8_t* buffer, int32_t row, uint32_t offset, uint64_t count) noexcept {
  return Transfer(bitmap, buffer, row, offset, count, ReadPiece);
}

int64_t WriteSuper(BITMAPHANDLE& bitmap, const uint8_t* buffer, int32_t row, uint32_t offset, uint64_t count) noexcept {
  return Transfer(bitmap, buffer, row, offset, count, WritePiece);
}

// --- the store ---

int32_t AllocateSuper(BITMAPHANDLE& bitmap, const AllocationContext&) noexcept {
  const uint64_t pitch = bitmap.BytesPerLine;
  if (pitch == 0) return kNoMemory;
  auto* store = AllocateZeroed<Store>(1);
  if (!store) return kNoMemory;
  store->pitch = pitch;
  store->stripBytes = std::max(kStripBytes / pitch, uint64_t{1}) * pitch;
  store->bytes = pitch * static_cast<uint32_t>(bitmap.Height);
  store->count = CountFor(*store, store->bytes);
  store->strips = AllocateZeroed<Strip>(store->count);
  if (!store->strips) {
    platform::Free(store);
    return kNoMemory;
  }
  store->distances.above = RoundUp(kChangesBlock, pitch);  // of very short rows some together
  store->distances.left = bitmap.BitsPerPixel == 24 ? 3 : 1;
  store->bilevel = bitmap.BitsPerPixel == 1;
  for (Slot& slot : store->slots) Forget(slot);
  bitmap.Addr.SuperCompressed = {store, 0};
  return kSuccess;
}

void FreeSuper(BITMAPHANDLE& bitmap) noexcept {
  Store* store = StoreOf(bitmap);
  if (!store) return;
  for (uint64_t i = 0; i < store->count; ++i) platform::Free(store->strips[i].data);
  for (const Slot& slot : store->slots) platform::Free(slot.data);
  platform::Free(store->strips);
  platform::Free(store);
  bitmap.Addr.SuperCompressed = {};
}

template <typename T>
bool Reallocate(T** block, uint64_t count) noexcept {
  void* grown = platform::System().reallocate(*block, count * sizeof(T));
  if (grown) *block = static_cast<T*>(grown);
  return grown != nullptr;
}

int32_t Grow(Store& store, uint64_t bytes) noexcept {
  const uint64_t count = CountFor(store, bytes);
  if (count > store.count && !Reallocate(&store.strips, count)) return kNoMemory;
  const uint64_t open = OpenBytes(store, bytes);
  const bool opensMore = open > OpenBytes(store, store.bytes);
  for (Slot& slot : store.slots)
    if (opensMore && slot.data && !Reallocate(&slot.data, open)) return kNoMemory;
  std::fill(store.strips + store.count, store.strips + count, Strip{});
  for (const Slot& slot : store.slots) {  // the last strip gets more rows
    if (slot.index == kNoStrip) continue;
    const uint64_t old = BytesOf(store, slot.index);
    std::memset(slot.data + old, 0, BytesOf(store, slot.index, bytes) - old);
  }
  store.count = count;
  store.bytes = bytes;
  return kSuccess;
}

int32_t Shrink(Store& store, uint64_t bytes) noexcept {
  const uint64_t count = CountFor(store, bytes);
  Slot* last = nullptr;  // the strip that is cut, when its coded form has bytes that must go
  if (bytes > 0 && BytesOf(store, count - 1, bytes) < store.strips[count - 1].covers) {
    last = Open(store, count - 1);
    if (!last) return kNoMemory;
    NoteChange(store, *last);
  }
  for (uint64_t i = count; i < store.count; ++i) DropCoded(store, i);
  for (Slot& slot : store.slots)
    if (slot.index >= count) Forget(slot);
  store.count = count;
  store.bytes = bytes;
  if (last) Close(store, *last);
  return kSuccess;
}

int32_t ResizeSuper(BITMAPHANDLE& bitmap, int32_t newHeight) noexcept {
  Store* store = StoreOf(bitmap);
  if (!store || newHeight < 0) return kInvalidParameter;
  const uint64_t bytes = store->pitch * static_cast<uint32_t>(newHeight);
  return bytes > store->bytes ? Grow(*store, bytes) : Shrink(*store, bytes);
}

uint64_t HeldBytes(const BITMAPHANDLE& bitmap) noexcept {
  const Store* store = StoreOf(bitmap);
  if (!store) return 0;
  uint64_t bytes = store->codedBytes;
  for (const Slot& slot : store->slots)
    if (slot.changed) bytes += BytesOf(*store, slot.index);
  return bytes;
}

}  // namespace

const Storage kSuperCompressedStorage = {.memoryType = V_MemorySuperCompressed,
                                         .allocate = AllocateSuper,
                                         .free = FreeSuper,
                                         .read = ReadSuper,
                                         .write = WriteSuper,
                                         .resize = ResizeSuper,
                                         .heldBytes = HeldBytes};

}  // namespace vexakrn
