# glint_add_qtest(<name> SOURCES <files> LIBS <targets> [LABELS <labels>])
# A QtTest program registered with ctest under its name.
function(glint_add_qtest name)
  cmake_parse_arguments(T "" "" "SOURCES;LIBS;LABELS" ${ARGN})
  find_package(Qt5 5.15 REQUIRED COMPONENTS Test)
  add_executable(${name} ${T_SOURCES})
  set_target_properties(${name} PROPERTIES AUTOMOC ON)
  target_link_libraries(${name} PRIVATE Qt5::Test ${T_LIBS})
  target_include_directories(${name} PRIVATE ${CMAKE_SOURCE_DIR}/tests/support)
  add_test(NAME ${name} COMMAND ${name})
  set_tests_properties(${name} PROPERTIES ENVIRONMENT "QT_QPA_PLATFORM=offscreen")
  if(T_LABELS)
    set_tests_properties(${name} PROPERTIES LABELS "${T_LABELS}")
  endif()
endfunction()

# glint_add_windows_compile_test(<name> FOLDER <source folder> SOURCES <files...>
#                                MAIN <program source> [LIBS <-lx...>])
# A test that cross-compiles the folder's Windows files with mingw-w64 and
# links them with MAIN; skipped where no cross compiler is installed.
function(glint_add_windows_compile_test name)
  cmake_parse_arguments(W "" "FOLDER;MAIN" "SOURCES;LIBS" ${ARGN})
  string(REPLACE ";" "," sources "${W_SOURCES}")
  string(REPLACE ";" "," libs "${W_LIBS}")
  add_test(NAME ${name}
           COMMAND ${CMAKE_COMMAND} -DSOURCE_DIR=${W_FOLDER} -DSOURCES=${sources} -DLIBS=${libs}
                   -DMAIN=${CMAKE_CURRENT_SOURCE_DIR}/${W_MAIN} -DWORK_DIR=${CMAKE_CURRENT_BINARY_DIR}/${name}
                   -P ${CMAKE_SOURCE_DIR}/cmake/GlintWindowsCompile.cmake)
  set_tests_properties(${name} PROPERTIES SKIP_RETURN_CODE 77 TIMEOUT 300)
endfunction()
