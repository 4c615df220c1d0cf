# The fuzz target names from fuzz/targets.txt, the one list of them.
function(kinefix_fuzz_targets out)
  set(list_file ${PROJECT_SOURCE_DIR}/fuzz/targets.txt)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${list_file})
  file(STRINGS ${list_file} names REGEX "^[a-z0-9_]+$")
  set(${out} ${names} PARENT_SCOPE)
endfunction()
