// The version record, the load step, and the image's name.
#include "frame/fronts.h"
#include "frame/object_format.h"
#include "qelcore.h"

// The code below runs before anyone can have asked what processor the image needs, so it is compiled for every
// processor of the family: a load cannot fail.
#if defined(__x86_64__)
#  define QELJ_ANYWHERE [[gnu::target("arch=x86-64")]]
#else
#  define QELJ_ANYWHERE
#endif

QELJ_KEEP_IMAGE_NAME(QELJ_IMAGE);

namespace qelj {
namespace {

constexpr QelLibVersion kVersion = {
    7, 1, 0, 36264, {'g', '9', 0, 0}, "qelJP AVX (g9)", "7.1.0 (r36264)", "Jul 23 2012"};

// Whether the processor has the wide vectors and the system keeps them. It selects nothing: an image of the
// library has one code path. It is here for a debugger or a crash dump to find.
[[gnu::used]] int32_t wideVectorsEnabled = 0;

[[gnu::constructor]] QELJ_ANYWHERE void ownLoad() {
  constexpr uint64_t kWide = qelCpuAVX | qelCpuAVXEnabled;
  wideVectorsEnabled = (qelGetEnabledCpuFeatures() & kWide) == kWide;
}

}  // namespace

QELJ_ANYWHERE const QelLibVersion* qeljGetLibVersion() { return &kVersion; }

}  // namespace qelj
