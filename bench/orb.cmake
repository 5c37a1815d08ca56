# Frame-time benchmark of the AR core library (prints its figures).
if(TARGET orb)
  find_package(OpenCV REQUIRED COMPONENTS core imgproc imgcodecs)
  add_executable(orb_bench ${CMAKE_CURRENT_LIST_DIR}/orb/orbbench.cpp)
  target_link_libraries(orb_bench PRIVATE orb bench_support ${OpenCV_LIBS})
  target_include_directories(orb_bench SYSTEM PRIVATE ${OpenCV_INCLUDE_DIRS})
  target_compile_definitions(orb_bench PRIVATE ORB_BENCH_DATA="${CMAKE_SOURCE_DIR}/data")
endif()
