// Bitmap lists: a count and an array of records.
//
// The array's capacity lies in a word before it. It grows by half and shrinks when three quarters are empty, so that
// many insertions or removals in a row cost a constant time each.
#include <algorithm>
#include <atomic>
#include <cstring>

#include "common/buffer.h"
#include "common/record.h"
#include "krn/callbacks.h"
#include "vexakrn/copy.h"
#include "vexakrn/list.h"
#include "vexakrn/memory.h"

struct VexaBitmapList {
  uint32_t count;
  BITMAPHANDLE* items;  // null for an empty list
};

namespace vexakrn {
namespace {

// --- the array ---

constexpr uint64_t kCapacityBytes = 16;  // keeps the items where the allocator would align them

uint8_t* BlockOf(BITMAPHANDLE* items) noexcept {
  return items ? reinterpret_cast<uint8_t*>(items) - kCapacityBytes : nullptr;
}

uint64_t CapacityOf(BITMAPHANDLE* items) noexcept {
  uint64_t capacity = 0;
  if (items) std::memcpy(&capacity, BlockOf(items), sizeof capacity);
  return capacity;
}

bool SetCapacity(VexaBitmapList& list, uint64_t capacity) noexcept {
  const uint64_t bytes = kCapacityBytes + capacity * sizeof(BITMAPHANDLE);
  const platform::Calls& system = platform::System();
  auto* block =
      static_cast<uint8_t*>(list.items ? system.reallocate(BlockOf(list.items), bytes) : system.allocate(bytes));
  if (!block) return false;
  std::memcpy(block, &capacity, sizeof capacity);
  list.items = reinterpret_cast<BITMAPHANDLE*>(block + kCapacityBytes);
  return true;
}

bool MakeRoomForOne(VexaBitmapList& list) noexcept {
  const uint64_t capacity = CapacityOf(list.items);
  return list.count < capacity || SetCapacity(list, capacity + capacity / 2 + 1);
}

// Takes items out of the array, without freeing what they own. A larger array than needed is no failure.
void CloseGap(VexaBitmapList& list, uint32_t index, uint32_t count) noexcept {
  BITMAPHANDLE* at = list.items + index;
  std::memmove(static_cast<void*>(at), at + count, uint64_t{list.count - index - count} * sizeof *at);
  list.count -= count;
  if (list.count == 0) {
    platform::Free(BlockOf(list.items));
    list.items = nullptr;
  } else if (list.count <= CapacityOf(list.items) / 4) {
    SetCapacity(list, list.count * uint64_t{2});
  }
}

// --- checks ---

int32_t CheckList(const VexaBitmapList* list) noexcept {
  if (!list) return kInvalidParameter;
  if (list->count == 0) return kSuccess;
  if (!list->items) return kNullPointer;
  return list->items->uStructSize == V_BITMAPHANDLE_SIZE ? kSuccess : kInvalidStructSize;
}

// For what needs an item: its number is judged before the layout of the list.
int32_t CheckItem(const VexaBitmapList* list, uint32_t index) noexcept {
  if (!list || index >= list->count) return kInvalidParameter;
  return CheckList(list);
}

uint32_t ItemsFrom(const VexaBitmapList& list, uint32_t index, uint32_t most) noexcept {
  return std::min(list.count - index, most);
}

// --- records ---

// A caller's record in the layout of the items.
BITMAPHANDLE Widened(const BITMAPHANDLE& bitmap) noexcept {
  BITMAPHANDLE item{};
  std::memcpy(&item, &bitmap, bitmap.uStructSize);
  if (IsOldLayout(bitmap)) {
    item.LUTLength16 = 0;  // a private word of that layout
    item.Size64 = item.Size32;
  }
  item.uStructSize = V_BITMAPHANDLE_SIZE;
  return item;
}

// Gives an item that comes back in the older layout what that has no place for.
void KeepTail(BITMAPHANDLE& item, const BITMAPHANDLE& slot) noexcept {
  item.LUTLength16 = slot.LUTLength16;
  item.pLUT16 = slot.pLUT16;
  item.nLockCount = slot.nLockCount;
  item.DataCallbacks = slot.DataCallbacks;
}

// Puts a widened record into its place as a new item.
void Place(BITMAPHANDLE& slot, const BITMAPHANDLE& item, uint64_t number) noexcept {
  slot = item;
  SetItemNumber(slot, number);
}

// Whether its callbacks are needed to reach and free the data.
bool IsKeptByHost(const BITMAPHANDLE& item) noexcept {
  return HasFlag(item, V_FlagMirror) && !HasFlag(item, V_FlagConventionalMemory);
}

int32_t CheckFits(const BITMAPHANDLE& item, uint32_t structSize) noexcept {
  BITMAPHANDLE probe{};
  probe.uStructSize = structSize;
  return SetDataSize(probe, DataSize(item));
}

// Writes an item into a caller's record. The older layout has no place for callbacks: the item loses them.
void Narrow(BITMAPHANDLE& item, BITMAPHANDLE* out, uint32_t structSize) noexcept {
  if (structSize != V_BITMAPHANDLE_SIZE) {
    if (HasFlag(item, V_FlagAllocated)) FreeDataCallbacks(item);
    SetDataSize(item, DataSize(item));
  }
  std::memcpy(out, &item, structSize);
  out->uStructSize = structSize;
  if (IsOldLayout(*out)) out->LUTLength16 = 0;
}

// An item carries a number of its own, in the record's private bytes; copies of its record carry it too. So one that
// comes back changed is known, whatever was changed.
uint64_t NewItemNumber() noexcept {
  static std::atomic<uint64_t> last{0};
  return last.fetch_add(1, std::memory_order_relaxed) + 1;
}

bool IsSameItem(const BITMAPHANDLE& a, const BITMAPHANDLE& b) noexcept {
  const uint64_t number = ItemNumber(a);
  if (number != 0 && number == ItemNumber(b)) return true;
  // The record that was put in, before it got the number.
  const auto shares = [](const void* mine, const void* others) { return mine && mine == others; };
  const bool sharesData = !HasFlag(a, V_FlagMirror) && (shares(a.Addr.Windows.hMemory, b.Addr.Windows.hMemory) ||
                                                        shares(a.Addr.Windows.pData, b.Addr.Windows.pData));
  return sharesData || shares(a.pPalette, b.pPalette) || shares(a.DataCallbacks, b.DataCallbacks);
}

// A new list in `*made`, filled by `fill`; nothing is left of it after a failure.
template <typename Fill>
int32_t MakeList(HBITMAPLIST* made, Fill fill) noexcept {
  HBITMAPLIST list = nullptr;
  V_TRY(V_CreateBitmapList(&list));
  const int32_t status = fill(*list);
  if (status == kSuccess) {
    *made = list;
  } else {
    V_DestroyBitmapList(list);
  }
  return status;
}

}  // namespace
}  // namespace vexakrn

