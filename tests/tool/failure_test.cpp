// What can go wrong for a user: one clear line, the right exit code, nothing left behind.
#include <gtest/gtest.h>

#include <csignal>
#include <sstream>

#include "tool/expect.h"

#ifndef _WIN32
#include <unistd.h>
#endif

namespace tool {
namespace {

TEST(Failure, EverySampleCutShortIsAnErrorWithoutOutput) {
  for (const std::string& name : SampleNames()) {
    const std::string content = Load(SamplePath(name));
    const std::string extension = name.ends_with(".gif") ? "gif" : CanRead("x.tif") ? "tif" : "pam";
    for (const size_t length : {size_t{0}, size_t{1}, size_t{9}, size_t{30}, size_t{200}, content.size() / 2,
                                content.size() * 9 / 10, content.size() - 3}) {
      if (length >= content.size()) continue;
      // Here the last bytes are not of the picture.
      if (length + 3 == content.size() && (name.ends_with(".tif") || name.ends_with(".gif"))) continue;
      SCOPED_TRACE(name + " cut to " + std::to_string(length));
      const Folder folder;
      Save(folder / "cut", content.substr(0, length));
      ExpectOneLine(Vexa({"convert", folder / "cut", folder / ("out." + extension)}), 1, "cut: ");
      EXPECT_EQ(folder.Names(), std::vector<std::string>{"cut"});
      if (length == content.size() / 2) ExpectOneLine(Vexa({"info", folder / "cut"}), 1, "cut: ");
    }
  }
}

// Headers that promise what is not there; the checksum of the PNG's is right.
TEST(Failure, BadFilesAreNamedInOneLine) {
  using namespace std::string_literals;
  const std::string big(100, 'x'), png = "\x89PNG\r\n\x1a\n\0\0\0\rIHDR"s, gif = "GIF89a\x01\0\x01\0\0\0\0"s;
  const std::tuple<const char*, std::string, const char*> kCases[] = {
      {"no image", "hello, world", "not an image"},
      {"no width", "P5\n0 5\n255\n", "no pixels"},
      {"no height", "P4\n5 0\n", "no pixels"},
      {"a side too long", "P5\n2147483648 1\n255\n" + big, "too large"},
      {"a lying header", "P6\n2147483647 2147483647\n255\n" + big, "too small for the 2147483647 x 2147483647 pixels"},
      {"a lying PAM", "P7\nWIDTH 90000\nHEIGHT 90000\nDEPTH 4\nMAXVAL 255\nENDHDR\n" + big, "cut short"},
      {"words for numbers", "P5\nten ten\n255\n" + big, "header is damaged"},
      {"a maximum of 0", "P5\n5 5\n0\n" + big, "maximum"},
      {"a maximum too large", "P5\n5 5\n65536\n" + big, "maximum"},
      {"a sample beyond", "P5\n2 1\n7\n\x03\x08", "greater than the maximum 7"},
      {"depth against type", "P7\nWIDTH 1\nHEIGHT 1\nDEPTH 1\nMAXVAL 255\nTUPLTYPE RGB\nENDHDR\n" + big, "DEPTH"},
      {"five channels", "P7\nWIDTH 1\nHEIGHT 1\nDEPTH 5\nMAXVAL 255\nENDHDR\n" + big, "5 samples a pixel"},
      {"a header without end", "P7\nWIDTH " + std::string(9000, '1'), "header is damaged"},
      {"2^31 - 1 pixels a side", png + "\x7f\xff\xff\xff\x7f\xff\xff\xff\x08\x02\0\0\0\x07\x7b\x04\x4c"s, "bad: "},
      {"a GIF without frames", gif + ";", "bad: "},
      {"a GIF frame without palette", gif + ",\0\0\0\0\x01\0\x01\0\0\x02\x02\x44\x01\0;"s, "bad: "},
      {"a GIF frame of 0 pixels", gif + ",\0\0\0\0\0\0\0\0\0\x02\x02\x44\x01\0;"s, "bad: "}};
  for (const auto& [what, content, says] : kCases) {
    SCOPED_TRACE(what);
    const Folder folder;
    Save(folder / "bad", content);
    ExpectOneLine(Vexa({"convert", folder / "bad", folder / "out.pam"}), 1, says);
    EXPECT_EQ(folder.Names(), std::vector<std::string>{"bad"});
  }
}

TEST(Failure, PlacesThatCannotBeReadOrWritten) {
  const Folder folder;
  const std::string good = folder / "good.pgm";
  Save(good, "P5\n2 1\n255\nab");
  fs::create_directory(folder.Path() / "sub");
  for (const auto& [line, says] : {std::pair("info @none.png", "none.png: "),
                                   {"info @sub", "sub: "},
                                   {"convert @good.pgm @sub", "directory"},
                                   {"convert @good.pgm @none/out.pgm", "folder"},
                                   {"convert @good.pgm @out.pgm --page 2", "no page 2"},
                                   {"convert @good.pgm @out.pgm --storage tiled --tile-size 64K", "tiles"}})
    ExpectOneLine(Vexa(Words(line, &folder)), 1, says);
#ifndef _WIN32
  ExpectOneLine(Vexa({"convert", good, "/dev/full"}), 1, "/dev/full: ");
  if (CanRead("x.tif")) ExpectOneLine(Vexa({"convert", good, "/dev/full", "--format", "tif"}), 1, "/dev/full: ");
  EXPECT_EQ(Vexa({"convert", good, "/dev/null"}).exitCode, 0);
  EXPECT_EQ(Vexa({"convert", good, "/dev/stdout"}).output, Load(good));
  if (geteuid() != 0) {
    fs::permissions(good, fs::perms::none);
    ExpectOneLine(Vexa({"info", good}), 1, "good.pgm: ");
  }
#endif
  EXPECT_EQ(folder.Names(), (std::vector<std::string>{"good.pgm", "sub"}));
}

TEST(Failure, WrongUsageHasItsOwnExitCode) {
  std::istringstream lines(
      "\nconvert ~mr_abdomen_u12.pgm b.xyz\npaint\ninfo\ninfo --colour a.png\nconvert a.pgm\nconvert a.pgm b.pgm "
      "c.pgm\nconvert a.pgm b.pgm --storage "
      "paper\n"
      "convert a.pgm b.pgm --tile-size 64Q\nconvert a.pgm b.pgm --memory-limit 0\nconvert a.pgm b.pgm --page 0\n"
      "convert a.pgm b.pgm --page one\ncrop a.pgm b.pgm\ncrop a.pgm b.pgm --rect 1,2,3\ncrop a.pgm b.pgm --rect "
      "1,2,3,4,5\n"
      "crop a.pgm b.pgm --rect 0,0,0,9\ncrop a.pgm b.pgm --rect 0,0,9,9999999999\ncrop a.pgm b.pgm --rect "
      "0,0,9,9x\npages\n"
      "pages split a.pgm\npages split a.pgm b\npages split a.pgm b.pgm --pages 0\npages split a.pgm b.pgm --pages 3-2\n"
      "pages split a.pgm b.pgm --pages 1,,2\npages join a.tif\npages join a.pgm b.pgm");
  for (std::string line; std::getline(lines, line);) ExpectOneLine(Vexa(Words(line)), 2, "--help");
  for (const char* line : {"--help", "info --help", "convert --help", "--version"}) {
    const Outcome outcome = Vexa(Words(line));
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_NE(outcome.output.find("vexa"), std::string::npos);
  }
}

TEST(Output, MayBeTheInput) {
  const Folder folder;
  const std::string path = folder / "same.pgm", content = RandomPnm("P5\n50 40\n255\n", 2000, 255);
  Save(path, content);
  ASSERT_EQ(Vexa({"convert", path, path}).exitCode, 0);
  EXPECT_TRUE(Load(path) == content);
  ASSERT_EQ(Vexa({"convert", path, path, "--format", "pam"}).exitCode, 0);
  EXPECT_EQ(Load(path).substr(0, 2), "P7");
  EXPECT_EQ(folder.Names().size(), 1u);
  if (!CanRead("x.gif")) return;
  const std::string animation = folder / "a.gif";
  Save(animation, Load(SamplePath("anim_cat_mixed.gif")));
  ASSERT_EQ(Vexa({"convert", animation, animation}).exitCode, 0);
  Decoded frame;
  Decode(animation, &frame, 9);
  EXPECT_EQ(frame.pages, 10);
  // A failure leaves the old file.
  Save(animation, Load(SamplePath("anim_cat_mixed.gif")).substr(0, 40000));
  EXPECT_EQ(Vexa({"convert", animation, animation}).exitCode, 1);
  EXPECT_EQ(Load(animation).size(), 40000u);
}

#ifndef _WIN32
// True once the run has written something aside.
bool HasGrowingAside(const Folder& folder) {
  std::error_code ignored;
  for (const std::string& name : folder.Names())
    if (name.starts_with(".vexa-") && fs::file_size(folder / name, ignored) > 1000000) return true;
  return false;
}

// A killed run leaves its file, which the next run sweeps.
TEST(Output, StoppedRunsLeaveNothing) {
  const Folder folder;
  const std::string others = ".vexa-00000000-VD-99999999-1-1.part";
  Save(folder / others, "another machine's");
  Save(folder / "in.ppm", "P6\n6000 6000\n255\n" + std::string(size_t{6000} * 6000 * 3, 'v'));
  for (const int signal : {SIGINT, SIGTERM, SIGKILL}) {
    bool sent = false;
    int tries = 0;
    const Outcome outcome = RunProgram(
        VEXA_PROGRAM, {"convert", folder / "in.ppm", folder / "out.ppm", "--storage", "disk"}, [&](auto& process) {
          sent = HasGrowingAside(folder) && kill(process.Handle(), signal) == 0;
          return sent || ++tries > 20000;
        });
    ASSERT_TRUE(sent);
    if (signal != SIGKILL) ExpectOneLine(outcome, 1, "stopped");
    EXPECT_EQ(folder.Names().size(), signal == SIGKILL ? 3u : 2u);
  }
  Save(folder / "small.pgm", "P5\n2 1\n255\nab");
  ExpectQuiet({"convert", folder / "small.pgm", folder / "out.pgm"});
  EXPECT_EQ(folder.Names(), (std::vector<std::string>{others, "in.ppm", "out.pgm", "small.pgm"}));
}

// The gallery's own run of the tool: it measures from a small process, and compares every pixel with the generator.
TEST(Memory, LimitBoundsWhatIsResident) {
  const Folder folder;
  const std::string gallery = (fs::path(VEXA_PROGRAM).parent_path() / "vexa_gallery").string();
  const Outcome outcome = RunProgram(
      gallery, {"big", VEXA_PROGRAM, folder / "big", folder / "report.json", "--side", "6000", "--limit", "8M"});
  ASSERT_EQ(outcome.exitCode, 0) << outcome.output << outcome.errors;
  EXPECT_TRUE(fs::is_empty(folder / "big"));
  const Json report = Json::parse(Load(folder / "report.json"));
  ASSERT_EQ(report["runs"].size(), 2u);
  for (const auto& run : report["runs"]) {
    EXPECT_TRUE(run["identical"]);
#if !defined(__SANITIZE_ADDRESS__)  // whose own memory is in the figure
    EXPECT_LT(run["peak_bytes"], 24 << 20) << run["storage"];
    EXPECT_GT(run["peak_bytes"], 1 << 20);
#endif
  }
}

#endif

}  // namespace
}  // namespace tool
