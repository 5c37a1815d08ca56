# Lens server throughput and latency of the top list and search with 10,000
# lenses and 16 concurrent keep-alive clients on loopback.
if(TARGET server)
  add_executable(bench_server ${CMAKE_CURRENT_LIST_DIR}/server/bench_server.cpp)
  target_link_libraries(bench_server PRIVATE server)
endif()
