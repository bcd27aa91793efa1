# qelj_image(<target> <cpu> <directory>): one image of the library, libqelj.so.7 in <directory>, compiled as a
# whole for one processor generation. All images have the same soname and the same exports and give the same
# bytes; an installation may carry several and let the dynamic loader choose.
#
# <cpu> is x86-64-v2, x86-64-v3, x86-64-v4, portable (no processor-specific operation: the vectors' plain
# forms), or scalar (portable, and every kernel in its scalar form: the definition that tests compare with).

file(GLOB_RECURSE qelj_sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/src/*.cpp ${PROJECT_SOURCE_DIR}/src/*.S)

# The linker's version script, from the one list of exports.
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/src/frame/exports.def)
file(STRINGS ${PROJECT_SOURCE_DIR}/src/frame/exports.def qelj_export_lines REGEX "^QELJ_EXPORT")
set(qelj_version_script "{\n  global:\n")
foreach(line IN LISTS qelj_export_lines)
  string(REGEX REPLACE "^QELJ_EXPORT[_A-Z]*\\(([A-Za-z0-9_]+).*$" "\\1" name "${line}")
  string(APPEND qelj_version_script "    ${name};\n")
endforeach()
string(APPEND qelj_version_script "  local: *;\n};\n")
file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/exports.map CONTENT "${qelj_version_script}" @ONLY)

function(qelj_image target cpu directory)
  add_library(${target} SHARED ${qelj_sources})
  set_target_properties(${target} PROPERTIES
    OUTPUT_NAME qelj VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}
    LIBRARY_OUTPUT_DIRECTORY ${directory} LINK_DEPENDS ${PROJECT_BINARY_DIR}/exports.map)
  target_include_directories(${target}
    PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>
    PRIVATE ${PROJECT_SOURCE_DIR}/src ${PROJECT_SOURCE_DIR}/qelcore)
  target_compile_options(${target} PRIVATE
    -ffp-contract=off -fno-math-errno -fno-trapping-math -Wconversion -Wno-sign-conversion
    $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti>)
  target_compile_definitions(${target} PRIVATE QELJ_IMAGE="${cpu}")
  if(cpu STREQUAL "portable")
    target_compile_definitions(${target} PRIVATE QELJ_PORTABLE=1)
  elseif(cpu STREQUAL "scalar")
    target_compile_definitions(${target} PRIVATE QELJ_PORTABLE=1 QELJ_SCALAR=1)
  else()
    target_compile_options(${target} PRIVATE -march=${cpu} -mtune=generic
      # GCC 12 takes 64-byte stores of its own making for overflows.
      $<$<AND:$<CXX_COMPILER_ID:GNU>,$<STREQUAL:${cpu},x86-64-v4>>:-Wno-stringop-overflow>)
  endif()
  target_link_libraries(${target} PRIVATE
    qelj_warnings $<$<STREQUAL:${cpu},scalar>:qelj_scalar_warnings> qelcore OpenMP::OpenMP_CXX)
  target_link_options(${target} PRIVATE
    -Wl,--version-script=${PROJECT_BINARY_DIR}/exports.map -Wl,-z,relro,-z,now)
endfunction()
