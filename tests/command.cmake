# The command and the cluster utility library, function by function.
tarvel_test(command_test
  SOURCES cmdline_test.cpp console_test.cpp diagnostics_test.cpp directories_test.cpp filesecurity_test.cpp
    migrate_test.cpp queuemgr_test.cpp securityid_test.cpp trace_test.cpp
  LIBRARIES znmmigrate)
tarvel_resources(command_test)
tarvel_test(messages_test SOURCES messages_test.cpp)
add_dependencies(messages_test tarvel)

# Whole runs, of the programs that ship and of copies of them beside the library that makes calls fail.
add_library(faults SHARED faults/faults.cpp faults/tovxcs2.def)
set_target_properties(faults PROPERTIES PREFIX "" OUTPUT_NAME tovxcs2 RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin/faults)
target_include_directories(faults PRIVATE ${PROJECT_SOURCE_DIR}/product/include)
target_link_libraries(faults PRIVATE tarvel_options test_options)
target_compile_options(faults PRIVATE -Wno-cast-function-type)
add_custom_target(faulty_programs ALL
  COMMAND ${CMAKE_COMMAND} -E copy_if_different $<TARGET_FILE:tarvel> $<TARGET_FILE:tovxzu> ${CMAKE_BINARY_DIR}/bin/faults
  COMMAND ${CMAKE_COMMAND} -E copy_if_different $<TARGET_FILE:tovxcs2> ${CMAKE_BINARY_DIR}/bin/faults/tovxcs2r.dll
  DEPENDS faults tarvel tovxzu tovxcs2)
tarvel_test(runs_test SOURCES runs_test.cpp)
add_dependencies(runs_test faulty_programs)

add_executable(stackguard_probe stackguard_probe.cpp)
target_link_libraries(stackguard_probe PRIVATE stackguard tarvel_options)
tarvel_test(stackguard_test SOURCES stackguard_test.cpp)
add_dependencies(stackguard_test stackguard_probe)

add_executable(languages_test languages_test.cpp)
target_include_directories(languages_test PRIVATE ${PROJECT_SOURCE_DIR}/resources)
target_link_libraries(languages_test PRIVATE GTest::gtest_main tarvel_options test_options)
add_dependencies(languages_test tarvel)
foreach(locale es_ES es_MX zh_TW cs_CZ de_DE en_US fr_FR hu_HU it_IT ja_JP ko_KR pl_PL pt_BR ru_RU zh_CN sv_SE)
  add_test(NAME Languages.${locale} COMMAND languages_test)
  set_tests_properties(Languages.${locale} PROPERTIES ENVIRONMENT LC_ALL=${locale}.UTF-8 SKIP_REGULAR_EXPRESSION "SKIPPED")
endforeach()
tarvel_test(faultsweep_test SOURCES faultsweep_test.cpp COST 60)
add_dependencies(faultsweep_test faulty_programs)
