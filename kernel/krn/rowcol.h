// Row transfers for functions of the engine that are not row functions by name.
#ifndef VEXAKRN_KRN_ROWCOL_H
#define VEXAKRN_KRN_ROWCOL_H

#include "vexakrn/bitmap.h"

namespace vexakrn {

// Stored bytes of one row, from the byte that holds pixel `column` on.
struct RowPart {
  int32_t row;
  int32_t column;
  uint64_t count;
};

// The opening of the row functions: null, then the record's size; traces a call without an access under its name.
int32_t CheckRowCall(const BITMAPHANDLE* bitmap, const void* buffer, const char* name) noexcept;

// The record and the buffer are not null and are checked. The data callback sees the call first; then the position is
// checked, and the storage moves the bytes. Bytes moved, or a status.
int64_t GetRowPart(BITMAPHANDLE& bitmap, void* buffer, const RowPart& part) noexcept;
int64_t PutRowPart(BITMAPHANDLE& bitmap, const void* buffer, const RowPart& part) noexcept;

// Move exactly `part.count` bytes: fewer are a failure. Return a status.
int32_t GetWholeRowPart(BITMAPHANDLE& bitmap, void* buffer, const RowPart& part) noexcept;
int32_t PutWholeRowPart(BITMAPHANDLE& bitmap, const void* buffer, const RowPart& part) noexcept;

}  // namespace vexakrn

#endif
