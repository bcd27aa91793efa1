// Which image of libqelj a program has loaded, and whether this processor can run it.
#if defined(__ELF__)
#  include <link.h>
#elif defined(_WIN32)
#  include <windows.h>
#elif defined(__APPLE__)
#  include <dlfcn.h>
#  include <mach-o/getsect.h>
#endif

#include <cstring>

#include "qelcore.h"

#if defined(__x86_64__)
#  include <cpuid.h>
#endif

namespace {

// --- the name that an image keeps (src/frame/object_format.h) -------------------------------------------------------

#if defined(__ELF__)

struct Search {
  ElfW(Addr) address;
  const char* name;
};

constexpr size_t padded(size_t bytes) { return (bytes + 3) & ~size_t{3}; }

// Each note is a header, the owner's name and a text, both padded to four bytes.
const char* nameInNotes(const char* notes, size_t bytes) {
  constexpr char kOwner[] = "qelj";
  ElfW(Nhdr) head;
  for (size_t next = 0; bytes >= sizeof head; notes += next, bytes -= next) {
    std::memcpy(&head, notes, sizeof head);
    const size_t text = sizeof head + padded(head.n_namesz);
    next = text + padded(head.n_descsz);
    if (next > bytes) break;
    if (head.n_type == 1 && head.n_namesz == sizeof kOwner && !std::memcmp(notes + sizeof head, kOwner, sizeof kOwner))
      return notes + text;
  }
  return nullptr;
}

int searchObject(dl_phdr_info* object, size_t, void* data) {
  auto& search = *static_cast<Search*>(data);
  const ElfW(Phdr)* const first = object->dlpi_phdr;
  const ElfW(Phdr)* const end = first + object->dlpi_phnum;
  bool here = false;
  for (auto* p = first; p < end; ++p)
    here |= p->p_type == PT_LOAD && search.address - (object->dlpi_addr + p->p_vaddr) < p->p_memsz;
  if (!here) return 0;
  for (auto* p = first; p < end && !search.name; ++p)
    if (p->p_type == PT_NOTE && p->p_align <= 4)
      search.name = nameInNotes(reinterpret_cast<const char*>(object->dlpi_addr + p->p_vaddr), p->p_memsz);
  return 1;
}

const char* nameAt(const void* address) {
  Search search{reinterpret_cast<ElfW(Addr)>(address), nullptr};
  dl_iterate_phdr(searchObject, &search);
  return search.name;
}

#elif defined(_WIN32)

const char* nameAt(const void* address) {
  HMODULE module = nullptr;
  constexpr DWORD kHow = GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT;
  if (!GetModuleHandleExA(kHow, static_cast<const char*>(address), &module)) return nullptr;
  const auto* const base = reinterpret_cast<const char*>(module);
  const auto* const head =
      reinterpret_cast<const IMAGE_NT_HEADERS*>(base + reinterpret_cast<const IMAGE_DOS_HEADER*>(base)->e_lfanew);
  const IMAGE_SECTION_HEADER* section = IMAGE_FIRST_SECTION(head);
  for (int i = 0; i < head->FileHeader.NumberOfSections; ++i, ++section)
    if (!std::memcmp(section->Name, ".qelj\0\0", sizeof section->Name)) return base + section->VirtualAddress;
  return nullptr;
}

#elif defined(__APPLE__)

const char* nameAt(const void* address) {
  Dl_info object;
  if (!dladdr(address, &object)) return nullptr;
  unsigned long bytes = 0;
  return reinterpret_cast<const char*>(
      getsectiondata(static_cast<const mach_header_64*>(object.dli_fbase), "__TEXT", "__qelj", &bytes));
}

#else

const char* nameAt(const void*) { return nullptr; }

#endif

// --- what the processor can run -------------------------------------------------------------------------------------

#if defined(__x86_64__)
// The processor's facts that the levels of the x86-64 ABI are made of.
struct Facts {
  unsigned leaf1C, leaf7B, extendedC;  // CPUID 1 ECX, 7 EBX, 0x80000001 ECX
  unsigned kept;                       // the registers that the system keeps, as in XCR0
};

constexpr Facts both(Facts a, Facts b) {
  return {a.leaf1C | b.leaf1C, a.leaf7B | b.leaf7B, a.extendedC | b.extendedC, a.kept | b.kept};
}

constexpr Facts kLevel2 = {bit_SSE3 | bit_SSSE3 | bit_SSE4_1 | bit_SSE4_2 | bit_POPCNT | bit_CMPXCHG16B, 0, bit_LAHF_LM,
                           0};
constexpr Facts kLevel3 = both(
    kLevel2, {bit_AVX | bit_F16C | bit_FMA | bit_MOVBE | bit_OSXSAVE, bit_AVX2 | bit_BMI | bit_BMI2, bit_LZCNT, 0x06});
constexpr Facts kLevel4 =
    both(kLevel3, {0, bit_AVX512F | bit_AVX512BW | bit_AVX512CD | bit_AVX512DQ | bit_AVX512VL, 0, 0xE6});

constexpr struct {
  const char* name;
  Facts needed;
} kGenerations[] = {{"x86-64-v2", kLevel2}, {"x86-64-v3", kLevel3}, {"x86-64-v4", kLevel4}};

Facts factsOfTheProcessor() {
  Facts facts{};
  unsigned a, b, c, d;
  if (__get_cpuid(1, &a, &b, &c, &d)) facts.leaf1C = c;
  if (__get_cpuid_count(7, 0, &a, &b, &c, &d)) facts.leaf7B = b;
  if (__get_cpuid(0x80000001, &a, &b, &c, &d)) facts.extendedC = c;
  if (facts.leaf1C & bit_OSXSAVE) __asm__("xgetbv" : "=a"(facts.kept), "=d"(d) : "c"(0));
  return facts;
}

bool covers(const Facts& has, const Facts& needed) {
  return !(needed.leaf1C & ~has.leaf1C || needed.leaf7B & ~has.leaf7B || needed.extendedC & ~has.extendedC ||
           needed.kept & ~has.kept);
}
#endif

}  // namespace

extern "C" {

const char* qelGetImageName(const void* address) { return nameAt(address); }

int32_t qelCanRunImage(const char* name) {
#if defined(__x86_64__)
  if (name)
    for (const auto& generation : kGenerations)
      if (!std::strcmp(name, generation.name)) return covers(factsOfTheProcessor(), generation.needed);
  return 1;
#else
  return !name || std::strncmp(name, "x86-64", 6) != 0;
#endif
}

}  // extern "C"
