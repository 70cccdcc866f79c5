# Compiler options of every target.
add_library(velmora_options INTERFACE)
target_include_directories(velmora_options INTERFACE ${CMAKE_SOURCE_DIR}/src)
target_compile_options(velmora_options INTERFACE
  -Wall -Wextra -Wconversion -Wshadow -Wnon-virtual-dtor -Wformat=2 -Werror)

# g++ 12 sees overlaps in its own std::string (GCC bug 105329).
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  target_compile_options(velmora_options INTERFACE -Wno-restrict)
endif()

# Sources are UTF-8; the program's texts are code page 932.
if(VELMORA_CODE_PAGE_932 AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  target_compile_options(velmora_options INTERFACE -fexec-charset=CP932)
endif()

# Undefined behaviour is looked for in the programs' own sources (src/CMakeLists.txt), not in the tests,
# which would take twice as long to compile.
if(VELMORA_SANITIZE)
  string(REPLACE ",undefined" "" everywhere "${VELMORA_SANITIZE}")
  target_compile_options(velmora_options INTERFACE
    -fsanitize=${everywhere} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  target_link_options(velmora_options INTERFACE -fsanitize=${VELMORA_SANITIZE})
endif()

# On a 64-bit Windows a 32-bit program can use 4 GiB of addresses only if it asks for them. A file of the
# game is kept in memory whole.
if(WIN32 AND CMAKE_SIZEOF_VOID_P EQUAL 4)
  target_link_options(velmora_options INTERFACE -Wl,--large-address-aware)
endif()

# Coverage feedback for the fuzz targets, without libFuzzer's main function.
if(VELMORA_FUZZ)
  target_compile_options(velmora_options INTERFACE -fsanitize=fuzzer-no-link)
endif()

# The same commit makes the same programs, wherever and whenever it is built. Each program's link map, in
# which the release looks up what is linked in, is next to it.
if(VELMORA_PACKAGE)
  target_compile_options(velmora_options INTERFACE -ffile-prefix-map=${CMAKE_SOURCE_DIR}=.)
  target_link_options(velmora_options INTERFACE -Wl,-Map=$<TARGET_PROPERTY:NAME>.map)
  if(WIN32)
    target_link_options(velmora_options INTERFACE -Wl,--no-insert-timestamp)
  endif()
endif()

# velmora_precompile(TARGET HEADER...): with VELMORA_PRECOMPILE, the target's sources find the most used headers
# of the standard library, and HEADERs, already parsed: they take half of the time. <chrono> isn't among them.
function(velmora_precompile target)
  if(NOT VELMORA_PRECOMPILE OR VELMORA_PACKAGE)
    return()
  endif()
  target_precompile_headers(${target} PRIVATE
    <algorithm> <filesystem> <fstream> <functional> <map> <memory> <mutex> <optional> <set> <sstream> <string>
    <system_error> <thread> <vector> ${ARGN})
  # The first is for ccache. The others because g++ 12 then warns of its own std::string, as above.
  target_compile_options(${target} PRIVATE -fpch-preprocess -Wno-array-bounds -Wno-stringop-overflow
                                           -Wno-stringop-overread)
endfunction()

# velmora_join(TARGET): the same, and with VELMORA_JOIN sources are compiled together, several at a time, in a fifth of
# the time: names in their unnamed namespaces must differ. Not for the platform, of which tests replace single sources.
function(velmora_join target)
  velmora_precompile(${target})
  if(VELMORA_JOIN AND NOT VELMORA_PACKAGE)
    set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 14)
  endif()
endfunction()
