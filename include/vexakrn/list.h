/* Bitmap lists: pages of a document, frames of an animation.
 *
 * A list is an array of records and owns the storage of each while it is in the list. Items are records of the current
 * layout; one that is put in from the older layout is widened (its size taken from the 32-bit field, no 16-bit
 * look-up table). A list is used by one caller at a time. Item numbers start at 0.
 *
 * Every function returns 1, or
 *   -13   null list, bitmap or output; a number outside the list; a count of 0
 *   -789  a record whose size is not 284 or 228; a list whose items are not of this layout
 *   -814  a list that has items but no array
 *   -1    no memory
 * A failure leaves lists as they were. */
#ifndef VEXAKRN_LIST_H
#define VEXAKRN_LIST_H

#include "vexakrn/bitmap.h"

VEXAKRN_BEGIN

typedef struct VexaBitmapList* HBITMAPLIST;

/* As an item number: after the last; as a count: all that follow. */
#define V_LIST_END 0xFFFFFFFFu

/* A new list without items. */
V_API int32_t V_CALL V_CreateBitmapList(HBITMAPLIST* list) V_NOEXCEPT;

/* Deletes every item with its storage, and the list. */
V_API int32_t V_CALL V_DestroyBitmapList(HBITMAPLIST list) V_NOEXCEPT;

V_API int32_t V_CALL V_GetBitmapListCount(HBITMAPLIST list, uint32_t* count) V_NOEXCEPT;

/* Puts a copy of the record before item `index`, or at the end when there is no such item. The storage passes to the
 * list: the caller's record is left as it is and must not be freed. Appending costs the same however long the list. */
V_API int32_t V_CALL V_InsertBitmapListItem(HBITMAPLIST list, uint32_t index, BITMAPHANDLE* bitmap) V_NOEXCEPT;

/* Takes an item out. With `bitmapOut` (284 bytes) its record goes there and its storage passes to the caller; without,
 * the storage is not freed: use V_DeleteBitmapListItems for that. */
V_API int32_t V_CALL V_RemoveBitmapListItem(HBITMAPLIST list, uint32_t index, BITMAPHANDLE* bitmapOut) V_NOEXCEPT;

/* Copies the item's record to `bitmapOut` in a layout of `structSize` bytes. The storage stays the list's, shared by the
 * copy. The older layout has no place for data callbacks: asking for it frees the item's. -3 when the item's data is too
 * large for that layout. */
V_API int32_t V_CALL V_GetBitmapListItem(HBITMAPLIST list, uint32_t index, BITMAPHANDLE* bitmapOut,
                                         uint32_t structSize) V_NOEXCEPT;

/* Replaces an item, freeing the old one; the new one's storage passes to the list. A record that came from
 * V_GetBitmapListItem for this item, and was changed in whatever way, is stored without freeing anything. */
V_API int32_t V_CALL V_SetBitmapListItem(HBITMAPLIST list, uint32_t index, BITMAPHANDLE* bitmap) V_NOEXCEPT;

/* Exchanges an item and the caller's record, which gets the old one in its own layout. In the older one it comes without
 * data callbacks and 16-bit look-up table; -3 as above, -789 when a host keeps the item's data. */
V_API int32_t V_CALL V_ReplaceBitmapListItem(HBITMAPLIST list, uint32_t index, BITMAPHANDLE* bitmap) V_NOEXCEPT;

/* Deletes up to `count` items from `index` on with their storage; a count of 0xFFFFFFFF means all of them. */
V_API int32_t V_CALL V_DeleteBitmapListItems(HBITMAPLIST list, uint32_t index, uint32_t count) V_NOEXCEPT;

/* A new list with copies (V_CopyBitmap) of up to `count` items from `index` on; or the code of the copy that failed. */
V_API int32_t V_CALL V_CopyBitmapListItems(HBITMAPLIST* newList, HBITMAPLIST list, uint32_t index,
                                           uint32_t count) V_NOEXCEPT;

/* A new list that takes over up to `count` items from `index` on, in their order. */
V_API int32_t V_CALL V_MoveBitmapListItems(HBITMAPLIST* newList, HBITMAPLIST list, uint32_t index,
                                           uint32_t count) V_NOEXCEPT;

VEXAKRN_END

#endif
