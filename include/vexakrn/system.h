/* Version, diagnostics, and the choice of processor features. */
#ifndef VEXAKRN_SYSTEM_H
#define VEXAKRN_SYSTEM_H

#include "vexakrn/types.h"

VEXAKRN_BEGIN

#define VEXAKRN_VERSION_MAJOR 1
#define VEXAKRN_VERSION_MINOR 0
#define VEXAKRN_VERSION_PATCH 0

/* The library's version: major << 16 | minor << 8 | patch. */
V_API uint32_t V_CALL V_GetVersion(void) V_NOEXCEPT;

/* Installs a process-wide trace of unbalanced accesses; null turns it off. `tag` is the function's name. It may be
 * called by several threads at once and must not call back into the engine on the bitmap at hand. Always 1. */
typedef void(V_CALL* DIAGNOSTICTRACE)(const char* tag, const char* text, void* userData);
V_API int32_t V_CALL V_SetDiagnostics(DIAGNOSTICTRACE trace, void* userData) V_NOEXCEPT;

/* Processor features that the engine uses, for the whole process: 0 none, 1 SSE4.1, 2 AVX2 and BMI2, 3 AVX-512. A level
 * that the processor lacks becomes the best it has, a negative one 0. The environment variable VEXAKRN_CPU lowers the
 * level from the start. Results are the same at every level. Both return the level in force. */
V_API int32_t V_CALL V_SetCpuLevel(int32_t level) V_NOEXCEPT;
V_API int32_t V_CALL V_GetCpuLevel(void) V_NOEXCEPT;

VEXAKRN_END

#endif
