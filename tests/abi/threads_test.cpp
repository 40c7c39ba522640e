// Many threads at once: what is a thread's own stays its own, and what the process shares stays whole.
#include "abi/child.h"

namespace {

using vexatest::Random;

constexpr int kThreads = 6;

// Runs `body` with 0, 1, ... on as many threads, which start together.
void Together(int threads, const std::function<void(int)>& body) {
  std::atomic<int> waiting{threads};
  std::vector<std::thread> all;
  for (int t = 0; t < threads; ++t)
    all.emplace_back([&, t] {
      for (--waiting; waiting > 0;) std::this_thread::yield();
      body(t);
    });
  for (std::thread& thread : all) thread.join();
}

int32_t V_CALL Callback(int32_t, void*) { return 1; }
intptr_t V_CALL OpenNothing(const char*, uint32_t, void*) { return -1; }

TEST(Threads, SettingsStayEachThreadsOwn) {
  Together(kThreads, [](int t) {
    int own[2] = {};
    void* data = nullptr;
    EXPECT_EQ(V_GetStatusCallBack(nullptr), nullptr) << "not those of the first thread";
    for (int32_t i = 0; i < 1500; ++i) {
      const int32_t value = t * 100000 + i;
      const uint32_t type = (i + t) % 2 ? V_MemoryConventional : V_MemoryDisk;
      V_SetStatusCallBack(Callback, &own[0], nullptr, nullptr);
      V_SetCopyStatusCallBack(Callback, &own[1], nullptr, nullptr);
      V_SetMemoryThresholds(value, value + 1, value + 2, value + 3, value + 4, 31);
      V_SetDefaultMemoryType(type);
      V_SetDefaultResolution(value + 5, value + 6);
      V_SetDefaultDithering((i + t) % 9);
      V_RedirectIO(OpenNothing, nullptr, nullptr, nullptr, nullptr, &own[0]);
      if (i % 16 == 0) std::this_thread::yield();

      int32_t reserve = 0, fifth = 0;
      uint32_t gotType = 0;
      REDIRECTFUNCTIONS table;
      V_GetMemoryThresholds(&reserve, nullptr, nullptr, nullptr, &fifth);
      V_GetDefaultMemoryType(&gotType);
      V_GetRedirectFunctions(&table);
      ASSERT_TRUE(V_GetStatusCallBack(&data) == &Callback && data == &own[0]);
      ASSERT_TRUE(V_GetCopyStatusCallBack(&data) == &Callback && data == &own[1]);
      ASSERT_TRUE(reserve == value && fifth == value + 4 && table.openData == &own[0] && gotType == type);
      ASSERT_TRUE(V_GetDefaultYResolution() == value + 6 && V_GetDefaultDithering() == (i + t) % 9);
    }
  });
  EXPECT_EQ(V_GetStatusCallBack(nullptr), nullptr);
  EXPECT_EQ(V_UsesRedirectIO(), 0);
}

TEST(Threads, TemporaryNamesNeverRepeat) {
  vexatest::TempDirectory directory;
  constexpr int kNames = 900, kCreatedOneIn = 9;
  std::vector<std::vector<std::string>> names(kThreads);
  Together(kThreads, [&](int t) {
    char name[600];
    // A tag cut off by a short buffer no longer tells threads apart: then the list of names in use must.
    const auto least = static_cast<uint32_t>(directory.Name().size() + 1 + 1 + 13);
    for (int i = 0; i < kNames; ++i) {
      const uint32_t mode = i % kCreatedOneIn == 0 ? V_TempFileDisk : V_TempFileMemory;
      ASSERT_EQ(V_GetTempFileNameUTF8(name, i % 2 ? least : sizeof(name), mode, nullptr, "p", "x", 0), 1);
      names[static_cast<size_t>(t)].push_back(name);
    }
  });
  std::set<std::string> all;
  for (const auto& some : names) all.insert(some.begin(), some.end());
  EXPECT_EQ(all.size(), static_cast<size_t>(kThreads * kNames));
  EXPECT_EQ(directory.Names().size(), static_cast<size_t>(kThreads * kNames / kCreatedOneIn));
  Together(kThreads, [&](int t) {
    for (const std::string& name : names[static_cast<size_t>(t)]) EXPECT_EQ(V_DeleteTempFile(name.c_str()), 1);
  });
  EXPECT_TRUE(directory.Names().empty());
}

// Shared records change as a whole: a reader sees one writer's values, never parts of two.
TEST(Threads, SharedSettingsAreNeverTorn) {
  TEMPFILEOPTIONS atFirst;
  V_GetTempFileOptions(&atFirst);
  Together(kThreads, [](int t) {
    for (uint32_t i = 0; i < 800; ++i) {
      const auto letter = static_cast<char>('a' + t);
      if (t % 2 == 0) {
        const std::string name(20 + static_cast<size_t>(i % 200), letter);
        ASSERT_EQ(SetGlobalTempFileDirectory(name.c_str()), 1);
        const uint32_t own = static_cast<uint32_t>(t) * 1000 + i;
        const TEMPFILEOPTIONS options = {24, own % 3 + 1, own, own, own, own};
        ASSERT_EQ(V_SetTempFileOptions(&options), 1);
      }
      char directory[1100];
      ASSERT_EQ(V_GetTempFileDirectoryUTF8(directory, sizeof(directory)), 1);
      if (std::strchr("ace", directory[0])) {
        ASSERT_EQ(std::strspn(directory, std::string(1, directory[0]).c_str()), std::strlen(directory)) << directory;
      }
      TEMPFILEOPTIONS got;
      ASSERT_EQ(V_GetTempFileOptions(&got), 1);
      const uint32_t values[] = {got.uOption1, got.uOption2, got.uOption3, got.uOption4};
      if (values[0] != 0) {
        ASSERT_TRUE(values[1] == values[0] && values[2] == values[0] && values[3] == values[0]);
        ASSERT_EQ(got.uMode, values[0] % 3 + 1);
      }
    }
  });
  SetGlobalTempFileDirectory(nullptr);
  V_SetTempFileOptions(&atFirst);
}

// A hook never runs with the user data of another one, even while hooks are being exchanged.
int userData[2];
std::atomic<int> mismatches{0};
template <int kOwn>
int32_t V_CALL Hook(BITMAPHANDLE*, ALLOCATEBITMAPCALLBACKDATA*, void* data) {
  mismatches += data != &userData[kOwn];
  return 1;
}
template <int kOwn>
void V_CALL Trace(const char*, const char*, void* data) {
  mismatches += data != &userData[kOwn];
}

TEST(Threads, HooksAndTracesKeepTheirUserData) {
  mismatches = 0;
  Together(kThreads, [](int t) {
    for (int i = 0; i < 2000; ++i) {
      if (t < 2) {
        V_SetAllocateBitmapHook(t == 0 ? Hook<0> : Hook<1>, &userData[t]);
        V_SetDiagnostics(t == 0 ? Trace<0> : Trace<1>, &userData[t]);
        if (i % 7 == 0) V_SetAllocateBitmapHook(nullptr, nullptr), V_SetDiagnostics(nullptr, nullptr);
        V_SetCpuLevel(i % 4);
        EXPECT_LE(V_GetCpuLevel(), 3);
      } else if (i % 8 == 0) {
        vexatest::Bitmap bitmap;
        EXPECT_EQ(bitmap.Create(V_MemoryConventional, 8, 8, 8), 1);
        V_ReleaseBitmap(bitmap);  // traced: nothing was accessed
        V_AccessBitmap(bitmap);
      }
    }
  });
  V_SetAllocateBitmapHook(nullptr, nullptr);
  V_SetDiagnostics(nullptr, nullptr);
  V_SetCpuLevel(3);
  EXPECT_EQ(mismatches, 0);
}

// Bitmaps of every kind live and die on all threads at once, under a limit that some of them meet.
TEST(Threads, BitmapsShareTheAccountFairly) {
  vexatest::TempDirectory directory;
  vexatest::AccountBalance balance;
  const uint64_t start = vexatest::UsedMemory();
  constexpr uint64_t kRoom = 3 << 20;
  {
    vexatest::ScopedAccountLimit limit(kRoom);
    Together(kThreads, [&](int t) {
      Random random(static_cast<uint64_t>(t) + 100);
      V_SetMemoryThresholds(0, 0, 65536, 0, 2, V_ThresholdTileSize | V_ThresholdFifth);
      const uint32_t requests[] = {V_MemoryConventional, V_MemoryTiled, V_MemoryDisk, 9, 265};
      for (int i = 0; i < 40; ++i) {
        vexatest::Bitmap bitmap;
        const int32_t status = bitmap.Create(requests[random.Below(5)], 400, random.Between(1, 1500), 24);
        EXPECT_LE(vexatest::UsedMemory(), start + kRoom);
        if (status != 1) {
          EXPECT_TRUE(status == -1 || status == -1905) << status;
          continue;
        }
        std::vector<uint8_t> row(bitmap->BytesPerLine, static_cast<uint8_t>(t + 1)), got(row.size());
        vexatest::Access access(bitmap);
        const int32_t at = random.Between(0, bitmap->Height - 1);
        EXPECT_EQ(V_PutBitmapRow(bitmap, row.data(), at, row.size()), static_cast<int64_t>(row.size()));
        EXPECT_EQ(V_GetBitmapRow(bitmap, got.data(), at, got.size()), static_cast<int64_t>(got.size()));
        EXPECT_TRUE(got == row);
      }
      for (int i = 0; i < 500; ++i) {
        const uint64_t size = random.Below(kRoom);
        if (V_ManageMemory(V_MemoryReserve, size, nullptr) == 1) {
          EXPECT_EQ(V_ManageMemory(V_MemoryReturn, size, nullptr), 1);
        }
      }
    });
  }
  EXPECT_TRUE(directory.Names().empty());
}

}  // namespace
