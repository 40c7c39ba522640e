/* vexakrn: the kernel of a raster-imaging toolkit. This header includes the whole C interface (C11 and C++20). */
#ifndef VEXAKRN_H
#define VEXAKRN_H

#include "vexakrn/bitmap.h"
#include "vexakrn/convert.h"
#include "vexakrn/copy.h"
#include "vexakrn/dither.h"
#include "vexakrn/files.h"
#include "vexakrn/list.h"
#include "vexakrn/memory.h"
#include "vexakrn/palette.h"
#include "vexakrn/rows.h"
#include "vexakrn/runs.h"
#include "vexakrn/status.h"
#include "vexakrn/system.h"
#include "vexakrn/tempfile.h"
#include "vexakrn/types.h"

#endif
