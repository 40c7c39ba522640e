/* Status codes, status callbacks, and the table of owners of codes.
 *
 * Every function returns a signed 32-bit status unless it says otherwise: 1 is success, negative
 * values are failures. VEXAKRN_STATUS_LIST is the one list from which the constants and the texts
 * of V_GetStatusText come. */
#ifndef VEXAKRN_STATUS_H
#define VEXAKRN_STATUS_H

#include "vexakrn/types.h"

VEXAKRN_BEGIN

#define VEXAKRN_STATUS_LIST(X)                                                     \
  X(Success, 1, "success")                                                         \
  X(SuccessAbort, 2, "handled by a callback")                                      \
  X(Failure, 0, "refused")                                                         \
  X(NoMemory, -1, "storage could not be obtained or changed")                      \
  X(NoImage, -2, "the bitmap is not allocated")                                    \
  X(MemoryTooLow, -3, "the size does not fit the record's layout")                 \
  X(FileSeek, -4, "a position in a file could not be reached")                     \
  X(FileRead, -7, "a file could not be read")                                      \
  X(InvalidRange, -11, "a dimension is negative, or there is no data")             \
  X(InvalidParameter, -13, "invalid parameter")                                    \
  X(FeatureNotSupported, -16, "the operation is not known")                        \
  X(BitsPerPixel, -27, "the number of bits per pixel or the order is unsupported") \
  X(NormalAbort, -29, "stopped")                                                   \
  X(Internal, -74, "internal error")                                               \
  X(UserAbort, -100, "stopped by the user")                                        \
  X(BufferTooSmall, -290, "the buffer is too small for the name")                  \
  X(InvalidStructSize, -789, "a record's structure size is not accepted")          \
  X(NullPointer, -814, "a required pointer is null")                               \
  X(StreamNotWritable, -1856, "the memory stream is not open for writing")         \
  X(TooManyTempFiles, -1894, "no free name for a temporary file was found")        \
  X(TempFileCreateAccessDenied, -1902, "access to the temporary file was denied")  \
  X(TempFileCreate, -1903, "the temporary file could not be created")              \
  X(MemoryLimit, -1905, "the process-wide memory limit would be exceeded")

/* V_StatusSuccess, V_StatusNoMemory, ... */
enum VexaStatus {
#define VEXAKRN_STATUS_ENTRY(name, value, text) V_Status##name = (value),
  VEXAKRN_STATUS_LIST(VEXAKRN_STATUS_ENTRY)
#undef VEXAKRN_STATUS_ENTRY
};

/* One English sentence without a full stop, for a person to read. Never null: a code that the engine does not know
 * gives "unknown status". The text is constant and is not freed. */
V_API const char* V_CALL V_GetStatusText(int32_t status) V_NOEXCEPT;

/* A progress callback: `percent` runs from 0 to 100. Any result other than 1 stops the running operation, which
 * returns that result unchanged. The callback must leave the bitmaps and lists that the operation works on alone. */
typedef int32_t(V_CALL* STATUSCALLBACK)(int32_t percent, void* userData);

/* Sets the calling thread's status callback; null removes it. The previous pair goes to `oldCallback` and
 * `oldUserData` when both are given. Always 1. */
V_API int32_t V_CALL V_SetStatusCallBack(STATUSCALLBACK callback, void* userData, STATUSCALLBACK* oldCallback,
                                         void** oldUserData) V_NOEXCEPT;

/* The calling thread's status callback, or null; its user data goes to `userData` when that is given. */
V_API STATUSCALLBACK V_CALL V_GetStatusCallBack(void** userData) V_NOEXCEPT;

/* The same pair of functions for the callback that reports the progress of copies. */
V_API int32_t V_CALL V_SetCopyStatusCallBack(STATUSCALLBACK callback, void* userData, STATUSCALLBACK* oldCallback,
                                             void** oldUserData) V_NOEXCEPT;
V_API STATUSCALLBACK V_CALL V_GetCopyStatusCallBack(void** userData) V_NOEXCEPT;

/* Tells which component owns a status code. `category` becomes 0 and `libraryId` -1, then one of them is replaced
 * when the code is one of another component's. Returns 1; -814 when an output is null. */
V_API int32_t V_CALL V_GetLibIdFromErrorCode(int32_t code, int32_t* category, int32_t* libraryId) V_NOEXCEPT;

VEXAKRN_END

#endif
