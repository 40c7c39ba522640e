// What goes through `vexa convert` comes out as it was: pixels, depth, perspective, frames.
#include <array>

#include "codecs/storage.h"
#include "codecs/upright.h"
#include "support/pixelmodel.h"
#include "tool/tool.h"

namespace tool {
namespace {

TEST(Convert, EverySampleComesThroughEveryStorageExactly) {
  for (const std::string& name : SampleNames()) {
    if (name.ends_with(".gif")) continue;  // its depths, 3 or 7 bits, become 4 and 8: see the frames' own test
    Decoded original(SamplePath(name));
    const std::string extension = CanRead("x.tif")         ? ".tif"
                                  : name.ends_with(".ppm") ? ".pam"
                                                           : name.substr(name.rfind('.'));
    for (const std::string storage : {"conventional", "tiled", "disk", "compressed", "supercompressed"}) {
      SCOPED_TRACE(name + " by " + storage);
      const Folder folder;
      const std::string out = folder / ("out" + extension);
      if (!vexa::StorageHolds(vexa::StorageOfName(storage), original.bitmap.Bits())) {
        ExpectOneLine(Vexa({"convert", SamplePath(name), out, "--storage", storage}), 1,
                      ": " + storage + " storage holds 1");
        EXPECT_TRUE(folder.Names().empty());
        continue;
      }
      const Json before = InfoOf(SamplePath(name), "--storage " + storage)["images"][0], held = before["storage"];
      EXPECT_EQ(held["kind"], storage);
      if (storage.ends_with("compressed") && name == "doc_text_300dpi.tif") {
        EXPECT_LT(held["bytes"].get<double>(), 0.8 * held["packed_bytes"].get<double>());
      }
      ExpectQuiet({"convert", SamplePath(name), out, "--storage", storage});
      Decoded converted(out);
      ExpectSameRows(original, converted);
      EXPECT_EQ(original.bitmap.Perspective(), converted.bitmap.Perspective());
      const Json after = InfoOf(out)["images"][0];
      for (const char* field : {"kind", "high_bit", "signed", "palette_colors"})
        EXPECT_EQ(before[field], after[field]) << field;
      EXPECT_EQ(folder.Names().size(), 1u);
    }
  }
}

// The sums are those of another decoder's pixels.
TEST(Convert, DecodersAgreeWithAnotherProgram) {
  struct {
    const char* name;
    uint32_t crc;
  } const kCases[] = {{"photo_cat.png", 0x0F829D59},        {"pal4_hibiscus.png", 0x69B795FC},
                      {"pal8_hibiscus.png", 0x1E203642},    {"photo_gray.png", 0xDAE3FC0B},
                      {"doc_manuscript.png", 0x9CBFF5E7},   {"doc_text_300dpi.tif", 0x4E374FA9},
                      {"doc_mixed_300dpi.pbm", 0xAF220E82}, {"photo_tulips_alpha.png", 0xCC4C2571},
                      {"photo_flower.jpg", 0x188260CE},     {"anim_cat_mixed.gif", 0xDFFEF858}};
  for (const auto& test : kCases) {
    if (!CanRead(test.name)) continue;
    uint32_t crc = 0xFFFFFFFF;
    for (const char byte : Decoded(SamplePath(test.name)).Colors()) {
      crc ^= static_cast<uint8_t>(byte);
      for (int bit = 0; bit < 8; ++bit) crc = crc >> 1 ^ (crc & 1 ? 0xEDB88320u : 0);
    }
    EXPECT_EQ(crc ^ 0xFFFFFFFF, test.crc) << test.name;
  }
}

constexpr char kAlphaHeader8[] = "P7\nWIDTH 7\nHEIGHT 3\nDEPTH 4\nMAXVAL 255\nTUPLTYPE RGB_ALPHA\nENDHDR\n";
constexpr char kAlphaHeader16[] = "P7\nWIDTH 7\nHEIGHT 3\nDEPTH 4\nMAXVAL 65535\nTUPLTYPE RGB_ALPHA\nENDHDR\n";

// Each kind of raw file: the record that it becomes, and that it comes back byte for byte, also by way of other formats.
TEST(Convert, DepthsMapWithoutLoss) {
  const struct {
    const char *extension, *header;  // the header ends before the samples; its maximum is `maximum`
    size_t samples;
    uint32_t maximum;
    int bits;
    const char* order;
    int highBit;
    const char* ways;  // formats that keep all of it
  } kCases[] = {{"pgm", "P5\n7 3\n1\n", 21, 1, 1, "gray", 0, "png tif gif pam"},
                {"pgm", "P5\n7 3\n7\n", 21, 7, 3, "gray", 2, "gif"},
                {"pgm", "P5\n7 3\n15\n", 21, 15, 4, "gray", 3, "png tif gif pam"},
                {"pgm", "P5\n9 3\n127\n", 27, 127, 7, "gray", 6, "gif"},
                {"pgm", "P5\n7 3\n100\n", 21, 100, 8, "gray", 6, "png pam"},
                {"pgm", "P5\n7 3\n255\n", 21, 255, 8, "gray", 7, "png tif gif pam"},
                {"pgm", "P5\n7 3\n1023\n", 21, 1023, 16, "gray", 9, "tif pam"},
                {"pgm", "P5\n7 3\n4095\n", 21, 4095, 12, "gray", 11, "tif pam"},
                {"pgm", "P5\n7 3\n65535\n", 21, 65535, 16, "gray", 15, "png tif pam"},
                {"ppm", "P6\n7 3\n31\n", 63, 31, 24, "bgr", 4, "pam"},
                {"ppm", "P6\n7 3\n255\n", 63, 255, 24, "bgr", 7, "png tif pam"},
                {"ppm", "P6\n7 3\n4095\n", 63, 4095, 48, "bgr", 11, "tif pam"},
                {"ppm", "P6\n7 3\n65535\n", 63, 65535, 48, "bgr", 15, "png tif pam"},
                {"pam", kAlphaHeader8, 84, 255, 32, "bgr", -1, "png tif"},
                {"pam", kAlphaHeader16, 84, 65535, 64, "bgr", 15, "png tif"}};
  const Folder folder;
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.header);
    const std::string in = folder / ("in." + std::string(test.extension));
    const std::string content = RandomPnm(test.header, test.samples, test.maximum);
    Save(in, content);
    const Json image = InfoOf(in)["images"][0];
    EXPECT_EQ(image["bits_per_pixel"], test.bits);
    EXPECT_EQ(image["order"], test.order);
    EXPECT_EQ(image["high_bit"], test.highBit);
    std::istringstream ways(std::string(test.ways) + " " + test.extension);
    for (std::string way; ways >> way;) {
      if (!CanRead("x." + way)) continue;
      SCOPED_TRACE(way);
      const std::string middle = folder / ("middle." + way), back = folder / ("back." + std::string(test.extension));
      ExpectQuiet({"convert", in, middle});
      ExpectQuiet({"convert", middle, back});
      EXPECT_TRUE(Load(back) == content);
    }
  }
}

