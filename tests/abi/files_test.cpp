// The replaceable file functions: the exchange, the table, the system's own files behind it, and a host's functions.
#include "vexakrn.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "abi/child.h"
#include "support/random.h"

#ifdef _WIN32
#include <winioctl.h>
#else
#include <fcntl.h>
#include <sys/stat.h>
#endif

namespace {

using vexatest::Folder;
using vexatest::FromUtf8;
using vexatest::Random;
using vexatest::ReadAll;
using vexatest::WriteAll;

constexpr intptr_t kNone = -1;

// The table of one thread: five functions (0 none) and their data, as plain numbers.
struct Table {
  std::array<intptr_t, 5> functions{};
  std::array<void*, 5> data{};
  bool operator==(const Table&) const = default;
};

REDIRECTFUNCTIONS ToRecord(const Table& table) {
  REDIRECTFUNCTIONS record;
  record.uStructSize = sizeof(record);
  auto* bytes = reinterpret_cast<uint8_t*>(&record) + 4;
  for (size_t i = 0; i < 5; ++i) {
    std::memcpy(bytes + 16 * i, &table.functions[i], 8);
    std::memcpy(bytes + 16 * i + 8, &table.data[i], 8);
  }
  return record;
}

Table Current() {
  REDIRECTFUNCTIONS record;
  std::memset(&record, 0xA5, sizeof(record));
  EXPECT_EQ(V_GetRedirectFunctions(&record), 1);
  EXPECT_EQ(record.uStructSize, sizeof(record));
  Table table;
  const auto* bytes = reinterpret_cast<const uint8_t*>(&record) + 4;
  for (size_t i = 0; i < 5; ++i) {
    std::memcpy(&table.functions[i], bytes + 16 * i, 8);
    std::memcpy(&table.data[i], bytes + 16 * i + 8, 8);
  }
  return table;
}

// V_FilterIO on plain numbers; bit i of `functions` and of `data` tells whether argument i is given at all.
int32_t Filter(Table& arguments, unsigned functions, unsigned data) {
  auto open = reinterpret_cast<REDIRECTOPEN>(arguments.functions[0]);
  auto read = reinterpret_cast<REDIRECTREAD>(arguments.functions[1]);
  auto write = reinterpret_cast<REDIRECTWRITE>(arguments.functions[2]);
  auto seek = reinterpret_cast<REDIRECTSEEK>(arguments.functions[3]);
  auto close = reinterpret_cast<REDIRECTCLOSE>(arguments.functions[4]);
  const auto dataOf = [&](unsigned i) { return data & (1u << i) ? &arguments.data[i] : nullptr; };
  const int32_t status =
      V_FilterIO(functions & 1 ? &open : nullptr, functions & 2 ? &read : nullptr, functions & 4 ? &write : nullptr,
                 functions & 8 ? &seek : nullptr, functions & 16 ? &close : nullptr, dataOf(0), dataOf(1), dataOf(2),
                 dataOf(3), dataOf(4));
  arguments.functions = {reinterpret_cast<intptr_t>(open), reinterpret_cast<intptr_t>(read),
                         reinterpret_cast<intptr_t>(write), reinterpret_cast<intptr_t>(seek),
                         reinterpret_cast<intptr_t>(close)};
  return status;
}

// What the exchange is defined to do, one slot at a time.
void FilterModel(Table& table, Table& arguments, unsigned functions, unsigned data) {
  for (unsigned i = 0; i < 5; ++i) {
    if (functions & (1u << i)) {
      const intptr_t old = table.functions[i];
      if (arguments.functions[i] != 0)
        table.functions[i] = arguments.functions[i] == kNone ? 0 : arguments.functions[i];
      arguments.functions[i] = old ? old : kNone;
    }
    if (data & (1u << i)) std::swap(table.data[i], arguments.data[i]);
  }
}

// Every test starts and ends without redirection.
class Redirect : public ::testing::Test {
 protected:
  void SetUp() override { V_RedirectIO(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr); }
  void TearDown() override { SetUp(); }
};

TEST_F(Redirect, EveryWayToChangeTheTableFollowsTheModel) {
  Random random(20240611);
  const auto pick = [&](unsigned n) { return static_cast<unsigned>(random.Below(n)); };
  const auto randomFunction = [&] { return static_cast<intptr_t>(0x1000 + 16 * pick(50)); };  // never called
  const auto randomData = [&] { return reinterpret_cast<void*>(static_cast<uintptr_t>(pick(1000))); };
  Table model;
  for (int step = 0; step < 30000; ++step) {
    Table arguments;
    for (size_t i = 0; i < 5; ++i) {
      const unsigned kind = pick(3);
      arguments.functions[i] = kind == 0 ? 0 : kind == 1 ? kNone : randomFunction();
      arguments.data[i] = randomData();
    }
    const unsigned functions = pick(32), data = pick(32);
    switch (pick(8)) {
      case 0: {
        for (intptr_t& f : arguments.functions) f = f == kNone ? 0 : f;
        const REDIRECTFUNCTIONS record = ToRecord(arguments);
        ASSERT_EQ(V_UpdateRedirectFunctions(&record, functions), 1);
        for (unsigned i = 0; i < 5; ++i)
          if (functions & (1u << i)) model.functions[i] = arguments.functions[i], model.data[i] = arguments.data[i];
        break;
      }
      case 1: {
        for (intptr_t& f : arguments.functions) f = f == kNone ? 0 : f;
        const REDIRECTFUNCTIONS record = ToRecord(arguments);
        ASSERT_EQ(V_SetRedirectFunctions(&record), 1);
        model = arguments;
        break;
      }
      default: {
        Table expected = arguments;
        FilterModel(model, expected, functions, data);
        ASSERT_EQ(Filter(arguments, functions, data), 1);
        ASSERT_EQ(arguments, expected) << "step " << step << ", functions " << functions << ", data " << data;
      }
    }
    ASSERT_EQ(Current(), model) << "step " << step;
    bool any = false;
    for (intptr_t f : model.functions) any = any || f != 0;
    ASSERT_EQ(V_UsesRedirectIO(), any ? 1 : 0) << "step " << step;
  }
}

TEST_F(Redirect, ProbingAnEmptyTableReportsNoneAndChangesNothing) {
  Table zeros;
  EXPECT_EQ(Filter(zeros, 31, 31), 1);
  for (intptr_t f : zeros.functions) EXPECT_EQ(f, kNone);
  EXPECT_EQ(Current(), Table());
  EXPECT_EQ(V_UsesRedirectIO(), 0);
  EXPECT_EQ(V_FilterIO(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr), 1);
}

TEST_F(Redirect, BadRecordsAreRefusedAndLeaveTheTable) {
  Table table;
  table.functions = {0x1000, 0, 0x1010, 0, 0x1020};
  REDIRECTFUNCTIONS record = ToRecord(table);
  ASSERT_EQ(V_SetRedirectFunctions(&record), 1);
  record = ToRecord(Table());
  for (uint32_t size : {0u, 83u, 85u, 88u}) {
    record.uStructSize = size;
    EXPECT_EQ(V_SetRedirectFunctions(&record), -789) << size;
    EXPECT_EQ(V_UpdateRedirectFunctions(&record, 31), -789) << size;
    REDIRECTFUNCTIONS out;
    EXPECT_EQ(V_GetRedirectFunctions2(&out, size), -789) << size;
  }
  EXPECT_EQ(V_SetRedirectFunctions(nullptr), -814);
  EXPECT_EQ(V_UpdateRedirectFunctions(nullptr, 31), -814);
  EXPECT_EQ(V_GetRedirectFunctions(nullptr), -814);
  EXPECT_EQ(V_GetRedirectFunctions2(nullptr, 84), -814);
  EXPECT_EQ(Current(), table);
  REDIRECTFUNCTIONS out;
  EXPECT_EQ(V_GetRedirectFunctions2(&out, 84), 1);
  const REDIRECTWRITE write = out.write;  // a field of a packed record
  EXPECT_EQ(write, reinterpret_cast<REDIRECTWRITE>(0x1010));
}

TEST_F(Redirect, TheTableBelongsToItsThread) {
  Table mine;
  mine.functions = {0x1000, 0x1010, 0x1020, 0x1030, 0x1040};
  const REDIRECTFUNCTIONS record = ToRecord(mine);
  ASSERT_EQ(V_SetRedirectFunctions(&record), 1);
  Folder folder;
  std::thread([&] {
    EXPECT_EQ(V_UsesRedirectIO(), 0);
    EXPECT_EQ(Current(), Table());
    const intptr_t file = V_RedirectedOpen((folder / "other").c_str(), V_OpenWrite | V_OpenCreate);
    EXPECT_NE(file, -1);
    EXPECT_EQ(V_RedirectedClose(file), 0);
    V_RedirectIO(reinterpret_cast<REDIRECTOPEN>(0x2000), nullptr, nullptr, nullptr, nullptr, nullptr);
  }).join();
  EXPECT_EQ(Current(), mine);
}

// --- the system's own files ---------------------------------------------------------------------------------------

class SystemFiles : public Redirect {
 protected:
  intptr_t Open(const std::string& path, uint32_t mode) { return V_RedirectedOpen(path.c_str(), mode); }
  Folder folder_;
};

TEST_F(SystemFiles, ModesOpenCreateCutAndRefuse) {
  const std::string path = folder_ / "file";
  EXPECT_EQ(Open(path, V_OpenRead), -1);
  EXPECT_GT(V_GetLastRedirectError(), 0);
  EXPECT_EQ(Open(path, V_OpenWrite), -1);
  EXPECT_EQ(Open(path, V_OpenRead | V_OpenWrite), -1);
  EXPECT_TRUE(folder_.Files().empty());

  intptr_t file = Open(path, V_OpenCreate | V_OpenExclusive);  // creating implies writing
  ASSERT_NE(file, -1);
  EXPECT_EQ(V_RedirectedWrite(file, "0123456789", 10), 10);
  EXPECT_EQ(V_RedirectedClose(file), 0);
  EXPECT_EQ(Open(path, V_OpenCreate | V_OpenExclusive), -1);
  EXPECT_EQ(ReadAll(path), "0123456789") << "an exclusive open that fails must not cut the file";

  char buffer[16] = {};
  file = Open(path, V_OpenRead);
  ASSERT_NE(file, -1);
  EXPECT_EQ(V_RedirectedRead(file, buffer, 4), 4);
  EXPECT_EQ(V_RedirectedRead(file, buffer + 4, 12), 6);
  EXPECT_EQ(V_RedirectedRead(file, buffer, 1), 0);
  EXPECT_STREQ(buffer, "0123456789");
  EXPECT_EQ(V_RedirectedWrite(file, "x", 1), -1);
  EXPECT_GT(V_GetLastRedirectError(), 0);
  EXPECT_EQ(V_RedirectedClose(file), 0);

  file = Open(path, V_OpenWrite);  // keeps what is there
  ASSERT_NE(file, -1);
  EXPECT_EQ(V_RedirectedWrite(file, "AB", 2), 2);
  EXPECT_EQ(V_RedirectedRead(file, buffer, 1), -1);
  EXPECT_EQ(V_RedirectedClose(file), 0);
  EXPECT_EQ(ReadAll(path), "AB23456789");

  file = Open(path, V_OpenRead | V_OpenWrite | V_OpenCreate);
  ASSERT_NE(file, -1);
  EXPECT_EQ(V_RedirectedSeek(file, 0, 2), 0);
  EXPECT_EQ(V_RedirectedWrite(file, "new", 3), 3);
  EXPECT_EQ(V_RedirectedSeek(file, 1, 0), 1);
  EXPECT_EQ(V_RedirectedRead(file, buffer, 16), 2);
  EXPECT_EQ(V_RedirectedClose(file), 0);
  EXPECT_EQ(ReadAll(path), "new");
}

TEST_F(SystemFiles, DirectoriesMissingPathsAndDeadHandlesFail) {
  for (uint32_t mode : {1u, 2u, 3u, 4u, 6u, 7u, 12u, 15u}) {
    EXPECT_EQ(Open(folder_.Name(), mode), -1) << mode;
    EXPECT_GT(V_GetLastRedirectError(), 0) << mode;
    EXPECT_EQ(Open(folder_ / "missing/file", mode), -1) << mode;
    EXPECT_EQ(Open("", mode), -1) << mode;
    EXPECT_EQ(V_RedirectedOpen(nullptr, mode), -1) << mode;
  }
  EXPECT_TRUE(folder_.Files().empty());
  char byte = 0;
  EXPECT_EQ(V_RedirectedRead(-1, &byte, 1), -1);
  EXPECT_EQ(V_RedirectedWrite(-1, &byte, 1), -1);
  EXPECT_EQ(V_RedirectedSeek(-1, 0, 0), -1);
  EXPECT_EQ(V_RedirectedClose(-1), -1);
  EXPECT_GT(V_GetLastRedirectError(), 0);
#ifndef _WIN32  // a number that only ends like a handle is none; the other system's own functions take it for one
  const intptr_t file = Open(folder_ / "file", V_OpenWrite | V_OpenCreate);
  const intptr_t wrong = file | (intptr_t{1} << 32);
  EXPECT_EQ(V_RedirectedWrite(wrong, &byte, 1), -1);
  EXPECT_EQ(V_RedirectedClose(wrong), -1);
  EXPECT_EQ(V_RedirectedClose(file), 0);
#endif
}

TEST_F(SystemFiles, NamesAreUtf8) {
  for (const char* name : {"gr\xC3\xBC\xC3\x9F.bin", "\xE6\x97\xA5\xE6\x9C\xAC.bin", "\xF0\x9F\x96\xBC.bin"}) {
    const std::string path = folder_ / name;
    const intptr_t file = Open(path, V_OpenWrite | V_OpenCreate | V_OpenExclusive);
    ASSERT_NE(file, -1) << name;
    EXPECT_EQ(V_RedirectedWrite(file, name, std::strlen(name)), static_cast<int64_t>(std::strlen(name)));
    EXPECT_EQ(V_RedirectedClose(file), 0);
    EXPECT_EQ(ReadAll(path), name) << "the file has another name on disk";
  }
  EXPECT_EQ(folder_.Files().size(), 3u);
}

TEST_F(SystemFiles, SeeksHaveThreeOriginsAndNoGarbageInGaps) {
  const intptr_t file = Open(folder_ / "file", V_OpenRead | V_OpenWrite | V_OpenCreate);
  ASSERT_NE(file, -1);
  EXPECT_EQ(V_RedirectedWrite(file, "", 0), 0);
  EXPECT_EQ(V_RedirectedWrite(file, "abcdef", 6), 6);
  EXPECT_EQ(V_RedirectedSeek(file, -2, 1), 4);
  EXPECT_EQ(V_RedirectedSeek(file, -1, 2), 5);
  EXPECT_EQ(V_RedirectedSeek(file, 1, 0), 1);
  char buffer[300];
  EXPECT_EQ(V_RedirectedRead(file, buffer, 0), 0);
  EXPECT_EQ(V_RedirectedSeek(file, 0, 1), 1);
  EXPECT_EQ(V_RedirectedSeek(file, -2, 0), -1);
  EXPECT_EQ(V_RedirectedSeek(file, -2, 1), -1);
  EXPECT_EQ(V_RedirectedSeek(file, -7, 2), -1);
  EXPECT_EQ(V_RedirectedSeek(file, 0, 3), -1);
  EXPECT_EQ(V_RedirectedSeek(file, 0, -1), -1);
  EXPECT_EQ(V_RedirectedSeek(file, 0, 1), 1) << "a failed seek moved";

  EXPECT_EQ(V_RedirectedSeek(file, 256, 0), 256);
  EXPECT_EQ(V_RedirectedRead(file, buffer, 1), 0);
  EXPECT_EQ(V_RedirectedSeek(file, 0, 2), 6) << "a seek past the end changed the file";
  EXPECT_EQ(V_RedirectedSeek(file, 256, 0), 256);
  EXPECT_EQ(V_RedirectedWrite(file, "z", 1), 1);
  EXPECT_EQ(V_RedirectedSeek(file, 0, 0), 0);
  ASSERT_EQ(V_RedirectedRead(file, buffer, sizeof(buffer)), 257);
  EXPECT_EQ(V_RedirectedClose(file), 0);
  std::string expected(257, '\0');
  expected.replace(0, 6, "abcdef");
  expected[256] = 'z';
  EXPECT_EQ(std::string(buffer, 257), expected);
}

TEST_F(SystemFiles, OffsetsBeyondFourGigabytesWork) {
  const std::string path = folder_ / "sparse";
  const int64_t beyond = (int64_t{5} << 30) + 7;
  WriteAll(path, "start");
#ifdef _WIN32  // else the system writes five gigabytes of zeros
  HANDLE sparse = CreateFileW(FromUtf8(path).c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  DWORD done = 0;
  DeviceIoControl(sparse, FSCTL_SET_SPARSE, nullptr, 0, nullptr, 0, &done, nullptr);
  CloseHandle(sparse);
#endif
  const intptr_t file = Open(path, V_OpenRead | V_OpenWrite);
  ASSERT_NE(file, -1);
  EXPECT_EQ(V_RedirectedSeek(file, beyond, 0), beyond);
  EXPECT_EQ(V_RedirectedWrite(file, "end", 3), 3);
  EXPECT_EQ(V_RedirectedSeek(file, -4, 2), beyond - 1);
  char buffer[8] = {};
  EXPECT_EQ(V_RedirectedRead(file, buffer, 8), 4);
  EXPECT_EQ(std::string(buffer, 4), std::string("\0end", 4));
  EXPECT_EQ(V_RedirectedSeek(file, -beyond, 1), 3);
  EXPECT_EQ(V_RedirectedRead(file, buffer, 2), 2);
  EXPECT_EQ(std::string(buffer, 2), "rt");
  EXPECT_EQ(V_RedirectedClose(file), 0);
  EXPECT_EQ(std::filesystem::file_size(FromUtf8(path)), static_cast<uint64_t>(beyond) + 3);
}

#ifndef _WIN32
TEST_F(SystemFiles, HandlesAreNotInherited) {
  const std::string path = folder_ / "file";
  const intptr_t file = Open(path, V_OpenWrite | V_OpenCreate);
  ASSERT_NE(file, -1);
  int found = 0;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code error;
    if (std::filesystem::read_symlink(entry.path(), error) != FromUtf8(path)) continue;
    ++found;
    EXPECT_NE(fcntl(std::stoi(entry.path().filename().string()), F_GETFD) & FD_CLOEXEC, 0);
  }
  EXPECT_EQ(found, 1);
  EXPECT_EQ(V_RedirectedClose(file), 0);
}

TEST_F(SystemFiles, AnExclusiveOpenNeverFollowsALink) {
  for (const char* target : {"target", "dangling"}) {
    WriteAll(folder_ / "target", "kept");
    const std::string link = folder_ / "link";
    std::filesystem::create_symlink(FromUtf8(folder_ / target), FromUtf8(link));
    EXPECT_EQ(Open(link, V_OpenWrite | V_OpenCreate | V_OpenExclusive), -1) << target;
    EXPECT_EQ(ReadAll(folder_ / "target"), "kept");
    EXPECT_FALSE(std::filesystem::exists(FromUtf8(folder_ / "dangling")));
    std::filesystem::remove(FromUtf8(link));
  }
}
#endif

// --- a host's functions -------------------------------------------------------------------------------------------

// Files in memory, as a host would keep them. Handles start at 1000 and mean nothing to the system.
struct HostFiles {
  struct Handle {
    std::string path;
    size_t position;
  };
  std::map<std::string, std::string> files;
  std::map<intptr_t, Handle> open;
  intptr_t next = 1000;
  int calls = 0;
  int failAt = 0;  // this call fails; 0 none

