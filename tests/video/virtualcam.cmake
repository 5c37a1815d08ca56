# Virtual camera output: the stream writer and the service against the real
# camera sink over real FIFOs, and a cross-compile of the Windows files.
if(TARGET video AND TARGET glint-camera-sink)
  find_package(Qt5 5.15 REQUIRED COMPONENTS Test)
  set(virtualcam_dir ${CMAKE_CURRENT_LIST_DIR}/virtualcam)
  add_library(virtualcam_fixture STATIC
    ${virtualcam_dir}/framepattern.cpp ${virtualcam_dir}/framepattern.h
    ${virtualcam_dir}/sinkprocess.cpp ${virtualcam_dir}/sinkprocess.h
    ${virtualcam_dir}/writeronlyoutput.cpp ${virtualcam_dir}/writeronlyoutput.h)
  target_link_libraries(virtualcam_fixture PUBLIC video Qt5::Test)
  target_include_directories(virtualcam_fixture PUBLIC ${virtualcam_dir})
  target_compile_definitions(virtualcam_fixture PUBLIC
    GLINT_TEST_SINK_PATH="$<TARGET_FILE:glint-camera-sink>")
  foreach(name tst_virtualcamwriter tst_virtualcamservice)
    add_executable(${name} ${virtualcam_dir}/${name}.cpp)
    set_target_properties(${name} PROPERTIES AUTOMOC ON)
    target_link_libraries(${name} PRIVATE virtualcam_fixture)
    add_dependencies(${name} glint-camera-sink)
    add_test(NAME video.${name} COMMAND ${name})
    set_tests_properties(video.${name} PROPERTIES TIMEOUT 120)
  endforeach()
endif()

if(TARGET video)
  add_test(NAME video.virtualcam_windows_compile
           COMMAND ${CMAKE_COMMAND} -DSOURCE_DIR=${CMAKE_SOURCE_DIR}/video/virtualcam
                   -DWORK_DIR=${CMAKE_CURRENT_BINARY_DIR}/virtualcam_mingw
                   -P ${CMAKE_CURRENT_LIST_DIR}/virtualcam/compile_windows.cmake)
  set_tests_properties(video.virtualcam_windows_compile PROPERTIES SKIP_RETURN_CODE 77 TIMEOUT 300)
endif()
