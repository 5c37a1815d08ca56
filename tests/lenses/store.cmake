# Lens store, list model and network cache tests.
if(NOT TARGET lenses)
  return()
endif()
find_package(Qt5 5.15 REQUIRED COMPONENTS Test Network)
glint_add_qtest(tst_lensmodels SOURCES tst_lensmodels.cpp LIBS lenses LABELS lenses)
glint_add_qtest(tst_networkcache SOURCES ${CMAKE_CURRENT_LIST_DIR}/tst_networkcache.cpp
                LIBS lenses_testsupport LABELS lenses)
# The store test saves and reads settings.json through the application's settings.
if(TARGET app)
  glint_add_qtest(tst_lensstore SOURCES ${CMAKE_CURRENT_LIST_DIR}/tst_lensstore.cpp
                  LIBS lenses_testsupport app LABELS lenses)
  target_compile_definitions(tst_lensstore PRIVATE GLINT_SAMPLE_LENSES="${CMAKE_SOURCE_DIR}/data/lenses")
endif()

# The lens explorer in the real program window, driven with xdotool.
if(TARGET glint-camera AND TARGET lenses_testsupport)
  glint_add_qtest(tst_lensexplorer SOURCES ${CMAKE_CURRENT_LIST_DIR}/tst_lensexplorer.cpp
                  LIBS lenses_testsupport LABELS "lenses;window")
  target_compile_definitions(tst_lensexplorer PRIVATE
    GLINT_APP_BINARY="$<TARGET_FILE:glint-camera>"
    GLINT_ARTIFACTS_DIR="${CMAKE_BINARY_DIR}/test-artifacts"
    GLINT_SAMPLE_LENSES="${CMAKE_SOURCE_DIR}/data/lenses")
  add_dependencies(tst_lensexplorer glint-camera)
  set_tests_properties(tst_lensexplorer PROPERTIES RUN_SERIAL TRUE TIMEOUT 300)
endif()
