# qelj_image(<target> <cpu> <directory>): one image of the library, libqelj.so.7 in <directory>, compiled as a
# whole for one processor generation. All images have the same soname and the same exports and give the same
# bytes; an installation may carry several and let the dynamic loader choose.
#
# <cpu> is x86-64-v2, x86-64-v3, x86-64-v4, armv8-a, simd128 (WebAssembly's vectors), portable (no processor-specific
# operation: the vectors' plain forms), or scalar (portable, and every kernel in its scalar form: the definition that
# tests compare with).

file(GLOB_RECURSE qelj_sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/src/*.cpp ${PROJECT_SOURCE_DIR}/src/*.S)
list(FILTER qelj_sources EXCLUDE REGEX "/frame/start\\.cpp$")
# Where guarded return addresses cost no function more than 1 % of its instructions (docs/measuring.md).
set(qelj_guarded_sources ${qelj_sources})
list(FILTER qelj_guarded_sources INCLUDE REGEX "/(frame|tiff)/[^/]*\\.cpp$")

# What each library shows outside, from the one place that has it: the list of exports, and qelcore's header.
function(qelj_names variable file pattern)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${file})
  file(STRINGS ${file} names REGEX "${pattern}")
  list(TRANSFORM names REPLACE "${pattern}.*" "\\1")
  set(${variable} ${names} PARENT_SCOPE)
endfunction()
qelj_names(qelj_exports ${PROJECT_SOURCE_DIR}/src/frame/exports.def "^QELJ_EXPORT[_A-Z]*\\(([A-Za-z0-9_]+)")
qelj_names(qelcore_exports ${PROJECT_SOURCE_DIR}/qelcore/qelcore.h "^QELCORE_API .*[ *]([A-Za-z]+)\\(")

# qelj_library(<target> <name> <source>...): lib<name>, which shows the names in <name>_exports only.
#
# Shared, it does by a version script. Static, the archive holds one object in which all other names are local, so that
# they meet none of the program's; and qelcore's are weak, so that the program's own come first there, too.
#
# Its sources are those of the target ${<target>_code}; what is asked of <target> itself reaches its users.
function(qelj_library target name)
  if(qelj_shared)
    set(code ${target})
    list(JOIN ${name}_exports ";\n    " lines)
    set(script ${PROJECT_BINARY_DIR}/${name}.map)
    file(CONFIGURE OUTPUT ${script} CONTENT "{\n  global:\n    ${lines};\n  local: *;\n};\n" @ONLY)
    add_library(${target} SHARED ${ARGN})
    set_target_properties(${target} PROPERTIES
      OUTPUT_NAME ${name} VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR} LINKER_LANGUAGE C
      LINK_DEPENDS ${script})
    # Never unloaded: the OpenMP runtime would go as well, and between calls its threads wait in its code; and what
    # qelcore registers for a fork lives as long as the process.
    if(qelj_elf)
      target_link_options(${target} PRIVATE
        -Wl,--version-script=${script} -Wl,-z,relro,-z,now,-z,nodelete -Wl,--as-needed)
    endif()
  elseif(EMSCRIPTEN)
    # Members of an archive as they are: what is shown outside is chosen where a module is linked.
    set(code ${target})
    add_library(${target} STATIC ${ARGN})
    set_target_properties(${target} PROPERTIES OUTPUT_NAME ${name})
  else()
    set(code ${target}_code)
    set(object ${PROJECT_BINARY_DIR}/${name}_library.o)
    set(visible ${PROJECT_BINARY_DIR}/${name}.names)
    list(JOIN ${name}_exports "\n" lines)
    file(CONFIGURE OUTPUT ${visible} CONTENT "${lines}\n" @ONLY)
    add_library(${code} OBJECT ${ARGN})
    target_compile_options(${code} PRIVATE $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-fno-gnu-unique>)  # such can't be local
    add_custom_command(OUTPUT ${object}
      COMMAND ${CMAKE_LINKER} -r --force-group-allocation -o ${object} $<TARGET_OBJECTS:${code}>
      COMMAND ${CMAKE_OBJCOPY} --keep-global-symbols=${visible}
        $<$<STREQUAL:${name},qelcore>:--weaken-symbols=${visible}> ${object}
      DEPENDS $<TARGET_OBJECTS:${code}> ${visible} COMMAND_EXPAND_LISTS VERBATIM
      COMMENT "Hiding what is internal to lib${name}")
    add_library(${target} STATIC ${object})
    set_target_properties(${target} PROPERTIES OUTPUT_NAME ${name} LINKER_LANGUAGE C)
  endif()
  string(TOUPPER ${name} NAME)
  target_compile_definitions(${code} PRIVATE ${NAME}_BUILDING)
  set(${target}_code ${code} PARENT_SCOPE)
  # Of the sources' place nothing stays in what is built.
  target_compile_options(${code} PRIVATE
    -ffile-prefix-map=${PROJECT_SOURCE_DIR}=. $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti>)
  target_link_libraries(${code} PRIVATE qelj_warnings)
endfunction()

# qelj_protect_branches(<target> [MARK]): landing pads where indirect branches arrive, and protected return addresses
# (Intel CET; Arm BTI and PAC). A process has the protection only if each of its libraries is marked, and the linker
# marks a library only if each of its objects is: so the start-up objects stay out (frame/start.cpp has what is needed
# of them), and on AArch64 the compiler's functions for atomic operations. MARK marks the library in any case.
function(qelj_protect_branches target)
  if(NOT qelj_elf)
    return()
  endif()
  set(code ${${target}_code})
  if(qelj_processor STREQUAL "x86_64")
    target_compile_options(${code} PRIVATE -fcf-protection)
    set(mark -Wl,-z,ibt,-z,shstk)
  elseif(qelj_processor STREQUAL "aarch64")
    target_compile_options(${code} PRIVATE -mbranch-protection=standard -mno-outline-atomics)
    set(mark -Wl,-z,force-bti)
  endif()
  if(qelj_shared)
    target_sources(${target} PRIVATE ${PROJECT_SOURCE_DIR}/src/frame/start.cpp)
    target_link_options(${target} PRIVATE -nostartfiles $<$<STREQUAL:"${ARGN}","MARK">:${mark}>)
  endif()
endfunction()

function(qelj_image target cpu directory)
  qelj_library(${target} qelj ${qelj_sources})
  if(NOT WIN32 AND NOT EMSCRIPTEN)
    set_source_files_properties(${qelj_guarded_sources} PROPERTIES COMPILE_OPTIONS -fstack-protector-strong)
  endif()
  set(code ${${target}_code})
  set_target_properties(${target} PROPERTIES
    LIBRARY_OUTPUT_DIRECTORY ${directory} RUNTIME_OUTPUT_DIRECTORY ${directory} ARCHIVE_OUTPUT_DIRECTORY ${directory})
  target_include_directories(${target}
    INTERFACE $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  target_include_directories(${code} PRIVATE
    ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR}/src ${PROJECT_SOURCE_DIR}/qelcore)
  target_compile_options(${code} PRIVATE
    -ffp-contract=off -fno-math-errno -fno-trapping-math -Wconversion -Wno-sign-conversion)
  target_compile_definitions(${code} PRIVATE QELJ_IMAGE="${cpu}")
  if(cpu STREQUAL "portable")
    target_compile_definitions(${code} PRIVATE QELJ_PORTABLE=1)
  elseif(cpu STREQUAL "scalar")
    target_compile_definitions(${code} PRIVATE QELJ_PORTABLE=1 QELJ_SCALAR=1)
  elseif(NOT cpu STREQUAL "simd128")  # which all code for WebAssembly has
    target_compile_options(${code} PRIVATE -march=${cpu} -mtune=generic
      # GCC 12 takes 64-byte stores of its own making for overflows.
      $<$<AND:$<CXX_COMPILER_ID:GNU>,$<STREQUAL:${cpu},x86-64-v4>>:-Wno-stringop-overflow>)
  endif()
  target_link_libraries(${code} PRIVATE
    $<$<STREQUAL:${cpu},scalar>:qelj_scalar_warnings> qelcore OpenMP::OpenMP_CXX)
  if(WIN32)
    # The stack is aligned to 16 bytes there, whatever the compiler takes it for.
    target_compile_options(${code} PRIVATE -Wa,-muse-unaligned-vector-move)
  endif()
  if(NOT qelj_shared AND NOT EMSCRIPTEN)
    # By name where it is installed, and by path here: a user of this directory doesn't see what was found in it.
    target_link_libraries(${target} INTERFACE
      qelcore "$<BUILD_INTERFACE:${OpenMP_CXX_LIBRARIES}>" "$<INSTALL_INTERFACE:${OpenMP_CXX_LIB_NAMES}>" m)
  endif()
  qelj_protect_branches(${target})
endfunction()
