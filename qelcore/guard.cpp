#include "guard.h"

#include <cstdlib>

#include "qelj.h"

namespace {

// In front of the program's other initialisers, which may be compiled for the image's processor, or call it.
[[gnu::constructor(101)]] void guard() {
  if (!qelj::runsHere(qeljGetLibVersion())) std::_Exit(1);
}

}  // namespace
