// Files of the system: read as they lie, or written piece by piece.
#ifndef QELCONV_FILES_H
#define QELCONV_FILES_H

#include <algorithm>
#include <string>
#include <vector>

#include "image.h"

namespace qelconv {

// What is in a file; "-" stands for standard input. A regular file is mapped, and takes memory only where it has been
// looked at.
class Contents {
 public:
  explicit Contents(const std::string& path);
  // Bytes of another kind.
  explicit Contents(Bytes bytes) : bytes_(bytes) {}
  ~Contents();
  Contents(const Contents&) = delete;

  operator Bytes() const { return bytes_; }
  Bytes bytes() const { return bytes_; }
  // Gives the memory of the bytes in front of this place back. They are still there to be looked at.
  void forget(size_t end) const;

 private:
  Bytes bytes_;
  bool mapped_ = false;
  std::vector<uint8_t> read_;
  mutable size_t forgotten_ = 0;
};

// Where a new file goes, piece by piece.
class Destination {
 public:
  virtual ~Destination() = default;
  virtual void put(Bytes bytes) = 0;
  // Puts bytes in the place of others that were put. Who may do so says it before anything is put: where bytes can't be
  // taken back, as in pipes, all of them wait for the end.
  virtual void expectPatches() = 0;
  virtual void patch(size_t at, Bytes bytes) = 0;
};

class MemoryOutput : public Destination {
 public:
  void put(Bytes more) override { bytes.insert(bytes.end(), more.begin(), more.end()); }
  void expectPatches() override {}
  void patch(size_t at, Bytes other) override { std::copy(other.begin(), other.end(), bytes.begin() + ptrdiff_t(at)); }
  std::vector<uint8_t> bytes;
};

// Writes beside the target; finish() renames, so that a failure leaves no half file and the old one untouched. An old
// file's mode stays, and a link is followed. "-" stands for standard output, which, as devices and pipes, gets what is
// put at once.
class FileOutput : public Destination {
 public:
  explicit FileOutput(const std::string& path);
  ~FileOutput() override;
  FileOutput(const FileOutput&) = delete;
  void put(Bytes bytes) override;
  void expectPatches() override { waits_ = temporary_.empty(); }
  void patch(size_t at, Bytes bytes) override;
  void finish();
  size_t size() const { return size_; }

 private:
  void flush();
  [[noreturn]] void fail(const char* what) const;
  std::string target_, temporary_;  // none where nothing is replaced
  int fd_ = -1;
  unsigned mode_ = 0;
  std::vector<uint8_t> waiting_;
  bool waits_ = false;  // for finish()
  size_t size_ = 0;
};

// All of the bytes to a descriptor; false, and errno, where that fails.
bool writeAll(int fd, Bytes bytes);

}  // namespace qelconv

#endif
