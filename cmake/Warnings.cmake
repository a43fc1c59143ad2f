# orbperix_warnings: the warning set of every target of this project.
add_library(orbperix_warnings INTERFACE)
target_compile_options(orbperix_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wnon-virtual-dtor
  -Wcast-align -Woverloaded-virtual)
if(ORBPERIX_WERROR)
  target_compile_options(orbperix_warnings INTERFACE -Werror)
endif()