using namespace vexakrn;

int32_t V_CALL V_CreateBitmapList(HBITMAPLIST* list) noexcept {
  if (!list) return kInvalidParameter;
  auto* made = AllocateZeroed<VexaBitmapList>(1);
  if (!made) return kNoMemory;
  *list = made;
  return kSuccess;
}

int32_t V_CALL V_DestroyBitmapList(HBITMAPLIST list) noexcept {
  V_TRY(CheckList(list));
  if (list->count > 0) V_TRY(V_DeleteBitmapListItems(list, 0, V_LIST_END));
  platform::Free(BlockOf(list->items));
  platform::Free(list);
  return kSuccess;
}

int32_t V_CALL V_GetBitmapListCount(HBITMAPLIST list, uint32_t* count) noexcept {
  if (!list || !count) return kInvalidParameter;
  *count = list->count;
  return kSuccess;
}

int32_t V_CALL V_InsertBitmapListItem(HBITMAPLIST list, uint32_t index, BITMAPHANDLE* bitmap) noexcept {
  V_TRY(CheckList(list));
  V_TRY(CheckRecord(bitmap));
  const BITMAPHANDLE item = Widened(*bitmap);
  if (list->count == V_LIST_END || !MakeRoomForOne(*list)) return kNoMemory;
  BITMAPHANDLE* at = list->items + std::min(index, list->count);
  std::memmove(static_cast<void*>(at + 1), at, static_cast<uint64_t>(list->items + list->count - at) * sizeof *at);
  Place(*at, item, NewItemNumber());
  ++list->count;
  return kSuccess;
}

