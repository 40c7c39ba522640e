// Bitmap lists against a plain vector of what was put in.
#include <gtest/gtest.h>

#include <algorithm>

#include "support/bitmap.h"
#include "support/random.h"
#include "support/settings.h"
#include "vexakrn.h"

namespace vexatest {
namespace {

// A list, and the Delay of its items, which names them.
class ListOf {
 public:
  ListOf() { EXPECT_EQ(V_CreateBitmapList(&list_), 1); }
  explicit ListOf(HBITMAPLIST list) : list_(list) {}
  ~ListOf() { EXPECT_EQ(V_DestroyBitmapList(list_), 1); }
  ListOf(const ListOf&) = delete;
  ListOf& operator=(const ListOf&) = delete;
  operator HBITMAPLIST() const { return list_; }  // NOLINT: a test passes it where the interface takes a list

  std::vector<int32_t> Names() const {
    uint32_t count = 0;
    EXPECT_EQ(V_GetBitmapListCount(list_, &count), 1);
    std::vector<int32_t> names(count);
    for (uint32_t i = 0; i < count; ++i) {
      BITMAPHANDLE item;
      EXPECT_EQ(V_GetBitmapListItem(list_, i, &item, kCurrentLayout), 1);
      names[i] = item.Delay;
      EXPECT_EQ(ReadPixels(&item), std::vector<uint8_t>(8, static_cast<uint8_t>(item.Delay)));
    }
    return names;
  }

