# Lens server throughput and latency of the top list and search with 10,000
# lenses and 16 concurrent keep-alive clients on loopback, also with 500 idle
# connections held; memory of the server program under header and body attacks.
if(TARGET server)
  add_executable(bench_server ${CMAKE_CURRENT_LIST_DIR}/server/bench_server.cpp
    ${CMAKE_SOURCE_DIR}/tests/support/rawclient.cpp ${CMAKE_SOURCE_DIR}/tests/support/serverprocess.cpp)
  target_include_directories(bench_server PRIVATE ${CMAKE_SOURCE_DIR}/tests/support)
  target_link_libraries(bench_server PRIVATE server bench_support)
  target_compile_definitions(bench_server PRIVATE GLINT_TEST_SERVER_BIN="$<TARGET_FILE:glint-lens-server>")
  add_dependencies(bench_server glint-lens-server)
endif()
