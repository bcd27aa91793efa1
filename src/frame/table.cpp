// What the exports lead to, in export order: a table of code pointers, one slot an export, filled by the linker and
// read-only afterwards. Without thunks most exports are the fronts themselves, and a table would have no use.
#include "frame/fronts.h"

#if QELJ_THUNKS

using Code = void (*)();

extern "C" {
__attribute__((visibility("hidden"))) extern const Code qeljExportTable[];
const Code qeljExportTable[] = {
#  define QELJ_EXPORT(name) reinterpret_cast<Code>(&qelj::name),
#  define QELJ_EXPORT_AS(name, implementation) reinterpret_cast<Code>(&qelj::implementation),
#  include "frame/exports.def"
};
}

#else

template <class Argument>
Argument argumentOf(QelStatus (*)(Argument));

extern "C" {
#  define QELJ_EXPORT(name)
#  define QELJ_EXPORT_AS(name, implementation) \
    QelStatus name(decltype(argumentOf(&::name)) argument) { return qelj::implementation(argument); }
#  include "frame/exports.def"
}

#endif
#undef QELJ_EXPORT
#undef QELJ_EXPORT_AS
