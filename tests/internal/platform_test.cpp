// The platform layer by itself, and the fault injection that stands in front of it. The same cases run on every system.
#include "platform/platform.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "platform/fault.h"
#include "support/random.h"
#include "support/tempdir.h"

#ifndef _WIN32
#include <sys/resource.h>
#endif

namespace vexakrn::platform {
namespace {

using vexatest::Random;
using vexatest::TempDirectory;

constexpr uint64_t kMegabyte = 1u << 20;

bool IsZero(const uint8_t* data, uint64_t bytes) {
  return std::all_of(data, data + bytes, [](uint8_t byte) { return byte == 0; });
}

std::filesystem::path PathOf(const std::string& utf8) { return std::u8string(utf8.begin(), utf8.end()); }

// A file open for the length of a scope; `error` is that of the opening.
struct OpenedFile {
  OpenedFile(const std::string& path, uint32_t mode) : error(System().openFile(path.c_str(), mode, &file)) {}
  ~OpenedFile() { EXPECT_EQ(error == 0 ? System().closeFile(file) : 0, 0); }
  OpenedFile(const OpenedFile&) = delete;
  OpenedFile& operator=(const OpenedFile&) = delete;

  std::string Read(uint64_t bytes) {
    std::string text(bytes, '\0');
    uint64_t done = 0;
    EXPECT_EQ(System().readFile(file, text.data(), bytes, &done), 0);
    text.resize(done);
    return text;
  }
  void Write(const std::string& text) {
    uint64_t done = 0;
    EXPECT_EQ(System().writeFile(file, text.data(), text.size(), &done), 0);
    EXPECT_EQ(done, text.size());
  }
  int64_t Seek(int64_t offset, int32_t origin) {  // -1: refused
    int64_t position = -1;
    const int32_t refused = System().seekFile(file, offset, origin, &position);
    EXPECT_EQ(refused != 0, position == -1);
    return position;
  }

