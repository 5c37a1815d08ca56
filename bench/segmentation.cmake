# Person segmentation and background effects per 720p frame (prints figures).
if(TARGET orb)
  find_package(OpenCV REQUIRED COMPONENTS core imgproc imgcodecs videoio)
  add_executable(bench_segmentation ${CMAKE_CURRENT_LIST_DIR}/segmentation/bench_segmentation.cpp)
  target_link_libraries(bench_segmentation PRIVATE bench_support orb ${OpenCV_LIBS})
  target_include_directories(bench_segmentation SYSTEM PRIVATE ${OpenCV_INCLUDE_DIRS})
  target_compile_definitions(bench_segmentation PRIVATE
    BENCH_SEGMENTATION_MODEL="${GLINT_SEGMENTATION_MODEL}"
    BENCH_DEMO_CLIP="${GLINT_DEMO_CLIP_OUTPUT}"
    BENCH_DATA="${CMAKE_SOURCE_DIR}/data")
  add_dependencies(bench_segmentation glint_demo_clip)
endif()
