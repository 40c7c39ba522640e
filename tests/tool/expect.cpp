#include "tool/expect.h"

namespace tool {

void ExpectQuiet(const std::vector<std::string>& line) {
  const Outcome outcome = Vexa(line);
  ASSERT_EQ(outcome.exitCode, 0) << outcome.errors;
  EXPECT_EQ(outcome.output + outcome.errors, "") << "a tool that succeeds is quiet";
}

void ExpectOneLine(const Outcome& outcome, int exitCode, const std::string& part) {
  EXPECT_EQ(outcome.exitCode, exitCode) << outcome.errors;
  EXPECT_EQ(outcome.output, "");
  EXPECT_EQ(outcome.errors.find('\n'), outcome.errors.size() - 1) << outcome.errors;
  EXPECT_EQ(outcome.errors.rfind("vexa: ", 0), 0u) << outcome.errors;
  EXPECT_NE(outcome.errors.find(part), std::string::npos) << outcome.errors << " lacks: " << part;
}

Json InfoOf(const std::string& path, const std::vector<std::string>& more) {
  std::vector<std::string> arguments = {"info", "--json", path};
  arguments.insert(arguments.end(), more.begin(), more.end());
  const Outcome outcome = Vexa(arguments);
  EXPECT_EQ(outcome.exitCode, 0) << outcome.errors;
  const Json all = Json::parse(outcome.output, nullptr, false);
  return all.is_array() && all.size() == 1 ? all[0] : Json::object();
}

void ExpectSameRows(Decoded& a, Decoded& b) {
  ASSERT_EQ(a.bitmap.Width(), b.bitmap.Width());
  ASSERT_EQ(a.bitmap.Height(), b.bitmap.Height());
  ASSERT_EQ(a.bitmap.Bits(), b.bitmap.Bits());
  for (int32_t y = 0; y < a.bitmap.Height(); ++y) ASSERT_EQ(a.Row(y), b.Row(y)) << "row " << y;
}

std::string ExactExtension(const std::string& sample) {
  if (CanRead("x.tif")) return ".tif";
  return sample.ends_with(".ppm") ? ".pam" : sample.substr(sample.rfind('.'));
}

}  // namespace tool
