// Memory streams: a block that looks like a file, and the names they use. Random operations against a model are the fuzz
// target's business, whose inputs the suite replays.
#include "vexakrn.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <memory>
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

class MemStream : public ::testing::Test {
 protected:
  void SetUp() override { V_RedirectIO(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr); }
  void TearDown() override {
    EXPECT_EQ(V_UsesRedirectIO(), 0) << "a stopped stream left its functions";
    SetUp();
  }
};

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

// Nothing fits behind the last byte of a block that cannot grow, but the data then reaches up to there.
TEST_F(MemStream, AWriteAtTheEndOfTheBlockReachesTheEnd) {
  for (uint32_t flags : {8u, 24u}) {
    Stream stream(flags, {1, 2, 3, 4, 5, 6, 7, 8}, 4);
    EXPECT_EQ(V_RedirectedSeek(stream.file, 8, 0), 8);
    EXPECT_EQ(V_RedirectedWrite(stream.file, "x", 1), 0);
    EXPECT_TRUE(stream.Stop() == std::vector<uint8_t>({1, 2, 3, 4, 0, 0, 0, 0}));
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

}  // namespace
