/* Temporary files: their directory, options, unique names, and opening, copying and deleting them by name.
 *
 * Directory, options and the list of names in use are the process's, each behind a critical section. Paths are UTF-8.
 */
#ifndef VEXAKRN_TEMPFILE_H
#define VEXAKRN_TEMPFILE_H

#include "vexakrn/types.h"

VEXAKRN_BEGIN

#pragma pack(push, 1)
typedef struct TEMPFILEOPTIONS {
  uint32_t uStructSize; /* 24 */
  uint32_t uMode;       /* 1 on disk, 2 either (at first), 3 in memory only: bitmaps never go to disk */
  uint32_t uOption1;    /* kept and returned; 0, 128, 8 and 16 at first */
  uint32_t uOption2;
  uint32_t uOption3;
  uint32_t uOption4;
} TEMPFILEOPTIONS;
#pragma pack(pop)
VEXAKRN_STATIC_ASSERT(sizeof(TEMPFILEOPTIONS) == 24, "part of the interface");

enum VexaTempFileMode {
  V_TempFileDefault = 0, /* the same as V_TempFileEither */
  V_TempFileDisk = 1,
  V_TempFileEither = 2,
  V_TempFileMemory = 3
};
#define V_TEMPFILE_CURRENT_MODE 0xFFFFFFFFu /* as a mode: the one in force */

enum VexaTempFileFlags {
  V_TempFileCreateNow = 1 /* in mode 2: create the file, do not just reserve its name */
};

/* Sets the process-wide options. A mode of 0 is stored as 2, and 0xFFFFFFFF keeps the mode. Returns 1; -814 null; -789
 * a size other than 24. */
V_API int32_t V_CALL V_SetTempFileOptions(const TEMPFILEOPTIONS* options) V_NOEXCEPT;

/* Reads the options; the size field of the output is set, not read. Returns 1; -814 null. */
V_API int32_t V_CALL V_GetTempFileOptions(TEMPFILEOPTIONS* options) V_NOEXCEPT;

/* The process-wide mode. */
V_API uint32_t V_CALL V_GetTempFileMode(void) V_NOEXCEPT;

/* Sets the process-wide directory, at most 264 UTF-16 characters; null or empty goes back to the system's. Its
 * existence is not checked. Returns 1; -13 too long or not UTF-8. */
V_API int32_t V_CALL SetGlobalTempFileDirectory(const char* utf8Directory) V_NOEXCEPT;

/* Copies the process-wide directory; the system's is asked on first use. Returns 1; -814 null; -290 too small a buffer;
 * -74 the system has none. */
V_API int32_t V_CALL V_GetTempFileDirectoryUTF8(char* buffer, uint32_t capacity) V_NOEXCEPT;

/* Draws a unique name: directory, separator, prefix, a tag with mode, process and thread, a hexadecimal counter, a
 * point and the extension. A null or empty directory, prefix or extension means the temporary directory, "<process
 * id>-V_" and "tmp"; one leading point of the extension is skipped. Mode 1 creates the file (private to the user,
 * empty), mode 2 creates it with flag 1, else the name is only reserved in this process until V_DeleteTempFile.
 * `capacity` is the room in bytes with the end of the string: at least the three parts' lengths and 13; a short
 * buffer shortens the tag.
 * Returns 1; -814 null buffer; -290 too small a buffer; -74 no temporary directory; -1 no memory; -1902 access denied;
 * -1903 the file could not be created; -1894 no free name. On failure the buffer holds an empty string. Parts that lie
 * in the buffer are -13. */
V_API int32_t V_CALL V_GetTempFileNameUTF8(char* buffer, uint32_t capacity, uint32_t mode, const char* directory,
                                           const char* prefix, const char* extension, uint32_t flags) V_NOEXCEPT;

/* The same in the process-wide mode. */
V_API int32_t V_CALL V_GetTempFileName2UTF8(char* buffer, uint32_t capacity, const char* directory, const char* prefix,
                                            const char* extension, uint32_t flags) V_NOEXCEPT;

/* Opens a temporary file through the thread's file functions (files.h). The first creation of a name that was only
 * reserved fails when the file exists by then, links included. A file handle, or -1. */
V_API intptr_t V_CALL V_RedirectedTempFileOpenA(const char* path, uint32_t mode) V_NOEXCEPT;

/* Copies a file through the thread's file functions; an existing `to` is replaced. Returns 1; -814 null; -13 one
 * file twice; -7 `from` cannot be opened or read; -1902 or -1903 `to` cannot be created; -1 it cannot be written. What
 * was written of a failed copy is deleted, unless the host's functions hold it. */
V_API int32_t V_CALL V_RedirectedTempFileCopy(const char* from, const char* to) V_NOEXCEPT;

/* Deletes a temporary file and takes its name off the in-use list; a file that is already gone is no error, and a
 * pseudo file name has nothing to delete. Both are the same. Returns 1; -814 null; -1902 access denied; -1 any other
 * reason. */
V_API int32_t V_CALL V_RedirectedTempFileDelete(const char* path) V_NOEXCEPT;
V_API int32_t V_CALL V_DeleteTempFile(const char* utf8Path) V_NOEXCEPT;

VEXAKRN_END

#endif
