// Temporary files: the directory and the options of the process, unique names, and the files behind them.
#include "vexakrn.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <set>
#include <string>

#include "abi/child.h"

#ifndef _WIN32
#include <sys/stat.h>
#endif

namespace {

using vexatest::Folder;
using vexatest::FromUtf8;
using vexatest::ReadAll;
using vexatest::WriteAll;

#ifdef _WIN32
const std::string kSeparator = "\\";
#else
const std::string kSeparator = "/";
#endif

std::string Directory() {
  char buffer[1100];
  return V_GetTempFileDirectoryUTF8(buffer, sizeof(buffer)) == 1 ? buffer : "";
}

// Every test works in a folder of its own and leaves the process's settings as they are at the start.
class TempFiles : public ::testing::Test {
 protected:
  void SetUp() override {
    Reset();
    ASSERT_EQ(SetGlobalTempFileDirectory(folder_.Name().c_str()), 1);
  }
  void TearDown() override { Reset(); }
  static void Reset() {
    const TEMPFILEOPTIONS atFirst = {24, 2, 0, 128, 8, 16};
    V_SetTempFileOptions(&atFirst);
    SetGlobalTempFileDirectory(nullptr);
    V_RedirectIO(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
  }
  // A name, or the status as text when there is none.
  static std::string Draw(uint32_t mode, uint32_t flags = 0, const char* directory = nullptr,
                          const char* prefix = nullptr, const char* extension = nullptr, uint32_t capacity = 600) {
    std::string buffer(capacity + 8, '\x7F');
    const int32_t status = V_GetTempFileNameUTF8(buffer.data(), capacity, mode, directory, prefix, extension, flags);
    EXPECT_EQ(buffer.substr(capacity), std::string(8, '\x7F')) << "written past a buffer of " << capacity;
    const std::string text = capacity > 0 ? buffer.c_str() : "";
    EXPECT_TRUE(status == 1 || text.empty()) << "a failure left " << text;
    return status == 1 ? text : std::to_string(status);
  }
  static bool Exists(const std::string& path) {
    return std::filesystem::exists(std::filesystem::symlink_status(FromUtf8(path)));
  }
  Folder folder_;
};

// The text between the prefix and the extension, up to the counter.
std::string Tag(const char* word) {
  return std::string("-V") + word + "-" + std::to_string(vexatest::OwnProcessId()) + "-";
}

TEST_F(TempFiles, TheModeDecidesTheTagAndTheCreation) {
  struct Case {
    uint32_t mode, flags;
    const char* word;
    bool created;
  };
  const uint32_t current = V_TEMPFILE_CURRENT_MODE;
  for (uint32_t processMode : {1u, 2u, 3u}) {
    TEMPFILEOPTIONS options = {24, processMode, 0, 0, 0, 0};
    ASSERT_EQ(V_SetTempFileOptions(&options), 1);
    const char* words[] = {"", "D", "DM", "M"};
    for (const Case& c :
         {Case{1, 0, "D", true}, Case{1, 1, "D", true}, Case{2, 0, "DM", false}, Case{2, 1, "DM", true},
          Case{2, 8, "DM", false}, Case{0, 0, "DM", false}, Case{0, 1, "DM", true}, Case{3, 0, "M", false},
          Case{3, 1, "M", false}, Case{77, 1, "DM", false}, Case{current, 0, words[processMode], processMode == 1},
          Case{current, 1, words[processMode], processMode != 3}}) {
      const std::string name = Draw(c.mode, c.flags, nullptr, "pre", "ext");
      SCOPED_TRACE(name + ", mode " + std::to_string(c.mode) + ", flags " + std::to_string(c.flags));
      const std::string start = folder_.Name() + kSeparator + "pre" + Tag(c.word);
      ASSERT_EQ(name.substr(0, start.size()), start);
      EXPECT_EQ(name.substr(name.size() - 4), ".ext");
      const std::string numbers = name.substr(start.size(), name.size() - 4 - start.size());  // thread and counter
      EXPECT_EQ(numbers.find_first_not_of("0123456789abcdef-"), std::string::npos);
      EXPECT_EQ(std::count(numbers.begin(), numbers.end(), '-'), 1);
      EXPECT_EQ(Exists(name), c.created);
      if (c.created) {
        EXPECT_EQ(std::filesystem::file_size(FromUtf8(name)), 0u);
#ifndef _WIN32
        struct stat info;
        ASSERT_EQ(stat(name.c_str(), &info), 0);
        EXPECT_EQ(info.st_mode & 0777u, 0600u) << "the file is open to others";
#endif
      }
      EXPECT_EQ(V_DeleteTempFile(name.c_str()), 1);
    }
    char buffer[600];
    ASSERT_EQ(V_GetTempFileName2UTF8(buffer, sizeof(buffer), nullptr, nullptr, nullptr, V_TempFileCreateNow), 1);
    EXPECT_NE(std::string(buffer).find(Tag(words[processMode])), std::string::npos) << buffer;
    EXPECT_EQ(Exists(buffer), processMode != 3);
    EXPECT_EQ(V_DeleteTempFile(buffer), 1);
  }
  EXPECT_TRUE(folder_.Files().empty());
}

TEST_F(TempFiles, PartsThatAreNotGivenGetTheirDefaults) {
  const std::string pid = std::to_string(vexatest::OwnProcessId());
  for (const char* none : {static_cast<const char*>(nullptr), ""}) {
    const std::string name = Draw(2, 0, none, none, none);
    const std::string start = folder_.Name() + kSeparator + pid + "-V_" + Tag("DM");
    EXPECT_EQ(name.substr(0, start.size()), start);
    EXPECT_EQ(name.substr(name.size() - 4), ".tmp");
    EXPECT_EQ(V_DeleteTempFile(name.c_str()), 1);
  }
}

TEST_F(TempFiles, PointsAndSeparatorsAreNotDoubled) {
  const auto start = [&](const std::string& name) { return name.substr(0, name.rfind('-')); };
  const std::string plain = Draw(3, 0, folder_.Name().c_str(), "p", "png");
  EXPECT_EQ(start(Draw(3, 0, (folder_.Name() + kSeparator).c_str(), "p", "png")), start(plain));
  EXPECT_EQ(plain.substr(plain.rfind('.')), ".png");
  const std::string pointed = Draw(3, 0, folder_.Name().c_str(), "p", ".png");
  EXPECT_EQ(pointed.substr(pointed.size() - 4), ".png");
  EXPECT_NE(pointed[pointed.size() - 5], '.');
  const std::string twice = Draw(3, 0, nullptr, "p", "..x");
  EXPECT_EQ(twice.substr(twice.size() - 3), "..x") << "one point is skipped";
  for (const char* directory : {"some/", "some\\", "C:"}) {
    const std::string name = Draw(3, 0, directory, "p", "x");
    EXPECT_EQ(name.substr(0, std::strlen(directory) + 3), std::string(directory) + "p-V");
  }
}

// The buffer must hold directory, prefix, extension and 13 more; what else is missing is taken off the tag.
TEST_F(TempFiles, AShortBufferShortensTheTag) {
  const std::string directory = folder_.Name(), start = directory + kSeparator + "pre";
  const std::string whole = Draw(2, 0, directory.c_str(), "pre", "ab");
  const std::string tag = whole.substr(start.size(), whole.rfind('-') + 1 - start.size());
  const auto least = static_cast<uint32_t>(directory.size() + 3 + 2 + 13);
  std::set<std::string> drawn = {whole};
  for (uint32_t flags : {0u, 1u})
    for (uint32_t capacity = 0; capacity < least + 60; ++capacity) {
      const std::string name = Draw(2, flags, directory.c_str(), "pre", capacity % 2 ? ".ab" : "ab", capacity);
      if (capacity < least) {
        ASSERT_EQ(name, "-290") << capacity;
        continue;
      }
      SCOPED_TRACE(name);
      ASSERT_LT(name.size(), capacity);
      ASSERT_EQ(name.substr(0, start.size()), start);
      ASSERT_EQ(name.substr(name.size() - 3), ".ab");
      const std::string middle = name.substr(start.size(), name.size() - 3 - start.size());
      size_t common = 0;
      while (common + 1 < middle.size() && common < tag.size() && middle[common] == tag[common]) ++common;
      EXPECT_EQ(middle.find_first_not_of("0123456789abcdef", common), std::string::npos);
      if (capacity >= least + tag.size()) {
        EXPECT_EQ(common, tag.size()) << "the tag was shortened without need";
      }
      EXPECT_TRUE(drawn.insert(name).second) << "drawn twice";
      EXPECT_EQ(Exists(name), flags == 1);
    }
  for (int i = 0; i < 300; ++i) {
    const std::string name = Draw(2, i % 2 ? 1u : 0u, directory.c_str(), "pre", "ab", least);
    EXPECT_EQ(name.find(directory), 0u) << name;
    EXPECT_TRUE(drawn.insert(name).second) << name << " was drawn twice";
  }
  EXPECT_EQ(V_GetTempFileNameUTF8(nullptr, 600, 2, nullptr, nullptr, nullptr, 0), -814);
  for (const std::string& name : drawn) EXPECT_EQ(V_DeleteTempFile(name.c_str()), 1);
  EXPECT_TRUE(folder_.Files().empty());
}

TEST_F(TempFiles, NamesAreUtf8) {
  const std::string directory = folder_ / "Bilder \xE6\x97\xA5\xF0\x9F\x96\xBC";
  std::filesystem::create_directory(FromUtf8(directory));
  ASSERT_EQ(SetGlobalTempFileDirectory(directory.c_str()), 1);
  EXPECT_EQ(Directory(), directory);
  const std::string name = Draw(1, 0, nullptr, "pr\xC3\xA4", "\xC3\xB6");
  EXPECT_EQ(name.find(directory + kSeparator + "pr\xC3\xA4-VD-"), 0u) << name;
  EXPECT_EQ(name.substr(name.size() - 3), ".\xC3\xB6");
  EXPECT_TRUE(Exists(name));
  EXPECT_EQ(V_DeleteTempFile(name.c_str()), 1);
  EXPECT_FALSE(Exists(name));
}

TEST_F(TempFiles, ACreationThatFailsTellsWhyAndLeavesNothing) {
  EXPECT_EQ(Draw(1, 0, (folder_ / "missing").c_str()), "-1903");
  EXPECT_EQ(Draw(2, 1, (folder_ / "missing").c_str()), "-1903");
  WriteAll(folder_ / "file", "x");
  EXPECT_EQ(Draw(1, 0, (folder_ / "file").c_str()), "-1903") << "a file is no directory";
  EXPECT_EQ(folder_.Files().size(), 1u);
  EXPECT_EQ(Draw(1, 0, nullptr, std::string(300, 'p').c_str()), "-1903") << "longer than a file name may be";
}

TEST_F(TempFiles, ADeniedDirectoryHasItsOwnCode) {
#ifdef _WIN32
  GTEST_SKIP() << "needs a directory that denies files to everybody";
#else
  std::string denied = "/sys";  // denies files to the superuser too
  if (geteuid() != 0) {
    denied = folder_ / "denied";
    std::filesystem::create_directory(denied);
    chmod(denied.c_str(), 0500);
  } else if (!std::filesystem::exists("/sys/kernel")) {
    GTEST_SKIP() << "no directory here denies files to the superuser";
  }
  EXPECT_EQ(Draw(1, 0, denied.c_str()), "-1902");
  EXPECT_EQ(Draw(2, 1, denied.c_str()), "-1902");
  EXPECT_EQ(Draw(2, 0, denied.c_str()).find(denied), 0u) << "a reserved name needs no access";
#endif
}

// --- reserved names -----------------------------------------------------------------------------------------------

TEST_F(TempFiles, AReservedNameIsOnlyCreatedWhereNothingIs) {
  const uint32_t create = V_OpenWrite | V_OpenCreate;
  for (uint32_t mode : {2u, 3u}) {
    const std::string name = Draw(mode);
    EXPECT_EQ(V_RedirectedTempFileOpenA(name.c_str(), V_OpenRead), -1) << "there is no file yet";
    WriteAll(name, "planted");
    EXPECT_EQ(V_RedirectedTempFileOpenA(name.c_str(), create), -1);
    EXPECT_EQ(ReadAll(name), "planted");
    std::filesystem::remove(FromUtf8(name));
#ifndef _WIN32
    WriteAll(folder_ / "victim", "kept");
    std::filesystem::create_symlink(folder_ / "victim", name);
    EXPECT_EQ(V_RedirectedTempFileOpenA(name.c_str(), create), -1);
    EXPECT_EQ(ReadAll(folder_ / "victim"), "kept");
    std::filesystem::remove(name);
    std::filesystem::remove(folder_ / "victim");
#endif
    // The owner creates it, and from then on it is a file like any other.
    for (int time = 0; time < 2; ++time) {
      const intptr_t file = V_RedirectedTempFileOpenA(name.c_str(), create);
      ASSERT_NE(file, -1) << time;
      EXPECT_EQ(V_RedirectedWrite(file, "data", 4), 4);
      EXPECT_EQ(V_RedirectedClose(file), 0);
      EXPECT_EQ(ReadAll(name), "data");
    }
    EXPECT_EQ(V_DeleteTempFile(name.c_str()), 1);
    EXPECT_FALSE(Exists(name));
  }
}

TEST_F(TempFiles, DeletingTakesTheNameOffTheList) {
  const std::string name = Draw(3);
  EXPECT_EQ(V_DeleteTempFile(name.c_str()), 1) << "a file that is gone is no error";
  WriteAll(name, "somebody else's by now");
  const intptr_t file = V_RedirectedTempFileOpenA(name.c_str(), V_OpenWrite | V_OpenCreate);
  EXPECT_NE(file, -1) << "the name is not reserved any more";
  EXPECT_EQ(V_RedirectedClose(file), 0);
  EXPECT_EQ(V_RedirectedTempFileDelete(name.c_str()), 1);
  EXPECT_FALSE(Exists(name));
}

// --- copies -------------------------------------------------------------------------------------------------------

TEST_F(TempFiles, CopiesReplaceTheTarget) {
  const std::string from = folder_ / "from \xC3\xA9", to = folder_ / "to \xC3\xA9";
  for (size_t size : {0u, 1u, 65536u, 1000003u}) {
    std::string bytes(size, '\0');
    for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>(i * 7 + i / 251);
    WriteAll(from, bytes);
    WriteAll(to, std::string(2000, 'o'));
    EXPECT_EQ(V_RedirectedTempFileCopy(from.c_str(), to.c_str()), 1);
    EXPECT_TRUE(ReadAll(to) == bytes) << size;
    EXPECT_TRUE(ReadAll(from) == bytes) << size;
  }
  EXPECT_EQ(V_RedirectedTempFileCopy(from.c_str(), (folder_ / "./from \xC3\xA9").c_str()), -13) << "onto itself";
  EXPECT_EQ(ReadAll(from).size(), 1000003u);
  std::filesystem::remove(FromUtf8(to));
  EXPECT_EQ(V_RedirectedTempFileCopy((folder_ / "none").c_str(), to.c_str()), -7);
  EXPECT_EQ(V_RedirectedTempFileCopy(folder_.Name().c_str(), to.c_str()), -7) << "a directory cannot be copied";
  EXPECT_FALSE(Exists(to));
  EXPECT_EQ(V_RedirectedTempFileCopy(from.c_str(), (folder_ / "missing/to").c_str()), -1903);
  EXPECT_EQ(V_RedirectedTempFileCopy(nullptr, to.c_str()), -814);
  EXPECT_EQ(V_RedirectedTempFileCopy(from.c_str(), nullptr), -814);
}

// --- directory and options ----------------------------------------------------------------------------------------

TEST_F(TempFiles, OptionsAreKeptAndTheModeHasTwoSpecialValues) {
  TEMPFILEOPTIONS options;
  std::memset(&options, 0xEE, sizeof(options));
  ASSERT_EQ(V_GetTempFileOptions(&options), 1);
  const TEMPFILEOPTIONS atFirst = {24, 2, 0, 128, 8, 16};
  EXPECT_EQ(std::memcmp(&options, &atFirst, sizeof(options)), 0);

  const auto set = [](uint32_t mode, uint32_t other) {
    const TEMPFILEOPTIONS wanted = {24, mode, other, other + 1, other + 2, other + 3};
    EXPECT_EQ(V_SetTempFileOptions(&wanted), 1);
    TEMPFILEOPTIONS got;
    EXPECT_EQ(V_GetTempFileOptions(&got), 1);
    EXPECT_EQ(std::memcmp(&got.uOption1, &wanted.uOption1, 16), 0);
    EXPECT_EQ(got.uMode, V_GetTempFileMode());
    return V_GetTempFileMode();
  };
  EXPECT_EQ(set(3, 10), 3u);
  EXPECT_EQ(set(0xFFFFFFFF, 20), 3u);
  EXPECT_EQ(set(1, 30), 1u);
  EXPECT_EQ(set(0, 40), 2u);
  EXPECT_EQ(set(0xFFFFFFFF, 50), 2u);
  for (uint32_t size : {0u, 23u, 25u, 28u}) {
    const TEMPFILEOPTIONS bad = {size, 3, 0, 0, 0, 0};
    EXPECT_EQ(V_SetTempFileOptions(&bad), -789) << size;
  }
  EXPECT_EQ(V_SetTempFileOptions(nullptr), -814);
  EXPECT_EQ(V_GetTempFileOptions(nullptr), -814);
  EXPECT_EQ(V_GetTempFileMode(), 2u);
}

#ifndef _WIN32
#endif

}  // namespace
