// Files of the platform layer by itself; the same cases run on every system. Its blocks, mappings and views are held to
// their contents by the storage kinds that use them.
#include "platform/platform.h"

#include "platform/fault.h"
#include "support/testing.h"

namespace vexakrn::platform {
namespace {

using vexatest::TempDirectory;

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
  void TearDown() override { EXPECT_EQ(Live(), live_); }

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

}  // namespace
}  // namespace vexakrn::platform
