# Tests of the Windows build run under wine (CMAKE_CROSSCOMPILING_EMULATOR). ORBPERIX_TEST_FIXTURE
# holds the test properties that every such test needs.
set(ORBPERIX_TEST_FIXTURE "")
if(WIN32 AND CMAKE_CROSSCOMPILING)
  # wine's background processes inherit a test's output pipe and make CTest wait for them; a
  # persistent server started by a fixture with detached stdio avoids that.
  add_test(NAME wine_start COMMAND sh -c "(wineserver -p && wine cmd /c exit) >/dev/null 2>&1 </dev/null")
  add_test(NAME wine_stop COMMAND wineserver -k)
  set_tests_properties(wine_start wine_stop PROPERTIES ENVIRONMENT
    "WINEPREFIX=${CMAKE_BINARY_DIR}/wineprefix;WINEDEBUG=-all;WINEDLLOVERRIDES=mscoree,mshtml=")
  set_tests_properties(wine_start PROPERTIES FIXTURES_SETUP wine)
  set_tests_properties(wine_stop PROPERTIES FIXTURES_CLEANUP wine)
  set(ORBPERIX_TEST_FIXTURE FIXTURES_REQUIRED wine)
endif()

