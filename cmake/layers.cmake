# Checks the include layering: run as `cmake -DSRC=<source dir> -P layers.cmake`.
# Layers, lowest first: platform/ and crypto/, store/, model/, modules/,
# core/. Each source includes only its own layer and those below:
#  - platform/ and crypto/ include nothing of store/, model/, modules/, core/;
#  - store/ includes nothing of model/, modules/ or core/;
#  - model/ includes nothing of modules/ or core/;
#  - modules/ includes nothing of core/;
#  - core/ includes nothing of model/ or modules/: it hands each parsed
#    request to the serve function (platform/serve_call.h); start-up
#    (core/main.cpp) wires the layers together and may include any of them;
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
    if(f MATCHES "^(platform|crypto)/" AND inc MATCHES "^(store|model|modules|core)/")
      list(APPEND _bad "${f}: ${inc} (platform is the lowest layer)")
    elseif(f MATCHES "^store/" AND inc MATCHES "^(model|modules|core)/")
      list(APPEND _bad "${f}: ${inc} (store below the model)")
    elseif(f MATCHES "^model/" AND inc MATCHES "^(modules|core)/")
      list(APPEND _bad "${f}: ${inc} (model below the modules)")
    elseif(f MATCHES "^modules/" AND inc MATCHES "^core/")
      list(APPEND _bad "${f}: ${inc} (modules below core)")
    elseif(f MATCHES "^core/" AND NOT f STREQUAL "core/main.cpp" AND inc MATCHES "^(model|modules)/")
      list(APPEND _bad "${f}: ${inc} (core reaches the model through the serve function)")
    elseif(NOT f MATCHES "^store/" AND inc MATCHES "^store/" AND NOT inc STREQUAL "store/store.h")
      list(APPEND _bad "${f}: ${inc} (private to the store)")
    endif()
  endforeach()
endforeach()
if(_bad)
  list(JOIN _bad "\n  " _text)
  message(FATAL_ERROR "layer violations:\n  ${_text}")
endif()