 private:
  HBITMAPLIST list_ = nullptr;
};

// A bitmap of 4 x 2 pixels that are its name; its storage is whoever's takes the record.
void MakeNamed(BITMAPHANDLE* bitmap, uint32_t layout, int32_t name) {
  ASSERT_EQ(V_CreateBitmap(bitmap, layout, V_MemoryConventional, 4, 2, 8, 0, nullptr, 1, nullptr, 0), 1);
  bitmap->Delay = name;
  WritePixels(bitmap, std::vector<uint8_t>(8, static_cast<uint8_t>(name)));
}

// Random calls: the list's names must be those of the vector, and every byte must come back to the account.
TEST(List, BehavesLikeAVector) {
  AccountBalance balance;
  Random random(7);
  ListOf list;
  std::vector<int32_t> names;
  for (int step = 0; step < 1500; ++step) {
    const auto size = static_cast<uint32_t>(names.size());
    const uint32_t index = random.Coin() && size > 0 ? static_cast<uint32_t>(random.Below(size)) : size + 3;
    const uint32_t count = random.Coin() ? static_cast<uint32_t>(1 + random.Below(4)) : V_LIST_END;
    const bool inside = index < size;
    const uint32_t number = inside ? std::min(count, size - index) : 0;
    const auto at = names.begin() + (inside ? index : size);
    const uint32_t layout = random.Coin() ? kCurrentLayout : kOlderLayout;
    switch (random.Below(size > 60 ? 8 : 14)) {
      case 0:
      case 1: {
        Bitmap out;
        ASSERT_EQ(V_RemoveBitmapListItem(list, index, out), inside ? 1 : -13);
        if (!inside) break;
        ASSERT_EQ(out->Delay, *at);
        names.erase(at);
        break;
      }
      case 2:
        if (count == V_LIST_END) break;
        ASSERT_EQ(V_DeleteBitmapListItems(list, index, count), inside ? 1 : -13);
        names.erase(at, at + number);
        break;
      case 3:
      case 4: {
        HBITMAPLIST made = nullptr;
        const bool copies = random.Coin();
        ASSERT_EQ((copies ? V_CopyBitmapListItems : V_MoveBitmapListItems)(&made, list, index, count),
                  inside ? 1 : -13);
        if (!inside) break;
        const ListOf other(made);
        ASSERT_EQ(other.Names(), std::vector<int32_t>(at, at + number));
        if (!copies) names.erase(at, at + number);
        break;
      }
      case 5:
      case 6: {
        Bitmap bitmap(layout);
        MakeNamed(bitmap, layout, step);
        const int32_t status = V_ReplaceBitmapListItem(list, index, bitmap);
        ASSERT_EQ(status, inside ? 1 : -13);
        ASSERT_EQ(Field(bitmap->uStructSize), layout);
        if (!inside) break;
        ASSERT_EQ(std::exchange(*at, step), bitmap->Delay);
        break;
      }
      case 7: {
        BITMAPHANDLE record;
        MakeNamed(&record, layout, step);
        ASSERT_EQ(V_SetBitmapListItem(list, index, &record), inside ? 1 : -13);
        if (inside) *at = step;
        if (!inside) V_FreeBitmap(&record);
        break;
      }
      default: {
        BITMAPHANDLE record;
        MakeNamed(&record, layout, step);
        ASSERT_EQ(V_InsertBitmapListItem(list, inside ? index : V_LIST_END, &record), 1);
        names.insert(at, step);
      }
    }
    if (step % 50 != 0) continue;
    ASSERT_EQ(list.Names(), names) << "step " << step;
  }
  EXPECT_EQ(list.Names(), names);
}

TEST(List, ItemsFromTheOlderLayoutAreWidened) {
  Bitmap older(kOlderLayout);
  MakeNamed(older, kOlderLayout, 9);
  older->LUTLength16 = 0x12345678;  // private in that layout
  const ListOf list;
  ASSERT_EQ(V_InsertBitmapListItem(list, 5, older), 1);
  older->Flags &= ~kStorageBits;  // the list's from here on
  older->pPalette = nullptr;
  BITMAPHANDLE item;
  ASSERT_EQ(V_GetBitmapListItem(list, 0, &item, kCurrentLayout), 1);
  EXPECT_EQ(Field(item.uStructSize), kCurrentLayout);
  EXPECT_EQ(Field(item.Size64), 8u);
  EXPECT_EQ(Field(item.LUTLength16), 0u);
  const auto* tail = reinterpret_cast<const uint8_t*>(&item);
  EXPECT_EQ(std::count(tail + 260, tail + 284, 0), 24);
}

int32_t Change(BITMAPHANDLE* record, int change) {
  const RGBQUAD palette[2] = {};
  switch (change) {
    case 1:
      return V_SetBitmapNewPalette(record, palette, record->BitsPerPixel == 8 ? 2 : 0);
    case 2:
      return V_SetBitmapMemoryInfo(record, V_MemorySuperCompressed, 0, 0, 0, 1);
    case 3:
      return V_ChangeBitmapHeight(record, 4000);
    case 4:
      return V_CopyBitmapRect(nullptr, record, kCurrentLayout, 0, 0, 60, 50);
    case 5:
      return V_SetBitmapMemoryInfo(record, V_MemoryConventional, 0, 0, 0, 1);
    default:
      return 1;
  }
}

// A record that was got from the list and changed goes back: nothing of the item is freed twice, nothing is left.
TEST(List, AnItemCanBeChangedThroughItsRecord) {
  AccountBalance balance;
  for (const int32_t bits : {8, 24}) {
    const ListOf list;
    BITMAPHANDLE record;
    V_CreateBitmap(&record, kCurrentLayout, 1, 60, 50, bits, V_OrderBgr, nullptr, 1, nullptr, 0);
    WritePixels(&record, Random(4).Bytes(record.BytesPerLine * size_t{50}));
    ASSERT_EQ(V_InsertBitmapListItem(list, 0, &record), 1);
    ASSERT_EQ(V_SetBitmapListItem(list, 0, &record), 1) << "the record that was put in";
    for (int change = 0; change < 6; ++change) {
      ASSERT_EQ(V_GetBitmapListItem(list, 0, &record, kCurrentLayout), 1);
      const std::vector<uint8_t> pixels = ReadPixels(&record);
      record.XResolution = 70 + change;
      ASSERT_EQ(Change(&record, change), 1);
      ASSERT_EQ(V_SetBitmapListItem(list, 0, &record), 1);
      ASSERT_EQ(V_GetBitmapListItem(list, 0, &record, kCurrentLayout), 1);
      EXPECT_EQ(Field(record.XResolution), 70 + change);
      const std::vector<uint8_t> now = ReadPixels(&record);
      EXPECT_TRUE(std::equal(now.begin(), now.begin() + static_cast<ptrdiff_t>(std::min(now.size(), pixels.size())),
                             pixels.begin()));
    }
  }
}

TEST(List, TheOlderLayoutCannotCarryCallbacks) {
  const ListOf list;
  BITMAPHANDLE record;
  MakeNamed(&record, kCurrentLayout, 3);
  BITMAPHANDLEDATACALLBACKS table{};
  table.uStructSize = sizeof table;
  ASSERT_EQ(V_SetBitmapDataCallbacks(&record, &table), 1);
  record.Size64 += uint64_t{1} << 32;
  ASSERT_EQ(V_InsertBitmapListItem(list, 0, &record), 1);
  Bitmap out(kOlderLayout);
  EXPECT_EQ(V_GetBitmapListItem(list, 0, out, kOlderLayout), -3) << "too large for it";
  ASSERT_EQ(V_GetBitmapListItem(list, 0, &record, kCurrentLayout), 1);
  EXPECT_NE(Field(record.DataCallbacks), nullptr);
  record.Size64 = 8;
  ASSERT_EQ(V_SetBitmapListItem(list, 0, &record), 1);
  ASSERT_EQ(V_GetBitmapListItem(list, 0, out, kOlderLayout), 1);
  EXPECT_EQ(ReadPixels(out), std::vector<uint8_t>(8, 3));
  ASSERT_EQ(V_GetBitmapListItem(list, 0, &record, kCurrentLayout), 1);
  EXPECT_EQ(Field(record.DataCallbacks), nullptr);
  out->Flags = 0;  // the list's
  out->pPalette = nullptr;
}

TEST(List, RefusesBadArguments) {
  AccountBalance balance;
  const ListOf list;
  HBITMAPLIST made = nullptr;
  Bitmap bitmap, out;
  uint32_t count = 0;
  MakeNamed(bitmap, kCurrentLayout, 1);
  EXPECT_EQ(V_CreateBitmapList(nullptr), -13);
  EXPECT_EQ(V_DestroyBitmapList(nullptr), -13);
  EXPECT_EQ(V_GetBitmapListCount(list, nullptr), -13);
  EXPECT_EQ(V_GetBitmapListCount(nullptr, &count), -13);
  EXPECT_EQ(V_InsertBitmapListItem(nullptr, 0, bitmap), -13);
  EXPECT_EQ(V_InsertBitmapListItem(list, 0, nullptr), -13);
  EXPECT_EQ(V_RemoveBitmapListItem(list, 0, out), -13) << "an empty list";
  EXPECT_EQ(V_DeleteBitmapListItems(list, 0, V_LIST_END), -13);
  bitmap->uStructSize = 283;
  EXPECT_EQ(V_InsertBitmapListItem(list, 0, bitmap), -789);
  bitmap->uStructSize = kCurrentLayout;
  ASSERT_EQ(V_InsertBitmapListItem(list, 0, bitmap), 1);
  EXPECT_EQ(V_GetBitmapListItem(list, 0, nullptr, kCurrentLayout), -13);
  EXPECT_EQ(V_GetBitmapListItem(list, 0, out, 285), -789);
  EXPECT_EQ(V_GetBitmapListItem(list, 1, out, kCurrentLayout), -13);
  EXPECT_EQ(V_DeleteBitmapListItems(list, 0, 0), -13);
  EXPECT_EQ(V_CopyBitmapListItems(&made, list, 0, 0), -13);
  EXPECT_EQ(V_CopyBitmapListItems(nullptr, list, 0, 1), -13);
  EXPECT_EQ(V_MoveBitmapListItems(&made, list, 1, 1), -13);
  EXPECT_EQ(V_MoveBitmapListItems(&made, nullptr, 0, 1), -13);
  EXPECT_EQ(made, nullptr);
  ASSERT_EQ(V_RemoveBitmapListItem(list, 0, nullptr), 1) << "without an output the storage stays the caller's";
  EXPECT_EQ(ReadPixels(bitmap), std::vector<uint8_t>(8, 1));
}

}  // namespace
}  // namespace vexatest
