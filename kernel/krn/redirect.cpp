// The redirect table: setting and reading it, and calling through it.
#include "krn/redirect.h"

#include "common/status.h"

namespace vexakrn {
namespace {

enum Slot : uint32_t { kOpen = 1, kRead = 2, kWrite = 4, kSeek = 8, kClose = 16 };
constexpr uint32_t kAllSlots = kOpen | kRead | kWrite | kSeek | kClose;

// The value that stands for "no function" in an exchange.
template <typename Function>
Function NoFunction() noexcept {
  return reinterpret_cast<Function>(~uintptr_t{0});
}

// Exchanges one function; the fields of the packed table go in and out by value.
template <typename Function>
Function ExchangeFunction(Function current, Function* argument) noexcept {
  if (!argument) return current;
  const Function wanted = *argument;
  *argument = current ? current : NoFunction<Function>();
  if (!wanted) return current;
  return wanted == NoFunction<Function>() ? nullptr : wanted;
}

void* ExchangeData(void* current, void** argument) noexcept {
  if (!argument) return current;
  void* wanted = *argument;
  *argument = current;
  return wanted;
}

int32_t CheckFunctions(const REDIRECTFUNCTIONS* functions) noexcept {
  if (!functions) return kNullPointer;
  return functions->uStructSize == sizeof *functions ? kSuccess : kInvalidStructSize;
}

}  // namespace
}  // namespace vexakrn

using namespace vexakrn;

intptr_t V_CALL V_RedirectedOpen(const char* utf8Path, uint32_t mode) noexcept {
  const REDIRECTFUNCTIONS& table = RedirectTable();
  return table.open ? table.open(utf8Path, mode, table.openData) : OsOpen(utf8Path, mode);
}

int64_t V_CALL V_RedirectedRead(intptr_t file, void* buffer, uint64_t bytes) noexcept {
  const REDIRECTFUNCTIONS& table = RedirectTable();
  return table.read ? table.read(file, buffer, bytes, table.readData) : OsRead(file, buffer, bytes);
}

int64_t V_CALL V_RedirectedWrite(intptr_t file, const void* buffer, uint64_t bytes) noexcept {
  const REDIRECTFUNCTIONS& table = RedirectTable();
  return table.write ? table.write(file, buffer, bytes, table.writeData) : OsWrite(file, buffer, bytes);
}

int64_t V_CALL V_RedirectedSeek(intptr_t file, int64_t offset, int32_t origin) noexcept {
  const REDIRECTFUNCTIONS& table = RedirectTable();
  return table.seek ? table.seek(file, offset, origin, table.seekData) : OsSeek(file, offset, origin);
}

int32_t V_CALL V_RedirectedClose(intptr_t file) noexcept {
  const REDIRECTFUNCTIONS& table = RedirectTable();
  return table.close ? table.close(file, table.closeData) : OsClose(file);
}

int32_t V_CALL V_GetLastRedirectError(void) noexcept { return ThreadSettings().lastRedirectError; }

int32_t V_CALL V_FilterIO(REDIRECTOPEN* open, REDIRECTREAD* read, REDIRECTWRITE* write, REDIRECTSEEK* seek,
                          REDIRECTCLOSE* close, void** openData, void** readData, void** writeData, void** seekData,
                          void** closeData) noexcept {
  REDIRECTFUNCTIONS& table = RedirectTable();
  table.open = ExchangeFunction<REDIRECTOPEN>(table.open, open);
  table.read = ExchangeFunction<REDIRECTREAD>(table.read, read);
  table.write = ExchangeFunction<REDIRECTWRITE>(table.write, write);
  table.seek = ExchangeFunction<REDIRECTSEEK>(table.seek, seek);
  table.close = ExchangeFunction<REDIRECTCLOSE>(table.close, close);
  table.openData = ExchangeData(table.openData, openData);
  table.readData = ExchangeData(table.readData, readData);
  table.writeData = ExchangeData(table.writeData, writeData);
  table.seekData = ExchangeData(table.seekData, seekData);
  table.closeData = ExchangeData(table.closeData, closeData);
  return kSuccess;
}

int32_t V_CALL V_RedirectIO(REDIRECTOPEN open, REDIRECTREAD read, REDIRECTWRITE write, REDIRECTSEEK seek,
                            REDIRECTCLOSE close, void* userData) noexcept {
  REDIRECTFUNCTIONS& table = RedirectTable();
  table = {sizeof table, open, userData, read, userData, write, userData, seek, userData, close, userData};
  return kSuccess;
}

int32_t V_CALL V_SetRedirectFunctions(const REDIRECTFUNCTIONS* functions) noexcept {
  return V_UpdateRedirectFunctions(functions, kAllSlots);
}

int32_t V_CALL V_UpdateRedirectFunctions(const REDIRECTFUNCTIONS* functions, uint32_t which) noexcept {
  V_TRY(CheckFunctions(functions));
  REDIRECTFUNCTIONS& table = RedirectTable();
  if (which & kOpen) table.open = functions->open, table.openData = functions->openData;
  if (which & kRead) table.read = functions->read, table.readData = functions->readData;
  if (which & kWrite) table.write = functions->write, table.writeData = functions->writeData;
  if (which & kSeek) table.seek = functions->seek, table.seekData = functions->seekData;
  if (which & kClose) table.close = functions->close, table.closeData = functions->closeData;
  return kSuccess;
}

int32_t V_CALL V_GetRedirectFunctions(REDIRECTFUNCTIONS* functions) noexcept {
  return V_GetRedirectFunctions2(functions, sizeof *functions);
}

int32_t V_CALL V_GetRedirectFunctions2(REDIRECTFUNCTIONS* functions, uint32_t structSize) noexcept {
  if (!functions) return kNullPointer;
  if (structSize != sizeof *functions) return kInvalidStructSize;
  *functions = RedirectTable();
  functions->uStructSize = sizeof *functions;
  return kSuccess;
}

int32_t V_CALL V_UsesRedirectIO(void) noexcept {
  const REDIRECTFUNCTIONS& table = RedirectTable();
  return table.open || table.read || table.write || table.seek || table.close;
}
