# The person-segmentation model: the landscape selfie-segmentation network of
# an npm package (Apache-2.0) that scripts/setup fetches and checks, converted
# from TFLite to ONNX by tools/tflite2onnx at build time. The converted file
# lands in the build tree at data/models/selfie_segmentation.onnx.
include(GNUInstallDirs)

set(_seg_cache "$ENV{XDG_CACHE_HOME}")
if(NOT _seg_cache)
  set(_seg_cache "$ENV{HOME}/.cache")
endif()
set(GLINT_SEGMENTATION_PACKAGE
    "${_seg_cache}/glint-camera/mediapipe-selfie_segmentation-0.1.1675465747.tgz"
    CACHE FILEPATH "npm tarball of @mediapipe/selfie_segmentation 0.1.1675465747 (fetched by scripts/setup)")
if(NOT EXISTS "${GLINT_SEGMENTATION_PACKAGE}")
  message(FATAL_ERROR "The segmentation model package ${GLINT_SEGMENTATION_PACKAGE} is missing: "
                      "run scripts/setup, or set GLINT_SEGMENTATION_PACKAGE to the tarball.")
endif()

# Debian's interpreter, which has python3-onnx and python3-flatbuffers; a
# python3 earlier on PATH may not.
set(GLINT_MODEL_PYTHON /usr/bin/python3 CACHE FILEPATH "Python with the onnx and flatbuffers modules")

set(GLINT_SEGMENTATION_MODEL ${CMAKE_BINARY_DIR}/data/models/selfie_segmentation.onnx
    CACHE INTERNAL "The person-segmentation model in the build tree")
set(_seg_work ${CMAKE_BINARY_DIR}/data/models/source)
set(_seg_tflite ${_seg_work}/package/selfie_segmentation_landscape.tflite)
set(_seg_converter ${CMAKE_SOURCE_DIR}/tools/tflite2onnx/tflite2onnx.py)
add_custom_command(OUTPUT ${GLINT_SEGMENTATION_MODEL}
  COMMAND ${CMAKE_COMMAND} -E make_directory ${_seg_work}
  COMMAND ${CMAKE_COMMAND} -E chdir ${_seg_work}
          ${CMAKE_COMMAND} -E tar xzf ${GLINT_SEGMENTATION_PACKAGE} package/selfie_segmentation_landscape.tflite
  COMMAND ${GLINT_MODEL_PYTHON} ${_seg_converter} ${_seg_tflite} ${GLINT_SEGMENTATION_MODEL}
  DEPENDS ${GLINT_SEGMENTATION_PACKAGE} ${_seg_converter}
  COMMENT "Converting the person-segmentation model to ONNX"
  VERBATIM)
add_custom_target(glint_segmentation_model ALL DEPENDS ${GLINT_SEGMENTATION_MODEL})
install(FILES ${GLINT_SEGMENTATION_MODEL} DESTINATION ${CMAKE_INSTALL_DATADIR}/glint-camera/models
        PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
