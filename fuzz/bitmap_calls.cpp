// Live bitmaps and lists: the input is a sequence of calls on four bitmaps of both layouts in all kinds of storage and on
// two lists, with hostile numbers but honest buffers. Each call is made on a bitmap and on its twin (twin.h).
#include <limits>
#include <utility>

#include "support/tempdir.h"
#include "twin.h"

namespace {

using namespace vexafuzz;
using Bytes = std::vector<uint8_t>;

constexpr int32_t kDepths[] = {1, 8, 24, 1,  1,  2,  3,  4,
                               5, 6, 7,  12, 16, 32, 48, 64};  // first those that can be compressed
constexpr int32_t kWidest = 80000;                             // of records that may really have data

struct List {
  HBITMAPLIST of[2] = {};
  std::vector<int32_t> ids;  // the items' delays
};

struct World {
  std::vector<Bytes> userData;  // it outlives the bitmaps, which move
  Pair pairs[4];
  List lists[2];
  int32_t lastId = 0;

  World() {
    for (List& list : lists)
      for (HBITMAPLIST& side : list.of) Check(V_CreateBitmapList(&side) == 1, "a new list");
  }
  ~World() {
    for (List& list : lists)
      for (HBITMAPLIST side : list.of) Check(V_DestroyBitmapList(side) == 1, "the end of a list");
  }
};

// --- choices ---

uint32_t Layout(Input& input) { return input.OneIn(3) ? V_BITMAPHANDLE_OLD_SIZE : V_BITMAPHANDLE_SIZE; }
uint32_t Request(Input& input) {
  return input.OneIn(32) ? input.Number<uint16_t>() : kRequests[input.Below(std::size(kRequests))];
}
int32_t From1(Input& input, uint32_t limit) { return 1 + static_cast<int32_t>(input.Below(limit)); }
// What a bitmap is made with; never so large that it cannot really be held.
struct Shape {
  int32_t width, height, bits;
  Shape(Input& input, uint32_t request) {
    const uint32_t form = input.Below(16);
    const bool wide = form == 0;                                              // with runs beyond a word's limit
    const bool tall = form == 1 && (request & V_MemoryCompressed);            // of more than one block of rows
    const bool large = form < (request == V_MemorySuperCompressed ? 10 : 5);  // with several strips
    width = wide ? 65000 + From1(input, 10000) : tall ? From1(input, 32) : From1(input, large ? 700 : 80);
    height = wide ? From1(input, 9) : tall ? 32750 + From1(input, 250) : From1(input, large ? 300 : 40);
    const uint32_t depths = request == V_MemoryCompressed        ? 1
                            : request == V_MemorySuperCompressed ? 3
                                                                 : std::size(kDepths);
    bits = wide || tall ? 1 : input.OneIn(16) ? input.Hostile(70) : kDepths[input.Below(depths)];
    if (form == 2) width = input.Hostile(width), height = input.Hostile(height);
    const int64_t row = int64_t{width} * bits / 8 + 4;  // a pitch that wraps is refused
    if (width < 0 || bits < 0 || row > std::numeric_limits<uint32_t>::max() / 2) return;
    height = static_cast<int32_t>(std::min<int64_t>(height, static_cast<int64_t>(kLargest) / row));
  }
};

// Data of some kind: even, noisy, rising, in runs, periodical, or from the input.
void Fill(Input& input, Bytes& bytes) {
  const uint32_t kind = input.Below(6);
  const uint8_t seed = input.Byte();
  uint32_t state = seed + 1u, at = 0;
  for (uint8_t& byte : bytes) {
    state ^= state << 13, state ^= state >> 17, state ^= state << 5;
    const uint32_t values[] = {seed, state >> 7, seed + at * 7, at / (1u + seed) % 2 ? ~0u : 0u, at % (3u + seed % 90)};
    byte = static_cast<uint8_t>(kind == 5 ? input.Byte() : values[kind]);
    ++at;
  }
}

// Bitmaps of user memory always have a buffer of their own after the call that made them so.
void AttachUserData(Input& input, World& world, Pair& pair) {
  uint8_t first = 0;
  if (!pair.Has(V_FlagMirror)) {
    if (!pair.Has(V_FlagAllocated)) return;
    const int32_t status = V_SetBitmapDataPointer(pair.Get(), &first, pair.Bytes());
    return Check(status == V_StatusInvalidParameter, "foreign data in the engine's place");
  }
  Bytes& data = world.userData.emplace_back(pair.Bytes());
  Fill(input, data);
  Check(V_GetBitmapRow(pair.Get(), &first, 0, 1) == V_StatusNoImage, "rows of nothing");
  Check(V_SetBitmapDataPointer(pair.Get(), data.data(), data.size()) == 1, "the caller's data");
  pair.Follow();
}

// --- one bitmap ---

void Create(Input& input, World& world, Pair& pair, Pair&) {
  const uint32_t layout = Layout(input), request = Request(input);
  const Shape shape(input, request);
  const bool onlyInit = input.OneIn(6);
  const int32_t order = input.OneIn(8) ? input.Hostile(9) : static_cast<int32_t>(input.Below(3));
  const int32_t perspective = input.OneIn(8) ? input.Hostile(10) : static_cast<int32_t>(input.Below(9));
  std::vector<RGBQUAD> palette(input.OneIn(3) && shape.bits >= 1 && shape.bits <= 8 ? size_t{1} << shape.bits : 0);
  for (RGBQUAD& entry : palette) entry.rgbGreen = input.Byte();
  const int64_t status = pair.Make(layout, request, [&](Side side) {
    if (onlyInit) return V_InitBitmap(pair.Of(side), layout, shape.width, shape.height, shape.bits);
    return V_CreateBitmap(pair.Of(side), layout, side == kSubject ? request : 1u, shape.width, shape.height, shape.bits,
                          order, palette.empty() ? nullptr : palette.data(), perspective, nullptr, 0);
  });
  if (status == 1) AttachUserData(input, world, pair);
  if (!pair.Has(V_FlagAllocated) || input.OneIn(3)) return;
  Bytes data(pair.Bytes());
  Fill(input, data);
  pair.Both(Failure::kPart, [&](Side side) { return V_PutBitmapRow(pair.Of(side), data.data(), 0, data.size()); });
}

void Allocate(Input& input, World& world, Pair& pair, Pair&) {
  const uint32_t request = Request(input);
  const int32_t status = V_AllocateBitmap(pair.Get(), request);
  const bool excused = Disarm();
  Check(status == 1 || status == V_StatusInvalidRange || !pair.Has(V_FlagAllocated), "a failure leaves nothing");
  {
    const Quiet quiet;
    const bool alone = status != 1 && IsExplained(status, excused, request);
    constexpr uint32_t kInvalidRequest = 3;  // the old storage is gone all the same
    const int32_t twin = V_AllocateBitmap(pair.Of(kTwin), alone ? kInvalidRequest : uint32_t{V_MemoryConventional});
    if (!alone) CheckTwin(status, twin);
  }
  if (status == 1) AttachUserData(input, world, pair);
}

void MoveRows(Input& input, World&, Pair& pair, Pair&) {
  const bool put = input.OneIn(2), whole = input.OneIn(4), byColumn = !whole && input.OneIn(2);
  const int32_t width = pair.Get()->Width, height = pair.Get()->Height;
  const int32_t row = whole ? 0 : input.Hostile(height), column = byColumn ? input.Hostile(width) : 0;
  const bool inside = row >= 0 && row < height && column >= 0 && column < width;
  const uint64_t pitch = pair.Get()->BytesPerLine, size = pair.Has(V_FlagAllocated) ? pair.Bytes() : 0;
  const uint64_t start = static_cast<uint64_t>(column) * static_cast<uint32_t>(pair.Get()->BitsPerPixel) / 8;
  const uint64_t left = inside && size > 0 ? size - pitch * static_cast<uint64_t>(row) - start : 0;
  uint64_t count = whole ? left : input.OneIn(3) ? pitch : input.Below(static_cast<uint32_t>(left + 3));
  if (input.OneIn(24)) count = uint64_t{std::numeric_limits<int64_t>::max()} - input.Below(3);
  const uint64_t honest = std::min(count, left);  // no more can be moved
  Bytes data(honest);
  if (put) Fill(input, data);
  Bytes buffers[2] = {data, data};
  const bool endsWithTiles = inside && pair.Has(V_FlagTiled);
  const Failure failure = put && start + honest > pitch ? Failure::kPart : Failure::kUndoneUnlessRefused;
  const int64_t got = pair.Both(failure, [&](Side side) {
    BITMAPHANDLE* bitmap = pair.Of(side);
    uint8_t none = 0, *buffer = honest > 0 ? buffers[side].data() : &none;
    return Accessed(bitmap, [&]() -> int64_t {
      const uint64_t asked = side == kTwin && endsWithTiles ? honest : count;
      const int64_t moved = put        ? byColumn ? V_PutBitmapRowCol(bitmap, buffer, row, column, asked)
                                                  : V_PutBitmapRow(bitmap, buffer, row, asked)
                                   : byColumn ? V_GetBitmapRowCol(bitmap, buffer, row, column, asked)
                                       : V_GetBitmapRow(bitmap, buffer, row, asked);
      return moved == static_cast<int64_t>(asked) ? static_cast<int64_t>(count) : moved;
    });
  });
  Check(got < 0 || buffers[0] == buffers[1], "a row's contents");
}

void PutSegments(Input& input, World&, Pair& pair, Pair&) {
  const int32_t row = input.Hostile(pair.Get()->Height), width = pair.Get()->Width;
  if (width > kWidest) return;
  std::vector<BITMAPROWSEGMENT> segments(1 + input.Below(3));
  Bytes data[3];
  for (size_t i = 0; i < segments.size(); ++i) {
    const int32_t column = input.Hostile(width), pixels = input.Hostile(input.OneIn(4) ? width : 40);
    const bool fits = column >= 0 && pixels > 0 && int64_t{column} + pixels <= width;
    const uint64_t bits = fits ? static_cast<uint64_t>(pixels) * static_cast<uint32_t>(pair.Get()->BitsPerPixel) : 8;
    data[i].resize((bits + 7) / 8);
    Fill(input, data[i]);
    segments[i] = {column, pixels, input.OneIn(40) ? nullptr : data[i].data()};
  }
  pair.Both(Failure::kPart, [&](Side side) {
    return Accessed(pair.Of(side), [&] {
      return V_PutBitmapRowSegments(pair.Of(side), segments.data(), static_cast<int32_t>(segments.size()), row);
    });
  });
}

// The part of a row that is moved as a record.
struct Stretch {
  int32_t row, column;
  uint64_t pixels, rest;  // asked for; really there
  bool whole;
  Stretch(Input& input, Pair& pair) : row(input.Hostile(pair.Get()->Height)), column(0), whole(input.OneIn(2)) {
    const int32_t width = pair.Get()->Width <= kWidest ? int32_t{pair.Get()->Width} : 0;
    if (!whole) column = input.Hostile(width);
    rest = column >= 0 && column < width ? static_cast<uint64_t>(width - column) : 0;
    pixels = whole ? rest : input.Below(static_cast<uint32_t>(rest) + 3);
  }
};

// Runs that an encoder need not write like that, sometimes damaged.
Bytes AnyRecord(Input& input, uint64_t pixels) {
  std::vector<uint16_t> runs;
  const uint32_t longest = 1 + input.Below(600);
  for (uint64_t left = pixels; left > 0 && runs.size() <= pixels; left -= runs.back()) {
    const uint64_t wanted = input.Ended() || input.OneIn(20) ? 65535 : input.Below(longest);
    runs.push_back(static_cast<uint16_t>(std::min(left, wanted)));
  }
  const auto count = static_cast<uint32_t>(runs.size());
  Bytes record(4 + 2 * runs.size());
  std::memcpy(record.data(), &count, 4);
  if (count > 0) std::memcpy(record.data() + 4, runs.data(), record.size() - 4);
  if (input.OneIn(8)) record[input.Below(static_cast<uint32_t>(record.size()))] ^= input.Byte();
  return record;
}

void PutRecord(Input& input, World&, Pair& pair, Pair&) {
  const Stretch stretch(input, pair);
  Bytes record = AnyRecord(input, stretch.pixels);
  if (!stretch.whole) record.resize(std::max<uint64_t>(record.size(), V_RECORD_BYTES(stretch.pixels)));
  const uint64_t size = input.OneIn(8) ? input.Below(static_cast<uint32_t>(record.size())) : record.size();
  pair.Both(Failure::kUndoneUnlessRefused, [&](Side side) {
    BITMAPHANDLE* bitmap = pair.Of(side);
    return Accessed(bitmap, [&] {
      return stretch.whole
                 ? V_PutBitmapRowCompressed(bitmap, record.data(), stretch.row, size)
                 : V_PutBitmapRowColCompressed(bitmap, record.data(), stretch.row, stretch.column, stretch.pixels);
    });
  });
}

// Storage of records hands them out as they came: both sides are compared expanded.
void GetRecord(Input& input, World&, Pair& pair, Pair&) {
  const Stretch stretch(input, pair);
  const uint64_t most = V_RECORD_BYTES(std::min(stretch.pixels, stretch.rest));
  const uint64_t little = stretch.whole && input.OneIn(4) ? input.Below(static_cast<uint32_t>(most)) : most;
  Bytes expanded[2];
  const auto get = [&](Side side, uint64_t room) -> int64_t {
    const std::unique_ptr<uint8_t[]> record(new uint8_t[room]);
    BITMAPHANDLE* bitmap = pair.Of(side);
    const int64_t bytes = Accessed(bitmap, [&] {
      return stretch.whole
                 ? V_GetBitmapRowCompressed(bitmap, record.get(), stretch.row, room)
                 : V_GetBitmapRowColCompressed(bitmap, record.get(), stretch.row, stretch.column, stretch.pixels);
    });
    if (bytes < 0) return bytes;
    Check(static_cast<uint64_t>(bytes) <= room, "a record longer than its room");
    expanded[side].resize((stretch.pixels + 31) / 8);
    const int32_t status = V_ExpandRows(expanded[side].data(), record.get(), static_cast<uint64_t>(bytes),
                                        static_cast<int32_t>(stretch.pixels), 1);
    Check(status == 1, "a record that was got");
    return 1;
  };
  if (little < most) get(kSubject, little);
  const int64_t got = pair.Both(Failure::kUndoneUnlessRefused, [&](Side side) { return get(side, most); });
  Check(got < 0 || expanded[0] == expanded[1], "the pixels of a record");
}

void ChangeHeight(Input& input, World&, Pair& pair, Pair&) {
  const int32_t old = std::max<int32_t>(pair.Get()->Height, 1), close = From1(input, static_cast<uint32_t>(old) + 40);
  const int32_t height = input.OneIn(4) ? input.Hostile(input.OneIn(2) ? 70000 : 250) : close;
  if (height > 0 && uint64_t{pair.Get()->BytesPerLine} * static_cast<uint64_t>(height) > kLargest) return;
  if (pair.Has(V_FlagMirror)) {
    Check(V_ChangeBitmapHeight(pair.Get(), height) == V_StatusInvalidParameter, "the data of somebody else");
  } else {
    pair.Both(Failure::kNothing, [&](Side side) { return V_ChangeBitmapHeight(pair.Of(side), height); });
  }
}

void Access(Input& input, World&, Pair& pair, Pair&) {
  int32_t locked = 0;
  for (uint32_t i = input.Below(3); i > 0; --i) V_AccessBitmap(pair.Get());
  V_IntAccessBitmap(pair.Get(), input.OneIn(4) ? nullptr : &locked);
  V_IntReleaseBitmap(pair.Get(), locked, input.Hostile(2));
  if (pair.Get()->uStructSize != V_BITMAPHANDLE_SIZE) return;
  for (uint32_t i = input.Below(3); i > 0; --i) V_ReleaseBitmap(pair.Get());
}

void UseOverlay(Input& input, World&, Pair& pair, Pair& other) {
  const int32_t slot = input.Hostile(16), x = input.Number<int32_t>();
  const uint32_t kind = input.Below(3), size = input.OneIn(10) ? input.Byte() : uint32_t{sizeof(BITMAPOVERLAY)};
  BITMAPOVERLAY got[2] = {};
  const int64_t status = pair.Both(Failure::kUndoneUnlessRefused, [&](Side side) {
    if (kind == 0) return V_FreeBitmapOverlay(pair.Of(side), slot);
    if (kind == 1) return V_GetBitmapOverlay(pair.Of(side), slot, &got[side]);
    const BITMAPOVERLAY overlay = {size, x, 1, 2, other.Of(side)};
    return V_SetBitmapOverlay(pair.Of(side), slot, &overlay);
  });
  if (kind != 1 || status != 1) return;
  Check(got[kSubject].x == got[kTwin].x && got[kSubject].y == got[kTwin].y, "an overlay's place");
  CheckSame(got[kSubject].pBitmap, got[kTwin].pBitmap);
}

void MoveStorage(Input& input, World&, Pair& pair, Pair&) {
  uint32_t type = 0;
  int64_t tileSize = 0, viewSize = 0;
  int32_t tiles = 0, inMemory = 0;
  const int32_t status = V_GetBitmapMemoryInfo(pair.Get(), &type, &tileSize, &tiles, &inMemory, &viewSize);
  Check(status == (pair.Has(V_FlagAllocated) ? 1 : V_StatusNoImage), "information on storage");
  Check(type != V_MemoryTiled || (inMemory >= 0 && inMemory <= tiles && tileSize > 0), "numbers of tiles");
  const uint32_t which = input.Below(16), asked = Request(input);
  const uint32_t request = which & V_MemorySettingType ? asked : uint32_t{V_MemoryConventional};
  tileSize = input.OneIn(4) ? input.Hostile(1000) : int64_t{input.Below(9000)};
  viewSize = input.OneIn(4) ? input.Hostile(1000) : int64_t{input.Below(9000)};
  inMemory = input.Hostile(6);
  const auto set = [&](Side side) {
    const uint32_t changed = side == kSubject ? which : which & ~uint32_t{V_MemorySettingType};
    return V_SetBitmapMemoryInfo(pair.Of(side), asked, tileSize, inMemory, viewSize, changed);
  };
  // Without a file there is no place for tiles that may not be in memory.
  const bool was = std::exchange(limited, limited || (request & V_MemoryNoDisk) != 0);
  pair.Both(Failure::kNothing, set, request);
  limited = was;
}

// --- two bitmaps ---

void CopyData(Input&, World&, Pair& dst, Pair& src) {
  dst.Both(Failure::kPart, [&](Side side) { return V_CopyBitmapData(dst.Of(side), src.Of(side)); });
}

void Copy(Input& input, World&, Pair& dst, Pair& src) {
  const uint32_t kind = input.Below(4), layout = Layout(input), request = Request(input);
  const uint32_t structSize = input.OneIn(32) ? input.Byte() : layout;
  const int32_t left = input.Hostile(src.Get()->Width), width = input.Hostile(src.Get()->Width);
  const int32_t top = input.Hostile(src.Get()->Height), height = input.Hostile(src.Get()->Height);
  const Shape shape(input, request);
  const auto rectangle = [&](BITMAPHANDLE* to, Side side) {
    return V_CopyBitmapRect2(to, src.Of(side), structSize, left, top, width, height,
                             side == kSubject ? request : uint32_t{V_MemoryConventional});
  };
  if (kind == 0 || &dst == &src) {
    const bool null = input.OneIn(2);
    src.Both(
        Failure::kNothing, [&](Side side) { return rectangle(null ? nullptr : src.Of(side), side); }, request);
  } else {
    dst.Make(layout, request, [&](Side side) {
      if (kind == 1) return rectangle(dst.Of(side), side);
      if (kind == 2)
        return V_DupBitmapNewDim(dst.Of(side), src.Of(side), structSize, shape.width, shape.height, shape.bits);
      return V_CopyBitmap2(dst.Of(side), src.Of(side), structSize, side == kSubject ? request : 1u);
    });
  }
}

// --- lists ---

enum ListCall { kInsert, kRemove, kSet, kReplace, kSetShared, kDelete, kCopy, kMove, kListCalls };

void Verify(List& list) {
  uint32_t count = 0;
  Check(V_GetBitmapListCount(list.of[kSubject], &count) == 1 && count == list.ids.size(), "the number of items");
  for (uint32_t index = 0; index <= list.ids.size(); ++index) {
    BITMAPHANDLE items[2];
    for (const Side side : {kSubject, kTwin}) {
      const int32_t status = V_GetBitmapListItem(list.of[side], index, &items[side], V_BITMAPHANDLE_SIZE);
      Check(status == (index < list.ids.size() ? 1 : V_StatusInvalidParameter), "the items of a list");
    }
    if (index == list.ids.size()) return;
    Check(items[kSubject].Delay == list.ids[index], "an item's number");
    CheckSame(&items[kSubject], &items[kTwin]);
  }
}

// Takes an item's record, in either layout, and stores it again changed.
int32_t SetShared(HBITMAPLIST list, uint32_t index, int32_t id, uint32_t structSize) {
  BITMAPHANDLE shared;
  const int32_t status = V_GetBitmapListItem(list, index, &shared, structSize);
  if (status != 1) return status;
  shared.Delay = id;
  return V_SetBitmapListItem(list, index, &shared);
}

// What the call does to the numbers.
void Apply(ListCall call, List& list, List& made, uint32_t index, uint32_t count, int32_t id) {
  std::vector<int32_t>& ids = list.ids;
  if (call == kInsert) {
    ids.insert(ids.begin() + std::min<int64_t>(index, static_cast<int64_t>(ids.size())), id);
  } else if (call == kSet || call == kReplace || call == kSetShared) {
    ids[index] = id;
  } else {
    const auto first = ids.begin() + index, last = first + std::min<int64_t>(count, ids.end() - first);
    made.ids.assign(first, last);
    if (call != kCopy) ids.erase(first, last);
  }
}

void UseList(Input& input, World& world, Pair& pair, Pair&) {
  List& list = world.lists[input.Below(2)];
  const bool inserts = input.OneIn(4) || (list.ids.empty() && !input.OneIn(8));
  const auto call = inserts ? kInsert : static_cast<ListCall>(input.Below(kListCalls));
  const auto index = static_cast<uint32_t>(input.Hostile(static_cast<int32_t>(list.ids.size())));
  const int32_t some = input.OneIn(4) ? input.Hostile(8) : From1(input, 6);
  const uint32_t count = call == kRemove ? 1 : static_cast<uint32_t>(some), layout = Layout(input);
  const int32_t id = ++world.lastId;
  if (call == kInsert && list.ids.size() > 12) return;
  if (call == kRemove) pair.Free(), pair.Renew(V_BITMAPHANDLE_SIZE);
  if (call == kInsert || call == kSet || call == kReplace)
    for (const Side side : {kSubject, kTwin}) pair.Of(side)->Delay = id;
  List made;
  const auto run = [&](Side side) -> int32_t {
    BITMAPHANDLE* bitmap = pair.Of(side);
    HBITMAPLIST on = list.of[side];
    if (call == kInsert) return V_InsertBitmapListItem(on, index, bitmap);
    if (call == kRemove) return V_RemoveBitmapListItem(on, index, bitmap);
    if (call == kSet) return V_SetBitmapListItem(on, index, bitmap);
    if (call == kReplace) return V_ReplaceBitmapListItem(on, index, bitmap);
    if (call == kSetShared) return SetShared(on, index, id, layout);
    if (call == kDelete) return V_DeleteBitmapListItems(on, index, count);
    if (call == kCopy) return V_CopyBitmapListItems(&made.of[side], on, index, count);
    return V_MoveBitmapListItems(&made.of[side], on, index, count);
  };
  const int32_t got = run(kSubject);
  if (got != 1 && IsExplained(got, Disarm(), V_MemoryConventional)) return Verify(list);
  Disarm();
  {
    const Quiet quiet;
    CheckTwin(got, run(kTwin));
  }
  if (got == 1) {
    Apply(call, list, made, index, count, id);
    if (call == kInsert || call == kSet) pair.Renew(layout);
  }
  if (made.of[kSubject]) {
    std::swap(made, world.lists[&list == world.lists]);
    for (HBITMAPLIST side : made.of) Check(V_DestroyBitmapList(side) == 1, "the end of a list");
  }
  for (List& each : world.lists) Verify(each);
}

// --- settings ---

void ChangeSettings(Input& input, World&, Pair&, Pair&) {
  const uint32_t kind = input.Below(8);
  limited = limited || kind > 2;
  if (kind == 0) V_SetCpuLevel(static_cast<int32_t>(input.Below(4)));
  if (kind == 1) V_SetDefaultMemoryType(input.OneIn(2) ? V_MemoryConventional : V_MemoryDisk);
  if (kind == 2) V_SetMemoryThresholds(0, 0, input.Below(9000), 0, 0, V_ThresholdTileSize);
  if (kind == 3) V_SetMemoryThresholds(0, 0, 0, 0, input.Hostile(5), V_ThresholdFifth);
  if (kind == 4) V_SetMemoryThresholds(0, input.Hostile(100000), 0, 0, 0, V_ThresholdMaxConventional);
  if (kind == 5) V_SetMemoryThresholds(input.Hostile(2), 0, 0, 0, 0, V_ThresholdReserve);
  if (kind < 6) return;
  uint64_t used = 0;
  V_ManageMemory(V_MemoryGetUsed, 0, &used);
  V_ManageMemory(V_MemorySetLimit, input.OneIn(2) ? 0 : used + input.Below(200000), nullptr);
}

void Free(Input&, World&, Pair& pair, Pair&) { pair.Free(); }

// The frequent ones are those that build up or change much.
constexpr void (*kCalls[])(Input&, World&, Pair&, Pair&) = {
    Create,   Create,     Create,      Create,      Create,    Create,      Allocate,    MoveRows,       MoveRows,
    MoveRows, MoveRows,   PutSegments, PutSegments, PutRecord, PutRecord,   GetRecord,   ChangeHeight,   ChangeHeight,
    Access,   UseOverlay, UseOverlay,  CopyData,    CopyData,  MoveStorage, MoveStorage, MoveStorage,    Copy,
    Copy,     Copy,       UseList,     UseList,     UseList,   UseList,     UseList,     ChangeSettings, Free};

void Step(Input& input, World& world) {
  const uint8_t which = input.Byte();
  Pair &pair = world.pairs[which % 4], &other = world.pairs[which / 4 % 4];
  const auto call = kCalls[input.Below(std::size(kCalls))];
  Arm(input);
  call(input, world, pair, other);
  Disarm();
  pair.Verify();
  if (&other != &pair) other.Verify();
}

}  // namespace

extern "C" const char* __asan_default_options() { return "allocator_may_return_null=1"; }

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  static const vexatest::Folder directory;  // this process's own, for temporary files
  SetGlobalTempFileDirectory(directory.Name().c_str());
  limited = false;
  ResetSettings(3);
  const auto before = vexakrn::platform::Live();
  uint64_t usedBefore = 0, usedAfter = 0;
  V_ManageMemory(V_MemoryReserve, kLargest, nullptr);  // so that returning too much is seen
  V_ManageMemory(V_MemoryGetUsed, 0, &usedBefore);
  {
    World world;
    for (uint32_t i = input.Below(4); i > 0; --i) ChangeSettings(input, world, world.pairs[0], world.pairs[0]);
    for (int step = 0; step < 200 && !input.Ended(); ++step) Step(input, world);
  }
  ResetSettings(3);
  V_ManageMemory(V_MemoryGetUsed, 0, &usedAfter);
  V_ManageMemory(V_MemoryReturn, kLargest, nullptr);
  Check(usedAfter == usedBefore, "the memory account");
  Check(vexakrn::platform::Live() == before, "something was leaked");
  Check(directory.Names().empty(), "a temporary file was left");
  return 0;
}
