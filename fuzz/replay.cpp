// Runs a fuzz target over saved inputs, then over pseudo-random ones, without a fuzzer: replay_TARGET FOLDER...
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "support/random.h"
#include "support/tempdir.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

constexpr int kRandomInputs = 1000;

// Values that targets read as plain choices (small bytes) are as frequent as any others.
std::vector<uint8_t> RandomInput(uint32_t seed) {
  vexatest::Random random(seed);
  std::vector<uint8_t> input(random.Below(1500));
  for (uint8_t& byte : input) byte = static_cast<uint8_t>(random.Coin() ? random.Next() : random.Below(24));
  return input;
}

}  // namespace

int main(int count, char** arguments) {
  size_t saved = 0;
  for (int i = 1; i < count; ++i) {
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(arguments[i])) files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    for (const std::filesystem::path& path : files) {
      std::printf("%s\n", path.filename().string().c_str());
      std::fflush(stdout);  // a crash must not hide the name
      const std::string bytes = vexatest::ReadAll(vexatest::Utf8(path));
      LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
      ++saved;
    }
  }
  for (uint32_t seed = 1; seed <= kRandomInputs; ++seed) {
    const std::vector<uint8_t> input = RandomInput(seed);
    LLVMFuzzerTestOneInput(input.data(), input.size());
  }
  std::printf("%zu saved and %d random inputs\n", saved, kRandomInputs);
  return saved > 0 ? 0 : 1;  // a folder without inputs is a wrong path
}
