// Files of Windows: read as a whole, for a mapped file could be neither replaced nor removed meanwhile.
#include <fcntl.h>
#include <io.h>
#include <sys/stat.h>
#include <unistd.h>
#include <windows.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "files.h"

namespace qelconv {
namespace {

std::string reason() { return std::strerror(errno); }

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

void FileOutput::finish() {
  flush();
  if (fd_ > STDERR_FILENO && ::close(std::exchange(fd_, -1)) != 0) fail("can't be written: ");
  if (temporary_.empty()) return;
  if (!MoveFileExA(temporary_.c_str(), target_.c_str(), MOVEFILE_REPLACE_EXISTING))
    throw Error("can't be replaced: Windows says " + std::to_string(GetLastError()));
  temporary_.clear();
}

}  // namespace qelconv
