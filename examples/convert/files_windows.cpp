// Files of Windows: read as a whole, for a mapped file could be neither replaced nor removed meanwhile.
#include <fcntl.h>
#include <io.h>
#include <sys/stat.h>
#include <unistd.h>
#include <windows.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "files.h"

namespace qelconv {
namespace {

std::string reason() { return std::strerror(errno); }

bool writeAll(int fd, Bytes bytes) {
  constexpr size_t kAtOnce = 1 << 20;
  while (!bytes.empty()) {
    const int n = ::write(fd, bytes.data(), unsigned(std::min(bytes.size(), kAtOnce)));
    if (n <= 0) return false;
    bytes = bytes.subspan(size_t(n));
  }
  return true;
}

}  // namespace

Contents::Contents(const std::string& path) {
  const bool standard = path == "-";
  const int fd = standard ? STDIN_FILENO : ::open(path.c_str(), O_RDONLY | O_BINARY);
  if (fd < 0) throw Error("can't be opened: " + reason());
  if (standard) ::setmode(fd, O_BINARY);
  for (uint8_t chunk[65536];;) {
    const int n = ::read(fd, chunk, sizeof chunk);
    const std::string why = n < 0 ? reason() : "";
    if (n > 0) read_.insert(read_.end(), chunk, chunk + n);
    else if (!standard) ::close(fd);
    if (n < 0) throw Error("can't be read: " + why);
    if (n == 0) break;
  }
  if (read_.empty()) throw Error("the file is empty");
  bytes_ = read_;
}

Contents::~Contents() = default;

void Contents::forget(size_t) const {}

FileOutput::FileOutput(const std::string& path) {
  if (path == "-") {
    fd_ = STDOUT_FILENO;
    ::setmode(fd_, O_BINARY);
    return;
  }
  target_ = path;
  struct stat old{};
  if (::stat(target_.c_str(), &old) == 0 && !S_ISREG(old.st_mode)) {  // a device can't be replaced
    fd_ = ::open(target_.c_str(), O_WRONLY | O_BINARY);
    if (fd_ < 0) fail("can't be written: ");
    return;
  }
  const std::string name = target_ + "." + std::to_string(GetCurrentProcessId()) + ".part";
  fd_ = ::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_BINARY, S_IREAD | S_IWRITE);
  if (fd_ < 0) fail("can't be written: ");
  temporary_ = name;
}

FileOutput::~FileOutput() {
  if (fd_ > STDERR_FILENO) ::close(fd_);
  if (!temporary_.empty()) ::unlink(temporary_.c_str());
}

void FileOutput::fail(const char* what) const { throw Error(what + reason()); }

void FileOutput::put(Bytes bytes) {
  size_ += bytes.size();
  if (waits_) waiting_.insert(waiting_.end(), bytes.begin(), bytes.end());
  else if (!writeAll(fd_, bytes)) fail("can't be written: ");
}

void FileOutput::patch(size_t at, Bytes bytes) {
  if (waits_) std::copy(bytes.begin(), bytes.end(), waiting_.begin() + ptrdiff_t(at));
  else if (::_lseeki64(fd_, int64_t(at), SEEK_SET) < 0 || !writeAll(fd_, bytes) || ::_lseeki64(fd_, 0, SEEK_END) < 0)
    fail("can't be written: ");
}

void FileOutput::flush() {
  if (!writeAll(fd_, waiting_)) fail("can't be written: ");
  waiting_.clear();
}

void FileOutput::finish() {
  flush();
  if (fd_ > STDERR_FILENO && ::close(std::exchange(fd_, -1)) != 0) fail("can't be written: ");
  if (temporary_.empty()) return;
  if (!MoveFileExA(temporary_.c_str(), target_.c_str(), MOVEFILE_REPLACE_EXISTING))
    throw Error("can't be replaced: Windows says " + std::to_string(GetLastError()));
  temporary_.clear();
}

}  // namespace qelconv
