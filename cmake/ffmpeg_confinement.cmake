# Fails the configure step when an FFmpeg header is included outside the repair library's
# sources. FFmpeg's headers lie on the system include path, so linking it privately alone
# would not stop such an include from compiling.
function(kinefix_confine_ffmpeg_headers)
  set(pattern "#[ \t]*include[ \t]*[<\"](libav[a-z]*/|libsw[a-z]*/|restore/ffmpeg_compat\\.h)")
  file(GLOB_RECURSE files RELATIVE ${CMAKE_SOURCE_DIR}
       ${CMAKE_SOURCE_DIR}/*.cpp ${CMAKE_SOURCE_DIR}/*.h)
  set(offenders "")
  foreach(file IN LISTS files)
    # The repair library's sources; its tests read what it writes back with libavformat.
    if(file MATCHES "^(build[^/]*|out)/" OR file MATCHES "^restore/[^/]*\\.cpp$"
       OR file STREQUAL "restore/ffmpeg_compat.h" OR file MATCHES "^tests/restore/")
      continue()
    endif()
    file(STRINGS ${CMAKE_SOURCE_DIR}/${file} hits REGEX "${pattern}")
    if(hits)
      list(APPEND offenders ${file})
    endif()
  endforeach()
  if(offenders)
    list(JOIN offenders "\n  " shown)
    message(FATAL_ERROR "FFmpeg headers are included outside restore/'s sources:\n  ${shown}\n"
                        "Keep FFmpeg behind the repair library's interface.")
  endif()
endfunction()