  File file = kNoFile;
  int32_t error;
};

std::string Contents(const std::string& path) {
  OpenedFile file(path, kOpenRead);
  EXPECT_EQ(file.error, 0) << path;
  return file.error == 0 ? file.Read(1000) : "";
}

void Create(const std::string& path, const std::string& text) {
  OpenedFile file(path, kOpenCreate);
  ASSERT_EQ(file.error, 0) << path;
  file.Write(text);
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
  const std::string deep = folder.File(std::string(100, 'd'));
  std::filesystem::create_directory(PathOf(deep));
  const std::string names[] = {
      folder.File("plain.bin"),
      folder.File("Gr\xC3\xBC\xC3\x9F"
                  "e \xE6\x97\xA5\xE6\x9C\xAC \xF0\x9F\x98\x80.bin"),
      deep + "/" + std::string(180, 'x') + ".bin",
  };
  for (const std::string& path : names) {
    SCOPED_TRACE(path);
    EXPECT_FALSE(PathExists(path.c_str()));
    File none = kNoFile;
    EXPECT_TRUE(IsNotFound(System().openFile(path.c_str(), kOpenRead, &none)));
    EXPECT_EQ(none, kNoFile);
    Create(path, "first");
    EXPECT_TRUE(PathExists(path.c_str()));
    EXPECT_TRUE(std::filesystem::exists(PathOf(path)));
    EXPECT_EQ(Contents(path), "first");
    EXPECT_NE(OpenedFile(path, kOpenCreate | kOpenExclusive).error, 0);
    EXPECT_EQ(Contents(path), "first") << "an exclusive open must leave the file alone";
    Create(path, "2");
    EXPECT_EQ(Contents(path), "2") << "creating must cut the old contents";
    EXPECT_EQ(System().deleteFile(path.c_str()), 0);
    EXPECT_FALSE(PathExists(path.c_str()));
    EXPECT_TRUE(IsNotFound(System().deleteFile(path.c_str())));
  }
#ifdef _WIN32
  const std::string malformed = folder.File("x") + "\xC3(";
  EXPECT_NE(OpenedFile(malformed, kOpenCreate).error, 0);
  EXPECT_NE(ScratchFile(malformed, 10).error, 0);
  EXPECT_FALSE(PathExists(malformed.c_str()));
#endif
}

TEST_F(PlatformFiles, KeepToTheirModes) {
  const TempDirectory folder;
  const std::string path = folder.File("file");
  EXPECT_NE(OpenedFile(path, kOpenWrite).error, 0) << "writing alone creates nothing";
  EXPECT_NE(OpenedFile(path, 0).error, 0);
  Create(path, "0123456789");
  {
    OpenedFile file(path, kOpenRead | kOpenWrite);
    EXPECT_EQ(file.Read(3), "012");
    file.Write("abc");
    EXPECT_EQ(file.Read(100), "6789") << "one position for reading and writing";
    EXPECT_EQ(file.Read(100), "");
  }
  EXPECT_EQ(Contents(path), "012abc6789");

  uint64_t done = 7;
  char byte = 0;
  OpenedFile reader(path, kOpenRead), writer(path, kOpenWrite);
  ASSERT_EQ(writer.error, 0) << "a reader must not stand in a writer's way";
  EXPECT_NE(System().writeFile(reader.file, "x", 1, &done), 0);
  EXPECT_NE(System().readFile(writer.file, &byte, 1, &done), 0);
  EXPECT_EQ(Contents(path), "012abc6789") << "what is being written can be read";
}

TEST_F(PlatformFiles, SeekFromThreeOriginsAndNeverBeforeTheStart) {
  const TempDirectory folder;
  const std::string path = folder.File("file");
  Create(path, "0123456789");
  OpenedFile file(path, kOpenRead);
  EXPECT_EQ(file.Seek(4, 0), 4);
  EXPECT_EQ(file.Seek(-1, 1), 3);
  EXPECT_EQ(file.Read(1), "3");
  EXPECT_EQ(file.Seek(-2, 2), 8);
  EXPECT_EQ(file.Seek(-1, 0), -1);
  EXPECT_EQ(file.Seek(-9, 1), -1);
  EXPECT_EQ(file.Seek(-11, 2), -1);
  EXPECT_EQ(file.Seek(INT64_MAX, 1), -1) << "the sum leaves 64 bits";
  EXPECT_EQ(file.Seek(0, 3), -1);
  EXPECT_EQ(file.Seek(0, -1), -1);
  EXPECT_EQ(file.Seek(0, 1), 8) << "a refused seek must not move";
  EXPECT_EQ(file.Seek(int64_t{5} << 32, 0), int64_t{5} << 32);
  EXPECT_EQ(file.Read(1), "");
}

TEST_F(PlatformFiles, AreNeverFolders) {
  const TempDirectory folder;
  for (const uint32_t mode :
       {uint32_t{kOpenRead}, uint32_t{kOpenWrite}, uint32_t{kOpenCreate}, uint32_t{kOpenCreate | kOpenExclusive}}) {
    EXPECT_NE(OpenedFile(folder.Utf8(), mode).error, 0) << mode;
  }
  const int32_t error = System().deleteFile(folder.Utf8().c_str());
  EXPECT_NE(error, 0);
  EXPECT_FALSE(IsAccessDenied(error) || IsNotFound(error)) << error;
  EXPECT_TRUE(PathExists(folder.Utf8().c_str()));
}

TEST_F(PlatformFiles, ReadOnlyOnesDenyAccess) {
  const TempDirectory folder;
  const std::string path = folder.File("file");
  Create(path, "text");
  using std::filesystem::perms;
  std::filesystem::permissions(PathOf(path), perms::owner_read);
  if (std::ofstream(PathOf(path), std::ios::app)) GTEST_SKIP() << "nothing is denied to this user";
  EXPECT_TRUE(IsAccessDenied(OpenedFile(path, kOpenWrite).error));
  EXPECT_TRUE(IsAccessDenied(OpenedFile(path, kOpenCreate).error));
  EXPECT_EQ(Contents(path), "text");
  std::filesystem::permissions(PathOf(path), perms::owner_all);
}

TEST_F(PlatformFiles, CanBeDeletedWhileTheyAreRead) {
  const TempDirectory folder;
  const std::string path = folder.File("file");
  Create(path, "text");
  {
    OpenedFile reader(path, kOpenRead);
    EXPECT_EQ(System().deleteFile(path.c_str()), 0);
    EXPECT_EQ(reader.Read(10), "text");
  }
  EXPECT_FALSE(PathExists(path.c_str()));
}

TEST_F(PlatformFiles, AreCreatedExclusivelyForTheirUserAloneAndNotThroughLinks) {
  const TempDirectory folder;
  const std::string path = folder.File("file"), link = folder.File("link"), target = folder.File("target");
  EXPECT_EQ(OpenedFile(path, kOpenCreate | kOpenExclusive | kOpenRead).error, 0);
#ifndef _WIN32
  using std::filesystem::perms;
  const perms others = std::filesystem::status(PathOf(path)).permissions() & (perms::group_all | perms::others_all);
  EXPECT_EQ(others, perms::none);
#endif
  std::error_code unsupported;
  std::filesystem::create_symlink(PathOf(target), PathOf(link), unsupported);
  if (unsupported) GTEST_SKIP() << "no links here";
  EXPECT_TRUE(PathExists(link.c_str())) << "a dangling link takes its name";
  EXPECT_NE(OpenedFile(link, kOpenCreate | kOpenExclusive).error, 0);
  { ScratchFile scratch(link, 10); }
  EXPECT_FALSE(PathExists(target.c_str()));
  EXPECT_EQ(System().deleteFile(link.c_str()), 0);
}

using PlatformScratch = PlatformTest;

TEST_F(PlatformScratch, NobodyElseSeesItAndItGoesWithItsHandle) {
  const TempDirectory folder;
  const std::string path = folder.File("\xC3\xA4.scratch");
  {
    ScratchFile scratch(path, 100000);
    ASSERT_EQ(scratch.error, 0);
    EXPECT_NE(OpenedFile(path, kOpenRead).error, 0);
    EXPECT_TRUE(IsZero(scratch.Read(0, 100000).data(), 100000));
  }
  EXPECT_TRUE(folder.Names().empty());

  Create(path, "mine");
  { ScratchFile scratch(path, 10); }
  EXPECT_EQ(Contents(path), "mine") << "a file of that name must not be touched";
  EXPECT_NE(ScratchFile(folder.File("missing/file"), 10).error, 0);
}

TEST_F(PlatformScratch, ResizingKeepsContentsAndZeroesGrowth) {
  const TempDirectory folder;
  ScratchFile scratch(folder.File("file"), 70000);
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

// Room is asked for when a file is made or grown: with no such room the file is not there, or has its old size.
TEST_F(PlatformScratch, AFullDiskIsAStatus) {
  const TempDirectory folder;
  EXPECT_NE(ScratchFile(folder.File("huge"), uint64_t{1} << 60).error, 0);
  EXPECT_NE(ScratchFile(folder.File("huge"), UINT64_MAX).error, 0);
  EXPECT_TRUE(folder.Names().empty());
  ScratchFile scratch(folder.File("file"), 1000);
  ASSERT_EQ(scratch.error, 0);
  EXPECT_NE(System().resizeScratchFile(scratch.file, 1000, uint64_t{1} << 60), 0);
  scratch.Read(0, 1000);
  uint8_t byte = 0;
  EXPECT_NE(System().readAt(scratch.file, &byte, 1, 1000), 0) << "what was added must be taken back";
}

#ifndef _WIN32
// The process's file size limit would raise a signal that ends the process.
TEST_F(PlatformScratch, AFileSizeLimitIsAStatusToo) {
  const TempDirectory folder;
  rlimit old{};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &old), 0);
  {
    OpenedFile file(folder.File("file"), kOpenCreate);
    ScratchFile scratch(folder.File("scratch"), 1000);
    const std::string text(3 * kMegabyte, 'x');
    const rlimit limit{kMegabyte, old.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    uint64_t done = 0;
    const int32_t first = System().writeFile(file.file, text.data(), text.size(), &done);
    const int32_t second = System().writeFile(file.file, text.data(), 1, &done);
    const int32_t created = ScratchFile(folder.File("large"), 2 * kMegabyte).error;
    const int32_t resized = System().resizeScratchFile(scratch.file, 1000, 2 * kMegabyte);
    setrlimit(RLIMIT_FSIZE, &old);
    EXPECT_EQ(first, 0) << "what fits is written";
    EXPECT_NE(second, 0);
    EXPECT_NE(created, 0);
    EXPECT_NE(resized, 0);
  }
  EXPECT_EQ(std::filesystem::file_size(PathOf(folder.File("file"))), kMegabyte);
}
#endif

TEST_F(PlatformScratch, ViewsAndTransfersSeeTheSameBytes) {
  const TempDirectory folder;
  constexpr uint64_t kBytes = 3 * kViewGranularity + 1000;
  ScratchFile scratch(folder.File("file"), kBytes);
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

TEST_F(PlatformMemory, MovableBlocksAreZeroedAndLocksNest) {
  void* block = System().allocateBlock(1000);
  ASSERT_NE(block, nullptr);
  EXPECT_FALSE(UnlockBlock(block)) << "it was never locked";
  auto* data = static_cast<uint8_t*>(System().lockBlock(block));
  ASSERT_NE(data, nullptr);
  EXPECT_TRUE(IsZero(data, 1000));
  EXPECT_EQ(System().lockBlock(block), data);
  std::memset(data, 9, 1000);
  EXPECT_TRUE(UnlockBlock(block));
  EXPECT_TRUE(UnlockBlock(block));
  EXPECT_FALSE(UnlockBlock(block));
  for (const uint64_t bytes : {uint64_t{200000}, uint64_t{10}, uint64_t{50000}}) {
    block = System().reallocateBlock(block, bytes);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(BlockSize(block), bytes);
  }
  data = static_cast<uint8_t*>(System().lockBlock(block));
  EXPECT_TRUE(std::all_of(data, data + 10, [](uint8_t byte) { return byte == 9; }));
  EXPECT_TRUE(IsZero(data + 10, 50000 - 10));
  EXPECT_TRUE(UnlockBlock(block));
  EXPECT_EQ(System().allocateBlock(uint64_t{1} << 62), nullptr);
  FreeBlock(block);

  void* empty = System().allocateBlock(0);
  EXPECT_NE(System().lockBlock(empty), nullptr) << "a block of no bytes is still a block";
  EXPECT_TRUE(UnlockBlock(empty));
  FreeBlock(empty);
}

TEST_F(PlatformMemory, HeapFailuresAreNull) {
  void* block = System().reallocate(nullptr, 16);
  ASSERT_NE(block, nullptr);
  std::memset(block, 5, 16);
  volatile size_t tooMuch = SIZE_MAX / 4;
  EXPECT_EQ(System().allocate(tooMuch), nullptr);
  EXPECT_EQ(System().reallocate(block, tooMuch), nullptr);
  EXPECT_EQ(static_cast<uint8_t*>(block)[15], 5);
  Free(block);
  Free(nullptr);
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

TEST(PlatformThreads, CriticalSectionsLetOneInAtATime) {
  static CriticalSection section;
  int64_t count = 0;
  bool inside = false;
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int step = 0; step < 20000; ++step) {
        const CriticalGuard guard(section);
        EXPECT_FALSE(inside);
        inside = true;
        ++count;
        if (step % 64 == 0) std::this_thread::yield();
        inside = false;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(count, 80000);
}

TEST_F(PlatformTest, ReadingsArePlausible) {
  MemoryStatus memory{};
  ASSERT_EQ(System().memoryStatus(&memory), 0);
  EXPECT_GE(memory.totalPhysical, 64 * kMegabyte);
  EXPECT_LE(memory.availablePhysical, memory.totalPhysical);
  EXPECT_GT(memory.availablePhysical, 0u);
  EXPECT_LE(memory.availablePageFile, memory.totalPageFile);

  uint64_t start = 0, end = 0;
  ASSERT_EQ(System().milliseconds(&start), 0);
  SleepMilliseconds(50);
  ASSERT_EQ(System().milliseconds(&end), 0);
  EXPECT_GE(end - start, 30u);

  char path[1100];
  ASSERT_EQ(System().temporaryPath(path, sizeof path), 0);
  EXPECT_TRUE(PathExists(path)) << path;
  const std::string whole = path;
  EXPECT_NE(System().temporaryPath(path, whole.size()), 0) << "no room for the end";

  const TempDirectory folder;
  uint32_t before = 0, during = 0;
  ASSERT_EQ(System().handleCount(&before), 0);
  {
    const OpenedFile a(folder.File("a"), kOpenCreate), b(folder.File("b"), kOpenCreate);
    ASSERT_EQ(System().handleCount(&during), 0);
  }
  EXPECT_EQ(during, before == 0 ? 0 : before + 2) << "a system that does not count gives 0";
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

// All entries, on live resources: a failed call must give its failure and have no effect.
TEST_F(FaultInjection, ReachesEveryCallButTheClosingOnes) {
  const TempDirectory folder;
  const std::string path = folder.File("file"), other = folder.File("other");
  const Calls& calls = System();
  File file = kNoFile, scratch = kNoFile, none = kNoFile;
  Mapping mapping, noMapping;
  void *fileMapping = nullptr, *nothing = nullptr;
  uint8_t *view = nullptr, *noView = nullptr;
  void* heap = calls.allocate(8);
  void* block = calls.allocateBlock(8);
  ASSERT_EQ(calls.openFile(path.c_str(), kOpenRead | kOpenCreate, &file), 0);
  ASSERT_EQ(calls.createScratchFile(other.c_str(), 1000, &scratch), 0);
  ASSERT_EQ(calls.mapAnonymous(1000, &mapping), 0);
  ASSERT_EQ(calls.createFileMapping(scratch, 1000, &fileMapping), 0);
  ASSERT_EQ(calls.mapView(fileMapping, 0, 1000, &view), 0);
  const LiveResources live = Live();

  FailCall(1, true);
  char text[300];
  uint64_t value = 7;
  int64_t position = 7;
  uint32_t count = 7;
  MemoryStatus memory{};
  EXPECT_EQ(calls.allocate(8), nullptr);
  EXPECT_EQ(calls.reallocate(heap, 9), nullptr);
  EXPECT_EQ(calls.allocateBlock(8), nullptr);
  EXPECT_EQ(calls.reallocateBlock(block, 9), nullptr);
  EXPECT_EQ(calls.lockBlock(block), nullptr);
  const int32_t errors[] = {
      calls.mapAnonymous(8, &noMapping),
      calls.remapAnonymous(&mapping, 1000, 8),
      calls.createFileMapping(scratch, 8, &nothing),
      calls.mapView(fileMapping, 0, 8, &noView),
      calls.createScratchFile(folder.File("third").c_str(), 8, &none),
      calls.resizeScratchFile(scratch, 1000, 8),
      calls.readAt(scratch, text, 8, 0),
      calls.writeAt(scratch, "x", 1, 0),
      calls.openFile(folder.File("fourth").c_str(), kOpenCreate, &none),
      calls.readFile(file, text, 8, &value),
      calls.writeFile(file, text, 8, &value),
      calls.seekFile(file, 0, 0, &position),
      calls.deleteFile(path.c_str()),
      calls.temporaryPath(text, sizeof text),
      calls.memoryStatus(&memory),
      calls.handleCount(&count),
      calls.milliseconds(&value),
  };
  for (size_t i = 0; i < std::size(errors); ++i) EXPECT_EQ(errors[i], kInjectedError) << "call " << i;
  EXPECT_EQ(StopFailing(), 5 + std::size(errors));
  EXPECT_EQ(Live(), live);
  EXPECT_TRUE(PathExists(path.c_str()));
  EXPECT_FALSE(PathExists(folder.File("third").c_str()) || PathExists(folder.File("fourth").c_str()));
  EXPECT_TRUE(none == kNoFile && !noMapping.address && !nothing && !noView && value == 7 && position == 7 &&
              count == 7);
  EXPECT_EQ(view[0], 0);

  FailCall(1, true);
  UnmapView(view, 1000);
  CloseFileMapping(fileMapping);
  UnmapAnonymous(mapping, 1000);
  CloseScratchFile(scratch);
  EXPECT_EQ(calls.closeFile(file), 0);
  FreeBlock(block);
  Free(heap);
  EXPECT_EQ(StopFailing(), 0u);
}

}  // namespace
}  // namespace vexakrn::platform
