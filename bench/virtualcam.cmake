# Virtual camera throughput: frames through the stream writer, the FIFO and
# the camera sink, and the sink's colour conversion cost.
if(TARGET video AND TARGET camerasink_core AND TARGET glint-camera-sink)
  add_executable(bench_virtualcam ${CMAKE_CURRENT_LIST_DIR}/virtualcam/bench_virtualcam.cpp)
  target_link_libraries(bench_virtualcam PRIVATE video camerasink_core bench_support)
  target_compile_definitions(bench_virtualcam PRIVATE GLINT_BENCH_SINK_PATH="$<TARGET_FILE:glint-camera-sink>")
  add_dependencies(bench_virtualcam glint-camera-sink)
endif()
