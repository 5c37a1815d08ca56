# End-to-end processing: the demo, moving-face and four-face clips through the
# AR core with every sample lens to the camera sink.
if(TARGET video AND TARGET orb AND TARGET glint-camera-sink AND TARGET virtualcam_fixture)
  add_executable(bench_processing ${CMAKE_CURRENT_LIST_DIR}/processing/bench_processing.cpp)
  target_link_libraries(bench_processing PRIVATE video actions virtualcam_fixture bench_support)
  target_compile_definitions(bench_processing PRIVATE
    GLINT_SINK_PROGRAM="$<TARGET_FILE:glint-camera-sink>"
    GLINT_LENSES_DIR="${CMAKE_SOURCE_DIR}/data/lenses"
    GLINT_DEMO_CLIP_PATH="${GLINT_DEMO_CLIP_OUTPUT}"
    GLINT_MOVING_CLIP_PATH="${GLINT_MOVING_CLIP_OUTPUT}"
    GLINT_FOUR_FACES_CLIP_PATH="${GLINT_FOUR_FACES_CLIP_OUTPUT}"
    GLINT_BACKGROUNDS_DIR="${GLINT_BACKGROUNDS_OUTPUT}")
  add_dependencies(bench_processing glint_test_clips glint-camera-sink glint_backgrounds glint_segmentation_model)
endif()
