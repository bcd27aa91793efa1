# Debian's compiler for WebAssembly (emscripten); programs run in Node.
include(/usr/share/emscripten/cmake/Modules/Platform/Emscripten.cmake)
# What it shortens JavaScript with, Debian's node-acorn and node-estree-walker, is found by this path.
foreach(language C CXX)
  set(CMAKE_${language}_LINKER_LAUNCHER env NODE_PATH=/usr/share/nodejs)
endforeach()
