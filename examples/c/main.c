/* Embedding vexakrn in a C program: make a picture, write its rows, read them back.
 *
 *   cc -std=c11 main.c $(pkg-config --cflags --libs vexakrn) -o rows && ./rows
 */
#include <stdio.h>
#include <string.h>
#include <vexakrn.h>

enum { kWidth = 320, kHeight = 200, kRowBytes = kWidth * 3 };

/* Every function returns a status: 1 is success, a negative value says what went wrong. */
static int fail(const char* what, int64_t status) {
  fprintf(stderr, "%s: %s\n", what, V_GetStatusText((int32_t)status));
  return 1;
}

/* One row of a picture that runs from blue on the left to red on the right, and brightens downwards. */
static void paint_row(uint8_t* row, int y) {
  for (int x = 0; x < kWidth; ++x) {
    row[3 * x + 0] = (uint8_t)(255 - 255 * x / (kWidth - 1)); /* blue comes first in V_OrderBgr */
    row[3 * x + 1] = (uint8_t)(255 * y / (kHeight - 1));
    row[3 * x + 2] = (uint8_t)(255 * x / (kWidth - 1));
  }
}

/* Writes all rows, reads them back and compares. Rows are moved while the bitmap is accessed. */
static int round_trip(BITMAPHANDLE* bitmap) {
  uint8_t written[kRowBytes], got[kRowBytes];
  for (int y = 0; y < kHeight; ++y) {
    paint_row(written, y);
    const int64_t moved = V_PutBitmapRow(bitmap, written, y, kRowBytes);
    if (moved != kRowBytes) return fail("V_PutBitmapRow", moved);
  }
  for (int y = 0; y < kHeight; ++y) {
    const int64_t moved = V_GetBitmapRow(bitmap, got, y, kRowBytes);
    if (moved != kRowBytes) return fail("V_GetBitmapRow", moved);
    paint_row(written, y);
    if (memcmp(written, got, kRowBytes) != 0) {
      fprintf(stderr, "row %d differs\n", y);
      return 1;
    }
  }
  return 0;
}

int main(void) {
  BITMAPHANDLE bitmap; /* the record is the caller's, the pixels are the library's until V_FreeBitmap */
  int32_t status = V_CreateBitmap(&bitmap, sizeof bitmap, V_MemoryConventional, kWidth, kHeight, 24, V_OrderBgr, NULL,
                                  V_ViewTopLeft, NULL, 0);
  if (status != 1) return fail("V_CreateBitmap", status);

  int result = 1;
  status = V_AccessBitmap(&bitmap);
  if (status == 1) {
    result = round_trip(&bitmap);
    status = V_ReleaseBitmap(&bitmap);
  }
  V_FreeBitmap(&bitmap);
  if (status != 1) return fail("access", status);
  if (result == 0) printf("%d rows of %d bytes went in and came back the same\n", kHeight, kRowBytes);
  return result;
}
