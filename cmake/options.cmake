# Compiler settings that every target of the project shares.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 11)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_LINK_DEPENDS_NO_SHARED ON)  # a program is not linked again when only a library's code changed

# Tests and the simulated host run from the build tree; all products are in its root.
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR})
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR})

add_library(kx_options INTERFACE)
target_compile_options(kx_options INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow)
if(KXLINHW_STRICT)
  target_compile_options(kx_options INTERFACE -Werror)
endif()

# Exported functions are called by their exported names, so that an agent or a simulated host can
# replace them. clang would inline them otherwise.
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  target_compile_options(kx_options INTERFACE -fsemantic-interposition)
endif()

# Checks in the shipped library and programs: overruns of the stack and of objects whose size the
# compiler knows end the process, and the tables of the dynamic linker are read-only before main().
# A distribution that passes flags of its own turns this off. The sanitizers check more.
if(KXLINHW_HARDEN AND NOT KXLINHW_SANITIZE)
  add_compile_options(
    -fstack-protector-strong
    $<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-U_FORTIFY_SOURCE>
    $<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-D_FORTIFY_SOURCE=3>)
  add_link_options(LINKER:-z,relro,-z,now)
endif()

if(KXLINHW_SANITIZE)
  # Without vptr: this check opens a pipe to examine an object, and some tests use up all
  # descriptors.
  add_compile_options(-fsanitize=address,undefined -fno-sanitize=vptr -fno-sanitize-recover=all
                      -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
endif()
if(KXLINHW_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()
