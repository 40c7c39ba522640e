// The gallery page: one HTML file without anything from outside, beside its pictures.
#ifndef VEXA_GALLERY_PAGE_H
#define VEXA_GALLERY_PAGE_H

#include <optional>
#include <string>
#include <vector>

#include "gallery/big.h"
#include "gallery/dithering.h"
#include "gallery/document.h"
#include "gallery/runs.h"

namespace vexa::gallery {

std::string MakePage(const std::vector<Sample>& samples, const std::optional<DitheringReport>& dithering,
                     const std::optional<DocumentReport>& document, const std::optional<BigReport>& big);

}  // namespace vexa::gallery

#endif
