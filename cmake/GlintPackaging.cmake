# Installation layout and the Debian package.
#
#   /usr/bin                          the application and the command-line tools
#   /usr/libexec/glint-camera         the privileged set-up helper (run by pkexec)
#   /usr/share/glint-camera           demo clip, asset bundle, web pages, sample lenses
#   /usr/share/applications, /usr/share/metainfo, /usr/share/icons/hicolor
#   /usr/share/polkit-1/actions       the policy of the set-up helper
#   /usr/share/man/man1               one page per command-line tool
#
# `cpack -G DEB` in the build folder makes the package from a complete build.
include(GNUInstallDirs)

set(GLINT_PACKAGE_PREFIX /usr)
set(GLINT_DATA_DESTINATION ${CMAKE_INSTALL_DATADIR}/glint-camera)
set(GLINT_SETUP_HELPER_DESTINATION ${CMAKE_INSTALL_LIBEXECDIR}/glint-camera)
set(GLINT_SETUP_HELPER_PATH ${GLINT_PACKAGE_PREFIX}/${GLINT_SETUP_HELPER_DESTINATION}/glint-camera-setup)
set(GLINT_APP_ID org.glintcamera.GlintCamera)
set(packaging ${CMAKE_SOURCE_DIR}/data/packaging)
set(desktop ${CMAKE_SOURCE_DIR}/data/desktop)
set(staged ${CMAKE_BINARY_DIR}/packaging)

install(TARGETS glint-camera glint-camera-sink glint-lens-server glint-lens-pack RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(TARGETS glint-camera-setup RUNTIME DESTINATION ${GLINT_SETUP_HELPER_DESTINATION})

install(DIRECTORY ${CMAKE_SOURCE_DIR}/data/PrecachedAssets.bundle ${CMAKE_SOURCE_DIR}/data/WebResources.bundle
        ${CMAKE_SOURCE_DIR}/data/lenses
        DESTINATION ${GLINT_DATA_DESTINATION}
        FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)

# The sample lenses signed with the build's key, offered when the catalogue
# cannot be reached (build tree: data/bundled-lenses).
set(bundled ${CMAKE_BINARY_DIR}/data/bundled-lenses)
file(GLOB_RECURSE sample_lens_files ${CMAKE_SOURCE_DIR}/data/lenses/*)
add_custom_command(OUTPUT ${bundled}/index.json
  COMMAND ${CMAKE_COMMAND} -DPACKER=$<TARGET_FILE:glint-lens-pack> -DLENSES=${CMAKE_SOURCE_DIR}/data/lenses
          -DOUT=${bundled} -P ${CMAKE_SOURCE_DIR}/cmake/GlintBundleLenses.cmake
  DEPENDS glint-lens-pack ${sample_lens_files} ${CMAKE_SOURCE_DIR}/cmake/GlintBundleLenses.cmake
  COMMENT "Signing and packing the bundled sample lenses"
  VERBATIM)
add_custom_target(glint_bundled_lenses ALL DEPENDS ${bundled}/index.json)
add_dependencies(glint-camera glint_bundled_lenses)
install(DIRECTORY ${bundled} DESTINATION ${GLINT_DATA_DESTINATION}
        FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)

# The menu entry, the metainfo and the icons, rendered from the one drawing.
install(FILES ${desktop}/${GLINT_APP_ID}.desktop DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)
install(FILES ${desktop}/${GLINT_APP_ID}.metainfo.xml DESTINATION ${CMAKE_INSTALL_DATADIR}/metainfo)
install(FILES ${desktop}/glint-camera.svg DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps)
find_program(GLINT_RSVG_CONVERT rsvg-convert REQUIRED)
set(icon_files)
foreach(size 16 22 24 32 48 64 128 256)
  set(icon ${staged}/icons/${size}x${size}/glint-camera.png)
  add_custom_command(OUTPUT ${icon}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${staged}/icons/${size}x${size}
    COMMAND ${GLINT_RSVG_CONVERT} -w ${size} -h ${size} -o ${icon} ${desktop}/glint-camera.svg
    DEPENDS ${desktop}/glint-camera.svg
    VERBATIM)
  list(APPEND icon_files ${icon})
  install(FILES ${icon} DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/${size}x${size}/apps)
endforeach()

# Man pages and the changelog, compressed as Debian wants them.
set(gzipped_files)
foreach(page glint-camera glint-camera-sink glint-event glint-lens-pack glint-lens-server)
  set(out ${staged}/man/${page}.1.gz)
  add_custom_command(OUTPUT ${out}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${staged}/man
    COMMAND sh -c "gzip -9n < \"$1\" > \"$2\"" sh ${CMAKE_SOURCE_DIR}/data/man/${page}.1 ${out}
    DEPENDS ${CMAKE_SOURCE_DIR}/data/man/${page}.1
    VERBATIM)
  list(APPEND gzipped_files ${out})
  install(FILES ${out} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
endforeach()
# A native package (no Debian revision): changelog.gz, not changelog.Debian.gz.
set(changelog ${staged}/changelog.gz)
add_custom_command(OUTPUT ${changelog}
  COMMAND sh -c "gzip -9n < \"$1\" > \"$2\"" sh ${packaging}/changelog ${changelog}
  DEPENDS ${packaging}/changelog
  VERBATIM)
list(APPEND gzipped_files ${changelog})
add_custom_target(glint_packaging_files ALL DEPENDS ${icon_files} ${gzipped_files})
install(FILES ${changelog} ${packaging}/copyright DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/glint-camera)
install(FILES ${CMAKE_SOURCE_DIR}/docs/virtual-camera.md ${CMAKE_SOURCE_DIR}/docs/lens-format.md
        DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/glint-camera)

configure_file(${packaging}/${GLINT_APP_ID}.setup.policy.in ${staged}/${GLINT_APP_ID}.setup.policy @ONLY)
install(FILES ${staged}/${GLINT_APP_ID}.setup.policy DESTINATION ${CMAKE_INSTALL_DATADIR}/polkit-1/actions)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME glint-camera)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR}.${PROJECT_VERSION_PATCH})
set(CPACK_PACKAGE_CONTACT "Glint Camera developers <maintainers@glintcamera.example.org>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "webcam with augmented-reality lenses as a virtual camera")
# CPack puts the summary first and indents these lines itself.
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION "Glint Camera applies lenses (augmented-reality effects) to a webcam picture
and publishes the result as a virtual camera that video-call and streaming
programs select like any webcam. Sample lenses are included.")
set(CPACK_PACKAGING_INSTALL_PREFIX ${GLINT_PACKAGE_PREFIX})
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION video)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# Beyond the linked libraries: the face model, pkexec for the set-up step,
# the QML modules the interface imports and the renderer's drivers.
set(CPACK_DEBIAN_PACKAGE_DEPENDS "libdlib-data, pkexec, \
qml-module-qtquick2, qml-module-qtquick-controls2, qml-module-qtquick-templates2, \
qml-module-qtquick-layouts, qml-module-qtquick-window2, qml-module-qtquick-dialogs, \
qml-module-qt-labs-platform, qml-module-qtgraphicaleffects, qml-module-qtmultimedia, \
qml-module-qtquick-shapes, libegl-mesa0, libgl1-mesa-dri")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "v4l2loopback-dkms, v4l-utils")
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${packaging}/postrm)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION TRUE)
set(CPACK_DEBIAN_COMPRESSION_TYPE gzip)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_SET_DESTDIR OFF)
include(CPack)
