# Compiles the Windows crash handler (free of Qt) for 64-bit Windows with the
# mingw-w64 cross compiler and links it into a small program that installs
# it, so that the Windows code is at least built here. Exits with 77
# (skipped) without a cross compiler.
find_program(MINGW_CXX NAMES x86_64-w64-mingw32-g++-posix x86_64-w64-mingw32-g++)
if(NOT MINGW_CXX)
  message("mingw-w64 cross compiler not installed; skipping the Windows compile")
  cmake_language(EXIT 77)
endif()

file(MAKE_DIRECTORY ${WORK_DIR})
file(WRITE ${WORK_DIR}/main.cpp
  "#include \"icrashhandler.h\"\n"
  "int main() {\n"
  "  auto handler = CrashReport::createPlatformCrashHandler();\n"
  "  handler->install();\n"
  "  CrashReport::HandlerSettings settings;\n"
  "  settings.dumpBufferSize = 1 << 20;\n"
  "  settings.uploadInProcess = [](const CrashReport::CapturedDump &dump) { return dump.size > 0; };\n"
  "  std::string error;\n"
  "  return handler->start(settings, error) ? 0 : 1;\n"
  "}\n")
set(objects)
foreach(path ${SOURCE_DIR}/crashhandler_win.cpp ${WORK_DIR}/main.cpp)
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
# _set_abort_behavior lives in the newer C run-time (ucrt), as with MSVC.
execute_process(
  COMMAND ${MINGW_CXX} -static -o ${WORK_DIR}/crashhandler.exe ${objects} -lucrt
  RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "linking the Windows program failed")
endif()
message("Windows crash handler compiled and linked: ${WORK_DIR}/crashhandler.exe")