  static HostFiles& Of(void* data) { return *static_cast<HostFiles*>(data); }
  bool Fails() { return ++calls == failAt; }

  static intptr_t V_CALL Open(const char* path, uint32_t mode, void* data) {
    HostFiles& host = Of(data);
    if (host.Fails()) return -1;
    if (mode & V_OpenCreate) {
      if (mode & V_OpenExclusive && host.files.count(path)) return -1;
      host.files[path].clear();
    } else if (!host.files.count(path)) {
      return -1;
    }
    host.open[host.next] = {path, 0};
    return host.next++;
  }
  static int64_t V_CALL Read(intptr_t file, void* buffer, uint64_t bytes, void* data) {
    HostFiles& host = Of(data);
    if (host.Fails() || !host.open.count(file)) return -1;
    Handle& handle = host.open[file];
    const std::string& from = host.files[handle.path];
    const size_t count = std::min<size_t>(bytes, from.size() - std::min(from.size(), handle.position));
    std::memcpy(buffer, from.data() + handle.position, count);
    handle.position += count;
    return static_cast<int64_t>(count);
  }
  static int64_t V_CALL Write(intptr_t file, const void* buffer, uint64_t bytes, void* data) {
    HostFiles& host = Of(data);
    if (host.Fails() || !host.open.count(file)) return -1;
    Handle& handle = host.open[file];
    host.files[handle.path].replace(handle.position, bytes, static_cast<const char*>(buffer), bytes);
    handle.position += bytes;
    return static_cast<int64_t>(bytes);
  }
  static int64_t V_CALL Seek(intptr_t file, int64_t offset, int32_t origin, void* data) {
    HostFiles& host = Of(data);
    if (host.Fails() || !host.open.count(file) || origin != 0) return -1;
    return static_cast<int64_t>(host.open[file].position = static_cast<size_t>(offset));
  }
  static int32_t V_CALL Close(intptr_t file, void* data) {
    HostFiles& host = Of(data);
    return host.open.erase(file) ? 0 : -1;
  }
};

class HostFunctions : public Redirect {
 protected:
  void Install() {
    V_RedirectIO(HostFiles::Open, HostFiles::Read, HostFiles::Write, HostFiles::Seek, HostFiles::Close, &host_);
  }
  HostFiles host_;
  Folder folder_;
};

TEST_F(HostFunctions, EveryOperationGoesToTheHostWithItsData) {
  Install();
  EXPECT_EQ(V_RedirectedOpen("host:/a", V_OpenRead), -1);
  const intptr_t file = V_RedirectedOpen("host:/a", V_OpenWrite | V_OpenCreate);
  ASSERT_EQ(file, 1000);
  EXPECT_EQ(V_RedirectedWrite(file, "picture", 7), 7);
  EXPECT_EQ(V_RedirectedSeek(file, 3, 0), 3);
  char buffer[8] = {};
  EXPECT_EQ(V_RedirectedRead(file, buffer, 8), 4);
  EXPECT_STREQ(buffer, "ture");
  EXPECT_EQ(V_RedirectedSeek(file, 0, 2), -1) << "the host's refusal is passed on";
  EXPECT_EQ(V_RedirectedClose(file), 0);
  EXPECT_EQ(V_RedirectedClose(file), -1);
  EXPECT_EQ(host_.files["host:/a"], "picture");

  // Taking the table away for a while and putting it back is what the exchange is for.
  Table saved;
  saved.functions.fill(kNone);
  ASSERT_EQ(Filter(saved, 31, 31), 1);
  EXPECT_EQ(V_RedirectedOpen("host:/a", V_OpenRead), -1);
  ASSERT_EQ(Filter(saved, 31, 31), 1);
  EXPECT_EQ(V_RedirectedOpen("host:/a", V_OpenRead), 1001);
  EXPECT_EQ(V_RedirectedClose(1001), 0);
}

TEST_F(HostFunctions, OneReplacedFunctionLeavesTheOthersToTheSystem) {
  WriteAll(folder_ / "real", "0123456789");
  REDIRECTFUNCTIONS record = {};
  record.uStructSize = sizeof(record);
  record.write = HostFiles::Write;
  record.writeData = &host_;
  ASSERT_EQ(V_UpdateRedirectFunctions(&record, 4), 1);
  EXPECT_EQ(V_UsesRedirectIO(), 1);
  const intptr_t file = V_RedirectedOpen((folder_ / "real").c_str(), V_OpenRead | V_OpenWrite);
  ASSERT_NE(file, -1);
  EXPECT_EQ(V_RedirectedWrite(file, "x", 1), -1) << "the host does not know the handle";
  EXPECT_EQ(host_.calls, 1);
  char buffer[4] = {};
  EXPECT_EQ(V_RedirectedSeek(file, 8, 0), 8);
  EXPECT_EQ(V_RedirectedRead(file, buffer, 4), 2);
  EXPECT_EQ(V_RedirectedClose(file), 0);
  EXPECT_EQ(ReadAll(folder_ / "real"), "0123456789");
}

TEST_F(HostFunctions, TemporaryFilesAreCopiedThroughTheHost) {
  std::string bytes(300001, '\0');
  Random random(7);
  for (char& c : bytes) c = static_cast<char>(random.Next());
  Install();
  for (int failAt = 0;; ++failAt) {  // 0: nothing fails; then each call of the host in turn
    host_.files = {{"host:/from", bytes}, {"host:/to", "old and longer than nothing"}};
    host_.calls = 0;
    host_.failAt = failAt;
    const int32_t status = V_RedirectedTempFileCopy("host:/from", "host:/to");
    EXPECT_TRUE(host_.open.empty()) << "a handle was left open, call " << failAt;
    EXPECT_EQ(host_.files["host:/from"], bytes);
    if (failAt == 0 || host_.calls < failAt) {
      EXPECT_EQ(status, 1);
      EXPECT_TRUE(host_.files["host:/to"] == bytes);
      if (failAt != 0) break;
    } else {
      EXPECT_TRUE(status == -7 || status == -1 || status == -1902 || status == -1903) << status << " at " << failAt;
    }
    ASSERT_LT(failAt, 1000);
  }
  host_.failAt = 0;
  EXPECT_EQ(V_RedirectedTempFileCopy("host:/none", "host:/to2"), -7);
  EXPECT_EQ(host_.files.count("host:/to2"), 0u);
}

}  // namespace
