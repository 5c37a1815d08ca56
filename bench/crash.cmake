# Crash reports: the time from the fault to the upload for the application
# topped up to 20 threads, and the start-up cost of the crash handler.
if(TARGET glint-camera-crashtest AND TARGET crashreport)
  find_package(Qt5 5.15 REQUIRED COMPONENTS Network Gui)
  add_executable(bench_crash ${CMAKE_CURRENT_LIST_DIR}/crash/bench_crash.cpp)
  target_link_libraries(bench_crash PRIVATE crashreport systemreport bench_support Qt5::Network Qt5::Gui)
  target_compile_definitions(bench_crash PRIVATE
    GLINT_CRASH_APP="$<TARGET_FILE:glint-camera-crashtest>")
  add_dependencies(bench_crash glint-camera-crashtest glint-crash-handler)
endif()
