#include "codecs/error.h"

#include <system_error>

#include "vexakrn.h"

namespace vexa {

void CheckStatus(int32_t status) {
  if (status != V_StatusSuccess) throw Error(V_GetStatusText(status));
}

std::string LastFileError() {
  const int32_t error = V_GetLastRedirectError();
  if (error < 0) return V_GetStatusText(error);
  if (error == 0) return "the file could not be accessed";
  return std::system_category().message(error);
}

}  // namespace vexa
