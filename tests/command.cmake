# The command and the cluster utility library, function by function.
tarvel_test(command_test
  SOURCES cmdline_test.cpp console_test.cpp diagnostics_test.cpp directories_test.cpp filesecurity_test.cpp
    migrate_test.cpp queuemgr_test.cpp securityid_test.cpp trace_test.cpp
  LIBRARIES znmmigrate)
tarvel_resources(command_test)
tarvel_test(messages_test SOURCES messages_test.cpp)
add_dependencies(messages_test tarvel)
