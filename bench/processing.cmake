# End-to-end processing: demo camera frames through the AR core (no lens and
# a face lens) to the camera sink, and the program's time to its first frame.
if(TARGET video AND TARGET orb AND TARGET glint-camera-sink AND TARGET virtualcam_fixture)
  add_executable(bench_processing ${CMAKE_CURRENT_LIST_DIR}/processing/bench_processing.cpp)
  target_link_libraries(bench_processing PRIVATE video actions virtualcam_fixture)
  target_compile_definitions(bench_processing PRIVATE
    GLINT_SINK_PROGRAM="$<TARGET_FILE:glint-camera-sink>"
    GLINT_LENSES_DIR="${CMAKE_SOURCE_DIR}/data/lenses"
    GLINT_DEMO_CLIP_PATH="${GLINT_DEMO_CLIP_OUTPUT}"
    $<$<TARGET_EXISTS:glint-camera>:GLINT_APP_BINARY="$<TARGET_FILE:glint-camera>">)
endif()
