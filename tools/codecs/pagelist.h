// Pages that are held between reading and writing, in a bitmap list of the engine.
#ifndef VEXA_CODECS_PAGELIST_H
#define VEXA_CODECS_PAGELIST_H

#include <cstdint>

#include "codecs/bitmap.h"

namespace vexa {

class PageList {
 public:
  PageList();
  ~PageList();  // with all pages in it
  PageList(const PageList&) = delete;
  PageList& operator=(const PageList&) = delete;

  uint32_t Count() const;

  // Puts a page with its storage at the end; `page` is empty afterwards.
  void Append(Bitmap& page);

  // Takes the first page out.
  void TakeFirst(Bitmap& page);

 private:
  HBITMAPLIST list_ = nullptr;
};

}  // namespace vexa

#endif
