// Files by name, and scratch files that are gone when they are closed.
#include "platform/win/path.h"

#include <winioctl.h>

#include <algorithm>
#include <cwchar>
#include <iterator>
#include <limits>

namespace vexakrn::platform {
namespace {

constexpr uint64_t kLargestOffset = std::numeric_limits<int64_t>::max();
constexpr uint64_t kLargestTransfer = 32u << 20;  // what file systems across a network take in one call
constexpr int32_t kIsDirectory = 336;             // ERROR_DIRECTORY_NOT_SUPPORTED, which not every header has

HANDLE Handle(File file) noexcept { return reinterpret_cast<HANDLE>(file); }

// The negative values stand for objects such as the process itself.
bool IsFile(File file) noexcept { return file > 0; }

// Repeats a transfer until all bytes are done, it ends early, or it fails. `transfer(bytesDone, bytesLeft, &moved)` is
// one call.
template <typename Transfer>
int32_t TransferAll(uint64_t bytes, uint64_t* done, Transfer transfer) noexcept {
  *done = 0;
  while (*done < bytes) {
    DWORD moved = 0;
    if (!transfer(*done, static_cast<DWORD>(std::min(bytes - *done, kLargestTransfer)), &moved)) {
      const int32_t error = LastError();
      return *done != 0 || error == ERROR_HANDLE_EOF ? 0 : error;
    }
    if (moved == 0) return 0;
    *done += moved;
  }
  return 0;
}

// The same at positions from `offset` on, where an early end is the failure `ifShort`.
template <typename Transfer>
int32_t TransferAllAt(uint64_t bytes, uint64_t offset, int32_t ifShort, Transfer transfer) noexcept {
  if (offset > kLargestOffset || bytes > kLargestOffset - offset) return ERROR_INVALID_PARAMETER;
  uint64_t done = 0;
  const int32_t error = TransferAll(bytes, &done, [&](uint64_t at, DWORD count, DWORD* moved) {
    OVERLAPPED position{};
    position.Offset = LowWord(offset + at);
    position.OffsetHigh = HighWord(offset + at);
    return transfer(at, count, moved, &position);
  });
  return error != 0 ? error : done == bytes ? 0 : ifShort;
}

int32_t SetSize(HANDLE file, uint64_t bytes) noexcept {
  if (bytes > kLargestOffset) return ERROR_INVALID_PARAMETER;
  FILE_END_OF_FILE_INFO end{};
  end.EndOfFile.QuadPart = static_cast<LONGLONG>(bytes);
  return SetFileInformationByHandle(file, FileEndOfFileInfo, &end, sizeof end) ? 0 : LastError();
}

int32_t WriteZeros(File file, uint64_t from, uint64_t to) noexcept {
  static uint8_t zeros[1 << 18];  // not constant: so it takes no room in the library's file
  while (from < to) {
    const uint64_t part = std::min<uint64_t>(to - from, sizeof zeros);
    if (const int32_t error = WriteBytesAt(file, zeros, part, from); error != 0) return error;
    from += part;
  }
  return 0;
}

// Bytes that this user may still write beside the open file; 0 when the system does not tell.
uint64_t FreeBytesBeside(HANDLE file) noexcept {
  const DWORD characters = GetFinalPathNameByHandleW(file, nullptr, 0, FILE_NAME_NORMALIZED);
  auto* path = static_cast<wchar_t*>(HeapAlloc(GetProcessHeap(), 0, (characters + 1) * sizeof(wchar_t)));
  if (!path) return 0;
  const DWORD length = GetFinalPathNameByHandleW(file, path, characters + 1, FILE_NAME_NORMALIZED);
  wchar_t* separator = length != 0 && length <= characters ? std::wcsrchr(path, L'\\') : nullptr;
  ULARGE_INTEGER available{};
  if (separator) {
    separator[1] = L'\0';
    if (!GetDiskFreeSpaceExW(path, &available, nullptr, nullptr)) available.QuadPart = 0;
  }
  HeapFree(GetProcessHeap(), 0, path);
  return available.QuadPart;
}

// Gives the file its size with every block reserved. Setting the size does that on most file systems; where fewer
// bytes are allocated then, the blocks are written, if there is room for all.
int32_t Reserve(File file, uint64_t from, uint64_t to) noexcept {
  if (const int32_t error = SetSize(Handle(file), to); error != 0) return error;
  FILE_STANDARD_INFO info{};
  if (!GetFileInformationByHandleEx(Handle(file), FileStandardInfo, &info, sizeof info)) return LastError();
  if (info.AllocationSize.QuadPart >= static_cast<LONGLONG>(to)) return 0;
  return to - from <= FreeBytesBeside(Handle(file)) ? WriteZeros(file, from, to) : ERROR_DISK_FULL;
}

// A file in a compressed folder gets its blocks as it is written, so its compression is turned off.
int32_t TurnOffCompression(HANDLE file) noexcept {
  FILE_BASIC_INFO info{};
  if (!GetFileInformationByHandleEx(file, FileBasicInfo, &info, sizeof info)) return LastError();
  if ((info.FileAttributes & FILE_ATTRIBUTE_COMPRESSED) == 0) return 0;
  USHORT none = COMPRESSION_FORMAT_NONE;
  DWORD returned = 0;
  const BOOL done = DeviceIoControl(file, FSCTL_SET_COMPRESSION, &none, sizeof none, nullptr, 0, &returned, nullptr);
  return done ? 0 : LastError();
}

// A folder is refused with "access denied" by the system; this tells it from a file without the rights.
int32_t RefusalOf(const WidePath& path) noexcept {
  const int32_t error = LastError();
  if (error != ERROR_ACCESS_DENIED) return error;
  const DWORD attributes = GetFileAttributesW(path.Text());
  const bool isFolder = attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
  return isFolder ? kIsDirectory : error;
}

// Makes a file that did not exist, for this user alone. A link under its name is not followed, it exists.
int32_t CreateNew(const WidePath& path, DWORD access, DWORD sharing, DWORD attributes, File* file) noexcept {
  OnlyThisUser rights;
  if (rights.Error() != 0) return rights.Error();
  const HANDLE made = CreateFileW(path.Text(), access, sharing, rights.Attributes(), CREATE_NEW,
                                  attributes | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
  if (made == INVALID_HANDLE_VALUE) return LastError();
  *file = reinterpret_cast<File>(made);
  return 0;
}

}  // namespace

int32_t CreateScratch(const char* path, uint64_t bytes, File* file) noexcept {
  const WidePath wide(path);
  if (wide.Error() != 0) return wide.Error();
  File made = kNoFile;
  int32_t error =
      CreateNew(wide, GENERIC_READ | GENERIC_WRITE, 0, FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE, &made);
  if (error != 0) return error;
  error = TurnOffCompression(Handle(made));
  if (error == 0) error = Reserve(made, 0, bytes);
  if (error != 0) {
    CloseHandle(Handle(made));
    return error;
  }
  *file = made;
  return 0;
}

int32_t ResizeScratch(File file, uint64_t oldBytes, uint64_t newBytes) noexcept {
  if (newBytes <= oldBytes) return SetSize(Handle(file), newBytes);
  const int32_t error = Reserve(file, oldBytes, newBytes);
  if (error != 0) SetSize(Handle(file), oldBytes);  // what was reserved before the failure is given back
  return error;
}

void CloseScratchFile(File file) noexcept {
  if (IsFile(file) && CloseHandle(Handle(file))) VEXAKRN_RELEASED(File);
}

int32_t ReadBytesAt(File file, void* buffer, uint64_t bytes, uint64_t offset) noexcept {
  return TransferAllAt(bytes, offset, ERROR_HANDLE_EOF,
                       [&](uint64_t at, DWORD count, DWORD* moved, OVERLAPPED* position) {
                         return ReadFile(Handle(file), static_cast<uint8_t*>(buffer) + at, count, moved, position);
                       });
}

int32_t WriteBytesAt(File file, const void* buffer, uint64_t bytes, uint64_t offset) noexcept {
  return TransferAllAt(
      bytes, offset, ERROR_DISK_FULL, [&](uint64_t at, DWORD count, DWORD* moved, OVERLAPPED* position) {
        return WriteFile(Handle(file), static_cast<const uint8_t*>(buffer) + at, count, moved, position);
      });
}

int32_t OpenByName(const char* path, uint32_t mode, File* file) noexcept {
  const bool reads = (mode & kOpenRead) != 0, creates = (mode & kOpenCreate) != 0;
  const bool writes = creates || (mode & kOpenWrite) != 0;
  if (!reads && !writes) return ERROR_INVALID_PARAMETER;
  const WidePath wide(path);
  if (wide.Error() != 0) return wide.Error();
  const DWORD access = (reads ? GENERIC_READ : 0u) | (writes ? GENERIC_WRITE : 0u);
  // Others may read what is being written; a reader stands in nobody's way.
  const DWORD sharing = writes ? FILE_SHARE_READ : FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
  if (creates && (mode & kOpenExclusive) != 0) return CreateNew(wide, access, sharing, FILE_ATTRIBUTE_NORMAL, file);
  const HANDLE opened = CreateFileW(wide.Text(), access, sharing, nullptr, creates ? CREATE_ALWAYS : OPEN_EXISTING,
                                    FILE_ATTRIBUTE_NORMAL, nullptr);
  if (opened == INVALID_HANDLE_VALUE) return RefusalOf(wide);
  *file = reinterpret_cast<File>(opened);
  return 0;
}

int32_t ReadBytes(File file, void* buffer, uint64_t bytes, uint64_t* done) noexcept {
  if (!IsFile(file)) return ERROR_INVALID_HANDLE;
  return TransferAll(bytes, done, [&](uint64_t at, DWORD count, DWORD* moved) {
    return ReadFile(Handle(file), static_cast<uint8_t*>(buffer) + at, count, moved, nullptr);
  });
}

int32_t WriteBytes(File file, const void* buffer, uint64_t bytes, uint64_t* done) noexcept {
  if (!IsFile(file)) return ERROR_INVALID_HANDLE;
  return TransferAll(bytes, done, [&](uint64_t at, DWORD count, DWORD* moved) {
    return WriteFile(Handle(file), static_cast<const uint8_t*>(buffer) + at, count, moved, nullptr);
  });
}

int32_t Seek(File file, int64_t offset, int32_t origin, int64_t* position) noexcept {
  if (!IsFile(file)) return ERROR_INVALID_HANDLE;
  if (origin < 0 || origin > 2) return ERROR_INVALID_PARAMETER;
  static_assert(FILE_BEGIN == 0 && FILE_CURRENT == 1 && FILE_END == 2);
  if (origin == FILE_BEGIN && offset < 0) return ERROR_NEGATIVE_SEEK;  // the system would take it as unsigned
  LARGE_INTEGER distance{}, reached{};
  distance.QuadPart = offset;
  if (!SetFilePointerEx(Handle(file), distance, &reached, static_cast<DWORD>(origin))) return LastError();
  *position = reached.QuadPart;
  return 0;
}

int32_t Close(File file) noexcept {
  if (!IsFile(file)) return ERROR_INVALID_HANDLE;
  if (!CloseHandle(Handle(file))) return LastError();
  VEXAKRN_RELEASED(File);
  return 0;
}

int32_t DeleteByName(const char* path) noexcept {
  const WidePath wide(path);
  if (wide.Error() != 0) return wide.Error();
  return DeleteFileW(wide.Text()) ? 0 : RefusalOf(wide);
}

bool SameFile(const char* a, const char* b) noexcept {
  const char* paths[] = {a, b};
  BY_HANDLE_FILE_INFORMATION info[2] = {};
  for (int i = 0; i < 2; ++i) {
    const WidePath wide(paths[i]);
    if (wide.Error() != 0) return false;
    constexpr DWORD kAnyUse = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    const HANDLE file = CreateFileW(wide.Text(), 0, kAnyUse, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) return false;
    const BOOL known = GetFileInformationByHandle(file, &info[i]);
    CloseHandle(file);
    if (!known) return false;
  }
  return info[0].dwVolumeSerialNumber == info[1].dwVolumeSerialNumber &&
         info[0].nFileIndexHigh == info[1].nFileIndexHigh && info[0].nFileIndexLow == info[1].nFileIndexLow;
}

bool PathExists(const char* path) noexcept {
  const WidePath wide(path);
  return wide.Error() == 0 && GetFileAttributesW(wide.Text()) != INVALID_FILE_ATTRIBUTES;
}

int32_t TemporaryFolder(char* buffer, size_t capacity) noexcept {
  wchar_t path[264];
  const DWORD length = GetTempPathW(static_cast<DWORD>(std::size(path)), path);
  if (length == 0) return LastError();
  if (length >= std::size(path)) return ERROR_FILENAME_EXCED_RANGE;
  const int room = static_cast<int>(std::min<size_t>(capacity, std::numeric_limits<int>::max()));
  return WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS, path, -1, buffer, room, nullptr, nullptr) != 0
             ? 0
             : LastError();
}

// What the C run time takes for "no access", too.
bool IsAccessDenied(int32_t error) noexcept {
  return error == ERROR_ACCESS_DENIED || error == ERROR_SHARING_VIOLATION || error == ERROR_LOCK_VIOLATION ||
         error == ERROR_WRITE_PROTECT || error == ERROR_NETWORK_ACCESS_DENIED;
}

bool IsNotFound(int32_t error) noexcept { return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND; }

}  // namespace vexakrn::platform
