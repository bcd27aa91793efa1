// For the programs of this tree: what they do about an image that the processor cannot run.
#ifndef QELCORE_GUARD_H
#define QELCORE_GUARD_H

#if defined(__linux__)
#  include <cerrno>
#endif
#include <cstdio>

#include "qelcore.h"

namespace qelj {

inline const char* programName() {
#if defined(__linux__)
  return program_invocation_short_name;
#else
  return "qelj";
#endif
}

// Whether the processor can run the image that `address` lies in; says on standard error that it cannot.
inline bool runsHere(const void* address) {
  const char* name = qelGetImageName(address);
  if (qelCanRunImage(name)) return true;
  std::fprintf(stderr, "%s: the image of libqelj is made for %s, and this processor is not of that generation\n",
               programName(), name);
  return false;
}

}  // namespace qelj

#endif
