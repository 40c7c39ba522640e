// The platform layer by itself, and the fault injection that stands in front of it. The same cases run on every system.
#include "platform/platform.h"

#include "platform/fault.h"
#include "support/testing.h"

namespace vexakrn::platform {
namespace {

using vexatest::Random;
using vexatest::TempDirectory;

constexpr uint64_t kMegabyte = 1u << 20;

bool IsZero(const uint8_t* data, uint64_t bytes) {
  return std::all_of(data, data + bytes, [](uint8_t byte) { return byte == 0; });
}

// Opens, writes or reads, closes; the error of the opening.
int32_t WriteTo(const std::string& path, uint32_t mode, const std::string& text) {
  File file = kNoFile;
  uint64_t done = 0;
  if (const int32_t error = System().openFile(path.c_str(), mode, &file); error != 0) return error;
  EXPECT_EQ(System().writeFile(file, text.data(), text.size(), &done), 0);
  EXPECT_EQ(done, text.size());
  return System().closeFile(file);
}

int32_t ReadFrom(const std::string& path, std::string* text) {
  File file = kNoFile;
  uint64_t done = 0;
  text->assign(1000, '\0');
  if (const int32_t error = System().openFile(path.c_str(), kOpenRead, &file); error != 0) return error;
  EXPECT_EQ(System().readFile(file, text->data(), text->size(), &done), 0);
  text->resize(done);
  return System().closeFile(file);
}

struct ScratchFile {
  ScratchFile(const std::string& path, uint64_t bytes)
      : error(System().createScratchFile(path.c_str(), bytes, &file)) {}
  ~ScratchFile() { CloseScratchFile(file); }
  ScratchFile(const ScratchFile&) = delete;
  ScratchFile& operator=(const ScratchFile&) = delete;

  std::vector<uint8_t> Read(uint64_t offset, uint64_t bytes) {
    std::vector<uint8_t> data(bytes);
    EXPECT_EQ(System().readAt(file, data.data(), bytes, offset), 0);
    return data;
  }

  File file = kNoFile;
  int32_t error;
};

// Every case must leave no resource behind.
class PlatformTest : public testing::Test {
 protected:
  void SetUp() override { live_ = Live(); }
  void TearDown() override {
    StopFailing();
    EXPECT_EQ(Live(), live_);
  }

