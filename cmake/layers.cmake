# Checks the include layering: run as `cmake -DSRC=<source dir> -P layers.cmake`.
#  - platform/ and crypto/ include nothing of store/ (msglog and the shell
#    bus client, which read core and model state, are known exceptions for
#    core/ and model/, never for store/);
#  - store/ includes nothing of model/, modules/ or core/;
#  - outside store/, the only store/ file included is store/store.h.
set(_bad "")
file(GLOB_RECURSE _files RELATIVE ${SRC}
  ${SRC}/platform/*.cpp ${SRC}/platform/*.h ${SRC}/crypto/*.cpp ${SRC}/crypto/*.h
  ${SRC}/store/*.cpp ${SRC}/store/*.h ${SRC}/model/*.cpp ${SRC}/model/*.h
  ${SRC}/modules/*.cpp ${SRC}/modules/*.h ${SRC}/core/*.cpp ${SRC}/core/*.h
  ${SRC}/tests/*.cpp ${SRC}/tests/*.h ${SRC}/tools/*.cpp ${SRC}/tools/*.h)
foreach(f ${_files})
  file(STRINGS ${SRC}/${f} _incs REGEX "^[ \t]*#[ \t]*include[ \t]*\"")
  foreach(line ${_incs})
    string(REGEX REPLACE ".*include[ \t]*\"([^\"]*)\".*" "\\1" inc "${line}")
    if(f MATCHES "^(platform|crypto)/" AND inc MATCHES "^store/")
      list(APPEND _bad "${f}: ${inc} (platform below store)")
    elseif(f MATCHES "^store/" AND inc MATCHES "^(model|modules|core)/")
      list(APPEND _bad "${f}: ${inc} (store below the model)")
    elseif(NOT f MATCHES "^store/" AND inc MATCHES "^store/" AND NOT inc STREQUAL "store/store.h")
      list(APPEND _bad "${f}: ${inc} (private to the store)")
    endif()
  endforeach()
endforeach()
if(_bad)
  list(JOIN _bad "\n  " _text)
  message(FATAL_ERROR "layer violations:\n  ${_text}")
endif()
