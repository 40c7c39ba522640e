// Memory streams: a block that looks like a file, held against a plain model; and the blocks and names they use.
#include "vexakrn.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <limits>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "abi/child.h"
#include "support/random.h"

namespace {

using vexatest::Random;

constexpr uint64_t kStep = 32768;
constexpr int64_t kFarthest = std::numeric_limits<int64_t>::max();

// A block for a stream: heap or movable by the flags. Null for 0 bytes.
void* NewBlock(uint32_t flags, const std::vector<uint8_t>& bytes) {
  if (bytes.empty()) return nullptr;
  if (flags & V_StreamHeap) return std::memcpy(V_ReallocBuffer(nullptr, bytes.size()), bytes.data(), bytes.size());
  void* block = V_SysAllocBlock(bytes.size());
  std::memcpy(V_SysLockBlock(block), bytes.data(), bytes.size());
  V_SysUnlockBlock(block);
  return block;
}

// The first `count` bytes of a stream's block, which is freed.
std::vector<uint8_t> TakeBlock(uint32_t flags, void* block, uint64_t count) {
  std::vector<uint8_t> bytes(count);
  if (flags & V_StreamHeap) {
    if (count) std::memcpy(bytes.data(), block, count);
    V_FreeBuffer(block);
    return bytes;
  }
  if (count) {
    const void* address = V_SysLockBlock(block);
    EXPECT_NE(address, nullptr);
    if (address) std::memcpy(bytes.data(), address, count);
    EXPECT_EQ(V_SysUnlockBlock(block), 1);
    EXPECT_EQ(V_SysUnlockBlock(block), -13) << "the stream kept its block locked";
  }
  V_SysFreeBlock(block);
  return bytes;
}

// A started stream, stopped at the end of the scope.
struct Stream {
  explicit Stream(uint32_t streamFlags, const std::vector<uint8_t>& data = {}, uint64_t used = 0) : flags(streamFlags) {
    EXPECT_EQ(V_StartRedirectToBuffer(&state, &file, flags, NewBlock(flags, data), used, data.size()), 1);
    EXPECT_NE(file, -1);
  }
  ~Stream() {
    if (state) Stop();
  }
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;

  // Stops; `length` and `capacity` tell about the block whose data is returned.
  std::vector<uint8_t> Stop() {
    void* block = nullptr;
    EXPECT_EQ(V_StopRedirectToBuffer(std::exchange(state, nullptr), &block, &length, &capacity), 1);
    EXPECT_LE(length, capacity);
    EXPECT_TRUE(block != nullptr || capacity == 0);
    return TakeBlock(flags, block, length);
  }

  uint32_t flags;
  void* state = nullptr;
  intptr_t file = -1;
  uint64_t length = 0, capacity = 0;
};

// What a stream is defined to do.
struct Model {
  uint32_t flags;
  std::vector<uint8_t> data;  // the bytes of data; its size is the length
  uint64_t capacity;
  uint64_t position = 0;

