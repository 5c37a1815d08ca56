# Cost of usage analytics on the action stream: the analytics middleware per
# action, a 1,000-event batch, and the queue file.
add_executable(bench_analytics ${CMAKE_CURRENT_LIST_DIR}/analytics/bench_analytics.cpp)
target_link_libraries(bench_analytics PRIVATE maintenance_analytics bench_support)
