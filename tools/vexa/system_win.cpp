#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

#include <io.h>
#include <shellapi.h>

#include <atomic>
#include <system_error>

#include "codecs/error.h"
#include "vexa/system.h"

namespace vexa::sys {
namespace {

std::atomic<bool> stopRequested{false};

BOOL WINAPI OnConsoleEvent(DWORD) { return !stopRequested.exchange(true); }

[[noreturn]] void ThrowLastError() { throw Error(std::system_category().message(static_cast<int>(GetLastError()))); }

std::string Utf8(const wchar_t* text) {
  const int bytes = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
  std::string utf8(bytes > 0 ? static_cast<size_t>(bytes) : 1, '\0');
  if (bytes > 0) WideCharToMultiByte(CP_UTF8, 0, text, -1, utf8.data(), bytes, nullptr, nullptr);
  utf8.pop_back();
  return utf8;
}

}  // namespace

std::vector<std::string> Arguments(int, char**) {
  std::vector<std::string> arguments;
  int count = 0;
  wchar_t** wide = CommandLineToArgvW(GetCommandLineW(), &count);
  for (int i = 1; wide && i < count; ++i) arguments.push_back(Utf8(wide[i]));
  LocalFree(wide);
  return arguments;
}

void CatchStopRequests() { SetConsoleCtrlHandler(OnConsoleEvent, TRUE); }
bool StopRequested() { return stopRequested; }

bool ErrorOutputIsTerminal() { return _isatty(_fileno(stderr)) != 0; }

uint32_t MachineTag() {
  wchar_t name[MAX_COMPUTERNAME_LENGTH + 1] = L"";
  DWORD length = MAX_COMPUTERNAME_LENGTH + 1;
  GetComputerNameW(name, &length);
  uint32_t hash = 2166136261u;
  for (const wchar_t* c = name; *c; ++c) hash = (hash ^ static_cast<uint32_t>(*c)) * 16777619u;
  return hash;
}

bool ProcessIsGone(uint32_t processId) {
  const HANDLE process = OpenProcess(SYNCHRONIZE, FALSE, processId);
  if (!process) return GetLastError() == ERROR_INVALID_PARAMETER;
  const bool gone = WaitForSingleObject(process, 0) == WAIT_OBJECT_0;
  CloseHandle(process);
  return gone;
}

void RequireWritable(const std::filesystem::path& file) {
  const DWORD attributes = GetFileAttributesW(file.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES) ThrowLastError();
  if (attributes & FILE_ATTRIBUTE_READONLY) throw Error("the file is write-protected");
}

// A new file has what its folder passes on, here as anywhere.
void AdoptPermissions(const std::filesystem::path&, const std::filesystem::path&) {}

void FlushToDevice(const std::filesystem::path& file) {
  const HANDLE handle = CreateFileW(file.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                    OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (handle == INVALID_HANDLE_VALUE) ThrowLastError();
  const BOOL flushed = FlushFileBuffers(handle);
  const DWORD error = GetLastError();
  CloseHandle(handle);
  SetLastError(error);
  if (!flushed) ThrowLastError();
}

}  // namespace vexa::sys