  int64_t Read(std::vector<uint8_t>& out, uint64_t count) {
    if (position >= data.size()) return 0;
    count = std::min<uint64_t>(count, data.size() - position);
    std::copy_n(data.begin() + static_cast<ptrdiff_t>(position), count, out.begin());
    position += count;
    return static_cast<int64_t>(count);
  }
  int64_t Write(const std::vector<uint8_t>& in, uint64_t count) {
    if (!(flags & V_StreamWrite)) return -1;
    if (count == 0) {
      data.resize(std::min(position, capacity));
      return 0;
    }
    if (position + count > capacity && flags & V_StreamGrow) capacity = (position + count + kStep - 1) / kStep * kStep;
    if (position > capacity) return -1;
    count = std::min(count, capacity - position);
    if (position + count > data.size()) data.resize(position + count);  // bytes of a gap are zero
    std::copy_n(in.begin(), count, data.begin() + static_cast<ptrdiff_t>(position));
    position += count;
    return static_cast<int64_t>(count);
  }
  void Close() {
    const uint32_t trims = V_StreamGrow | V_StreamTrim | V_StreamWrite;
    if ((flags & trims) == trims) capacity = std::min<uint64_t>(capacity, data.size());
  }
};

class MemStream : public ::testing::Test {
 protected:
  void SetUp() override { V_RedirectIO(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr); }
  void TearDown() override {
    EXPECT_EQ(V_UsesRedirectIO(), 0) << "a stopped stream left its functions";
    SetUp();
  }
};

void RunAgainstModel(uint32_t flags, uint64_t seed) {
  SCOPED_TRACE("flags " + std::to_string(flags) + ", seed " + std::to_string(seed));
  Random random(seed);
  const std::vector<uint8_t> block = random.Bytes(random.Below(4) == 0 ? 0 : random.Below(3000));
  const uint64_t length = random.Below(block.size() + 1);
  Model model{flags, {block.begin(), block.begin() + static_cast<ptrdiff_t>(length)}, block.size()};
  Stream stream(flags, block, length);
  ASSERT_EQ(V_RedirectedSeek(stream.file, 0, 0), 0);
  for (int step = 0; step < 60; ++step) {
    const uint64_t count = random.Below(6) == 0 ? 0 : random.Below(random.Below(8) == 0 ? 70000 : 900);
    switch (random.Below(10)) {
      case 0:
      case 1:
      case 2: {
        std::vector<uint8_t> got(count + 1, 0xEE), want = got;
        ASSERT_EQ(V_RedirectedRead(stream.file, got.data(), count), model.Read(want, count)) << "step " << step;
        ASSERT_TRUE(got == want) << "step " << step;
        break;
      }
      case 3:
      case 4:
      case 5:
      case 6: {
        const std::vector<uint8_t> bytes = random.Bytes(count);
        const int64_t want = model.Write(bytes, count);
        ASSERT_EQ(V_RedirectedWrite(stream.file, bytes.data(), count), want) << "step " << step;
        ASSERT_EQ(V_GetLastRedirectError() == 0, want >= 0) << "step " << step;
        ASSERT_EQ(V_GetLastRedirectError() == -1856, !(flags & V_StreamWrite)) << "step " << step;
        break;
      }
      case 7: {
        const auto close = V_RedirectedClose(stream.file);
        model.Close();
        ASSERT_EQ(close, 0);
        stream.file = V_RedirectedOpen("any name", V_OpenRead | V_OpenWrite);
        ASSERT_NE(stream.file, -1);
        ASSERT_EQ(V_RedirectedSeek(stream.file, 0, 0), 0);
        model.position = 0;
        break;
      }
      default: {  // to a place from the start up to a little past the end
        const auto origin = static_cast<int32_t>(random.Below(3));
        const uint64_t to = random.Below(std::max<uint64_t>(model.data.size(), model.capacity) + 500);
        const uint64_t from = origin == 0 ? 0 : origin == 1 ? model.position : model.data.size();
        ASSERT_EQ(V_RedirectedSeek(stream.file, static_cast<int64_t>(to - from), origin), static_cast<int64_t>(to));
        model.position = to;
      }
    }
  }
  const std::vector<uint8_t> data = stream.Stop();
  EXPECT_EQ(stream.length, model.data.size());
  EXPECT_EQ(stream.capacity, model.capacity);
  EXPECT_TRUE(data == model.data);
}

TEST_F(MemStream, RandomOperationsFollowTheModelUnderAllFlags) {
  for (uint32_t flags : {0u, 1u, 2u, 3u, 8u, 9u, 10u, 11u})
    for (uint32_t heap : {0u, 16u})
      for (uint64_t seed = 1; seed <= 60 && !HasFatalFailure(); ++seed) RunAgainstModel(flags | heap, seed);
}

TEST_F(MemStream, TheBlockGrowsInWholeSteps) {
  for (uint32_t heap : {0u, 16u}) {
    struct Case {
      uint64_t position, count, capacity;
    };
    for (const Case& c :
         {Case{0, 100, kStep}, Case{0, kStep, kStep}, Case{0, kStep + 1, 2 * kStep}, Case{kStep, 1, 2 * kStep},
          Case{3 * kStep - 1, 1, 3 * kStep}, Case{70000, 70000, 5 * kStep}}) {
      Stream stream(V_StreamGrow | V_StreamWrite | heap);
      const std::vector<uint8_t> bytes(c.count, 0x77);
      EXPECT_EQ(V_RedirectedSeek(stream.file, static_cast<int64_t>(c.position), 0), static_cast<int64_t>(c.position));
      EXPECT_EQ(V_RedirectedWrite(stream.file, bytes.data(), c.count), static_cast<int64_t>(c.count));
      EXPECT_EQ(V_RedirectedClose(stream.file), 0);
      std::vector<uint8_t> want(c.position, 0);
      want.insert(want.end(), bytes.begin(), bytes.end());
      EXPECT_TRUE(stream.Stop() == want) << c.position << ", " << c.count;
      EXPECT_EQ(stream.capacity, c.capacity) << c.position << ", " << c.count;
    }
  }
}

TEST_F(MemStream, AZeroByteWriteCutsAndClosingTrims) {
  for (uint32_t heap : {0u, 16u})
    for (int64_t keep : {0, 1, 60, 200}) {
      Stream stream(V_StreamGrow | V_StreamTrim | V_StreamWrite | heap);
      const std::vector<uint8_t> bytes(100, 0x33);
      EXPECT_EQ(V_RedirectedWrite(stream.file, bytes.data(), 100), 100);
      EXPECT_EQ(V_RedirectedSeek(stream.file, keep, 0), keep);
      EXPECT_EQ(V_RedirectedWrite(stream.file, nullptr, 0), 0);
      EXPECT_EQ(V_RedirectedSeek(stream.file, 0, 2), keep);
      EXPECT_EQ(V_RedirectedClose(stream.file), 0);
      std::vector<uint8_t> want(static_cast<size_t>(keep), 0);
      std::fill_n(want.begin(), std::min<int64_t>(keep, 100), uint8_t{0x33});
      EXPECT_TRUE(stream.Stop() == want) << keep;
      EXPECT_EQ(stream.capacity, static_cast<uint64_t>(keep));
    }
}

TEST_F(MemStream, FarPositionsNeverReachTheBlock) {
  const std::vector<uint8_t> block = {1, 2, 3, 4, 5, 6, 7, 8};
  for (uint32_t flags : {8u, 9u, 24u, 25u}) {
    Stream stream(flags, block, 4);
    char bytes[8] = "abcdefg";
    // 2^63 - 1, then 2^64 - 2, then 2^64 - 1: with the count added, an offset that wrapped would lie in the block.
    EXPECT_EQ(V_RedirectedSeek(stream.file, kFarthest, 0), kFarthest);
    for (int64_t further : {int64_t{0}, kFarthest, int64_t{1}}) {
      V_RedirectedSeek(stream.file, further, 1);
      EXPECT_EQ(V_RedirectedRead(stream.file, bytes, 8), 0) << further;
      EXPECT_EQ(V_RedirectedWrite(stream.file, bytes, 8), -1) << further;
    }
    EXPECT_EQ(V_RedirectedSeek(stream.file, 0, 3), -1);
    EXPECT_EQ(V_RedirectedSeek(stream.file, 0, -1), -1);
    EXPECT_EQ(V_RedirectedSeek(stream.file, 3, 0), 3);
    EXPECT_EQ(V_RedirectedSeek(stream.file, 0, 7), -1);
    EXPECT_EQ(V_RedirectedSeek(stream.file, 0, 1), 3) << "a failed seek moved";
    EXPECT_EQ(V_RedirectedRead(stream.file, bytes, std::numeric_limits<uint64_t>::max()), 1);
    EXPECT_EQ(bytes[0], 4);
    EXPECT_TRUE(stream.Stop() == std::vector<uint8_t>({1, 2, 3, 4}));
    EXPECT_EQ(stream.capacity, 8u);
  }
}

TEST_F(MemStream, APositionBeforeTheStartIsNeverUsed) {
  for (uint32_t flags : {8u, 25u}) {
    Stream stream(flags, {1, 2, 3, 4, 5, 6, 7, 8}, 8);
    struct Case {
      int64_t offset;
      int32_t origin;
    };
    for (const Case& c : {Case{-1, 0}, Case{-6, 1}, Case{-9, 2}, Case{std::numeric_limits<int64_t>::min(), 0},
                          Case{std::numeric_limits<int64_t>::min(), 1}, Case{std::numeric_limits<int64_t>::min(), 2}}) {
      EXPECT_EQ(V_RedirectedSeek(stream.file, 5, 0), 5);
      EXPECT_LT(V_RedirectedSeek(stream.file, c.offset, c.origin), 0) << c.offset << ", " << c.origin;
      char byte = 0;
      const int64_t read = V_RedirectedRead(stream.file, &byte, 1);
      EXPECT_TRUE(read == 0 || (read == 1 && byte == 6)) << c.offset << ", " << c.origin;
    }
    EXPECT_TRUE(stream.Stop() == std::vector<uint8_t>({1, 2, 3, 4, 5, 6, 7, 8}));
  }
}

// Nothing fits behind the last byte of a block that cannot grow, but the data then reaches up to there.
TEST_F(MemStream, AWriteAtTheEndOfTheBlockReachesTheEnd) {
  for (uint32_t flags : {8u, 24u}) {
    Stream stream(flags, {1, 2, 3, 4, 5, 6, 7, 8}, 4);
    EXPECT_EQ(V_RedirectedSeek(stream.file, 8, 0), 8);
    EXPECT_EQ(V_RedirectedWrite(stream.file, "x", 1), 0);
    EXPECT_TRUE(stream.Stop() == std::vector<uint8_t>({1, 2, 3, 4, 0, 0, 0, 0}));
  }
}

TEST_F(MemStream, AFailedGrowthLeavesTheOldBlock) {
  for (uint32_t heap : {0u, 16u}) {
    Stream stream(V_StreamGrow | V_StreamWrite | heap, {9, 9, 9, 9, 9, 9, 9, 9}, 2);
    char bytes[4] = {1, 2, 3, 4};
    EXPECT_EQ(V_RedirectedSeek(stream.file, int64_t{1} << 60, 0), int64_t{1} << 60);
    EXPECT_EQ(V_RedirectedWrite(stream.file, bytes, 4), -1);
    EXPECT_EQ(V_RedirectedSeek(stream.file, 2, 0), 2);
    EXPECT_EQ(V_RedirectedWrite(stream.file, bytes, 4), 4);
    EXPECT_TRUE(stream.Stop() == std::vector<uint8_t>({9, 9, 1, 2, 3, 4}));
    EXPECT_EQ(stream.capacity, 8u);
  }
}

TEST_F(MemStream, EveryOperationClearsTheLastErrorFirst) {
  Stream stream(0, {1, 2, 3}, 3);
  char byte = 0;
  const auto refuse = [&] {
    EXPECT_EQ(V_RedirectedWrite(stream.file, &byte, 1), -1);
    EXPECT_EQ(V_GetLastRedirectError(), -1856);
  };
  refuse();
  EXPECT_EQ(V_RedirectedWrite(stream.file, &byte, 0), -1) << "cutting is writing";
  EXPECT_EQ(V_GetLastRedirectError(), -1856);
  EXPECT_EQ(V_RedirectedRead(stream.file, &byte, 1), 1);
  EXPECT_EQ(V_GetLastRedirectError(), 0);
  refuse();
  EXPECT_EQ(V_RedirectedSeek(stream.file, 0, 0), 0);
  EXPECT_EQ(V_GetLastRedirectError(), 0);
  refuse();
  std::thread([] { EXPECT_EQ(V_GetLastRedirectError(), 0) << "the value is another thread's"; }).join();
  EXPECT_EQ(V_RedirectedClose(stream.file), 0);
  EXPECT_EQ(V_GetLastRedirectError(), 0);
}

TEST_F(MemStream, ForeignHandlesAndStatesAreRefused) {
  Stream stream(V_StreamWrite | V_StreamGrow);
  static const uint8_t notAStream[256] = {};
  void* stopped = nullptr;
  intptr_t stoppedFile = -1;
  ASSERT_EQ(V_StartRedirectToBuffer(&stopped, &stoppedFile, 25, nullptr, 0, 0), 1);
  ASSERT_EQ(V_StopRedirectToBuffer(stopped, nullptr, nullptr, nullptr), 1);
  char bytes[4] = {};
  for (intptr_t file : {intptr_t{0}, intptr_t{-1}, intptr_t{3}, intptr_t{0x7FFFFFFF}, stoppedFile,
                        reinterpret_cast<intptr_t>(notAStream)}) {
    EXPECT_EQ(V_RedirectedRead(file, bytes, 4), -1);
    EXPECT_EQ(V_RedirectedWrite(file, bytes, 4), -1);
    EXPECT_EQ(V_RedirectedWrite(file, bytes, 0), -1);
    EXPECT_EQ(V_RedirectedSeek(file, 0, 0), -1);
    EXPECT_EQ(V_RedirectedClose(file), -1);
  }
  for (void* state : {static_cast<void*>(nullptr), reinterpret_cast<void*>(intptr_t{-1}), stopped,
                      const_cast<void*>(static_cast<const void*>(notAStream))}) {
    uint64_t length = 77;
    EXPECT_EQ(V_StopRedirectToBuffer(state, nullptr, &length, nullptr), -13);
  }
  EXPECT_EQ(V_UsesRedirectIO(), 1) << "the running stream lost its functions";
  EXPECT_EQ(V_RedirectedWrite(stream.file, "ok", 2), 2);
}

TEST_F(MemStream, AStartThatIsRefusedStartsNothing) {
  intptr_t file = 0;
  EXPECT_EQ(V_StartRedirectToBuffer(nullptr, &file, 25, nullptr, 0, 0), -13);
  void* state = nullptr;
  EXPECT_EQ(V_StartRedirectToBuffer(&state, &file, 25, nullptr, 1, 0), -13) << "data without a block";
  EXPECT_EQ(V_StartRedirectToBuffer(&state, &file, 9, nullptr, 1, 10), -13);
  EXPECT_EQ(state, nullptr);
  EXPECT_EQ(V_UsesRedirectIO(), 0);

  // Room that is promised without a block must not be written to.
  for (uint32_t flags : {8u, 9u, 24u, 25u}) {
    void* block = nullptr;
    uint64_t length = 0, capacity = 0;
    if (V_StartRedirectToBuffer(&state, &file, flags, nullptr, 0, 64) != 1) continue;
    const int64_t written = V_RedirectedWrite(file, "abcd", 4);
    EXPECT_EQ(V_StopRedirectToBuffer(state, &block, &length, &capacity), 1);
    EXPECT_EQ(length, written > 0 ? 4u : 0u);
    EXPECT_EQ(block == nullptr, capacity == 0) << flags;
    TakeBlock(flags, block, length);
  }
}

TEST_F(MemStream, CapacityIsTheLargerOfLengthAndRoom) {
  for (uint64_t capacity : {0u, 5u, 8u}) {
    void* state = nullptr;
    uint64_t length = 0, room = 0;
    void* block = NewBlock(V_StreamHeap, std::vector<uint8_t>(8, 1));
    void* out = nullptr;
    ASSERT_EQ(V_StartRedirectToBuffer(&state, nullptr, V_StreamHeap, block, 5, capacity), 1);
    ASSERT_EQ(V_StopRedirectToBuffer(state, &out, &length, &room), 1);
    EXPECT_EQ(out, block) << "a stream that was only read keeps its block";
    EXPECT_EQ(length, 5u);
    EXPECT_EQ(room, std::max<uint64_t>(5, capacity));
    V_FreeBuffer(out);
  }
}

TEST_F(MemStream, StreamsNestAndHideWhatWasThereBefore) {
  vexatest::Folder folder;
  const std::string path = folder / "real";
  const intptr_t real = V_RedirectedOpen(path.c_str(), V_OpenWrite | V_OpenCreate);
  ASSERT_NE(real, -1);
  Stream outer(25);
  EXPECT_EQ(V_RedirectedWrite(outer.file, "outer", 5), 5);
  {
    Stream inner(9);
    EXPECT_NE(inner.file, outer.file);
    EXPECT_EQ(V_RedirectedWrite(inner.file, "in", 2), 2);
    EXPECT_EQ(V_RedirectedWrite(outer.file, "+1", 2), 2) << "the outer stream lives on";
    const intptr_t again = V_RedirectedOpen("x", V_OpenRead | V_OpenWrite);
    EXPECT_EQ(V_RedirectedSeek(again, 0, 2), 2) << "an open goes to the innermost stream";
    EXPECT_EQ(V_RedirectedClose(again), 0);
    EXPECT_EQ(inner.Stop(), std::vector<uint8_t>({'i', 'n'}));
  }
  EXPECT_EQ(V_UsesRedirectIO(), 1);
  EXPECT_EQ(V_RedirectedWrite(outer.file, "+2", 2), 2);
  const std::vector<uint8_t> data = outer.Stop();
  EXPECT_EQ(std::string(data.begin(), data.end()), "outer+1+2");
  EXPECT_EQ(V_UsesRedirectIO(), 0);
  EXPECT_EQ(V_RedirectedWrite(real, "file", 4), 4);
  EXPECT_EQ(V_RedirectedClose(real), 0);
  EXPECT_EQ(vexatest::ReadAll(path), "file");
}

// Three streams stopped in every order: each gives its own data, and at the end nothing is redirected any more.
TEST_F(MemStream, StopsOutOfOrderLeaveNoDeadFunctions) {
  std::vector<int> order = {0, 1, 2};
  do {
    std::vector<std::unique_ptr<Stream>> streams;
    for (int i = 0; i < 3; ++i) streams.push_back(std::make_unique<Stream>(i % 2 ? 9u : 25u));
    for (size_t stopped = 0; stopped < 3; ++stopped) {
      for (size_t i = stopped; i < 3; ++i) {
        const auto which = static_cast<size_t>(order[i]);
        const auto digit = static_cast<char>('0' + order[i]);
        // What is in force may be any live stream's functions, or the system's: then the handle is unknown there.
        const int64_t written = V_RedirectedWrite(streams[which]->file, &digit, 1);
        EXPECT_EQ(written, V_UsesRedirectIO() ? 1 : -1);
      }
      Stream& stream = *streams[static_cast<size_t>(order[stopped])];
      const auto digit = static_cast<uint8_t>('0' + order[stopped]);
      for (uint8_t byte : stream.Stop()) EXPECT_EQ(byte, digit);
    }
    EXPECT_EQ(V_UsesRedirectIO(), 0) << "order " << order[0] << order[1] << order[2];
    V_RedirectIO(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
  } while (std::next_permutation(order.begin(), order.end()));
}

TEST_F(MemStream, AHostsTableComesBackAfterAStream) {
  REDIRECTFUNCTIONS before = {}, after = {};
  before.uStructSize = after.uStructSize = sizeof(before);
  before.open = reinterpret_cast<REDIRECTOPEN>(intptr_t{0x1000});
  before.readData = &before;
  before.close = reinterpret_cast<REDIRECTCLOSE>(intptr_t{0x2000});
  ASSERT_EQ(V_SetRedirectFunctions(&before), 1);
  { Stream stream(25); }
  ASSERT_EQ(V_GetRedirectFunctions(&after), 1);
  EXPECT_EQ(std::memcmp(&before, &after, sizeof(before)), 0);
  V_RedirectIO(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
}

// --- pseudo names and blocks --------------------------------------------------------------------------------------

TEST_F(MemStream, TablesThatOutliveTheirStreamOpenNothing) {
  void* outer = nullptr;
  ASSERT_EQ(V_StartRedirectToBuffer(&outer, nullptr, V_StreamHeap, nullptr, 0, 0), 1);
  REDIRECTFUNCTIONS kept;
  ASSERT_EQ(V_GetRedirectFunctions(&kept), 1);
  REDIRECTFUNCTIONS host = kept;
  host.open = [](const char*, uint32_t, void*) -> intptr_t { return 77; };
  host.openData = nullptr;
  ASSERT_EQ(V_UpdateRedirectFunctions(&host, 1), 1);  // a host's own open above the outer stream, below the inner one
  void* inner = nullptr;
  ASSERT_EQ(V_StartRedirectToBuffer(&inner, nullptr, V_StreamHeap, nullptr, 0, 0), 1);
  ASSERT_EQ(V_StopRedirectToBuffer(outer, nullptr, nullptr, nullptr), 1);
  const intptr_t file = V_RedirectedOpen("x", V_OpenRead);
  EXPECT_EQ(file, reinterpret_cast<intptr_t>(inner));
  ASSERT_EQ(V_StopRedirectToBuffer(inner, nullptr, nullptr, nullptr), 1);
  EXPECT_EQ(V_RedirectedOpen("x", V_OpenRead), 77);
  char byte = 0;
  EXPECT_EQ(V_RedirectedRead(file, &byte, 1), -1);

  ASSERT_EQ(V_SetRedirectFunctions(&kept), 1);
  EXPECT_EQ(V_RedirectedOpen("x", V_OpenRead), -1);
  EXPECT_EQ(V_RedirectedRead(file, &byte, 1), -1);
  EXPECT_EQ(V_RedirectIO(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr), 1);
}

TEST_F(MemStream, AnyNameOpensTheStreamPseudoNamesIncluded) {
  char text[] = "in memory";
  void* block = V_ReallocBuffer(nullptr, sizeof(text));
  std::memcpy(block, text, sizeof(text));
  void* state = nullptr;
  ASSERT_EQ(V_StartRedirectToBuffer(&state, nullptr, V_StreamHeap, block, sizeof(text), 0), 1);
  char pseudo[64];
  ASSERT_EQ(V_MakeRedirectName(pseudo, sizeof(pseudo)), 1);
  for (const char* name : {"no such file", static_cast<const char*>(pseudo)}) {
    const intptr_t file = V_RedirectedOpen(name, V_OpenRead);
    char read[sizeof(text)] = {};
    EXPECT_EQ(V_RedirectedRead(file, read, sizeof(read)), static_cast<int64_t>(sizeof(read))) << name;
    EXPECT_STREQ(read, text) << name;
    EXPECT_EQ(V_RedirectedClose(file), 0);
  }
  EXPECT_EQ(V_StopRedirectToBuffer(state, &block, nullptr, nullptr), 1);
  V_FreeBuffer(block);
}

TEST(RedirectName, HasItsFormAndIsRecognised) {
  char name[64];
  std::memset(name, 'x', sizeof(name));
  EXPECT_EQ(V_MakeRedirectName(name, 49), -290);
  EXPECT_EQ(V_MakeRedirectName(nullptr, 64), -814);
  ASSERT_EQ(V_MakeRedirectName(name, 50), 1);
  const std::string text = name;
  ASSERT_EQ(text.size(), 15u + 8 + 1 + 8);
  EXPECT_EQ(text.substr(0, 15), "VEXARedirect://");
  EXPECT_EQ(text.substr(15).find_first_not_of("0123456789ABCDEF-"), std::string::npos) << text;
  EXPECT_EQ(text[23], '-');
  char next[50];
  ASSERT_EQ(V_MakeRedirectName(next, 50), 1);
  EXPECT_EQ(std::stoull(text.substr(15, 8) + text.substr(24), nullptr, 16) + 1,
            std::stoull(std::string(next).substr(15, 8) + std::string(next).substr(24), nullptr, 16));
  EXPECT_EQ(V_IsRedirectName(name), 1);
  EXPECT_EQ(V_IsRedirectName("VEXARedirect://"), 1);
  for (const char* other : {"VEXARedirect:/", "vexaredirect://00000000-00000001", "/VEXARedirect://", ""})
    EXPECT_EQ(V_IsRedirectName(other), 0) << other;
  EXPECT_EQ(V_IsRedirectName(nullptr), 0);
}

TEST(RedirectName, NoTwoThreadsGetTheSame) {
  constexpr size_t kThreads = 4, kNames = 5000;
  std::vector<std::vector<std::string>> names(kThreads);
  std::vector<std::thread> threads;
  for (size_t t = 0; t < kThreads; ++t)
    threads.emplace_back([&names, t] {
      char name[50];
      for (size_t i = 0; i < kNames; ++i) {
        V_MakeRedirectName(name, sizeof(name));
        names[t].push_back(name);
      }
    });
  for (std::thread& thread : threads) thread.join();
  std::set<std::string> all;
  for (const auto& some : names) all.insert(some.begin(), some.end());
  EXPECT_EQ(all.size(), kThreads * kNames);
}

TEST(Blocks, KeepTheirContentsWhenTheyChangeSize) {
  auto* bytes = static_cast<uint8_t*>(V_ReallocBuffer(nullptr, 100));
  ASSERT_NE(bytes, nullptr);
  for (uint8_t i = 0; i < 100; ++i) bytes[i] = i;
  bytes = static_cast<uint8_t*>(V_ReallocBuffer(bytes, 1 << 20));
  ASSERT_NE(bytes, nullptr);
  for (uint8_t i = 0; i < 100; ++i) EXPECT_EQ(bytes[i], i);
  EXPECT_EQ(V_ReallocBuffer(bytes, uint64_t{1} << 62), nullptr);
  EXPECT_EQ(bytes[99], 99) << "a failed change freed the block";
  EXPECT_EQ(V_ReallocBuffer(bytes, 0), nullptr);
  EXPECT_EQ(V_ReallocBuffer(nullptr, 0), nullptr);
  V_FreeBuffer(nullptr);

  void* block = V_SysAllocBlock(1000);
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(V_SysUnlockBlock(block), -13);
  auto* address = static_cast<uint8_t*>(V_SysLockBlock(block));
  ASSERT_NE(address, nullptr);
  EXPECT_EQ(std::count(address, address + 1000, 0), 1000);
  EXPECT_EQ(V_SysLockBlock(block), address);
  EXPECT_EQ(V_SysUnlockBlock(block), 1);
  EXPECT_EQ(V_SysUnlockBlock(block), 1);
  EXPECT_EQ(V_SysUnlockBlock(block), -13);
  EXPECT_EQ(V_SysUnlockBlock(nullptr), -814);
  V_SysFreeBlock(block);
  V_SysFreeBlock(nullptr);
  EXPECT_EQ(V_SysAllocBlock(uint64_t{1} << 62), nullptr);
}

}  // namespace
