# Writes (MODE=write) or checks (MODE=check) the generated references
# docs/modules.md and docs/error-codes.md with the dsdc of a build.
#   cmake -DDSDC=<dsdc> -DROOT=<empty dir> -DSRC=<source dir> -DOUT=<dir> -DMODE=write|check -P dsd_docs.cmake
# ROOT stands in for the device root: without "basic_info" there, the
# per-channel counts are those of the full 128-channel model, so the output
# does not depend on the machine. DSD_EXEC_WRAPPER (an emulator) is honoured.
file(REMOVE_RECURSE ${ROOT})
file(MAKE_DIRECTORY ${ROOT} ${OUT})
separate_arguments(_wrap UNIX_COMMAND "$ENV{DSD_EXEC_WRAPPER}")
set(_stale "")
foreach(pair "modules.md;schema" "error-codes.md;codes")
  list(GET pair 0 _file)
  list(GET pair 1 _cmd)
  execute_process(COMMAND ${CMAKE_COMMAND} -E env DSD_ROOT=${ROOT} ${_wrap} ${DSDC} ${_cmd} --markdown
                  OUTPUT_FILE ${OUT}/${_file} RESULT_VARIABLE _rc)
  if(NOT _rc EQUAL 0)
    message(FATAL_ERROR "dsdc ${_cmd} --markdown failed (${_rc})")
  endif()
  file(READ ${OUT}/${_file} _text)
  if(_text MATCHES "\\| unknown \\|")
    message(FATAL_ERROR "an option checker has no row in modules/checker_names.cpp (see ${OUT}/${_file})")
  endif()
  if(MODE STREQUAL "write")
    execute_process(COMMAND ${CMAKE_COMMAND} -E copy ${OUT}/${_file} ${SRC}/docs/${_file})
  else()
    execute_process(COMMAND ${CMAKE_COMMAND} -E compare_files ${OUT}/${_file} ${SRC}/docs/${_file}
                    RESULT_VARIABLE _diff)
    if(NOT _diff EQUAL 0)
      list(APPEND _stale docs/${_file})
    endif()
  endif()
endforeach()
if(_stale)
  message(FATAL_ERROR "stale: ${_stale}; regenerate with: cmake --build <build dir> --target docs")
endif()
