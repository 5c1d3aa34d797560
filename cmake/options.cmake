# What every target of the tree is compiled with. kivo_options carries the warnings (errors here, and
# nothing that a host which includes our headers would inherit); kivo_library() makes a shared
# library that exports its version script's names and nothing else.

add_library(kivo_options INTERFACE)
target_compile_options(kivo_options INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror
  "-fmacro-prefix-map=${CMAKE_SOURCE_DIR}/=")

if(KIVO_SANITIZE)
  # The instrumented code makes g++ 12 see uninitialised memory inside <regex> and <functional>.
  target_compile_options(kivo_options INTERFACE
    $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
endif()

# Hardening: scripts/check-hardening looks for each of these in what was built. The checks of the C
# library's functions want an optimiser, and would take calls away from the sanitizers.
include(CheckPIESupported)
check_pie_supported()
add_compile_options(-fstack-protector-strong)
add_link_options(LINKER:-z,relro LINKER:-z,now LINKER:-z,noexecstack)
if(NOT KIVO_SANITIZE AND NOT KIVO_BUILD_FUZZ)
  add_compile_options($<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE>
                      $<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=3>)
endif()

# kivo_library(TARGET MAP files...): the library libTARGET.so.1 of these sources; MAP is its version
# script. Nothing is linked with -Bsymbolic: a process may put its own operation in place of one.
function(kivo_library target map)
  add_library(${target} SHARED ${ARGN})
  target_link_libraries(${target} PRIVATE kivo_options)
  set_target_properties(${target} PROPERTIES
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR}
    C_VISIBILITY_PRESET hidden
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON
    INSTALL_RPATH $ORIGIN
    LINK_DEPENDS ${map})
  target_link_options(${target} PRIVATE "LINKER:--version-script=${map}")
  if(NOT KIVO_SANITIZE)
    target_link_options(${target} PRIVATE LINKER:-z,defs)
  endif()
  install(TARGETS ${target})
endfunction()

# kivo_c_program(TARGET): a program in C that links our libraries. The sanitizers' run-time of clang
# needs the C++ library.
function(kivo_c_program target)
  if(KIVO_SANITIZE)
    set_target_properties(${target} PROPERTIES LINKER_LANGUAGE CXX)
  endif()
endfunction()
