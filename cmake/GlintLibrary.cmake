# glint_add_library(<name> [FOLDER <dir>] [EXCLUDE <file names...>] [LINK <targets...>])
# A static library of every source in <dir> (default: the current folder),
# with only this platform's files: *_win.cpp on Windows, *_linux.cpp
# elsewhere. The folder is the library's public include directory, so its
# headers are included by bare name.
function(glint_add_library name)
  cmake_parse_arguments(L "" "FOLDER" "LINK;EXCLUDE" ${ARGN})
  if(NOT L_FOLDER)
    set(L_FOLDER ${CMAKE_CURRENT_SOURCE_DIR})
  elseif(NOT IS_ABSOLUTE ${L_FOLDER})
    set(L_FOLDER ${CMAKE_CURRENT_SOURCE_DIR}/${L_FOLDER})
  endif()
  file(GLOB sources CONFIGURE_DEPENDS ${L_FOLDER}/*.cpp ${L_FOLDER}/*.h)
  glint_platform_filter(sources)
  foreach(excluded IN LISTS L_EXCLUDE)
    list(REMOVE_ITEM sources ${L_FOLDER}/${excluded})
  endforeach()
  add_library(${name} STATIC ${sources})
  set_target_properties(${name} PROPERTIES AUTOMOC ON)
  target_include_directories(${name} PUBLIC ${L_FOLDER})
  target_link_libraries(${name} PUBLIC ${L_LINK})
endfunction()

# glint_platform_filter(<list variable>)
# Drops the other platform's files (*_win.* or *_linux.*) from a source list.
function(glint_platform_filter var)
  set(list ${${var}})
  if(WIN32)
    list(FILTER list EXCLUDE REGEX "_linux\\.(cpp|h)$")
  else()
    list(FILTER list EXCLUDE REGEX "_win\\.(cpp|h)$")
  endif()
  set(${var} ${list} PARENT_SCOPE)
endfunction()

# glint_require_pkg(<prefix> <debian package> <pkg-config modules...>)
# pkg_check_modules that names the Debian package to install when a module
# is missing.
function(glint_require_pkg prefix package)
  find_package(PkgConfig REQUIRED)
  pkg_check_modules(${prefix} QUIET IMPORTED_TARGET GLOBAL ${ARGN})
  if(NOT ${prefix}_FOUND)
    message(FATAL_ERROR "${ARGN} not found: install the Debian package ${package} (scripts/setup does)")
  endif()
endfunction()
