// The table of code pointers: one slot an export, in export order, filled by the linker and read-only afterwards.
#include "frame/fronts.h"

using Code = void (*)();

extern "C" {
__attribute__((visibility("hidden"))) extern const Code qeljExportTable[];
const Code qeljExportTable[] = {
#define QELJ_EXPORT(name) reinterpret_cast<Code>(&qelj::name),
#define QELJ_EXPORT_AS(name, implementation) reinterpret_cast<Code>(&qelj::implementation),
#include "frame/exports.def"
#undef QELJ_EXPORT
#undef QELJ_EXPORT_AS
};
}
