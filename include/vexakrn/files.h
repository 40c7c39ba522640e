/* Redirectable file access and memory streams.
 *
 * Every file that is opened by name goes through five replaceable functions of the calling thread: open, read, write,
 * seek, close. A null function means the system's own. Paths are UTF-8. */
#ifndef VEXAKRN_FILES_H
#define VEXAKRN_FILES_H

#include "vexakrn/types.h"

VEXAKRN_BEGIN

/* Mode bits of open. */
enum VexaOpenMode {
  V_OpenRead = 1,
  V_OpenWrite = 2,
  V_OpenCreate = 4,   /* create the file, or cut it to 0 bytes; implies writing */
  V_OpenExclusive = 8 /* with V_OpenCreate: fail when the name exists, links included */
};

/* open: a file handle, -1 on failure. read and write: bytes moved, -1 on failure. seek: the new position, -1 on
 * failure; origin 0 start, 1 current position, 2 end. close: 0. */
typedef intptr_t(V_CALL* REDIRECTOPEN)(const char* path, uint32_t mode, void* userData);
typedef int64_t(V_CALL* REDIRECTREAD)(intptr_t file, void* buffer, uint64_t bytes, void* userData);
typedef int64_t(V_CALL* REDIRECTWRITE)(intptr_t file, const void* buffer, uint64_t bytes, void* userData);
typedef int64_t(V_CALL* REDIRECTSEEK)(intptr_t file, int64_t offset, int32_t origin, void* userData);
typedef int32_t(V_CALL* REDIRECTCLOSE)(intptr_t file, void* userData);

#pragma pack(push, 1)
typedef struct REDIRECTFUNCTIONS {
  uint32_t uStructSize; /* 84 */
  REDIRECTOPEN open;
  void* openData;
  REDIRECTREAD read;
  void* readData;
  REDIRECTWRITE write;
  void* writeData;
  REDIRECTSEEK seek;
  void* seekData;
  REDIRECTCLOSE close;
  void* closeData;
} REDIRECTFUNCTIONS;
#pragma pack(pop)
VEXAKRN_STATIC_ASSERT(sizeof(REDIRECTFUNCTIONS) == 84, "part of the interface");

/* Calls the thread's functions. Failures give -1 (close too). Without redirection the system's own files are used, and
 * V_GetLastRedirectError tells why a call failed: transfers are whole (a short read is the end of the file), handles
 * are not inherited by child processes, directories are refused. A handle is used with the table it was opened under. */
V_API intptr_t V_CALL V_RedirectedOpen(const char* utf8Path, uint32_t mode) V_NOEXCEPT;
V_API int64_t V_CALL V_RedirectedRead(intptr_t file, void* buffer, uint64_t bytes) V_NOEXCEPT;
V_API int64_t V_CALL V_RedirectedWrite(intptr_t file, const void* buffer, uint64_t bytes) V_NOEXCEPT;
V_API int64_t V_CALL V_RedirectedSeek(intptr_t file, int64_t offset, int32_t origin) V_NOEXCEPT;
V_API int32_t V_CALL V_RedirectedClose(intptr_t file) V_NOEXCEPT;

/* The calling thread's last-error value: 0 none; negative a status of the engine (-1856 a write to a stream that is not
 * writable); positive the system's own error number (errno, or GetLastError on Windows). */
V_API int32_t V_CALL V_GetLastRedirectError(void) V_NOEXCEPT;

/* Exchanges functions and user data. For each non-null function argument the value 0 leaves the function in force,
 * all ones removes it, anything else replaces it; the argument receives the previous function, all ones for none. For
 * each non-null data argument the stored value and the argument are swapped. Always 1. */
V_API int32_t V_CALL V_FilterIO(REDIRECTOPEN* open, REDIRECTREAD* read, REDIRECTWRITE* write, REDIRECTSEEK* seek,
                                REDIRECTCLOSE* close, void** openData, void** readData, void** writeData,
                                void** seekData, void** closeData) V_NOEXCEPT;

