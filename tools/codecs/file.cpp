#include "codecs/file.h"

#include <algorithm>
#include <cstring>

#include "codecs/error.h"
#include "vexakrn.h"

namespace vexa {
namespace {

constexpr uint64_t kBufferBytes = 65536;

uint32_t OpenBits(File::Mode mode) {
  switch (mode) {
    case File::Mode::kRead:
      return V_OpenRead;
    case File::Mode::kRewrite:
      return V_OpenRead | V_OpenWrite | V_OpenCreate;
    case File::Mode::kWrite:
      break;
  }
  return V_OpenWrite;
}

}  // namespace

File::File(const std::string& path, Mode mode) : handle_(V_RedirectedOpen(path.c_str(), OpenBits(mode))) {
  if (handle_ == -1) throw Error(path, LastFileError());
  try {
    if (mode == Mode::kRead && V_RedirectedSeek(handle_, 0, 1) < 0) LoadAll();
  } catch (...) {
    V_RedirectedClose(handle_);
    throw;
  }
}

File::~File() {
  if (handle_ != -1) V_RedirectedClose(handle_);
}

void File::LoadAll() {
  for (;;) {
    const size_t filled = readAhead_.size();
    readAhead_.resize(filled + std::max<size_t>(kBufferBytes, filled));
    const int64_t done = V_RedirectedRead(handle_, readAhead_.data() + filled, readAhead_.size() - filled);
    if (done < 0) throw Error(LastFileError());
    readAhead_.resize(filled + static_cast<size_t>(done));
    if (done == 0) break;
  }
  whole_ = true;
}

void File::Fill() {
  readAhead_.resize(kBufferBytes);
  readAheadStart_ = position_;
  const int64_t done = V_RedirectedRead(handle_, readAhead_.data(), kBufferBytes);
  if (done < 0) {
    readAhead_.clear();
    throw Error(LastFileError());
  }
  readAhead_.resize(static_cast<size_t>(done));
}

uint64_t File::Read(void* buffer, uint64_t bytes) {
  Flush();
  uint8_t* out = static_cast<uint8_t*>(buffer);
  uint64_t done = 0;
  while (done < bytes) {
    const bool inside = position_ >= readAheadStart_ && position_ - readAheadStart_ < readAhead_.size();
    if (!inside) {
      if (whole_) break;
      Fill();
      if (readAhead_.empty()) break;
    }
    const uint64_t offset = position_ - readAheadStart_;
    const uint64_t part = std::min(bytes - done, readAhead_.size() - offset);
    std::memcpy(out + done, readAhead_.data() + offset, part);
    done += part;
    position_ += part;
  }
  return done;
}

void File::ReadExactly(void* buffer, uint64_t bytes) {
  if (Read(buffer, bytes) != bytes) throw Error("the file is cut short");
}

int File::Byte() {
  uint8_t value;
  return Read(&value, 1) == 1 ? value : -1;
}

void File::WriteThrough(const uint8_t* data, uint64_t bytes) {
  while (bytes > 0) {
    const int64_t done = V_RedirectedWrite(handle_, data, bytes);
    if (done < 0) throw Error(LastFileError());
    if (done == 0) throw Error("the device is full");
    data += done;
    bytes -= static_cast<uint64_t>(done);
  }
}

void File::Flush() {
  if (pending_.empty()) return;
  const std::vector<uint8_t> data = std::move(pending_);
  pending_.clear();
  WriteThrough(data.data(), data.size());
}

void File::Write(const void* data, uint64_t bytes) {
  if (!readAhead_.empty()) SeekSystem(static_cast<int64_t>(position_), 0);  // the system is ahead of us
  const uint8_t* in = static_cast<const uint8_t*>(data);
  position_ += bytes;
  if (pending_.size() + bytes > kBufferBytes) Flush();
  if (bytes > kBufferBytes) return WriteThrough(in, bytes);
  pending_.insert(pending_.end(), in, in + bytes);
}

uint64_t File::Seek(int64_t offset, int32_t origin) {
  Flush();
  if (origin == 1) {
    offset += static_cast<int64_t>(position_);
    origin = 0;
  }
  if (whole_) {
    if (origin == 2) offset += static_cast<int64_t>(readAhead_.size());
    if (offset < 0) throw Error("a position before the start of the file");
    return position_ = static_cast<uint64_t>(offset);
  }
  const uint64_t wanted = static_cast<uint64_t>(offset);
  if (origin == 0 && wanted >= readAheadStart_ && wanted - readAheadStart_ < readAhead_.size())
    return position_ = wanted;  // inside the buffer: nothing to tell the system
  return SeekSystem(offset, origin);
}

uint64_t File::SeekSystem(int64_t offset, int32_t origin) {
  const int64_t position = V_RedirectedSeek(handle_, offset, origin);
  if (position < 0) throw Error(LastFileError());
  readAhead_.clear();
  readAheadStart_ = 0;
  return position_ = static_cast<uint64_t>(position);
}

uint64_t File::Size() {
  const uint64_t position = position_;
  const uint64_t size = Seek(0, 2);
  Seek(static_cast<int64_t>(position));
  return size;
}

void File::Close() {
  if (handle_ == -1) return;
  Flush();
  const intptr_t handle = handle_;
  handle_ = -1;
  if (V_RedirectedClose(handle) != 0) throw Error(LastFileError());
}

}  // namespace vexa
