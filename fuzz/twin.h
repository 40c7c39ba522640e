// A live bitmap and its twin. The twin has the same record and pixels in plain memory; every call is made on both, and
// statuses, outputs, attributes and bytes must agree.
//
// The subject may be in any storage, under any setting, and something may go wrong during its call: a platform call
// fails, or a progress callback refuses. The twin's call is never disturbed. The unit tests hold plain
// memory to a model of bytes; that is why it can be the measure here.
#ifndef VEXAKRN_FUZZ_TWIN_H
#define VEXAKRN_FUZZ_TWIN_H

#include <algorithm>
#include <cstring>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "input.h"
#include "platform/fault.h"
#include "vexakrn.h"

namespace vexafuzz {

enum Side { kSubject, kTwin };
constexpr uint64_t kLargest = 1 << 19;  // bytes of data that a bitmap may really have

// --- what goes wrong during one call on the subject ---

constexpr int32_t kRefusal = -5001;

struct Trouble {
  uint32_t steps = 0;  // up to the one that is refused; 0 for none
  bool refused = false;

  static int32_t V_CALL OnStep(int32_t, void* self) {
    auto& trouble = *static_cast<Trouble*>(self);
    if (trouble.steps == 0 || --trouble.steps > 0) return 1;
    trouble.refused = true;
    return kRefusal;
  }
};
inline Trouble trouble;
inline bool limited = false;  // by thresholds or the account: storage may be refused at any time

inline void Arm(Input& input) {
  namespace platform = vexakrn::platform;
  trouble = {};
  platform::FailCall(0, false);
  const uint32_t choice = input.Below(16);
  if (choice < 3) platform::FailCall(1 + input.Below(choice < 2 ? 2 : 30), input.OneIn(2));
  if (choice == 4 || choice == 5) trouble.steps = 1 + input.Below(choice == 4 ? 8 : 120);
  V_SetCopyStatusCallBack(trouble.steps > 0 ? Trouble::OnStep : nullptr, &trouble, nullptr, nullptr);
}

// Whether the call may have failed for one of these reasons.
inline bool Disarm() {
  const bool failed = vexakrn::platform::HasFailed();
  vexakrn::platform::FailCall(0, false);
  V_SetCopyStatusCallBack(nullptr, nullptr, nullptr, nullptr);
  trouble.steps = 0;
  return trouble.refused || failed;
}

inline void ResetSettings(int32_t level, uint64_t* oldLimit = nullptr) {
  V_SetMemoryThresholds(0, 0, 0, 0, 0, 31);
  V_SetDefaultMemoryType(V_MemoryConventional);
  V_ManageMemory(V_MemorySetLimit, 0, oldLimit);
  V_SetCpuLevel(level);
}

// Default settings and plain kernels, for what the twin does.
class Quiet {
 public:
  Quiet() : level_(V_GetCpuLevel()) {
    V_GetMemoryThresholds(&reserve_, &conventional_, &tile_, &fourth_, &fifth_);
    V_GetDefaultMemoryType(&type_);
    ResetSettings(0, &limit_);
  }
  ~Quiet() {
    V_SetMemoryThresholds(reserve_, conventional_, tile_, fourth_, fifth_, 31);
    V_SetDefaultMemoryType(type_);
    V_ManageMemory(V_MemorySetLimit, limit_, nullptr);
    V_SetCpuLevel(level_);
  }
  Quiet(const Quiet&) = delete;

 private:
  int32_t level_, reserve_ = 0, fourth_ = 0, fifth_ = 0;
  int64_t conventional_ = 0, tile_ = 0;
  uint32_t type_ = 0;
  uint64_t limit_ = 0;
};

// Runs a row call with the data accessed; a negative status of the access instead.
template <class Call>
int64_t Accessed(BITMAPHANDLE* bitmap, Call call) {
  if (const int32_t status = V_AccessBitmap(bitmap); status != 1) return status;
  const int64_t result = call();
  V_ReleaseBitmap(bitmap);
  return result;
}

// Every attribute of two records agrees, and every pixel; only the kind of storage may differ.
inline void CheckSame(BITMAPHANDLE* subject, BITMAPHANDLE* twin) {
  static constexpr std::string_view kStorage =
      "Flags.ConventionalMemory Flags.DiskMemory Flags.LockedMemory Flags.Compressed Flags.Mirror Flags.Global "
      "Flags.Tiled Flags.SuperCompressed";
  char text[2048] = "";
  Check(V_CompareBitmapHandles(subject, twin, text, sizeof text) >= 0, "the rows can be compared");
  for (std::string_view lines = text; !lines.empty();) {
    const std::string_view name = lines.substr(2, lines.find('\t') - 2);
    Check(kStorage.find(name) != std::string_view::npos, text);
    lines.remove_prefix(std::min(lines.find('\n', 1), lines.size()));
  }
}

// Requests: first those that are refused only when memory lacks, then those that some or all bitmaps cannot have.
constexpr uint32_t kRequests[] = {1,   1,   4,   4,   4,    8,    9,    128, 128, 256, 257,  260,  264, 265,
                                  769, 512, 512, 512, 1024, 1024, 1024, 2,   129, 768, 1025, 1280, 1281};
constexpr uint32_t kSimpleRequests = 15;

// Whether a failure on the subject's side alone has its reason.
inline bool IsExplained(int64_t status, bool excused, uint32_t request) {
  const auto* end = kRequests + kSimpleRequests;
  if (status == V_StatusInvalidParameter && std::find(kRequests, end, request) == end) return true;
  return excused || (limited && (status == V_StatusNoMemory || status == V_StatusMemoryLimit));
}

inline void CheckTwin(int64_t subject, int64_t twin) {
  if (subject == twin) return;
  const std::string what = "the subject's " + std::to_string(subject) + ", its twin's " + std::to_string(twin);
  Check(false, what.c_str());
}

// What a call that fails on the subject's side alone may have done to it.
enum class Failure { kNothing, kUndoneUnlessRefused, kPart };

class Pair {
 public:
  Pair() { Renew(V_BITMAPHANDLE_SIZE); }
  ~Pair() { Free(); }
  Pair(const Pair&) = delete;

