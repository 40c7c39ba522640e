// Storage in a temporary file that has no name and is gone with the process. The address's first word is the file.
#include "krn/storage.h"
#include "krn/tempname.h"
#include "platform/platform.h"

namespace vexakrn {
namespace {

int32_t AllocateDisk(BITMAPHANDLE& bitmap, const AllocationContext&) noexcept {
  platform::File file = platform::kNoFile;
  V_TRY(CreateScratchFile(DataSize(bitmap), &file));
  bitmap.Addr.File.hFile = file;
  return kSuccess;
}

void FreeDisk(BITMAPHANDLE& bitmap) noexcept { platform::CloseScratchFile(bitmap.Addr.File.hFile); }

// A position in the file: where rows are, but no further than a file can reach (-4).
int32_t FilePosition(const BITMAPHANDLE& bitmap, int32_t row, uint32_t offset, uint64_t count,
                     uint64_t* position) noexcept {
  V_TRY(LinearPosition(bitmap, row, offset, count, position));
  return *position + count <= static_cast<uint64_t>(INT64_MAX) ? kSuccess : kFileSeek;
}

int64_t ReadDisk(BITMAPHANDLE& bitmap, uint8_t* buffer, int32_t row, uint32_t offset, uint64_t count) noexcept {
  uint64_t position = 0;
  V_TRY(FilePosition(bitmap, row, offset, count, &position));
  if (platform::System().readAt(bitmap.Addr.File.hFile, buffer, count, position) != 0) return kFileRead;
  return static_cast<int64_t>(count);
}

int64_t WriteDisk(BITMAPHANDLE& bitmap, const uint8_t* buffer, int32_t row, uint32_t offset, uint64_t count) noexcept {
  uint64_t position = 0;
  V_TRY(FilePosition(bitmap, row, offset, count, &position));
  if (platform::System().writeAt(bitmap.Addr.File.hFile, buffer, count, position) != 0) return kNoMemory;
  return static_cast<int64_t>(count);
}

int32_t ResizeDisk(BITMAPHANDLE& bitmap, int32_t newHeight) noexcept {
  uint64_t newBytes = 0;
  if (!SizeOfRows(bitmap, newHeight, &newBytes)) return kNoMemory;
  const int32_t error =
      platform::System().resizeScratchFile(bitmap.Addr.File.hFile, DataSize(bitmap) + bitmap.DataOffset, newBytes);
  return error == 0 ? kSuccess : kNoMemory;
}

}  // namespace

const Storage kDiskStorage = {.memoryType = V_MemoryDisk,
                              .allocate = AllocateDisk,
                              .free = FreeDisk,
                              .read = ReadDisk,
                              .write = WriteDisk,
                              .resize = ResizeDisk};

}  // namespace vexakrn
