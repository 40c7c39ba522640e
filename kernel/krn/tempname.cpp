// Drawing unique names of temporary files: directory, separator, prefix, tag, counter, extension.
#include "krn/tempname.h"

#include <cstdio>
#include <cstring>
#include <functional>

#include "common/status.h"
#include "krn/tempdir.h"
#include "vexakrn/tempfile.h"

namespace vexakrn {
namespace {

constexpr uint32_t kTries = 60000;
constexpr uint64_t kFixedLength = 13;  // separator, counter, point, end, and some to spare

bool IsGiven(const char* text) noexcept { return text && *text; }

// The parts of a name that do not change while a free one is looked for.
struct NameParts {
  char defaultDirectory[kDirectoryCapacity];
  char defaultPrefix[32];
  char tag[64];
  const char* directory;
  const char* prefix;
  const char* extension;
};

int32_t FillParts(NameParts& parts, const char* directory, const char* prefix, const char* extension) noexcept {
  parts.prefix = prefix;
  if (!IsGiven(prefix)) {
    std::snprintf(parts.defaultPrefix, sizeof parts.defaultPrefix, "%d-V_", static_cast<int>(platform::ProcessId()));
    parts.prefix = parts.defaultPrefix;
  }
  parts.directory = directory;
  if (!IsGiven(directory)) {
    V_TRY(TemporaryDirectory(parts.defaultDirectory));
    parts.directory = parts.defaultDirectory;
  }
  parts.extension = IsGiven(extension) ? extension + (*extension == '.') : "tmp";
  return kSuccess;
}

// The tag with the storage that the mode allows: memory, disk, either.
void FillTag(NameParts& parts, uint32_t mode) noexcept {
  const char* word = mode == V_TempFileMemory ? "M" : mode == V_TempFileDisk ? "D" : "DM";
  std::snprintf(parts.tag, sizeof parts.tag, "-V%s-%u-%x-", word, static_cast<unsigned>(platform::ProcessId()),
                static_cast<unsigned>(platform::ThreadId()));
}

// Shortens the tag so that every name fits; -290 when even an empty one does not help.
int32_t FitTag(NameParts& parts, uint32_t capacity) noexcept {
  const uint64_t needed =
      std::strlen(parts.directory) + std::strlen(parts.prefix) + std::strlen(parts.extension) + kFixedLength;
  if (needed > capacity) return kBufferTooSmall;
  if (const uint64_t room = capacity - needed; std::strlen(parts.tag) > room) parts.tag[room] = '\0';
  return kSuccess;
}

void FormName(const NameParts& parts, uint32_t counter, char* buffer, uint32_t capacity) noexcept {
  const char last = parts.directory[std::strlen(parts.directory) - 1];
  const char separator[] = {platform::kPathSeparator, '\0'};
  const bool separated = last == '/' || last == '\\' || last == ':';
  std::snprintf(buffer, capacity, "%s%s%s%s%x.%s", parts.directory, separated ? "" : separator, parts.prefix, parts.tag,
                static_cast<unsigned>(counter), parts.extension);
}

// Where the next search starts; a search that follows another goes on behind it. Inside namesSection.
uint32_t& NextCounter() noexcept {
  static uint32_t next = [] {
    uint64_t ticks = 0;
    return platform::System().milliseconds(&ticks) == 0 ? static_cast<uint32_t>(ticks) : 0;
  }();
  return next;
}

// Makes an empty file of a free name. 0: the name is taken.
int32_t TryCreate(const char* name) noexcept {
  constexpr uint32_t kMode = platform::kOpenWrite | platform::kOpenCreate | platform::kOpenExclusive;
  platform::File file = platform::kNoFile;
  const int32_t error = platform::System().openFile(name, kMode, &file);
  if (error == 0) {
    platform::System().closeFile(file);
    return kSuccess;
  }
  if (platform::PathExists(name)) return kFailure;  // another process was faster
  return platform::IsAccessDenied(error) ? kTempFileCreateAccessDenied : kTempFileCreate;
}

// 0: the name is taken.
int32_t TryReserve(const char* name) noexcept {
  if (namesInUse.Contains(name)) return kFailure;
  return namesInUse.Add(name) ? kSuccess : kNoMemory;
}

int32_t SearchName(const NameParts& parts, bool create, char* buffer, uint32_t capacity) noexcept {
  const platform::CriticalGuard guard(namesSection);
  if (!create && !namesInUse.Prepare()) return kNoMemory;
  uint32_t& counter = NextCounter();
  for (uint32_t tries = 0; tries < kTries; ++tries) {
    FormName(parts, counter++, buffer, capacity);
    if (platform::PathExists(buffer)) continue;
    const int32_t status = create ? TryCreate(buffer) : TryReserve(buffer);
    if (status != kFailure) return status;
  }
  namesInUse.Trim();
  return kTooManyTempFiles;
}

int32_t DrawName(NameParts& parts, uint32_t mode, bool create, char* buffer, uint32_t capacity) noexcept {
  FillTag(parts, mode);
  V_TRY(FitTag(parts, capacity));
  return SearchName(parts, create, buffer, capacity);
}

}  // namespace

int32_t CreateScratchFile(uint64_t bytes, platform::File* file) noexcept {
  NameParts parts;
  char name[kDirectoryCapacity + sizeof parts.defaultPrefix + sizeof parts.tag + kFixedLength];
  V_TRY(FillParts(parts, nullptr, nullptr, nullptr));
  V_TRY(DrawName(parts, V_TempFileDisk, false, name, sizeof name));
  const int32_t error = platform::System().createScratchFile(name, bytes, file);
  const platform::CriticalGuard guard(namesSection);
  namesInUse.Remove(name);
  return error == 0 ? kSuccess : kNoMemory;
}

}  // namespace vexakrn

using namespace vexakrn;

int32_t V_CALL V_GetTempFileNameUTF8(char* buffer, uint32_t capacity, uint32_t mode, const char* directory,
                                     const char* prefix, const char* extension, uint32_t flags) noexcept {
  if (!buffer) return kNullPointer;
  for (const char* part : {directory, prefix, extension})
    if (part && std::less_equal<>{}(buffer, part) && std::less<>{}(part, buffer + capacity)) return kInvalidParameter;
  if (capacity != 0) buffer[0] = '\0';
  NameParts parts;
  V_TRY(FillParts(parts, directory, prefix, extension));
  if (mode == V_TEMPFILE_CURRENT_MODE) mode = V_GetTempFileMode();
  if (mode == V_TempFileDefault) mode = V_TempFileEither;
  const bool create = mode == V_TempFileDisk || (mode == V_TempFileEither && (flags & V_TempFileCreateNow) != 0);
  const int32_t status = DrawName(parts, mode, create, buffer, capacity);
  if (status != kSuccess && capacity != 0) buffer[0] = '\0';
  return status;
}

int32_t V_CALL V_GetTempFileName2UTF8(char* buffer, uint32_t capacity, const char* directory, const char* prefix,
                                      const char* extension, uint32_t flags) noexcept {
  return V_GetTempFileNameUTF8(buffer, capacity, V_TEMPFILE_CURRENT_MODE, directory, prefix, extension, flags);
}
