# Frame source throughput: decode, filter and RGBA output of 720p MJPEG and
# raw clips, beside the ffmpeg command doing the same work.
if(TARGET video)
  add_executable(bench_framesource ${CMAKE_CURRENT_LIST_DIR}/framesource/bench_framesource.cpp)
  target_link_libraries(bench_framesource PRIVATE video)
endif()
