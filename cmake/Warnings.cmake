# orbperix_warnings: the warning set of every target of this project, by compiler: MSVC (and
# clang-cl) take /W4, GCC and clang the -W set below. Options of one never reach the other.
add_library(orbperix_warnings INTERFACE)
if(MSVC)
  # C4251: the exported C++ interface holds standard-library members (a host of the exported
  # C++ interface must use the library's compiler anyway; other hosts use the C interface).
  target_compile_options(orbperix_warnings INTERFACE /W4 /wd4251)
  if(ORBPERIX_WERROR)
    target_compile_options(orbperix_warnings INTERFACE /WX)
  endif()
else()
  target_compile_options(orbperix_warnings INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wnon-virtual-dtor
    -Wcast-align -Woverloaded-virtual)
  if(ORBPERIX_WERROR)
    target_compile_options(orbperix_warnings INTERFACE -Werror)
  endif()
endif()
