# ORBPERIX_SANITIZE=address builds everything with AddressSanitizer, LeakSanitizer and
# UndefinedBehaviorSanitizer; ORBPERIX_SANITIZE=thread with ThreadSanitizer (Linux only).
if(MSVC AND NOT ORBPERIX_SANITIZE STREQUAL "")
  message(FATAL_ERROR "ORBPERIX_SANITIZE is for the Linux builds (GCC or clang options)")
endif()
if(ORBPERIX_SANITIZE STREQUAL "address")
  add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=address,undefined)
elseif(ORBPERIX_SANITIZE STREQUAL "thread")
  add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
  add_link_options(-fsanitize=thread)
elseif(NOT ORBPERIX_SANITIZE STREQUAL "")
  message(FATAL_ERROR "ORBPERIX_SANITIZE must be address or thread")
endif()
