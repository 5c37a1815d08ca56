# External events: events per second through the listener into the stores
# with 4 clients, and the time from a client's send to the camera store.
if(TARGET twitch_externalevents)
  add_executable(bench_externalevents ${CMAKE_CURRENT_LIST_DIR}/externalevents/bench_externalevents.cpp)
  target_link_libraries(bench_externalevents PRIVATE twitch_externalevents actions bureau)
endif()
