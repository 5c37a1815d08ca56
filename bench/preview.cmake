# The application as the user sees it under Xvfb: the preview showing a 30 fps
# and a 120 fps clip on each Qt Quick backend beside ffplay, the time from
# start to the first frame, and memory over a long run.
if(TARGET glint-camera)
  # The demo portrait's pan at 120 fps (five seconds), made like the demo clip.
  set(GLINT_PREVIEW_CLIP_120 ${CMAKE_BINARY_DIR}/data/glint-demo-120fps.mp4)
  add_custom_command(
    OUTPUT ${GLINT_PREVIEW_CLIP_120}
    COMMAND ${GLINT_FFMPEG_EXECUTABLE} -hide_banner -loglevel error -y -i ${GLINT_DEMO_CLIP_OUTPUT}
            -vf minterpolate=fps=120:mi_mode=dup -frames:v 600 -c:v libx264 -preset veryfast -crf 20 -g 120
            -bf 0 ${GLINT_PREVIEW_CLIP_120}
    DEPENDS ${GLINT_DEMO_CLIP_OUTPUT}
    COMMENT "Generating the 120 fps preview clip"
    VERBATIM)
  add_custom_target(glint_preview_clip DEPENDS ${GLINT_PREVIEW_CLIP_120})
  glint_require_pkg(BENCH_XCB "libxcb1-dev" xcb)
  add_executable(bench_preview ${CMAKE_CURRENT_LIST_DIR}/preview/bench_preview.cpp)
  target_link_libraries(bench_preview PRIVATE bench_support PkgConfig::BENCH_XCB)
  target_compile_definitions(bench_preview PRIVATE
    GLINT_PREVIEW_CLIP_30="${GLINT_DEMO_CLIP_OUTPUT}"
    GLINT_PREVIEW_CLIP_120="${GLINT_PREVIEW_CLIP_120}")
  add_dependencies(bench_preview glint-camera glint_preview_clip)
endif()
