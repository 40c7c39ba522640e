// Unique names of temporary files, and the nameless files that storage lies in.
#ifndef VEXAKRN_KRN_TEMPNAME_H
#define VEXAKRN_KRN_TEMPNAME_H

#include "platform/platform.h"

namespace vexakrn {

// A file of `bytes` reserved bytes in the temporary directory, gone when it is closed or the process dies. Returns 1, a
// code of the name generator, or -1.
int32_t CreateScratchFile(uint64_t bytes, platform::File* file) noexcept;

// inuse.cpp: the names that were handed out and are still in use. Everything here is called inside namesSection.
class NamesInUse {
 public:
  // Makes room for one more; false without memory.
  bool Prepare() noexcept;
  bool Contains(const char* name) noexcept;
  // Takes a copy; false without memory. Only after Prepare.
  bool Add(const char* name) noexcept;
  void Remove(const char* name) noexcept;
  // Gives the list's memory back when it is empty.
  void Trim() noexcept;
  // Whether a reserved name has not been made a file yet.
  bool IsUnopened(const char* name) noexcept;
  void MarkOpened(const char* name) noexcept;

 private:
  struct Entry {
    uint64_t hash;
    char* name;
    bool opened;
  };
  Entry* Find(const char* name) noexcept;

  Entry* entries_ = nullptr;
  uint64_t count_ = 0;
  uint64_t room_ = 0;
};

// The process's list and the critical section that guards it and the search for names.
extern NamesInUse namesInUse;
extern platform::CriticalSection namesSection;

}  // namespace vexakrn

#endif
