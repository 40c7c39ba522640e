// Bitmap lists: the layouts of their items, and what is done to an item through its record. Sequences of calls are held against
// a plain vector by the fuzz target, whose inputs the suite replays.
#include "support/testing.h"

namespace vexatest {
namespace {

struct ListOf {
  ListOf() { EXPECT_EQ(V_CreateBitmapList(&list), 1); }
  ~ListOf() { EXPECT_EQ(V_DestroyBitmapList(list), 1); }
  ListOf(const ListOf&) = delete;
  ListOf& operator=(const ListOf&) = delete;
  operator HBITMAPLIST() const { return list; }  // NOLINT: a test passes it where the interface takes a list
  HBITMAPLIST list = nullptr;
};

// A bitmap of 4 x 2 pixels that are its name; its storage is whoever's takes the record.
void MakeNamed(BITMAPHANDLE* bitmap, uint32_t layout, int32_t name) {
  ASSERT_EQ(V_CreateBitmap(bitmap, layout, V_MemoryConventional, 4, 2, 8, 0, nullptr, 1, nullptr, 0), 1);
  bitmap->Delay = name;
  WritePixels(bitmap, std::vector<uint8_t>(8, static_cast<uint8_t>(name)));
}

// A record that was got from the list and changed goes back: nothing of the item is freed twice, nothing is left.
TEST(List, AnItemCanBeChangedThroughItsRecord) {
  AccountBalance balance;
  static const RGBQUAD palette[2] = {};
  int32_t (*const kChanges[])(BITMAPHANDLE*) = {
      [](BITMAPHANDLE*) { return 1; },
      [](BITMAPHANDLE* b) { return V_SetBitmapNewPalette(b, palette, b->BitsPerPixel == 8 ? 2 : 0); },
      [](BITMAPHANDLE* b) { return V_SetBitmapMemoryInfo(b, V_MemorySuperCompressed, 0, 0, 0, 1); },
      [](BITMAPHANDLE* b) { return V_ChangeBitmapHeight(b, 4000); },
      [](BITMAPHANDLE* b) { return V_CopyBitmapRect(nullptr, b, kCurrentLayout, 0, 0, 60, 50); },
      [](BITMAPHANDLE* b) { return V_SetBitmapMemoryInfo(b, V_MemoryConventional, 0, 0, 0, 1); }};
  for (const int32_t bits : {8, 24}) {
    const ListOf list;
    BITMAPHANDLE record;
    V_CreateBitmap(&record, kCurrentLayout, 1, 60, 50, bits, V_OrderBgr, nullptr, 1, nullptr, 0);
    WritePixels(&record, Random(4).Bytes(record.BytesPerLine * size_t{50}));
    ASSERT_EQ(V_InsertBitmapListItem(list, 0, &record), 1);
    ASSERT_EQ(V_SetBitmapListItem(list, 0, &record), 1) << "the record that was put in";
    for (const auto change : kChanges) {
      ASSERT_EQ(V_GetBitmapListItem(list, 0, &record, kCurrentLayout), 1);
      const std::vector<uint8_t> pixels = ReadPixels(&record);
      ASSERT_EQ(change(&record), 1);
      ASSERT_EQ(V_SetBitmapListItem(list, 0, &record), 1);
      ASSERT_EQ(V_GetBitmapListItem(list, 0, &record, kCurrentLayout), 1);
      const std::vector<uint8_t> now = ReadPixels(&record);
      const size_t common = std::min(now.size(), pixels.size());
      EXPECT_TRUE(std::equal(pixels.begin(), pixels.begin() + static_cast<ptrdiff_t>(common), now.begin()));
    }
  }
}

TEST(List, ItemsChangeTheirLayout) {
  const ListOf list;
  Bitmap older(kOlderLayout);
  MakeNamed(older, kOlderLayout, 9);
  older->LUTLength16 = 0x12345678;  // private in that layout
  ASSERT_EQ(V_InsertBitmapListItem(list, 5, older), 1);
  older->Flags &= ~kStorageBits;  // the list's from here on
  older->pPalette = nullptr;
  BITMAPHANDLE item;
  ASSERT_EQ(V_GetBitmapListItem(list, 0, &item, kCurrentLayout), 1);
  EXPECT_EQ(Field(item.Size64), 8u);
  EXPECT_TRUE(item.uStructSize == kCurrentLayout && item.LUTLength16 == 0 && !item.DataCallbacks);

  // Back to the older one: neither callbacks nor a size beyond it.
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
  // What an item has beyond the older layout stays, when a record of that layout comes back.
  ASSERT_EQ(V_SetBitmapDataCallbacks(&record, &table), 1);
  ASSERT_EQ(V_SetBitmapListItem(list, 0, &record), 1);
  ASSERT_EQ(V_SetBitmapListItem(list, 0, out), 1);
  ASSERT_EQ(V_GetBitmapListItem(list, 0, &record, kCurrentLayout), 1);
  EXPECT_NE(Field(record.DataCallbacks), nullptr);
  out->Flags = 0;  // the list's
  out->pPalette = nullptr;
}

TEST(List, RefusesBadArguments) {
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
  bitmap->uStructSize = 283;
  EXPECT_EQ(V_InsertBitmapListItem(list, 0, bitmap), -789);
  bitmap->uStructSize = kCurrentLayout;
  ASSERT_EQ(V_InsertBitmapListItem(list, 0, bitmap), 1);
  EXPECT_EQ(V_GetBitmapListItem(list, 0, nullptr, kCurrentLayout), -13);
  EXPECT_EQ(V_GetBitmapListItem(list, 0, out, 285), -789);
  EXPECT_EQ(V_CopyBitmapListItems(nullptr, list, 0, 1), -13);
  EXPECT_EQ(V_MoveBitmapListItems(&made, nullptr, 0, 1), -13);
  EXPECT_EQ(made, nullptr);
  ASSERT_EQ(V_RemoveBitmapListItem(list, 0, nullptr), 1) << "without an output the storage stays the caller's";
  EXPECT_EQ(ReadPixels(bitmap), std::vector<uint8_t>(8, 1));
}

}  // namespace
}  // namespace vexatest
