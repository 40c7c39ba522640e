// What can go wrong for a user: one clear line, the right exit code, nothing left behind.
#include "tool/tool.h"

#ifndef _WIN32
#include <unistd.h>
#include <csignal>
#endif

namespace tool {
namespace {

TEST(Failure, EverySampleCutShortIsAnErrorWithoutOutput) {
  for (const std::string& name : SampleNames()) {
    const std::string content = Load(SamplePath(name));
    const std::string extension = name.ends_with(".gif") ? "gif" : CanRead("x.tif") ? "tif" : "pam";
    for (const size_t length : {size_t{0}, size_t{1}, size_t{9}, size_t{30}, size_t{200}, content.size() / 2,
                                content.size() * 9 / 10, content.size() - 3}) {
      // The last bytes of these formats are not of the picture.
      const bool whole = length + 3 == content.size() && (name.ends_with(".tif") || name.ends_with(".gif"));
      if (length >= content.size() || whole) continue;
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
  const std::pair<const char*, std::vector<const char*>> kLines[] = {
      {"", {"", "paint", "info", "pages", "info --colour a.png", "convert a.pgm", "convert ~mr_abdomen_u12.pgm b.xyz"}},
      {"convert a.pgm b.pgm ",
       {"c.pgm", "--storage paper", "--tile-size 64Q", "--memory-limit 0", "--page 0", "--page x"}},
      {"convert ~ct_body_s16.pgm b.pam ", {"--bits 9", "--dither stucki"}},
      {"convert ~ct_body_s16.pgm b.pam --bits ",
       {"4 --dither sepia", "24 --dither none", "24 --order gray", "8 --order rgb", "24 --palette fixed",
        "4 --colors 17", "4 --colors 0"}},
      {"crop a.pgm b.pgm", {"", " --rect 1,2"}},
      {"crop a.pgm b.pgm --rect 1,2,", {"3", "3,4,5", "0,9", "9,9999999999", "9,9x"}},
      {"pages split a.pgm ", {"", "b", "b.pgm --pages 0", "b.pgm --pages 3-2", "b.pgm --pages 1,,2"}},
      {"pages join ", {"a.tif", "a.pgm b.pgm"}}};
  for (const auto& [start, ends] : kLines)
    for (const char* end : ends) ExpectOneLine(Vexa(Words(std::string(start) + end)), 2, "--help");
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
  ExpectQuiet({"convert", path, path});
  EXPECT_TRUE(Load(path) == content);
  ExpectQuiet({"convert", path, path, "--format", "pam"});
  EXPECT_EQ(Load(path).substr(0, 2), "P7");
  EXPECT_EQ(folder.Names().size(), 1u);
  // A failure leaves the old file.
  Save(path, content.substr(0, 1500));
  ExpectOneLine(Vexa({"convert", path, path}), 1, "same.pgm: ");
  EXPECT_TRUE(Load(path) == content.substr(0, 1500));
}

#ifndef _WIN32
// A killed run leaves its file, which the next run sweeps.
TEST(Output, StoppedRunsLeaveNothing) {
  const Folder folder;
  const std::string others = ".vexa-00000000-VD-99999999-1-1.part";
  Save(folder / others, "another machine's");
  Save(folder / "in.ppm", "P6\n6000 6000\n255\n" + std::string(size_t{6000} * 6000 * 3, 'v'));
  for (const int signal : {SIGINT, SIGTERM, SIGKILL}) {
    std::signal(signal, SIG_DFL);  // which a background job may have been told to ignore
    bool sent = false;
    int tries = 0;
    const Outcome outcome = RunProgram(
        VEXA_PROGRAM, {"convert", folder / "in.ppm", folder / "out.ppm", "--storage", "disk"}, [&](auto& process) {
          std::error_code none;
          for (const std::string& name : folder.Names())  // once something was written aside
            if (name.starts_with(".vexa-") && fs::file_size(folder / name, none) > 1000000 && !none)
              sent = kill(process.Handle(), signal) == 0;
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
