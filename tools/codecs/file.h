// A file behind the engine's redirectable functions, with one buffer for small transfers.
//
// Whatever the calling thread has redirected (a memory stream, a host's own functions) is what is read and written. A
// file that cannot seek is read into memory when it is opened, so that every codec may seek in its input.
#ifndef VEXA_CODECS_FILE_H
#define VEXA_CODECS_FILE_H

#include <cstdint>
#include <string>
#include <vector>

namespace vexa {

class File {
 public:
  enum class Mode {
    kRead,
    kRewrite,  // created, or cut to nothing; may be read back
    kWrite     // an existing file, device or pipe, from its start on
  };

  File(const std::string& path, Mode mode);
  ~File();  // without a word about what could not be written: Close says that
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  uint64_t Read(void* buffer, uint64_t bytes);     // fewer than `bytes` only at the end
  void ReadExactly(void* buffer, uint64_t bytes);  // or an Error about a file cut short
  int Byte();                                      // the next byte, -1 at the end
  void Write(const void* data, uint64_t bytes);    // all of it, or an Error
  uint64_t Seek(int64_t offset, int32_t origin = 0);
  uint64_t Position() const { return position_; }
  uint64_t Size();
  void Close();

 private:
  void Fill();
  void Flush();
  uint64_t SeekSystem(int64_t offset, int32_t origin);
  void WriteThrough(const uint8_t* data, uint64_t bytes);
  void LoadAll();

  intptr_t handle_ = -1;
  uint64_t position_ = 0;           // as the caller sees it
  std::vector<uint8_t> readAhead_;  // bytes at and around the position; the whole input when it cannot seek
  uint64_t readAheadStart_ = 0;
  std::vector<uint8_t> pending_;  // written by the caller, not yet by the system; ends at the position
  bool whole_ = false;
};

}  // namespace vexa

#endif
