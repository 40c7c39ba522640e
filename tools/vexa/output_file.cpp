#include "vexa/output_file.h"

#include <array>
#include <charconv>
#include <cstdio>
#include <system_error>
#include <vector>

#include "codecs/error.h"
#include "vexa/system.h"
#include "vexakrn.h"

namespace vexa {
namespace {

namespace fs = std::filesystem;

constexpr char kExtension[] = "part";

// What aside files of this machine start with; the engine goes on with its tag, in which the process id stands.
std::string Prefix() {
  char prefix[32];
  std::snprintf(prefix, sizeof prefix, ".vexa-%08x", sys::MachineTag());
  return prefix;
}

// Removes the aside files of runs that were killed; once, when many files go to the folder.
void SweepFolder(const fs::path& folder) {
  static fs::path swept;
  if (folder == swept) return;
  swept = folder;
  const std::string start = Prefix() + "-VD-";
  std::error_code ignored;
  for (fs::directory_iterator entry(folder, ignored), end; !ignored && entry != end; entry.increment(ignored)) {
    const std::string name = Utf8Of(entry->path().filename());
    if (!name.starts_with(start) || !name.ends_with(std::string(".") + kExtension)) continue;
    uint32_t process = 0;
    const auto number = std::from_chars(name.data() + start.size(), name.data() + name.size(), process);
    if (number.ec == std::errc() && *number.ptr == '-' && sys::ProcessIsGone(process)) {
      std::error_code failed;
      fs::remove(entry->path(), failed);
    }
  }
}

fs::path TargetOf(const fs::path& path) {
  std::error_code error;
  const fs::path target = fs::exists(path, error) ? fs::canonical(path, error) : path;
  return error ? path : target;
}

}  // namespace

fs::path PathOf(const std::string& utf8) { return fs::path(std::u8string(utf8.begin(), utf8.end())); }

std::string Utf8Of(const fs::path& path) {
  const std::u8string utf8 = path.u8string();
  return {utf8.begin(), utf8.end()};
}

bool IsSpecialFile(const std::string& path) {
  std::error_code error;
  const fs::file_status status = fs::status(PathOf(path), error);
  if (!fs::exists(status) || fs::is_directory(status)) return false;
  return !fs::is_regular_file(status) || path.starts_with("/dev/");  // /dev/stdout may lead to an ordinary file
}

OutputFile::OutputFile(const std::string& path, bool seeks)
    : path_(path), target_(TargetOf(PathOf(path))), special_(IsSpecialFile(path)) {
  About(path_, [&] {
    std::error_code error;
    if (fs::is_directory(target_, error)) throw Error("is a directory");
    if (special_) {
      if (seeks)
        CreateAside("");
      else
        stream_ = std::make_unique<File>(path_, File::Mode::kWrite);
      return;
    }
    if (fs::exists(target_, error)) sys::RequireWritable(target_);
    const fs::path folder = target_.has_parent_path() ? target_.parent_path() : fs::path(".");
    if (!fs::is_directory(folder, error)) throw Error("there is no folder " + Utf8Of(folder));
    SweepFolder(folder);
    CreateAside(Utf8Of(folder));
  });
}

void OutputFile::CreateAside(const std::string& folder) {
  std::vector<char> name(folder.size() + 1024);
  const int32_t status = V_GetTempFileNameUTF8(name.data(), static_cast<uint32_t>(name.size()), V_TempFileDisk,
                                               folder.empty() ? nullptr : folder.c_str(), Prefix().c_str(), kExtension,
                                               V_TempFileCreateNow);
  if (status == V_StatusTempFileCreateAccessDenied) throw Error("its folder may not be written to (permission denied)");
  if (status != V_StatusSuccess) throw Error("no file can be created in its folder");
  aside_ = name.data();
  try {
    stream_ = std::make_unique<File>(aside_, File::Mode::kRewrite);
  } catch (...) {
    V_DeleteTempFile(aside_.c_str());
    throw;
  }
}

OutputFile::~OutputFile() {
  stream_.reset();
  if (!aside_.empty()) V_DeleteTempFile(aside_.c_str());
}

void OutputFile::CopyToSpecial() {
  File from(aside_, File::Mode::kRead), to(path_, File::Mode::kWrite);
  std::vector<uint8_t> buffer(1 << 16);
  for (uint64_t bytes = from.Read(buffer.data(), buffer.size()); bytes > 0;
       bytes = from.Read(buffer.data(), buffer.size()))
    to.Write(buffer.data(), bytes);
  to.Close();
}

void OutputFile::Close() {
  About(path_, [&] { stream_->Close(); });
  stream_.reset();
}

void OutputFile::Commit() {
  About(path_, [&] {
    if (aside_.empty()) return;
    if (special_) return CopyToSpecial();
    const fs::path aside = PathOf(aside_);
    sys::FlushToDevice(aside);
    sys::AdoptPermissions(aside, target_);
    std::error_code error;
    fs::rename(aside, target_, error);
    if (error) throw Error(error.message());
    aside_.clear();
  });
}

}  // namespace vexa
