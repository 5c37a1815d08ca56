# What the benchmarks share: figures from /proc, percentiles, and the
# application started as a user starts it.
find_package(Qt5 5.15 REQUIRED COMPONENTS Core)
add_library(bench_support STATIC ${CMAKE_CURRENT_LIST_DIR}/common/benchsupport.cpp)
target_include_directories(bench_support PUBLIC ${CMAKE_CURRENT_LIST_DIR}/common)
target_link_libraries(bench_support PUBLIC Qt5::Core)
target_compile_definitions(bench_support PRIVATE
  GLINT_APP_BINARY="$<TARGET_FILE:glint-camera>"
  GLINT_LENSES_DIR="${CMAKE_SOURCE_DIR}/data/lenses")
