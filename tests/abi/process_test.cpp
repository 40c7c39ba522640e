// Temporary files across processes: two processes in one directory, a process that is killed, and a full disk.
#include <chrono>

#include "abi/child.h"

#ifndef _WIN32
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#endif

namespace {

using vexatest::Child;
using vexatest::Folder;
using vexatest::FromUtf8;

std::string ChildFolder() { return std::getenv(vexatest::kChildFolder); }

// Bitmaps whose data lies in the temporary directory: one disk file, and tiles of which all but one lie in a file.
struct DiskBitmaps {
  vexatest::Bitmap disk, tiled;
  int32_t diskStatus, tiledStatus;
  explicit DiskBitmaps(int32_t height) {
    V_SetMemoryThresholds(0, 0, 65536, 0, 1, V_ThresholdTileSize | V_ThresholdFifth);
    diskStatus = disk.Create(V_MemoryDisk, 1000, height, 24);
    tiledStatus = tiled.Create(V_MemoryTiled, 1000, height, 24);
  }
  ~DiskBitmaps() { V_SetMemoryThresholds(0, 0, 0, 0, 0, 31); }
  void Fill() {
    for (vexatest::Bitmap* bitmap : {&disk, &tiled}) {
      vexatest::Access access(*bitmap);
      const std::vector<uint8_t> row((*bitmap)->BytesPerLine, 0x5A);
      for (int32_t i = 0; i < (*bitmap)->Height; ++i)
        EXPECT_EQ(V_PutBitmapRow(*bitmap, row.data(), i, row.size()), static_cast<int64_t>(row.size()));
    }
  }
};

TEST(DISABLED_Child, DrawsNames) {
  SetGlobalTempFileDirectory(ChildFolder().c_str());
  // Prefix and tag cut to the least, so that names could meet.
  const auto least = static_cast<uint32_t>(ChildFolder().size() + 1 + 1 + 13);
  char name[600];
  for (int i = 0; i < 300; ++i)
    EXPECT_EQ(V_GetTempFileNameUTF8(name, i % 2 ? least : sizeof(name), 1, nullptr, "p", "x", 0), 1);
  vexatest::FinishChild();
}

// Each name was created as a file where none was.
TEST(Processes, TwoOfThemNeverDrawTheSameName) {
  const Folder folder;
  Child one("DrawsNames", folder.Name()), two("DrawsNames", folder.Name());
  EXPECT_EQ(one.Wait(), vexatest::kChildDone);
  EXPECT_EQ(two.Wait(), vexatest::kChildDone);
  EXPECT_EQ(folder.Names().size(), 600u) << "a name was drawn twice";
}

TEST(DISABLED_Child, WorksOnDiskUntilItIsKilled) {
  SetGlobalTempFileDirectory((ChildFolder() + "/temp").c_str());
  DiskBitmaps bitmaps(400);
  EXPECT_EQ(bitmaps.diskStatus, 1);
  EXPECT_EQ(bitmaps.tiledStatus, 1);
  EXPECT_NE(bitmaps.disk->Flags & V_FlagDiskMemory, 0u);
  bitmaps.Fill();
  if (!HasFailure()) vexatest::WriteAll(ChildFolder() + "/ready", "yes");
  std::this_thread::sleep_for(std::chrono::seconds(60));
  vexatest::FinishChild();
}

TEST(Processes, AKilledOneLeavesNoFiles) {
  Folder folder;
  std::filesystem::create_directory(FromUtf8(folder / "temp"));
  Child child("WorksOnDiskUntilItIsKilled", folder.Name());
  ASSERT_TRUE(child.Started());
  ASSERT_TRUE(vexatest::Eventually([&] { return std::filesystem::exists(FromUtf8(folder / "ready")); }));
  child.Kill();
  EXPECT_TRUE(vexatest::Eventually([&] { return std::filesystem::is_empty(FromUtf8(folder / "temp")); }));
}

#ifndef _WIN32
TEST(DISABLED_Child, MeetsAFullDisk) {
  // In a mount table of its own, which ends with the process.
  if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
      mount("tmpfs", ChildFolder().c_str(), "tmpfs", 0, "size=2m") != 0)
    std::exit(vexatest::kChildSkipped);
  SetGlobalTempFileDirectory(ChildFolder().c_str());
  {
    DiskBitmaps bitmaps(300);  // what fits works, and growing past the disk leaves it as it was
    EXPECT_EQ(bitmaps.diskStatus, 1);
    EXPECT_EQ(bitmaps.tiledStatus, 1);
    EXPECT_EQ(V_ChangeBitmapHeight(bitmaps.disk, 3000), -1);  // 9 MB
    const int32_t grown = V_ChangeBitmapHeight(bitmaps.tiled, 3000);
    EXPECT_EQ(int32_t{bitmaps.tiled->Height}, grown == 1 ? 3000 : 300) << "perhaps there was room elsewhere";
    EXPECT_EQ(bitmaps.disk->Height, 300);
    bitmaps.Fill();
    EXPECT_EQ(V_ChangeBitmapHeight(bitmaps.disk, 310), 1);
    EXPECT_EQ(DiskBitmaps(3000).diskStatus, -1);
  }
  EXPECT_TRUE(std::filesystem::is_empty(FromUtf8(ChildFolder())));
  const std::string from = ChildFolder() + "/from", to = ChildFolder() + "/to";
  vexatest::WriteAll(from, std::string(1500000, 'f'));
  EXPECT_EQ(V_RedirectedTempFileCopy(from.c_str(), to.c_str()), -1);
  EXPECT_FALSE(std::filesystem::exists(FromUtf8(to))) << "half a copy was left";
  vexatest::FinishChild();
}

TEST(DISABLED_Child, MeetsAFileSizeLimit) {
  const rlimit limit = {1 << 20, 1 << 20};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
  SetGlobalTempFileDirectory(ChildFolder().c_str());
  EXPECT_EQ(DiskBitmaps(1000).diskStatus, -1);
  EXPECT_TRUE(std::filesystem::is_empty(FromUtf8(ChildFolder())));
  const intptr_t file = V_RedirectedOpen((ChildFolder() + "/file").c_str(), V_OpenWrite | V_OpenCreate);
  const std::vector<char> bytes(700000);
  EXPECT_EQ(V_RedirectedWrite(file, bytes.data(), bytes.size()), 700000);
  EXPECT_LT(V_RedirectedWrite(file, bytes.data(), bytes.size()), 700000);
  EXPECT_EQ(V_RedirectedClose(file), 0);
  vexatest::FinishChild();
}

TEST(Processes, LimitsAreAStatusAndNoSignalAndLeaveNothing) {
  const Folder limit, full;
  EXPECT_EQ(Child("MeetsAFileSizeLimit", limit.Name()).Wait(), vexatest::kChildDone);
  const int code = Child("MeetsAFullDisk", full.Name()).Wait();
  if (code == vexatest::kChildSkipped) GTEST_SKIP() << "may not mount a small disk";
  EXPECT_EQ(code, vexatest::kChildDone);
}
#endif

}  // namespace
