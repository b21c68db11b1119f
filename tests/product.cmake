# The product's stand-in: stanza engine, libraries, end command, sample queue manager.
tarvel_test(inifile_test SOURCES inifile_test.cpp LIBRARIES inifile)
tarvel_test(product_test
  SOURCES product_config_test.cpp product_test.cpp product_trace_test.cpp
  LIBRARIES xcsobjects tovxzu)
add_dependencies(product_test endznm sampleqm)
