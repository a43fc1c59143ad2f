# Tests and tools of the Windows build run under wine, quietly, in a prefix of the build's own.
set(ORBPERIX_WINE_ENV WINEPREFIX=${CMAKE_BINARY_DIR}/wineprefix WINEDEBUG=-all "WINEDLLOVERRIDES=mscoree,mshtml=")
if(CMAKE_CROSSCOMPILING)
  set(CMAKE_CROSSCOMPILING_EMULATOR env ${ORBPERIX_WINE_ENV} wine)
endif()

# The mingw runtime DLLs that every executable and DLL of the Windows build imports, copied
# once into the output folder so that programs run there (natively or under wine).
set(ORBPERIX_MINGW_RUNTIME_DLLS "")
foreach(dll libstdc++-6.dll libgcc_s_seh-1.dll libwinpthread-1.dll)
  execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=${dll}
                  OUTPUT_VARIABLE path OUTPUT_STRIP_TRAILING_WHITESPACE)
  if(NOT IS_ABSOLUTE "${path}" OR NOT EXISTS "${path}")
    foreach(candidate /usr/x86_64-w64-mingw32/lib/${dll} /usr/lib/gcc/x86_64-w64-mingw32/12-posix/${dll})
      if(EXISTS ${candidate})
        set(path ${candidate})
      endif()
    endforeach()
  endif()
  if(NOT EXISTS "${path}")
    message(FATAL_ERROR "mingw runtime ${dll} not found")
  endif()
  list(APPEND ORBPERIX_MINGW_RUNTIME_DLLS ${path})
endforeach()
file(MAKE_DIRECTORY ${ORBPERIX_BIN_DIR})
file(COPY ${ORBPERIX_MINGW_RUNTIME_DLLS} DESTINATION ${ORBPERIX_BIN_DIR})

# Copies the runtime DLLs into another folder (test variants that live in folders of their own).
function(orbperix_copy_mingw_runtime dir)
  file(MAKE_DIRECTORY ${dir})
  file(COPY ${ORBPERIX_MINGW_RUNTIME_DLLS} DESTINATION ${dir})
endfunction()
