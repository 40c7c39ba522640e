// Rectangles cut out of pictures, and pages split from documents and joined again.
#include "tool/tool.h"

namespace tool {
namespace {

TEST(Crop, EveryOrientationShowsTheSameArea) {
  if (!CanRead("x.tif") || !CanRead("x.png")) GTEST_SKIP() << "this build lacks the codecs";
  Decoded upright(SamplePath("orient_rgb_upright.png"));
  const std::string all = upright.Colors();
  const std::tuple<const char*, int, int, int, int> kCases[] = {{"30,20,71,53", 30, 20, 71, 53},
                                                                {"-10,-5,40,30", 0, 0, 30, 25},
                                                                {"160,100,2147483647,2147483647", 160, 100, 11, 36},
                                                                {"170,0,1,200", 170, 0, 1, 136}};
  const Folder folder;
  for (int perspective = 1; perspective <= 8; ++perspective)
    for (const auto& [asked, left, top, width, height] : kCases) {
      const std::string sample = "~orient_rgb_" + std::to_string(perspective) + ".tif";
      SCOPED_TRACE(sample + ", " + asked);
      ExpectQuiet(Words("crop " + sample + " @out.tif --rect " + asked, &folder));
      Decoded crop(folder / "out.tif");
      EXPECT_EQ(crop.bitmap.Perspective(), perspective);
      ASSERT_EQ(crop.Width(), width);
      ASSERT_EQ(crop.Height(), height);
      const std::string part = crop.Colors();
      for (int y = 0; y < height; ++y)
        ASSERT_TRUE(std::equal(part.begin() + 3 * width * y, part.begin() + 3 * width * (y + 1),
                               all.begin() + 3 * ((top + y) * upright.Width() + left)))
            << "row " << y;
    }
}

// Pages of different sizes, depths, resolutions and perspectives.
const char* const kPages[] = {"doc_text_300dpi.tif", "photo_tulips_alpha.png", "orient_rgb_6.tif"};

std::string JoinDocument(const Folder& folder) {
  const std::string path = folder / "document.tif";
  ExpectQuiet({"pages", "join", path, SamplePath(kPages[0]), SamplePath(kPages[1]), SamplePath(kPages[2])});
  return path;
}

TEST(Pages, SplitAndJoinGiveTheSameDocument) {
  if (!CanRead("x.tif") || !CanRead("x.gif") || !CanRead("x.png")) GTEST_SKIP() << "this build lacks the codecs";
  const Folder folder;
  const std::string document = JoinDocument(folder), again = folder / "again.tif";
  EXPECT_EQ(Vexa({"pages", "list", document}).output,
            document +
                ": TIFF, 3 pages\n  1  1065 x 1879, 1-bit gray, 300 x 300 dots per inch\n"
                "  2  500 x 500, 32-bit colour with alpha\n  3  171 x 136, 24-bit colour\n");
  ExpectQuiet({"pages", "split", document, folder / "page-{}.tif", "--storage", "disk"});
  for (size_t i = 0; i < 3; ++i)
    ExpectSamePages(SamplePath(kPages[i]), folder / ("page-" + std::to_string(i + 1) + ".tif"));
  ExpectQuiet({"pages", "join", again, folder / "page-1.tif", folder / "page-2.tif", folder / "page-3.tif"});
  ExpectSamePages(document, again);

  const std::string animation = SamplePath("anim_cat_mixed.gif");
  ExpectQuiet({"pages", "split", animation, folder / "frame.gif"});
  std::vector<std::string> join = {"pages", "join", folder / "again.gif"};
  for (int frame = 1; frame <= 10; ++frame)
    join.push_back(folder / ("frame-" + std::string(frame < 10 ? "0" : "") + std::to_string(frame) + ".gif"));
  ExpectQuiet(join);
  ExpectSamePages(animation, folder / "again.gif");
}

TEST(Pages, TheChosenOnesAreWrittenAndOutputMayBeInput) {
  if (!CanRead("x.tif") || !CanRead("x.gif") || !CanRead("x.png")) GTEST_SKIP() << "this build lacks the codecs";
  const Folder folder;
  ExpectQuiet({"pages", "split", SamplePath("anim_cat_mixed.gif"), folder / "{}.png", "--pages", "9-,2-3,3"});
  EXPECT_EQ(folder.Names(), (std::vector<std::string>{"02.png", "03.png", "09.png", "10.png"}));
  EXPECT_TRUE(Decoded(SamplePath("anim_cat_mixed.gif"), 8).Colors() == Decoded(folder / "09.png").Colors());
  const std::string document = JoinDocument(folder);
  ExpectQuiet({"pages", "join", document, document, document});
  EXPECT_EQ(InfoOf(document)["pages"], 6);
}

TEST(Pages, FailuresLeaveNoFile) {
  const Folder folder;
  Save(folder / "a.pgm", "P5\n4 2\n255\nabcdefgh");
  const auto fails = [&](const std::string& line, const std::string& says) {
    SCOPED_TRACE(line);
    const std::vector<std::string> before = folder.Names();
    ExpectOneLine(Vexa(Words(line, &folder)), says.find("one page;") != std::string::npos ? 2 : 1, says);
    EXPECT_EQ(folder.Names(), before);
  };
  fails("crop @a.pgm @b.pgm --rect 4,0,5,5", "a.pgm: nothing of the rect");
  fails("crop @a.pgm @b.pgm --rect 0,0,1,1 --page 2", "no page 2");
  fails("pages split @a.pgm @b.pgm --pages 1-9", "no page 9");
  fails("pages split @a.pgm @none/b.pgm", "none/b-1.pgm: there is no folder");
  fails("pages list @none.tif", "none.tif: ");
  if (!CanRead("x.tif") || !CanRead("x.gif") || !CanRead("x.png")) return;
  JoinDocument(folder);
  fs::create_directory(folder.Path() / "page-3.png");
  Save(folder / "cut.tif", Load(SamplePath("orient_rgb_1.tif")).substr(0, 20000));
  // The third file of three cannot be written, or the third page cannot be read.
  fails("pages split @document.tif @page-{}.png", "page-3.png: is a directory");
  fails("pages split @document.tif @b.gif", "document.tif: page 2: GIF holds");
  fails("pages split @document.tif @b.tif --storage compressed", "page 2: compressed");
  fails("crop @document.tif @b.tif --rect 600,0,9,9", "page 2: nothing");
  fails("pages join @joined.tif @document.tif @cut.tif", "cut.tif: ");
  fails("pages join @joined.tif @document.tif @none.tif", "none.tif: ");
  fails("pages join @joined.tif @document.tif --storage supercompressed", "page 2: supercompressed");
  fails("pages join @joined.png @document.tif", "one page; formats with more: TIFF, GIF");
}

}  // namespace
}  // namespace tool
