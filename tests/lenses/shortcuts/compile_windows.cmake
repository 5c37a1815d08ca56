# Compiles the Windows hotkey grabber with the mingw-w64 cross compiler and
# links it into a small program that registers one hotkey, so that the
# Windows code is at least built here. Exits with 77 (skipped) without one.
find_program(MINGW_CXX NAMES x86_64-w64-mingw32-g++-posix x86_64-w64-mingw32-g++)
if(NOT MINGW_CXX)
  message("mingw-w64 cross compiler not installed; skipping the Windows compile")
  cmake_language(EXIT 77)
endif()

file(MAKE_DIRECTORY ${WORK_DIR})
file(WRITE ${WORK_DIR}/main.cpp
  "#include \"hotkeygrabber.h\"\n"
  "int main() {\n"
  "  int fired = 0;\n"
  "  auto grabber = VCam::HotkeyGrabber::create([&fired](int) { ++fired; });\n"
  "  VCam::HotkeyChord chord;\n"
  "  chord.modifiers = VCam::HotkeyChord::Control | VCam::HotkeyChord::Shift;\n"
  "  chord.character = U'1';\n"
  "  const bool grabbed = grabber->grab(1, chord) == VCam::HotkeyGrabber::Result::Grabbed;\n"
  "  grabber->release(1);\n"
  "  return grabbed ? 0 : 1;\n"
  "}\n")
set(objects)
foreach(path ${SOURCE_DIR}/hotkeygrabber_win.cpp ${WORK_DIR}/main.cpp)
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
execute_process(COMMAND ${MINGW_CXX} -static -o ${WORK_DIR}/hotkeys.exe ${objects} -luser32 RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "linking the Windows program failed")
endif()
message("Windows hotkey grabber compiled and linked: ${WORK_DIR}/hotkeys.exe")
