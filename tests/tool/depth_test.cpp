// Pages in another depth, and palettes as files.
#include "codecs/palettefile.h"
#include "tool/tool.h"

namespace tool {
namespace {

// One call of the engine, in place.
struct Step {
  int32_t bits;
  uint32_t options = 0;
  int32_t method = V_DitheringNone;
};

std::vector<std::string> Convert(const std::string& in, const std::string& out, const std::string& options) {
  return Words("convert " + in + " " + out + " " + options);
}

TEST(Depth, EveryFormatHoldsWhatTheEngineMakesOrRefuses) {
  constexpr uint32_t kFixed = V_ColorResFixedPalette, kMade = V_ColorResOptimized, kExact = V_ColorResSlowMatch;
  const struct {
    const char *sample, *options;
    std::vector<Step> steps;
  } kCases[] = {{"pal8_hibiscus.png", "--bits 5 --dither stucki", {{5, kMade, V_DitheringStucki}}},
                {"photo_cat.png", "--bits 8 --palette fixed --dither none", {{8, kFixed | kExact}}},
                {"photo_cat.png", "--bits 1", {{0}, {1, kFixed, V_DitheringFloydStein}}},
                {"pal4_hibiscus.png", "--bits 24 --order rgb", {{24}}},
                {"doc_text_300dpi.tif", "--bits 2", {{0}, {2, kFixed}}},
                {"mr_abdomen_u12.pgm", "--bits 16", {{16}}},
                {"rgb48_grass.png", "--bits 24", {{24}}}};
  for (const auto& test : kCases) {
    if (!CanRead(test.sample)) continue;
    Decoded expected(SamplePath(test.sample));
    for (const auto& [bits, options, method] : test.steps) {
      expected.bitmap.Record().DitherMethod = method;
      ASSERT_EQ(V_ColorResBitmap(&expected.bitmap.Record(), nullptr, 0, bits, options, nullptr, nullptr, 0), 1);
    }
    for (const vexa::Format& format : vexa::Formats()) {
      if (!format.create || format.name == "JPEG") continue;  // loses detail
      SCOPED_TRACE(std::string(test.sample) + " " + test.options + " " + std::string(format.name));
      const Folder folder;
      const std::string out = folder / ("out." + std::string(format.extensions[0]));
      const std::vector<std::string> line = Convert(SamplePath(test.sample), out, test.options);
      const bool holds = format.canHold(expected.bitmap);
      if (!holds) ExpectOneLine(Vexa(line), 1, std::string(format.name) + " holds ");
      ASSERT_EQ(folder.Names().size(), 0u);
      if (!holds) continue;
      ExpectQuiet(line);
      EXPECT_TRUE(Decoded(out).Colors() == expected.Colors());
    }
  }
}

TEST(Depth, AlphaIsLaidOverWhite) {
  const Folder folder;
  const std::string header = "P7\nWIDTH 64\nHEIGHT 16\nDEPTH 4\nMAXVAL 255\nTUPLTYPE RGB_ALPHA\nENDHDR\n";
  const std::string in = RandomPnm(header, 4096, 255);
  Save(folder / "in.pam", in);
  std::string want = "P6\n64 16\n255\n";
  for (size_t i = 0; i < 3072; ++i) {
    const char* pixel = &in[header.size() + i / 3 * 4];
    const int sample = static_cast<uint8_t>(pixel[i % 3]), alpha = static_cast<uint8_t>(pixel[3]);
    want += static_cast<char>((sample * alpha + 255 * (255 - alpha) + 127) / 255);
  }
  ExpectQuiet({"convert", folder / "in.pam", folder / "out.ppm", "--bits", "24"});
  EXPECT_TRUE(Load(folder / "out.ppm") == want);
}

TEST(Depth, TransparentPixelsStayTransparent) {
  if (!CanRead("x.gif")) GTEST_SKIP() << "this build lacks the codec";
  const Folder folder;
  const std::string in = SamplePath("anim_hearts_mixed.gif"), deeper = folder / "out.gif", pam = folder / "out.pam";
  ExpectQuiet(Convert(in, deeper, "--bits 4"));
  for (const std::string& path : {in, deeper}) {
    ExpectQuiet(Convert(path, pam, "--page 1 --bits 32"));
    Decoded frame(in), alpha(pam);
    EXPECT_TRUE(frame.Colors() == alpha.Colors());
    for (int32_t i = 0; i < 256; ++i) {  // 16 pixels a row, index 0 is transparent
      uint8_t index = 0;
      ASSERT_EQ(V_GetPixelData(&frame.bitmap.Record(), &index, i / 16, i % 16, 1), 1);
      ASSERT_EQ(alpha.Row(i / 16)[static_cast<size_t>(i % 16 * 4 + 3)], index == 0 ? 0 : 255)
          << path << ", pixel " << i;
    }
  }
}

TEST(Palette, GoesOutAsAFileAndBackIntoAPicture) {
  if (!CanRead("x.png")) GTEST_SKIP() << "this build lacks the codec";
  const Folder folder;
  const std::string in = SamplePath("pal4_hibiscus.png"), file = folder / "a.gpl";
  EXPECT_EQ(Vexa({"palette", in, "--export", file, "--show", folder / "a.ppm"}).exitCode, 0);
  ExpectQuiet({"convert", SamplePath("photo_cat.png"), folder / "cat.png", "--bits", "4", "--palette", file});
  Decoded picture(in), drawing(folder / "a.ppm");
  for (const std::string& copy : {file, folder / "cat.png"})
    EXPECT_EQ(V_CompareBitmapToPalette(&picture.bitmap.Record(), vexa::LoadPalette(copy).data(), 16), 1) << copy;
  EXPECT_EQ(drawing.Row(50)[3 * 256], picture.bitmap.Palette()[15].rgbBlue);  // in the last square of two rows of 8
  Save(file, "GIMP Palette\r\nName: x\r\n# 1 2\r\n\r\n  0 0 0\r\n85 85\t85 dark gray\r\n170 170 170");
  EXPECT_EQ(Vexa({"palette", file}).output, file +
                                                ": palette of 3 colours\n  kind           gray, not in equal steps\n" +
                                                "  fixed palette  the start of that of 2 bits\n");
}

TEST(Depth, WrongPalettesAreToldInOneLine) {
  const Folder folder;
  const std::string in = SamplePath("ct_body_s16.pgm"), out = folder / "out.pam", bad = folder / "bad.gpl";
  Save(bad, "GIMP Palette\n1 2 256\n");
  ExpectOneLine(Vexa(Convert(in, out, "--bits 4 --palette " + bad)), 1, "line 2 is not red, green and blue");
  ExpectOneLine(Vexa(Convert(in, out, "--bits 4 --palette " + in)), 1, "no palette");
  EXPECT_EQ(folder.Names(), std::vector<std::string>{"bad.gpl"});
}

}  // namespace
}  // namespace tool
