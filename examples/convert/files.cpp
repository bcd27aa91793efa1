#include "files.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
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

 private:
  int fd_;
};

// Where a path's links lead to; the path itself where there is no file yet.
std::string targetOf(const std::string& path) {
  const std::unique_ptr<char, void (*)(void*)> real(::realpath(path.c_str(), nullptr), std::free);
  return real ? real.get() : path;
}

// The file that is being written, which goes where a signal ends the program: somebody's, or that which a mapped file's
// pages give when they are no longer there.
char unfinished[4096];
constexpr int kSignals[] = {SIGHUP, SIGINT, SIGTERM};

void end(int signal) {
  ::unlink(unfinished);
  if (signal == SIGBUS) {
    constexpr char kWhy[] = "qelconv: a file has been shortened while it was read\n";
    constexpr int kFailure = 1;
    writeAll(STDERR_FILENO, {reinterpret_cast<const uint8_t*>(kWhy), sizeof kWhy - 1});
    ::_exit(kFailure);
  }
  std::signal(signal, SIG_DFL);
  std::raise(signal);
}

void watch(const std::string& path) {
  if (path.size() >= sizeof unfinished) return;
  std::memcpy(unfinished, path.c_str(), path.size() + 1);
  for (const int signal : kSignals)
    if (std::signal(signal, end) == SIG_IGN) std::signal(signal, SIG_IGN);
}
void unwatch() {
  unfinished[0] = 0;
  for (const int signal : kSignals)
    if (std::signal(signal, SIG_DFL) == SIG_IGN) std::signal(signal, SIG_IGN);
}

mode_t maskedMode() {
  const mode_t mask = ::umask(0);
  ::umask(mask);
  return 0666 & ~mask;
}

}  // namespace

Contents::Contents(const std::string& path) {
  const Descriptor fd(path == "-" ? STDIN_FILENO : ::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (fd < 0) throw Error("can't be opened: " + reason());
  struct stat file{};
  if (::fstat(fd, &file) == 0 && S_ISREG(file.st_mode) && file.st_size > 0 && path != "-") {
    void* const at = ::mmap(nullptr, size_t(file.st_size), PROT_READ, MAP_PRIVATE, fd, 0);
    if (at == MAP_FAILED) throw Error("can't be read: " + reason());
    bytes_ = {static_cast<const uint8_t*>(at), size_t(file.st_size)};
    mapped_ = true;
    std::signal(SIGBUS, end);
    return;
  }
  for (uint8_t chunk[65536];;) {
    const ssize_t n = ::read(fd, chunk, sizeof chunk);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) throw Error("can't be read: " + reason());
    if (n == 0) break;
    read_.insert(read_.end(), chunk, chunk + n);
  }
  if (read_.empty()) throw Error("the file is empty");
  bytes_ = read_;
}

Contents::~Contents() {
  if (mapped_) ::munmap(const_cast<uint8_t*>(bytes_.data()), bytes_.size());
}

void Contents::forget(size_t end) const {
  constexpr size_t kWorthIt = 1 << 20, kPages = 65536;
  if (end < forgotten_) forgotten_ = 0;
  if (!mapped_ || end < forgotten_ + kWorthIt) return;
  end = end / kPages * kPages;
  ::madvise(const_cast<uint8_t*>(bytes_.data()) + forgotten_, end - forgotten_, MADV_DONTNEED);
  forgotten_ = end;
}

FileOutput::FileOutput(const std::string& path) {
  if (path == "-") {
    fd_ = STDOUT_FILENO;
    return;
  }
  target_ = targetOf(path);
  struct stat old{};
  const bool exists = ::stat(target_.c_str(), &old) == 0;
  if (exists && !S_ISREG(old.st_mode)) {  // a device or a pipe can't be replaced
    fd_ = ::open(target_.c_str(), O_WRONLY | O_CLOEXEC);
    if (fd_ < 0) fail("can't be written: ");
    return;
  }
  mode_ = exists ? old.st_mode & 07777 : maskedMode();
  std::string name = target_ + ".XXXXXX";
  fd_ = ::mkostemp(name.data(), O_CLOEXEC);
  if (fd_ < 0) fail("can't be written: ");
  temporary_ = name;
  watch(temporary_);
}

FileOutput::~FileOutput() {
  if (fd_ > STDERR_FILENO) ::close(fd_);
  if (temporary_.empty()) return;
  ::unlink(temporary_.c_str());
  unwatch();
}

void FileOutput::finish() {
  flush();
  if (!temporary_.empty() && ::fchmod(fd_, mode_) != 0) fail("can't be written: ");
  if (fd_ > STDERR_FILENO && ::close(std::exchange(fd_, -1)) != 0) fail("can't be written: ");
  if (temporary_.empty()) return;
  if (::rename(temporary_.c_str(), target_.c_str()) != 0) fail("can't be replaced: ");
  temporary_.clear();
  unwatch();
}

}  // namespace qelconv
