// Files of the platform layer by itself; the same cases run on every system. Its blocks, mappings and views are held to
// their contents by the storage kinds that use them.
#include "platform/platform.h"

#include "platform/fault.h"
#include "support/testing.h"

namespace vexakrn::platform {
namespace {

// Opens, writes or reads, closes; the error of the opening.
int32_t Move(const std::string& path, uint32_t mode, std::string& text) {
  File file = kNoFile;
  uint64_t done = 0;
  if (const int32_t error = System().openFile(path.c_str(), mode, &file); error != 0) return error;
  EXPECT_EQ(mode == kOpenRead ? System().readFile(file, text.data(), text.size(), &done)
                              : System().writeFile(file, text.data(), text.size(), &done),
            0);
  text.resize(done);
  return System().closeFile(file);
}
int32_t WriteTo(const std::string& path, uint32_t mode, std::string text) { return Move(path, mode, text); }
int32_t ReadFrom(const std::string& path, std::string* text) {
  text->assign(1000, '\0');
  return Move(path, kOpenRead, *text);
}

int32_t MakeScratch(const std::string& path, File* file) {
  return System().createScratchFile(path.c_str(), 100000, file);
}

// Every case must leave no resource behind.
struct PlatformTest : testing::Test {
  const LiveResources before = Live();
  ~PlatformTest() override { EXPECT_EQ(Live(), before); }
};

TEST_F(PlatformTest, FilesLiveUnderAnyUnicodeNameAndLongPath) {
  const vexatest::TempDirectory folder;
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
    EXPECT_EQ(text, "first");
    EXPECT_EQ(WriteTo(path, kOpenCreate, "2"), 0);
    EXPECT_EQ(ReadFrom(path, &text), 0);
    EXPECT_EQ(text, "2") << "creating cuts";
    EXPECT_EQ(System().deleteFile(path.c_str()), 0);
    EXPECT_FALSE(PathExists(path.c_str()));
    EXPECT_TRUE(IsNotFound(System().deleteFile(path.c_str())));
  }
#ifdef _WIN32
  const std::string malformed = folder / "x" + "\xC3(";
  EXPECT_NE(WriteTo(malformed, kOpenCreate, ""), 0);
  File none = kNoFile;
  EXPECT_NE(MakeScratch(malformed, &none), 0);
  EXPECT_FALSE(PathExists(malformed.c_str()));
#endif
}

TEST_F(PlatformTest, AScratchFileIsSeenByNobodyAndGoesWithItsHandle) {
  const vexatest::TempDirectory folder;
  const std::string path = folder / "\xC3\xA4.scratch";
  std::string text;
  File file = kNoFile, none = kNoFile;
  ASSERT_EQ(MakeScratch(path, &file), 0);
  EXPECT_NE(ReadFrom(path, &text), 0);
  std::vector<uint8_t> data(100000, 1);
  EXPECT_EQ(System().readAt(file, data.data(), data.size(), 0), 0);
  EXPECT_EQ(data, std::vector<uint8_t>(100000));
  CloseScratchFile(file);
  EXPECT_TRUE(folder.Names().empty());
  EXPECT_EQ(WriteTo(path, kOpenCreate, "mine"), 0);
  if (MakeScratch(path, &file) == 0) CloseScratchFile(file);
  EXPECT_EQ(ReadFrom(path, &text), 0);
  EXPECT_EQ(text, "mine") << "a file of that name must not be touched";
  EXPECT_NE(MakeScratch(folder / "missing/file", &none), 0);
}

}  // namespace
}  // namespace vexakrn::platform
