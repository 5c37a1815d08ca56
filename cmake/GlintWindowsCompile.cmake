# Compiles Qt-free Windows files with the mingw-w64 cross compiler and links
# them with a small program into an .exe, so that the Windows code is at
# least built here. Run as a script:
#   cmake -DSOURCE_DIR=<folder> -DSOURCES=<a.cpp,b.cpp> -DMAIN=<main.cpp>
#         -DLIBS=<-lx,-ly> -DWORK_DIR=<folder> -P GlintWindowsCompile.cmake
# Exits with 77 (skipped) without a cross compiler.
find_program(MINGW_CXX NAMES x86_64-w64-mingw32-g++-posix x86_64-w64-mingw32-g++)
if(NOT MINGW_CXX)
  message("mingw-w64 cross compiler not installed; skipping the Windows compile")
  cmake_language(EXIT 77)
endif()

string(REPLACE "," ";" sources "${SOURCES}")
string(REPLACE "," ";" libs "${LIBS}")
file(MAKE_DIRECTORY ${WORK_DIR})
set(objects)
foreach(path IN LISTS sources ITEMS ${MAIN})
  if(NOT IS_ABSOLUTE ${path})
    set(path ${SOURCE_DIR}/${path})
  endif()
  get_filename_component(name ${path} NAME_WE)
  set(object ${WORK_DIR}/${name}.o)
  execute_process(
    COMMAND ${MINGW_CXX} -std=c++17 -Wall -Wextra -Werror -DUNICODE -D_UNICODE -I${SOURCE_DIR} -c ${path} -o ${object}
    RESULT_VARIABLE result)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "cross compile of ${path} failed")
  endif()
  list(APPEND objects ${object})
endforeach()
execute_process(COMMAND ${MINGW_CXX} -static -o ${WORK_DIR}/windows-check.exe ${objects} ${libs}
                RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "linking the Windows program failed")
endif()
message("Windows files compiled and linked: ${WORK_DIR}/windows-check.exe")
