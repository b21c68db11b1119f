# What every target of this project has in common.

option(TARVEL_WARNINGS_ARE_ERRORS "A warning ends the build: not by compilers that this project has not met" ON)
add_library(tarvel_options INTERFACE)
target_compile_definitions(tarvel_options INTERFACE
  UNICODE _UNICODE WIN32_LEAN_AND_MEAN NOMINMAX _WIN32_WINNT=0x0602 _GLIBCXX_ASSERTIONS
  TARVEL_VERSION="${PROJECT_VERSION}")
target_compile_options(tarvel_options INTERFACE
  $<$<COMPILE_LANGUAGE:CXX>:-Wall -Wextra -Wconversion -Wsign-conversion -Wshadow -Wold-style-cast -Wformat=2
  -Wnull-dereference -Wcast-align -Wnon-virtual-dtor -Woverloaded-virtual $<$<BOOL:${TARVEL_WARNINGS_ARE_ERRORS}>:-Werror>
  -fstack-protector-strong -ffunction-sections -fdata-sections>
  $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-Wduplicated-cond -Wlogical-op>
  "$<$<COMPILE_LANGUAGE:CXX>:-ffile-prefix-map=${CMAKE_SOURCE_DIR}=.>")
# Static runtime, every hardening flag the format has, and no time stamp: two builds of one commit are the same bytes.
target_link_options(tarvel_options INTERFACE
  -static -fstack-protector-strong -Wl,--gc-sections -Wl,--dynamicbase -Wl,--high-entropy-va -Wl,--nxcompat -Wl,--tsaware
  -Wl,--no-insert-timestamp)

# Undefined behaviour ends the program where it happens: for scripts/check-memory.
option(TARVEL_UB_TRAPS "Compile traps for undefined behaviour in" OFF)
if(TARVEL_UB_TRAPS)
  target_compile_options(tarvel_options INTERFACE
    $<$<COMPILE_LANGUAGE:CXX>:-fsanitize=undefined -fsanitize-undefined-trap-on-error>)
endif()

# Every program counts how often each of its lines ran: for scripts/coverage.
option(TARVEL_COVERAGE "Compile counters for coverage in" OFF)
if(TARVEL_COVERAGE)
  target_compile_options(tarvel_options INTERFACE $<$<COMPILE_LANGUAGE:CXX>:--coverage -fprofile-update=atomic>)
  target_link_options(tarvel_options INTERFACE --coverage)
endif()
