# Compiles the Qt-free virtual camera files for 64-bit Windows with the
# mingw-w64 cross compiler and links them into a small program, so that the
# Windows code is at least built here. Exits with 77 (skipped) without one.
find_program(MINGW_CXX NAMES x86_64-w64-mingw32-g++-posix x86_64-w64-mingw32-g++)
if(NOT MINGW_CXX)
  message("mingw-w64 cross compiler not installed; skipping the Windows compile")
  cmake_language(EXIT 77)
endif()

set(sources
  virtualcamservice.cpp virtualcamstreamwriter.cpp
  virtualcampipe_win.cpp virtualcamevent_win.cpp virtualcamsystem_win.cpp)
file(MAKE_DIRECTORY ${WORK_DIR})
file(WRITE ${WORK_DIR}/main.cpp
  "#include \"virtualcamservice.h\"\n"
  "int main() { VCam::VirtualCamService service(L\"C:/Glint\"); return service.isInstalled() ? 0 : 1; }\n")
set(objects)
foreach(source IN LISTS sources ITEMS main.cpp)
  if(source STREQUAL "main.cpp")
    set(path ${WORK_DIR}/main.cpp)
  else()
    set(path ${SOURCE_DIR}/${source})
  endif()
  get_filename_component(name ${source} NAME_WE)
  set(object ${WORK_DIR}/${name}.o)
  execute_process(
    COMMAND ${MINGW_CXX} -std=c++17 -Wall -Wextra -Werror -DUNICODE -D_UNICODE -I${SOURCE_DIR} -c ${path} -o ${object}
    RESULT_VARIABLE result)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "cross compile of ${source} failed")
  endif()
  list(APPEND objects ${object})
endforeach()
execute_process(
  COMMAND ${MINGW_CXX} -static -o ${WORK_DIR}/virtualcam.exe ${objects} -ladvapi32 -lshell32
  RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "linking the Windows program failed")
endif()
message("Windows virtual camera files compiled and linked: ${WORK_DIR}/virtualcam.exe")