/* Sets all five functions with one user data; null functions restore the system's own. Always 1. */
V_API int32_t V_CALL V_RedirectIO(REDIRECTOPEN open, REDIRECTREAD read, REDIRECTWRITE write, REDIRECTSEEK seek,
                                  REDIRECTCLOSE close, void* userData) V_NOEXCEPT;

/* Sets the whole table. Returns 1; -814 null; -789 when the size field is not 84. */
V_API int32_t V_CALL V_SetRedirectFunctions(const REDIRECTFUNCTIONS* functions) V_NOEXCEPT;

/* Reads the table; the size field of the output is set, not read. Returns 1; -814 null; -789 when `structSize` is
 * not 84. */
V_API int32_t V_CALL V_GetRedirectFunctions(REDIRECTFUNCTIONS* functions) V_NOEXCEPT;
V_API int32_t V_CALL V_GetRedirectFunctions2(REDIRECTFUNCTIONS* functions, uint32_t structSize) V_NOEXCEPT;

/* Sets the pairs that `which` selects: 1 open, 2 read, 4 write, 8 seek, 16 close. Returns as V_SetRedirectFunctions. */
V_API int32_t V_CALL V_UpdateRedirectFunctions(const REDIRECTFUNCTIONS* functions, uint32_t which) V_NOEXCEPT;

/* 1 when the calling thread has at least one replaced function, else 0. */
V_API int32_t V_CALL V_UsesRedirectIO(void) V_NOEXCEPT;

/* Flags of a memory stream. */
enum VexaStreamFlags {
  V_StreamGrow = 1,  /* the block may grow, in steps of 32768 bytes */
  V_StreamTrim = 2,  /* with V_StreamGrow and V_StreamWrite: the block is cut to the data when the stream is closed */
  V_StreamWrite = 8, /* writing is allowed */
  V_StreamHeap = 16  /* the block is one of V_ReallocBuffer, else a handle of V_SysAllocBlock */
};

/* Makes a memory block look like a file: until the stop, every file that the calling thread opens is this stream. The
 * block (null for none) holds `length` bytes of data; its size is the larger of `length` and `capacity`. It may be
 * moved while the stream grows. `*stateOut` is the stream; when `fileOut` is given it receives an open handle.
 * A write of 0 bytes cuts the data at the position. Bytes between the old end and a later write are zero.
 * Streams nest: the innermost one is opened, but by the pseudo name of an outer one, and handles are valid between
 * their stream's own start and stop.
 * Returns 1; -13 null `stateOut`, or data without a block or beyond it; -1 no memory, or the open failed (nothing is
 * started then). */
V_API int32_t V_CALL V_StartRedirectToBuffer(void** stateOut, intptr_t* fileOut, uint32_t flags, void* buffer,
                                             uint64_t length, uint64_t capacity) V_NOEXCEPT;

/* Ends the stream, puts the earlier functions back and frees the stream's state. The block, now the caller's, its data
 * length and its size go to the non-null outputs. Returns 1; -13 when `state` is not a stream that
 * the calling thread has started. */
V_API int32_t V_CALL V_StopRedirectToBuffer(void* state, void** bufferOut, uint64_t* lengthOut,
                                            uint64_t* capacityOut) V_NOEXCEPT;

/* Writes the next pseudo file name, "VEXARedirect://%08X-%08X", into `name`. Returns 1; -814 null; -290 when `capacity`
 * is below 50. No two calls of a process give the same name. */
V_API int32_t V_CALL V_MakeRedirectName(char* name, uint32_t capacity) V_NOEXCEPT;

/* 1 when the path starts like a pseudo file name, else 0 (null too). */
V_API int32_t V_CALL V_IsRedirectName(const char* path) V_NOEXCEPT;

VEXAKRN_END

#endif
