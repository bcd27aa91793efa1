#include "support/compare.h"

namespace qelj::test {
namespace {

QELJ_COMPARE(
    qeljGetLibVersion,
    [](auto* version, Case& c) {
      const QelLibVersion* v = version();
      for (const int32_t number : {v->versionMajor, v->versionMinor, v->versionPatch, v->versionBuild}) c.value(number);
      c.bytes(v->cpuTag, sizeof v->cpuTag);
      for (const char* text : {v->libraryName, v->versionText, v->buildDateText}) c.bytes(text, std::strlen(text) + 1);
    },
    kQuickShare);

}  // namespace
}  // namespace qelj::test
