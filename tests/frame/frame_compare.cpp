#include "support/compare.h"

namespace qelj::test {
namespace {

QELJ_COMPARE(qeljGetLibVersion, [](auto* version, Random&, Trace& trace) {
  const QelLibVersion* v = version();
  for (const int32_t number : {v->versionMajor, v->versionMinor, v->versionPatch, v->versionBuild})
    trace.value(number);
  trace.bytes(v->cpuTag, sizeof v->cpuTag);
  for (const char* text : {v->libraryName, v->versionText, v->buildDateText})
    trace.bytes(text, std::strlen(text));
});

}  // namespace
}  // namespace qelj::test