TEST(Convert, PerspectiveIsKeptOrTurnedUpright) {
  if (!CanRead("x.tif") || !CanRead("x.png") || !CanRead("x.jpg")) GTEST_SKIP() << "this build lacks the codecs";
  Decoded upright(SamplePath("orient_rgb_upright.png"));
  for (int perspective = 1; perspective <= 8; ++perspective) {
    SCOPED_TRACE(perspective);
    const Folder folder;
    const std::string in = SamplePath("orient_rgb_" + std::to_string(perspective) + ".tif");
    ExpectQuiet({"convert", in, folder / "out.png"});
    Decoded png(folder / "out.png");
    ExpectSameRows(upright, png);
    ExpectQuiet({"convert", in, folder / "out.jpg"});
    EXPECT_EQ(InfoOf(folder / "out.jpg")["images"][0]["perspective"], perspective);
  }
}

TEST(Convert, FramesKeepTheirFieldsAndPixels) {
  if (!CanRead("x.gif") || !CanRead("x.tif")) GTEST_SKIP() << "this build lacks the codecs";
  // Left, top, width, height, delay in milliseconds, disposal, transparent or not, interlaced or not.
  const std::array<int, 8> kFrames[10] = {{0, 0, 240, 180, 400, 0, 0, 0},    {8, 20, 64, 56, 120, 3, 1, 0},
                                          {60, 40, 64, 56, 120, 3, 1, 0},    {110, 60, 80, 70, 80, 3, 1, 0},
                                          {140, 110, 90, 60, 250, 1, 0, 0},  {20, 100, 48, 42, 150, 2, 1, 0},
                                          {70, 95, 48, 42, 150, 2, 1, 0},    {0, 0, 240, 180, 0, 1, 1, 0},
                                          {190, 130, 50, 50, 1000, 3, 0, 1}, {5, 5, 100, 100, 500, 1, 1, 0}};
  const Json images = InfoOf(SamplePath("anim_cat_mixed.gif"))["images"];
  ASSERT_EQ(images.size(), 10u);
  for (size_t i = 0; i < 10; ++i) {
    const Json &image = images[i], frame = image.value("frame", Json{{"left", 0}});
    const bool transparent = !frame["transparent_index"].is_null();
    EXPECT_EQ((std::array<int, 8>{frame["left"], frame["top"], image["width"], image["height"], frame["delay_ms"],
                                  frame["disposal"], transparent, image["interlaced"].get<bool>()}),
              kFrames[i])
        << i;
  }
  for (const char* name : {"anim_cat_mixed.gif", "anim_squares.gif", "anim_hearts_mixed.gif"}) {
    const Folder folder;
    ExpectQuiet({"convert", SamplePath(name), folder / "out.gif"});
    ExpectQuiet({"convert", SamplePath(name), folder / "out.tif"});
    ExpectSamePages(SamplePath(name), folder / "out.gif");
    const int32_t pages = Decoded(folder / "out.tif").pages;
    EXPECT_EQ(pages, Decoded(SamplePath(name)).pages);
    for (int32_t i = 0; i < pages; ++i)
      EXPECT_TRUE(Decoded(SamplePath(name), i).Colors() == Decoded(folder / "out.tif", i).Colors()) << i;
    // One page alone, where the format holds one.
    ExpectQuiet({"convert", SamplePath(name), folder / "one.gif", "--page", "3"});
    EXPECT_EQ(InfoOf(folder / "one.gif")["pages"], 1);
  }
}