  BITMAPHANDLE* Of(Side side) { return side == kTwin ? &twin_ : reinterpret_cast<BITMAPHANDLE*>(record_.get()); }
  BITMAPHANDLE* Get() { return Of(kSubject); }
  bool Has(uint32_t flag) { return (Get()->Flags & flag) != 0; }
  uint64_t Bytes() {
    return uint64_t{Get()->BytesPerLine} * static_cast<uint64_t>(std::max(int32_t{Get()->Height}, 0));
  }
  uint64_t RowBits() { return static_cast<uint64_t>(Get()->Width) * static_cast<uint64_t>(Get()->BitsPerPixel); }

  void Free() {
    for (const Side side : {kSubject, kTwin, kSubject}) V_FreeBitmap(Of(side));
    Check(!Has(V_FlagAllocated), "a freed bitmap is not allocated");
  }
  // New empty records; what the old ones owned belongs to somebody else by now. The subject's has exactly its layout's
  // bytes, so that a sanitizer sees what is touched beyond.
  void Renew(uint32_t structSize) {
    record_.reset(new uint8_t[structSize]());
    twin_ = {};
    Get()->uStructSize = twin_.uStructSize = structSize;
  }

  // Makes a call on both sides. `request` is the memory that it asks for.
  template <class Call>
  int64_t Both(Failure failure, Call call, uint32_t request = V_MemoryConventional) {
    const std::vector<uint8_t> before(record_.get(), record_.get() + Get()->uStructSize);
    const int64_t got = call(kSubject);
    const bool excused = Disarm();
    const Quiet quiet;
    if (got >= 0 || !IsExplained(got, excused, request)) {
      CheckTwin(got, call(kTwin));
    } else if (failure == Failure::kPart || (failure == Failure::kUndoneUnlessRefused && trouble.refused)) {
      Follow();
    } else if (failure == Failure::kNothing && !trouble.refused) {
      Check(std::memcmp(before.data(), record_.get(), before.size()) == 0, "a record after a failure");
    }
    return got;
  }

  // Makes new bitmaps on both sides in the place of what there was; none where that fails.
  template <class Call>
  int64_t Make(uint32_t structSize, uint32_t request, Call call) {
    Free();
    Renew(structSize);
    const int64_t got = call(kSubject);
    const bool excused = Disarm();
    const Quiet quiet;
    if (got == 1 || !IsExplained(got, excused, request)) CheckTwin(got, call(kTwin));
    if (got == 1) return got;
    Check(!Has(V_FlagAllocated), "what could not be made is not allocated");
    Free();
    Renew(structSize);
    return got;
  }

  // Gives the twin the subject's bytes.
  void Follow() {
    if (!Has(V_FlagAllocated)) return;
    const int64_t bytes = Accessed(Get(), [&] { return V_GetBitmapRow(Get(), twin_.Addr.Windows.pData, 0, Bytes()); });
    Check(bytes == static_cast<int64_t>(Bytes()), "all rows can be read");
  }

  void Verify() {
    if (Has(V_FlagCompressed)) DropPadding();
    CheckSame(Get(), &twin_);
    if (!Has(V_FlagAllocated)) return;
    const std::vector<uint8_t> plain(twin_.Addr.Windows.pData, twin_.Addr.Windows.pData + Bytes());
    Follow();
    Check(std::memcmp(plain.data(), twin_.Addr.Windows.pData, plain.size()) == 0, "the data, padding included");
  }

 private:
  // Run-length rows do not keep what follows the last pixel.
  void DropPadding() {
    const uint64_t pitch = Get()->BytesPerLine, used = RowBits() / 8;
    for (uint8_t *row = twin_.Addr.Windows.pData, *end = row + Bytes(); row < end; row += pitch) {
      if (RowBits() % 8 != 0) row[used] &= static_cast<uint8_t>(0xFF00u >> RowBits() % 8);
      for (uint64_t at = (RowBits() + 7) / 8; at < pitch; ++at) row[at] = 0;
    }
  }

  std::unique_ptr<uint8_t[]> record_;
  BITMAPHANDLE twin_{};
};

}  // namespace vexafuzz

#endif
