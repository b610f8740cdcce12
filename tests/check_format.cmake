# Fails if any hand-written C++ file differs from its clang-format form.
file(GLOB_RECURSE sources
  ${SOURCE_DIR}/zu/*.h ${SOURCE_DIR}/zu/*.cpp
  ${SOURCE_DIR}/compiler/*.h ${SOURCE_DIR}/compiler/*.cpp
  ${SOURCE_DIR}/tests/*.cpp ${SOURCE_DIR}/tools/*.h ${SOURCE_DIR}/tools/*.cpp
  ${SOURCE_DIR}/tooling/*.h ${SOURCE_DIR}/tooling/*.cpp ${SOURCE_DIR}/python/*.cpp
  ${SOURCE_DIR}/benchmarks/*.cpp ${SOURCE_DIR}/fuzz/*.cpp ${SOURCE_DIR}/examples/*.cpp
  ${SOURCE_DIR}/site/*.cpp)
execute_process(COMMAND ${CLANG_FORMAT} --dry-run --Werror ${sources}
  RESULT_VARIABLE result ERROR_VARIABLE messages)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "clang-format would change these files:\n${messages}")
endif()