// Held against the engine's pixel function, which maps displayed positions on its own. The last is so tall that a band
// holds only a few of its columns.
TEST(UprightRows, ShowWhatTheEngineShowsAtEveryDepthAndPerspective) {
  vexatest::Random random(0x5eed);
  for (const int bits : {1, 2, 3, 4, 5, 6, 7, 8, 12, 16, 24, 32, 48, 64, 0}) {
    const bool tall = bits == 0;
    vexa::Bitmap bitmap;
    bitmap.Describe(tall ? 35 : 19, tall ? 150000 : 13, tall ? 24 : bits);
    bitmap.Allocate(V_MemoryConventional);
    for (int32_t y = 0; y < bitmap.Height(); ++y) bitmap.PutRow(y, random.Bytes(bitmap.RowBytes()).data());
    for (int perspective = tall ? 5 : 1; perspective <= 8; ++perspective) {
      SCOPED_TRACE(std::to_string(bits) + " bits, perspective " + std::to_string(perspective));
      bitmap.Record().ViewPerspective = perspective;
      vexa::UprightRows rows(bitmap);
      for (int32_t y = 0; y < rows.Height(); ++y)
        for (int32_t i = 0; i < (tall ? 50 : rows.Width()); ++i) {
          const int32_t x = tall ? random.Between(0, rows.Width() - 1) : i;
          uint64_t want = 0;
          ASSERT_EQ(V_GetPixelData(&bitmap.Record(), &want, y, x, sizeof want), 1);
          ASSERT_EQ(vexatest::PixelAt(rows.Row(y), x, bitmap.Bits()), want) << "row " << y << ", column " << x;
        }
    }
  }
}

}  // namespace
}  // namespace tool
