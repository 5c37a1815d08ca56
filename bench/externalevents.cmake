# External events: events per second through the listener into the stores
# with 4 clients, the time from a client's send to the camera store handing
# the event to the lens's thread, and the frame rate meanwhile.
# Runs on the demo camera with the sample lens stream-cheers:
#   GLINT_DEMO_CLIP=build/data/glint-demo.mp4 QT_QPA_PLATFORM=offscreen build/bench/bench_externalevents
if(TARGET twitch_externalevents AND TARGET video)
  add_executable(bench_externalevents ${CMAKE_CURRENT_LIST_DIR}/externalevents/bench_externalevents.cpp)
  target_link_libraries(bench_externalevents PRIVATE twitch_externalevents video actions bureau bench_support)
  target_compile_definitions(bench_externalevents PRIVATE GLINT_LENSES_DIR="${CMAKE_SOURCE_DIR}/data/lenses")
endif()
