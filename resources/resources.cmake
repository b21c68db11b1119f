# tarvel_resources(<target>): gives a program the version information and the console messages.
function(tarvel_resources target)
  set(directory ${PROJECT_SOURCE_DIR}/resources)
  # windres reports no dependencies of its own.
  file(GLOB included CONFIGURE_DEPENDS ${directory}/messages*)
  string(REPLACE "." "," numbers "${PROJECT_VERSION}.0")
  set_source_files_properties(${directory}/tarvel.rc PROPERTIES
    OBJECT_DEPENDS "${included}" COMPILE_OPTIONS "-c;65001" COMPILE_DEFINITIONS "TARVEL_VERSION_NUMBERS=${numbers}")
  target_sources(${target} PRIVATE ${directory}/tarvel.rc)
endfunction()
