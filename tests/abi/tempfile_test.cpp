// Temporary files: the directory and the options of the process, unique names, and the files behind them.
#include "abi/child.h"

#ifndef _WIN32
#include <sys/stat.h>
#endif

namespace vexatest {
namespace {

#ifdef _WIN32
const std::string kSeparator = "\\";
#else
const std::string kSeparator = "/";
#endif

bool Exists(const std::string& path) {
  return std::filesystem::exists(std::filesystem::symlink_status(FromUtf8(path)));
}

// Every test works in a folder of its own; the process's settings are those of the start.
class TempFiles : public ::testing::Test {
 protected:
  // A name, or the status as text when there is none.
  static std::string Draw(uint32_t mode, uint32_t flags = 0, const char* directory = nullptr,
                          const char* prefix = nullptr, const char* extension = nullptr, uint32_t capacity = 600) {
    std::string buffer(capacity + 8, '\x7F');
    const int32_t status = V_GetTempFileNameUTF8(buffer.data(), capacity, mode, directory, prefix, extension, flags);
    EXPECT_EQ(buffer.substr(capacity), std::string(8, '\x7F')) << "written past a buffer of " << capacity;
    EXPECT_TRUE(status == 1 || capacity == 0 || buffer[0] == 0) << "a failure left " << buffer.c_str();
    return status == 1 ? buffer.c_str() : std::to_string(status);
  }
  TempDirectory folder_;
};

// The text between the prefix and the extension, up to the counter.
std::string Tag(const std::string& word) { return "-V" + word + "-" + std::to_string(OwnProcessId()) + "-"; }

TEST_F(TempFiles, TheModeDecidesTheTagAndTheCreation) {
  const uint32_t current = V_TEMPFILE_CURRENT_MODE;
  const char* words[] = {"", "D", "DM", "M"};
  for (const uint32_t processMode : {1u, 2u, 3u}) {
    const ScopedTempFileMode scoped(processMode);
    for (const auto& [mode, flags, word, created] : {std::tuple(1u, 0u, "D", true),
                                                     {1u, 1u, "D", true},
                                                     {2u, 0u, "DM", false},
                                                     {2u, 1u, "DM", true},
                                                     {2u, 8u, "DM", false},
                                                     {0u, 1u, "DM", true},
                                                     {3u, 1u, "M", false},
                                                     {77u, 1u, "DM", false},
                                                     {current, 0u, words[processMode], processMode == 1},
                                                     {current, 1u, words[processMode], processMode != 3}}) {
      const std::string name = Draw(mode, flags, nullptr, "pre", "ext");
      SCOPED_TRACE(name + ", mode " + std::to_string(mode) + ", flags " + std::to_string(flags));
      const std::string start = folder_.Name() + kSeparator + "pre" + Tag(word);
      ASSERT_EQ(name.substr(0, start.size()), start);
      EXPECT_EQ(Exists(name), created);
#ifndef _WIN32
      struct stat info = {};
      EXPECT_EQ(stat(name.c_str(), &info) == 0 ? info.st_mode & 0777u : 0600u, 0600u) << "the file is open to others";
#endif
      EXPECT_EQ(V_DeleteTempFile(name.c_str()), 1);
    }
  }
  char buffer[600];
  ASSERT_EQ(V_GetTempFileName2UTF8(buffer, sizeof(buffer), nullptr, nullptr, nullptr, V_TempFileCreateNow), 1);
  EXPECT_TRUE(std::string(buffer).find(Tag("DM")) != std::string::npos && V_DeleteTempFile(buffer) == 1) << buffer;
  EXPECT_TRUE(folder_.Names().empty());
}

TEST_F(TempFiles, PartsHaveDefaultsPointsAndSeparators) {
  const auto cut = [](std::string name) {  // without the counter
    const size_t counter = name.rfind('-') + 1;
    return name.erase(counter, name.find('.', counter) - counter);
  };
  // A directory of its own, with a name beyond ASCII.
  const std::string pid = std::to_string(OwnProcessId()), own = folder_ / "Bilder \xE6\x97\xA5\xF0\x9F\x96\xBC";
  std::filesystem::create_directory(FromUtf8(own));
  ASSERT_EQ(SetGlobalTempFileDirectory(own.c_str()), 1);
  char got[1100];
  ASSERT_EQ(V_GetTempFileDirectoryUTF8(got, sizeof(got)), 1);
  EXPECT_EQ(got, own);
  const std::string name = Draw(1, 0, nullptr, "pr\xC3\xA4", "\xC3\xB6");
  EXPECT_EQ(name.find(own + kSeparator + "pr\xC3\xA4-VD-"), 0u) << name;
  EXPECT_TRUE(Exists(name) && name.ends_with(".\xC3\xB6"));
  EXPECT_EQ(V_DeleteTempFile(name.c_str()), 1);
  EXPECT_FALSE(Exists(name));
  for (const char* none : {static_cast<const char*>(nullptr), ""})
    EXPECT_EQ(Draw(3, 0, none, none, none).find(own + kSeparator + pid + "-V_" + Tag("M")), 0u);
  const std::string plain = cut(Draw(3, 0, own.c_str(), "p", "png"));
  EXPECT_EQ(cut(Draw(3, 0, (own + kSeparator).c_str(), "p", "png")), plain);
  EXPECT_EQ(cut(Draw(3, 0, own.c_str(), "p", ".png")), plain);
  EXPECT_NE(Draw(3, 0, nullptr, "p", "..x").find("..x"), std::string::npos) << "one point is skipped";
  EXPECT_NE(Draw(3).find(".tmp"), std::string::npos);
  for (const std::string directory : {"some/", "some\\", "C:"})
    EXPECT_EQ(Draw(3, 0, directory.c_str(), "p", "x").find(directory + "p-V"), 0u);
}

// The buffer must hold directory, prefix, extension and 13 more; what else is missing is taken off the tag.
TEST_F(TempFiles, AShortBufferShortensTheTag) {
  const std::string directory = folder_.Name(), start = directory + kSeparator + "pre";
  const std::string whole = Draw(2, 0, directory.c_str(), "pre", "ab");
  const std::string tag = whole.substr(start.size(), whole.rfind('-') + 1 - start.size());
  const auto least = static_cast<uint32_t>(directory.size() + 3 + 2 + 13);
  std::set<std::string> drawn = {whole};
  for (uint32_t i = 0; i < 500; ++i) {
    const uint32_t flags = i % 2, capacity = least + (i < 120 ? i / 2 : 0);  // at last the shortest, many times
    const std::string name = Draw(2, flags, directory.c_str(), "pre", i % 3 ? ".ab" : "ab", capacity);
    SCOPED_TRACE(name);
    ASSERT_LT(name.size(), capacity);
    ASSERT_EQ(name.substr(0, start.size()), start);
    ASSERT_EQ(name.substr(name.size() - 3), ".ab");
    const std::string middle = name.substr(start.size(), name.size() - 3 - start.size());
    const auto common =
        static_cast<size_t>(std::mismatch(tag.begin(), tag.end(), middle.begin(), middle.end()).first - tag.begin());
    EXPECT_EQ(middle.find_first_not_of("0123456789abcdef", common), std::string::npos);
    EXPECT_TRUE(capacity < least + tag.size() || common == tag.size()) << "the tag was shortened without need";
    EXPECT_TRUE(drawn.insert(name).second) << "drawn twice";
    EXPECT_EQ(Exists(name), flags == 1);
  }
  for (uint32_t capacity = 0; capacity < least; ++capacity)
    EXPECT_EQ(Draw(2, 1, directory.c_str(), "pre", "ab", capacity), "-290") << capacity;
  EXPECT_EQ(V_GetTempFileNameUTF8(nullptr, 600, 2, nullptr, nullptr, nullptr, 0), -814);
  for (const std::string& name : drawn) EXPECT_EQ(V_DeleteTempFile(name.c_str()), 1);
  EXPECT_TRUE(folder_.Names().empty());
}

TEST_F(TempFiles, ACreationThatFailsTellsWhyAndLeavesNothing) {
  WriteAll(folder_ / "file", "x");
  for (const char* directory : {"missing", "file"}) EXPECT_EQ(Draw(1, 0, (folder_ / directory).c_str()), "-1903");
  EXPECT_EQ(Draw(2, 1, (folder_ / "missing").c_str()), "-1903");
  EXPECT_EQ(Draw(1, 0, nullptr, std::string(300, 'p').c_str()), "-1903") << "longer than a file name may be";
  EXPECT_EQ(folder_.Names().size(), 1u);
#ifndef _WIN32
  std::string denied = "/sys";  // denies files to the superuser too
  if (geteuid() != 0) {
    denied = folder_ / "denied";
    std::filesystem::create_directory(denied);
    chmod(denied.c_str(), 0500);
  } else if (!std::filesystem::exists("/sys/kernel")) {
    GTEST_SKIP() << "no directory here denies files to the superuser";
  }
  EXPECT_EQ(Draw(1, 0, denied.c_str()), "-1902");
  EXPECT_EQ(Draw(2, 0, denied.c_str()).find(denied), 0u) << "a reserved name needs no access";
#endif
}

// --- reserved names and copies ---

TEST_F(TempFiles, AReservedNameIsOnlyCreatedWhereNothingIs) {
  const auto create = [](const std::string& name) {
    const intptr_t file = V_RedirectedTempFileOpenA(name.c_str(), V_OpenWrite | V_OpenCreate);
    return file != -1 && V_RedirectedClose(file) == 0;
  };
  for (const uint32_t mode : {2u, 3u}) {
    const std::string name = Draw(mode), victim = folder_ / "victim";
    EXPECT_EQ(V_RedirectedTempFileOpenA(name.c_str(), V_OpenRead), -1) << "there is no file yet";
    WriteAll(name, "planted");
    EXPECT_FALSE(create(name));
    EXPECT_EQ(ReadAll(name), "planted");
    std::filesystem::remove(FromUtf8(name));
#ifndef _WIN32
    WriteAll(victim, "kept");
    std::filesystem::create_symlink(victim, name);
    EXPECT_FALSE(create(name));
    EXPECT_EQ(ReadAll(victim), "kept");
    std::filesystem::remove(name);
#endif
    EXPECT_TRUE(create(name) && create(name)) << "once the owner has created it, it is a file like any other";
    EXPECT_EQ(V_DeleteTempFile(name.c_str()), 1);
    EXPECT_FALSE(Exists(name));
    EXPECT_EQ(V_DeleteTempFile(name.c_str()), 1) << "a file that is gone is no error";
    WriteAll(name, "somebody else's by now");
    EXPECT_TRUE(create(name)) << "the name is not reserved any more";
  }
}

TEST_F(TempFiles, CopiesReplaceTheTarget) {
  const std::string from = folder_ / "from \xC3\xA9", to = folder_ / "to \xC3\xA9";
  for (const size_t size : {0u, 65536u, 1000003u}) {
    const std::vector<uint8_t> random = Random(size).Bytes(size);
    const std::string bytes(random.begin(), random.end());
    WriteAll(from, bytes);
    WriteAll(to, std::string(2000, 'o'));
    EXPECT_EQ(V_RedirectedTempFileCopy(from.c_str(), to.c_str()), 1);
    EXPECT_TRUE(ReadAll(to) == bytes) << size;
  }
  EXPECT_EQ(V_RedirectedTempFileCopy(from.c_str(), (folder_ / "./from \xC3\xA9").c_str()), -13) << "onto itself";
  std::filesystem::remove(FromUtf8(to));
  for (const std::string& none : {folder_ / "none", folder_.Name()})
    EXPECT_EQ(V_RedirectedTempFileCopy(none.c_str(), to.c_str()), -7) << none;
  EXPECT_FALSE(Exists(to));
  EXPECT_EQ(V_RedirectedTempFileCopy(from.c_str(), (folder_ / "missing/to").c_str()), -1903);
  EXPECT_EQ(V_RedirectedTempFileCopy(nullptr, to.c_str()), -814);
  EXPECT_EQ(V_RedirectedTempFileCopy(from.c_str(), nullptr), -814);
}

TEST_F(TempFiles, OptionsAreKeptAndTheModeHasTwoSpecialValues) {
  TEMPFILEOPTIONS options;
  ASSERT_EQ(V_GetTempFileOptions(&options), 1);
  const TEMPFILEOPTIONS atFirst = {24, 2, 0, 128, 8, 16};
  EXPECT_EQ(std::memcmp(&options, &atFirst, sizeof(options)), 0);
  constexpr uint32_t kCurrent = 0xFFFFFFFF;
  for (const auto& [mode, becomes] :
       {std::pair(0u, 2u), {3u, 3u}, {kCurrent, 3u}, {1u, 1u}, {0u, 2u}, {kCurrent, 2u}}) {
    const TEMPFILEOPTIONS wanted = {24, mode, mode + 10, 11, 12, 13};
    EXPECT_EQ(V_SetTempFileOptions(&wanted), 1);
    const TEMPFILEOPTIONS bad = {23, 3, 0, 0, 0, 0};
    EXPECT_EQ(V_SetTempFileOptions(&bad), -789);
    ASSERT_EQ(V_GetTempFileOptions(&options), 1);
    EXPECT_EQ(std::memcmp(&options.uOption1, &wanted.uOption1, 16), 0);
    EXPECT_TRUE(options.uMode == becomes && V_GetTempFileMode() == becomes) << mode;
  }
  EXPECT_EQ(V_SetTempFileOptions(&atFirst), 1);
  EXPECT_EQ(V_SetTempFileOptions(nullptr), -814);
  EXPECT_EQ(V_GetTempFileOptions(nullptr), -814);
}

}  // namespace
}  // namespace vexatest
