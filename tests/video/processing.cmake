# Frame processing: the worker with the real AR core on the demo camera, the
# camera store, and the preview items.
if(TARGET video AND TARGET orb)
  set(processing_dir ${CMAKE_CURRENT_LIST_DIR}/processing)
  set(processing_env
      "GLINT_DEMO_CLIP=${GLINT_DEMO_CLIP_OUTPUT}"
      "GLINT_ASSET_BUNDLE=${CMAKE_SOURCE_DIR}/data/PrecachedAssets.bundle")
  foreach(name tst_coreserviceworker tst_corestore tst_previewitems)
    glint_add_qtest(${name} SOURCES ${processing_dir}/${name}.cpp LIBS video actions)
    target_compile_definitions(${name} PRIVATE
      GLINT_LENSES_DIR="${CMAKE_SOURCE_DIR}/data/lenses"
      GLINT_ARTIFACTS_DIR="${CMAKE_BINARY_DIR}/test-artifacts")
    target_include_directories(${name} PRIVATE ${CMAKE_SOURCE_DIR})
    set_tests_properties(${name} PROPERTIES ENVIRONMENT "QT_QPA_PLATFORM=offscreen;${processing_env}" TIMEOUT 300)
  endforeach()
endif()

if(TARGET video AND TARGET orb AND TARGET virtualcam_fixture)
  glint_add_qtest(tst_processingpipeline SOURCES ${processing_dir}/tst_processingpipeline.cpp
                  LIBS video actions virtualcam_fixture)
  target_compile_definitions(tst_processingpipeline PRIVATE
    GLINT_LENSES_DIR="${CMAKE_SOURCE_DIR}/data/lenses"
    GLINT_ARTIFACTS_DIR="${CMAKE_BINARY_DIR}/test-artifacts")
  add_dependencies(tst_processingpipeline glint-camera-sink)
  set_tests_properties(tst_processingpipeline PROPERTIES
    ENVIRONMENT "QT_QPA_PLATFORM=offscreen;${processing_env}" TIMEOUT 300)
endif()

# The preview window on the X server, once per scene graph backend.
if(TARGET video)
  glint_add_qtest(tst_previewscreen SOURCES ${CMAKE_CURRENT_LIST_DIR}/processing/tst_previewscreen.cpp
                  LIBS video LABELS window)
  target_compile_definitions(tst_previewscreen PRIVATE GLINT_ARTIFACTS_DIR="${CMAKE_BINARY_DIR}/test-artifacts")
  set_tests_properties(tst_previewscreen PROPERTIES ENVIRONMENT "QT_QPA_PLATFORM=xcb;GLINT_QUICK_BACKEND=software")
  add_test(NAME tst_previewscreen_opengl COMMAND tst_previewscreen)
  set_tests_properties(tst_previewscreen_opengl PROPERTIES LABELS window
                       ENVIRONMENT "QT_QPA_PLATFORM=xcb;GLINT_QUICK_BACKEND=opengl")
endif()