 private:
  LiveResources live_{};
};

using PlatformFiles = PlatformTest;

TEST_F(PlatformFiles, LiveUnderAnyUnicodeNameAndLongPath) {
  const TempDirectory folder;
  const std::string deep = folder / std::string(100, 'd');
  std::filesystem::create_directory(vexatest::FromUtf8(deep));
  for (const std::string& path :
       {folder / "plain.bin", folder / "Gr\xC3\xBC\xC3\x9F \xE6\x97\xA5\xE6\x9C\xAC \xF0\x9F\x98\x80.bin",
        deep + "/" + std::string(180, 'x') + ".bin"}) {
    SCOPED_TRACE(path);
    std::string text;
    EXPECT_FALSE(PathExists(path.c_str()));
    EXPECT_TRUE(IsNotFound(ReadFrom(path, &text)));
    EXPECT_EQ(WriteTo(path, kOpenCreate, "first"), 0);
    EXPECT_TRUE(PathExists(path.c_str()) && std::filesystem::exists(vexatest::FromUtf8(path)));
    EXPECT_NE(WriteTo(path, kOpenCreate | kOpenExclusive, "second"), 0);
    EXPECT_EQ(ReadFrom(path, &text), 0);
    EXPECT_EQ(text, "first") << "an exclusive open must leave the file alone";
    EXPECT_EQ(WriteTo(path, kOpenCreate, "2"), 0);
    EXPECT_EQ(ReadFrom(path, &text), 0);
    EXPECT_EQ(text, "2") << "creating must cut the old contents";
    EXPECT_EQ(System().deleteFile(path.c_str()), 0);
    EXPECT_FALSE(PathExists(path.c_str()));
    EXPECT_TRUE(IsNotFound(System().deleteFile(path.c_str())));
  }
#ifdef _WIN32
  const std::string malformed = folder / "x" + "\xC3(";
  EXPECT_NE(WriteTo(malformed, kOpenCreate, ""), 0);
  EXPECT_NE(ScratchFile(malformed, 10).error, 0);
  EXPECT_FALSE(PathExists(malformed.c_str()));
#endif
}

using PlatformScratch = PlatformTest;

TEST_F(PlatformScratch, NobodyElseSeesItAndItGoesWithItsHandle) {
  const TempDirectory folder;
  const std::string path = folder / "\xC3\xA4.scratch";
  std::string text;
  {
    ScratchFile scratch(path, 100000);
    ASSERT_EQ(scratch.error, 0);
    EXPECT_NE(ReadFrom(path, &text), 0);
    EXPECT_TRUE(IsZero(scratch.Read(0, 100000).data(), 100000));
  }
  EXPECT_TRUE(folder.Names().empty());
  EXPECT_EQ(WriteTo(path, kOpenCreate, "mine"), 0);
  { ScratchFile scratch(path, 10); }
  EXPECT_EQ(ReadFrom(path, &text), 0);
  EXPECT_EQ(text, "mine") << "a file of that name must not be touched";
  EXPECT_NE(ScratchFile(folder / "missing/file", 10).error, 0);
}

TEST_F(PlatformScratch, ResizingKeepsContentsAndZeroesGrowth) {
  const TempDirectory folder;
  ScratchFile scratch(folder / "file", 70000);
  ASSERT_EQ(scratch.error, 0);
  Random random(0xF11E);
  const std::vector<uint8_t> data = random.Bytes(70000);
  ASSERT_EQ(System().writeAt(scratch.file, data.data(), data.size(), 0), 0);
  ASSERT_EQ(System().resizeScratchFile(scratch.file, 70000, 12345), 0);
  uint8_t byte = 0;
  EXPECT_NE(System().readAt(scratch.file, &byte, 1, 12345), 0) << "past the end";
  EXPECT_NE(System().readAt(scratch.file, &byte, 1, UINT64_MAX), 0);
  EXPECT_NE(System().readAt(scratch.file, &byte, UINT64_MAX, 1), 0);
  ASSERT_EQ(System().resizeScratchFile(scratch.file, 12345, 3 * kMegabyte), 0);
  const std::vector<uint8_t> grown = scratch.Read(0, 3 * kMegabyte);
  EXPECT_TRUE(std::equal(data.begin(), data.begin() + 12345, grown.begin()));
  EXPECT_TRUE(IsZero(grown.data() + 12345, grown.size() - 12345));
}

TEST_F(PlatformScratch, ViewsAndTransfersSeeTheSameBytes) {
  const TempDirectory folder;
  constexpr uint64_t kBytes = 3 * kViewGranularity + 1000;
  ScratchFile scratch(folder / "file", kBytes);
  ASSERT_EQ(scratch.error, 0);
  void* fileMapping = nullptr;
  ASSERT_EQ(System().createFileMapping(scratch.file, kBytes, &fileMapping), 0);
  ASSERT_NE(fileMapping, nullptr);
  uint8_t *first = nullptr, *last = nullptr;
  ASSERT_EQ(System().mapView(fileMapping, 0, 2 * kViewGranularity, &first), 0);
  ASSERT_EQ(System().mapView(fileMapping, 3 * kViewGranularity, 1000, &last), 0);
  EXPECT_TRUE(IsZero(first, 2 * kViewGranularity));
  std::memset(last, 7, 1000);
  EXPECT_EQ(scratch.Read(3 * kViewGranularity + 999, 1), std::vector<uint8_t>{7});
  ASSERT_EQ(System().writeAt(scratch.file, "x", 1, kViewGranularity), 0);
  EXPECT_EQ(first[kViewGranularity], 'x');
  UnmapView(first, 2 * kViewGranularity);
  UnmapView(last, 1000);
  CloseFileMapping(fileMapping);
  EXPECT_EQ(scratch.Read(kBytes - 1, 1), std::vector<uint8_t>{7}) << "an unmapped view must not be lost";
  EXPECT_EQ(System().resizeScratchFile(scratch.file, kBytes, 10), 0) << "nothing may hold on to the file";
}

using PlatformMemory = PlatformTest;

TEST_F(PlatformMemory, AnonymousBlocksKeepTheirContentsAndGrowByZeros) {
  Random random(0xB10C);
  for (const uint64_t start : {uint64_t{1}, uint64_t{5000}, 9 * kMegabyte + 3}) {
    SCOPED_TRACE(start);
    Mapping mapping;
    ASSERT_EQ(System().mapAnonymous(start, &mapping), 0);
    ASSERT_NE(mapping.handle, nullptr);
    ASSERT_TRUE(IsZero(mapping.address, start));
    std::vector<uint8_t> want = random.Bytes(start);
    std::memcpy(mapping.address, want.data(), start);
    uint64_t bytes = start;
    for (const uint64_t next : {start + 100, start / 2 + 1, start / 2 + 2, 3 * start + 70000, uint64_t{1}}) {
      ASSERT_EQ(System().remapAnonymous(&mapping, bytes, next), 0);
      want.resize(next, 0);
      ASSERT_EQ(std::memcmp(mapping.address, want.data(), next), 0) << bytes << " to " << next;
      bytes = next;
    }
    Mapping same = mapping;
    EXPECT_NE(System().remapAnonymous(&same, bytes, uint64_t{1} << 62), 0);
    EXPECT_EQ(same.handle, mapping.handle);
    EXPECT_EQ(mapping.address[0], want[0]) << "a failed resize must leave the block";
    UnmapAnonymous(mapping, bytes);
  }
  Mapping none;
  EXPECT_NE(System().mapAnonymous(uint64_t{1} << 62, &none), 0);
  EXPECT_EQ(none.address, nullptr);
}

std::atomic<int> destroyed{0};
void CountDestroyed(void* value) { destroyed += *static_cast<int*>(value); }

TEST(PlatformThreads, EachHasItsValueUntilItEnds) {
  static int values[] = {1, 10, 100, 1000};
  destroyed = 0;
  std::atomic<int> started{0};
  std::vector<std::thread> threads;
  for (int& value : values) {
    threads.emplace_back([&value, &started] {
      EXPECT_EQ(ThreadValue(), nullptr);
      EXPECT_TRUE(SetThreadValue(&values[0], CountDestroyed));
      EXPECT_TRUE(SetThreadValue(&value, CountDestroyed));
      ++started;
      while (started != 4) std::this_thread::yield();
      EXPECT_EQ(ThreadValue(), &value);
      if (value == 1000) SetThreadValue(nullptr, CountDestroyed);
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(destroyed, 111) << "values in force at the end, and those only, are destroyed once";
}

using FaultInjection = PlatformTest;

TEST_F(FaultInjection, FailsTheCallsItWasToldTo) {
  uint64_t ticks = 0;
  const auto failures = [&ticks] {
    std::string pattern;
    for (int i = 0; i < 5; ++i) pattern += System().milliseconds(&ticks) == 0 ? '.' : 'x';
    return pattern;
  };
  FailCall(3, false);
  EXPECT_EQ(failures(), "..x..");
  EXPECT_TRUE(HasFailed());
  EXPECT_EQ(StopFailing(), 5u);
  FailCall(4, true);
  EXPECT_FALSE(HasFailed());
  EXPECT_EQ(failures(), "...xx");
  EXPECT_EQ(StopFailing(), 5u);
  EXPECT_EQ(failures(), ".....");
  EXPECT_FALSE(IsAccessDenied(kInjectedError) || IsNotFound(kInjectedError));
}

}  // namespace
}  // namespace vexakrn::platform
