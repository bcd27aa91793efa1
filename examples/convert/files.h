// Files of the system, whole.
#ifndef QELCONV_FILES_H
#define QELCONV_FILES_H

#include <string>
#include <vector>

#include "image.h"

namespace qelconv {

// "-" stands for standard input and output.
std::vector<uint8_t> readFile(const std::string& path);
// Writes beside the target and renames, so that a failure leaves no half file and the old one untouched. An old file's
// mode stays, and a link is followed.
void writeFile(const std::string& path, Bytes bytes);

}  // namespace qelconv

#endif
