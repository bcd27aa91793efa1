// What is put into a new file, alike on every system.
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "files.h"

namespace qelconv {
namespace {

bool seek(int fd, int64_t offset, int from) {
#ifdef _WIN32
  return ::_lseeki64(fd, offset, from) >= 0;
#else
  return ::lseek(fd, offset, from) >= 0;
#endif
}

}  // namespace

bool writeAll(int fd, Bytes bytes) {
  constexpr size_t kAtOnce = 1 << 30;  // some systems count in 32 bits
  while (!bytes.empty()) {
    const auto n = ::write(fd, bytes.data(), unsigned(std::min(bytes.size(), kAtOnce)));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    bytes = bytes.subspan(size_t(n));
  }
  return true;
}

void FileOutput::fail(const char* what) const { throw Error(std::string(what) + std::strerror(errno)); }

void FileOutput::put(Bytes bytes) {
  constexpr size_t kAtOnce = 1 << 16;
  size_ += bytes.size();
  if (waits_ || waiting_.size() + bytes.size() < kAtOnce) {
    waiting_.insert(waiting_.end(), bytes.begin(), bytes.end());
    return;
  }
  flush();
  if (!writeAll(fd_, bytes)) fail("can't be written: ");
}

void FileOutput::patch(size_t at, Bytes bytes) {
  if (!waits_) flush();
  const size_t written = size_ - waiting_.size();
  if (at >= written) std::copy(bytes.begin(), bytes.end(), waiting_.begin() + ptrdiff_t(at - written));
  else if (!seek(fd_, int64_t(at), SEEK_SET) || !writeAll(fd_, bytes) || !seek(fd_, 0, SEEK_END))
    fail("can't be written: ");
}

void FileOutput::flush() {
  if (!writeAll(fd_, waiting_)) fail("can't be written: ");
  waiting_.clear();
}

}  // namespace qelconv
