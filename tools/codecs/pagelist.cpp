#include "codecs/pagelist.h"

#include "codecs/error.h"

namespace vexa {

PageList::PageList() { CheckStatus(V_CreateBitmapList(&list_)); }

PageList::~PageList() { V_DestroyBitmapList(list_); }

uint32_t PageList::Count() const {
  uint32_t count = 0;
  CheckStatus(V_GetBitmapListCount(list_, &count));
  return count;
}

void PageList::Append(Bitmap& page) {
  BITMAPHANDLE record = page.Surrender();
  const int32_t status = V_InsertBitmapListItem(list_, V_LIST_END, &record);
  if (status != V_StatusSuccess) page.Adopt(record);
  CheckStatus(status);
}

void PageList::TakeFirst(Bitmap& page) {
  BITMAPHANDLE record;
  CheckStatus(V_RemoveBitmapListItem(list_, 0, &record));
  page.Adopt(record);
}

}  // namespace vexa
