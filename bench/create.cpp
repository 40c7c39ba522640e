// Creating and freeing bitmaps, against mapping and unmapping the same bytes.
//
// Creation looks at how much memory there is, so the other side reads the memory status once. Large blocks of the
// engine ask for large pages: beside the plain mapping stands one that asks for them too.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include "common.h"

#ifdef VEXABENCH_LEPTONICA
#include <allheaders.h>
#endif

namespace vexabench {
namespace {

constexpr size_t kPage = 4096;
constexpr int32_t kSide = 10000;  // of an image of 100 megapixels

void Touch(uint8_t* data, size_t bytes) {
  for (size_t at = 0; at < bytes; at += kPage) const_cast<volatile uint8_t*>(data)[at] = 1;
}

// Rows of 4 KB, 8 bits deep.
void CreateAndFree(size_t bytes, bool touch) {
  BITMAPHANDLE bitmap;
  Require(V_CreateBitmap(&bitmap, sizeof bitmap, V_MemoryConventional, kPage, static_cast<int32_t>(bytes / kPage), 8,
                         V_OrderGray, nullptr, V_ViewTopLeft, nullptr, 0) == 1,
          "the bitmap could not be created");
  Require(bitmap.Size64 == bytes, "the bitmap has another size");
  if (touch) Touch(bitmap.Addr.Windows.pData, bytes);
  V_FreeBitmap(&bitmap);
}

void ReadMemoryStatus() {
  char text[4096];
  const int file = open("/proc/meminfo", O_RDONLY | O_CLOEXEC);
  const ssize_t bytes = read(file, text, sizeof text);
  close(file);
  Require(bytes > 0, "the memory status could not be read");
}

enum class Pages { kPlain, kLarge };

void MapAndUnmap(size_t bytes, bool touch, Pages pages) {
  ReadMemoryStatus();
  void* data = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  Require(data != MAP_FAILED, "no memory");
  if (pages == Pages::kLarge) madvise(data, bytes, MADV_HUGEPAGE);
  if (touch) Touch(static_cast<uint8_t*>(data), bytes);
  munmap(data, bytes);
}

Contest AgainstMapping(size_t bytes, bool touch, Pages pages) {
  return {[=] { CreateAndFree(bytes, touch); }, [=] { MapAndUnmap(bytes, touch, pages); }};
}

// 100 megapixels at 24 bits, left untouched.
void CreateLarge() {
  BITMAPHANDLE bitmap;
  Require(V_CreateBitmap(&bitmap, sizeof bitmap, V_MemoryConventional, kSide, kSide, 24, V_OrderBgr, nullptr,
                         V_ViewTopLeft, nullptr, 0) == 1,
          "the bitmap could not be created");
  V_FreeBitmap(&bitmap);
}

long MinorFaults() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_minflt;
}

double FaultsOfCreation() {
  CreateLarge();  // what is loaded and made once does not count
  const long before = MinorFaults();
  CreateLarge();
  return static_cast<double>(MinorFaults() - before);
}

#ifdef VEXABENCH_LEPTONICA
Contest AgainstLeptonica(size_t bytes) {
  return {[=] { CreateAndFree(bytes, true); },
          [=] {
            PIX* pix = pixCreate(kPage, static_cast<l_int32>(bytes / kPage), 8);
            Require(pix != nullptr, "the peer had no memory");
            Touch(reinterpret_cast<uint8_t*>(pixGetData(pix)), bytes);
            pixDestroy(&pix);
          }};
}
#endif

}  // namespace

void RegisterFamily() {
  for (const size_t megabytes : {1u, 16u, 64u, 300u}) {
    const size_t bytes = megabytes << 20;
    const int rounds = megabytes > 64 ? 15 : 31;
    const std::string operation = "create, touch, free " + SizeName(bytes);
    Compare(
        operation, "mmap, touch, munmap, meminfo", TimesAtMost(1.3),
        [=] { return AgainstMapping(bytes, true, Pages::kPlain); }, rounds);
    if (megabytes > 1)
      Compare(
          operation, "the same with large pages", TimesAtMost(1.3),
          [=] { return AgainstMapping(bytes, true, Pages::kLarge); }, rounds);
#ifdef VEXABENCH_LEPTONICA
    Compare(
        operation, "Leptonica pixCreate", kNoGoal, [=] { return AgainstLeptonica(bytes); }, rounds);
#endif
  }
  Compare("create, free 16 KB", "mmap, munmap, meminfo", TimesAtMost(1.3),
          [] { return AgainstMapping(16384, false, Pages::kPlain); });
  Compare("create, free 100 megapixels of 24 bits", "mmap, munmap, meminfo", TimesAtMost(1.3), [] {
    const Contest contest = AgainstMapping(size_t{kSide} * kSide * 3, false, Pages::kPlain);
    return Contest{CreateLarge, contest.other};
  });
  Count("create, free 100 megapixels of 24 bits", "page faults", 16, FaultsOfCreation);
}

}  // namespace vexabench
