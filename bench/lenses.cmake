# Lens acquisition: a 5 MiB lens from the loopback lens server (link,
# download, unpack, verify) and the cached path (verify only).
if(TARGET lenses AND TARGET lenses_testsupport)
  add_executable(bench_lensacquire ${CMAKE_CURRENT_LIST_DIR}/lenses/bench_lensacquire.cpp)
  target_link_libraries(bench_lensacquire PRIVATE lenses lenses_testsupport bench_support)
endif()
