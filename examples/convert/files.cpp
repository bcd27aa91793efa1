#include "files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <utility>

namespace qelconv {
namespace {

std::string reason() { return std::strerror(errno); }

class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  Descriptor(const Descriptor&) = delete;
  ~Descriptor() {
    if (fd_ > STDERR_FILENO) ::close(fd_);
  }
  operator int() const { return fd_; }
  // Whether all that was written is there.
  bool close() { return ::close(std::exchange(fd_, -1)) == 0; }

 private:
  int fd_;
};

bool writeAll(int fd, Bytes bytes) {
  while (!bytes.empty()) {
    const ssize_t n = ::write(fd, bytes.data(), bytes.size());
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    bytes = bytes.subspan(size_t(n));
  }
  return true;
}

// Where a path's links lead to; the path itself where there is no file yet.
std::string targetOf(const std::string& path) {
  const std::unique_ptr<char, void (*)(void*)> real(::realpath(path.c_str(), nullptr), std::free);
  return real ? real.get() : path;
}

mode_t maskedMode() {
  const mode_t mask = ::umask(0);
  ::umask(mask);
  return 0666 & ~mask;
}

}  // namespace

std::vector<uint8_t> readFile(const std::string& path) {
  const Descriptor fd(path == "-" ? STDIN_FILENO : ::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (fd < 0) throw Error("can't be opened: " + reason());
  std::vector<uint8_t> bytes;
  for (uint8_t chunk[65536];;) {
    const ssize_t n = ::read(fd, chunk, sizeof chunk);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) throw Error("can't be read: " + reason());
    if (n == 0) break;
    bytes.insert(bytes.end(), chunk, chunk + n);
  }
  if (bytes.empty()) throw Error("the file is empty");
  return bytes;
}

void writeFile(const std::string& path, Bytes bytes) {
  if (path == "-") {
    if (!writeAll(STDOUT_FILENO, bytes)) throw Error("can't be written: " + reason());
    return;
  }
  const std::string target = targetOf(path);
  struct stat old{};
  const bool exists = ::stat(target.c_str(), &old) == 0;
  if (exists && !S_ISREG(old.st_mode)) {  // a device or a pipe can't be replaced
    Descriptor fd(::open(target.c_str(), O_WRONLY | O_CLOEXEC));
    if (fd < 0 || !writeAll(fd, bytes) || !fd.close()) throw Error("can't be written: " + reason());
    return;
  }
  std::string temporary = target + ".XXXXXX";
  Descriptor fd(::mkostemp(temporary.data(), O_CLOEXEC));
  if (fd < 0) throw Error("can't be written: " + reason());
  const auto giveUp = [&](const std::string& what) {
    const std::string why = reason();
    ::unlink(temporary.c_str());
    throw Error(what + why);
  };
  if (!writeAll(fd, bytes) || ::fchmod(fd, exists ? old.st_mode & 07777 : maskedMode()) != 0 || !fd.close())
    giveUp("can't be written: ");
  if (::rename(temporary.c_str(), target.c_str()) != 0) giveUp("can't be replaced: ");
}

}  // namespace qelconv
