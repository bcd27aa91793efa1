// The version record and the load step.
#include "frame/fronts.h"
#include "qelcore.h"

namespace qelj {
namespace {

constexpr QelLibVersion kVersion = {
    7, 1, 0, 36264, {'g', '9', 0, 0}, "qelJP AVX (g9)", "7.1.0 (r36264)", "Jul 23 2012"};

// Whether the processor has the wide vectors and the system keeps them. It selects nothing: an image of the
// library has one code path. It is here for a debugger or a crash dump to find.
[[gnu::used]] int32_t wideVectorsEnabled = 0;

[[gnu::constructor]] void ownLoad() {
  constexpr uint64_t kWide = 16 | 32;
  wideVectorsEnabled = (qelGetEnabledCpuFeatures() & kWide) == kWide;
}

}  // namespace

const QelLibVersion* qeljGetLibVersion() { return &kVersion; }

}  // namespace qelj
