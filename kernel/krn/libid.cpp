// Owners of status codes: other components of the toolkit, by category or library id.
#include <algorithm>
#include <iterator>

#include "common/status.h"

namespace vexakrn {
namespace {

constexpr int32_t kNoLibrary = -1;

struct Owner {
  int32_t code;
  int32_t category;   // 0: the library counts
  int32_t libraryId;  // kNoLibrary: the category counts
};

// Sorted by code.
constexpr Owner kOwners[] = {
    {-1597, 0, 106},        {-1596, 0, 105}, {-1595, 0, 44},        {-1589, 0, 104},        {-1588, 0, 103},
    {-825, 0, 8},           {-824, 0, 83},   {-823, 0, 84},         {-822, 0, 81},          {-821, 0, 68},
    {-820, 0, 67},          {-819, 0, 72},   {-818, 7, kNoLibrary}, {-807, 24, kNoLibrary}, {-541, 0, 54},
    {-359, 0, 2},           {-358, 0, 50},   {-357, 0, 0},          {-356, 0, 1},           {-355, 0, 57},
    {-353, 22, kNoLibrary}, {-349, 0, 9},    {-319, 0, 35},         {-309, 0, 34},
};

}  // namespace
}  // namespace vexakrn

using namespace vexakrn;

int32_t V_CALL V_GetLibIdFromErrorCode(int32_t code, int32_t* category, int32_t* libraryId) noexcept {
  if (!category || !libraryId) return kNullPointer;
  const Owner* row = std::lower_bound(std::begin(kOwners), std::end(kOwners), code,
                                      [](const Owner& owner, int32_t wanted) { return owner.code < wanted; });
  const bool found = row != std::end(kOwners) && row->code == code;
  *category = found ? row->category : 0;
  *libraryId = found ? row->libraryId : kNoLibrary;
  return kSuccess;
}