int32_t V_CALL V_RemoveBitmapListItem(HBITMAPLIST list, uint32_t index, BITMAPHANDLE* bitmapOut) noexcept {
  V_TRY(CheckItem(list, index));
  if (bitmapOut) Place(*bitmapOut, list->items[index], 0);
  CloseGap(*list, index, 1);
  return kSuccess;
}

int32_t V_CALL V_GetBitmapListItem(HBITMAPLIST list, uint32_t index, BITMAPHANDLE* bitmapOut,
                                   uint32_t structSize) noexcept {
  if (!bitmapOut) return kInvalidParameter;
  V_TRY(CheckItem(list, index));
  if (!IsStructSize(structSize)) return kInvalidStructSize;
  V_TRY(CheckFits(list->items[index], structSize));
  Narrow(list->items[index], bitmapOut, structSize);
  return kSuccess;
}

int32_t V_CALL V_SetBitmapListItem(HBITMAPLIST list, uint32_t index, BITMAPHANDLE* bitmap) noexcept {
  V_TRY(CheckItem(list, index));
  V_TRY(CheckRecord(bitmap));
  BITMAPHANDLE item = Widened(*bitmap);
  BITMAPHANDLE& slot = list->items[index];
  const bool same = IsSameItem(slot, item);
  if (!same) {
    V_FreeBitmap(&slot);
  } else if (IsOldLayout(*bitmap)) {
    KeepTail(item, slot);
  }
  Place(slot, item, same ? ItemNumber(slot) : NewItemNumber());
  return kSuccess;
}

int32_t V_CALL V_ReplaceBitmapListItem(HBITMAPLIST list, uint32_t index, BITMAPHANDLE* bitmap) noexcept {
  V_TRY(CheckItem(list, index));
  V_TRY(CheckRecord(bitmap));
  const uint32_t structSize = bitmap->uStructSize;
  BITMAPHANDLE& slot = list->items[index];
  V_TRY(CheckFits(slot, structSize));
  if (structSize != V_BITMAPHANDLE_SIZE && IsKeptByHost(slot)) return kInvalidStructSize;
  const BITMAPHANDLE item = Widened(*bitmap);
  if (structSize != V_BITMAPHANDLE_SIZE) {  // what has no place there
    V_FreeBuffer(slot.pLUT16);
    FreeDataCallbacks(slot);
  }
  SetItemNumber(slot, 0);
  Narrow(slot, bitmap, structSize);
  Place(slot, item, NewItemNumber());
  return kSuccess;
}

int32_t V_CALL V_DeleteBitmapListItems(HBITMAPLIST list, uint32_t index, uint32_t count) noexcept {
  if (count == 0) return kInvalidParameter;
  V_TRY(CheckItem(list, index));
  const uint32_t number = ItemsFrom(*list, index, count);
  for (uint32_t i = index; i < index + number; ++i) V_FreeBitmap(&list->items[i]);
  CloseGap(*list, index, number);
  return kSuccess;
}

int32_t V_CALL V_CopyBitmapListItems(HBITMAPLIST* newList, HBITMAPLIST list, uint32_t index, uint32_t count) noexcept {
  if (!newList || count == 0) return kInvalidParameter;
  V_TRY(CheckItem(list, index));
  return MakeList(newList, [&](VexaBitmapList& made) noexcept -> int32_t {
    const uint32_t number = ItemsFrom(*list, index, count);
    if (!SetCapacity(made, number)) return kNoMemory;
    for (uint32_t i = 0; i < number; ++i) {
      V_TRY(V_CopyBitmap(&made.items[i], &list->items[index + i], V_BITMAPHANDLE_SIZE));
      made.count = i + 1;
    }
    return kSuccess;
  });
}

int32_t V_CALL V_MoveBitmapListItems(HBITMAPLIST* newList, HBITMAPLIST list, uint32_t index, uint32_t count) noexcept {
  if (!newList || count == 0) return kInvalidParameter;
  V_TRY(CheckItem(list, index));
  return MakeList(newList, [&](VexaBitmapList& made) noexcept -> int32_t {
    const uint32_t number = ItemsFrom(*list, index, count);
    if (!SetCapacity(made, number)) return kNoMemory;
    std::memcpy(static_cast<void*>(made.items), list->items + index, number * sizeof(BITMAPHANDLE));
    made.count = number;
    CloseGap(*list, index, number);
    return kSuccess;
  });
}
