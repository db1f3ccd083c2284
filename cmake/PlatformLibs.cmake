# Finds OpenWrt's libuci, libubus, libubox and libblobmsg_json and exposes them
# as dsd::uci, dsd::ubus and dsd::ubox. Where a library is absent (every
# Debian host) the project's own implementation under compat/ is built
# instead; the daemon sources compile unchanged against either.

function(dsd_find_real out_found)
  find_path(UCI_INCLUDE uci.h)
  find_library(UCI_LIB uci)
  find_path(UBUS_INCLUDE libubus.h)
  find_library(UBUS_LIB ubus)
  find_path(UBOX_INCLUDE libubox/usock.h)
  find_library(UBOX_LIB ubox)
  find_library(BLOBMSG_JSON_LIB blobmsg_json)
  if(UCI_INCLUDE AND UCI_LIB AND UBUS_INCLUDE AND UBUS_LIB AND UBOX_INCLUDE
     AND UBOX_LIB AND BLOBMSG_JSON_LIB)
    set(${out_found} TRUE PARENT_SCOPE)
  else()
    set(${out_found} FALSE PARENT_SCOPE)
  endif()
endfunction()

set(_use_real FALSE)
if(DSD_PLATFORM_LIBS STREQUAL "REAL" OR DSD_PLATFORM_LIBS STREQUAL "AUTO")
  dsd_find_real(_found)
  if(_found)
    set(_use_real TRUE)
  elseif(DSD_PLATFORM_LIBS STREQUAL "REAL")
    message(FATAL_ERROR "DSD_PLATFORM_LIBS=REAL but libuci/libubus/libubox/libblobmsg_json were not found")
  endif()
endif()

if(_use_real)
  message(STATUS "dsd: platform libraries: REAL (${UCI_LIB} ${UBUS_LIB} ${UBOX_LIB} ${BLOBMSG_JSON_LIB})")
  add_library(dsd_real_uci INTERFACE)
  target_include_directories(dsd_real_uci INTERFACE ${UCI_INCLUDE})
  target_link_libraries(dsd_real_uci INTERFACE ${UCI_LIB})
  add_library(dsd_real_ubox INTERFACE)
  target_include_directories(dsd_real_ubox INTERFACE ${UBOX_INCLUDE})
  target_link_libraries(dsd_real_ubox INTERFACE ${BLOBMSG_JSON_LIB} ${UBOX_LIB})
  add_library(dsd_real_ubus INTERFACE)
  target_include_directories(dsd_real_ubus INTERFACE ${UBUS_INCLUDE})
  target_link_libraries(dsd_real_ubus INTERFACE ${UBUS_LIB} dsd_real_ubox)
  # The test harness runs the device's own bus daemon, and hostbus
  # registers its peers on that daemon instead of being the bus.
  find_program(DSD_UBUSD_BIN ubusd PATH_SUFFIXES sbin)
  if(DSD_BUILD_TESTS AND NOT DSD_UBUSD_BIN)
    message(FATAL_ERROR "DSD_PLATFORM_LIBS=REAL needs ubusd beside libubus")
  endif()
  target_compile_definitions(dsd_real_ubus INTERFACE DSD_REAL_BUS=1
    DSD_UBUSD_BIN="${DSD_UBUSD_BIN}")
  add_library(dsd::uci ALIAS dsd_real_uci)
  add_library(dsd::ubox ALIAS dsd_real_ubox)
  add_library(dsd::ubus ALIAS dsd_real_ubus)
  set(DSD_USING_COMPAT OFF CACHE INTERNAL "")
else()
  message(STATUS "dsd: platform libraries: COMPAT (host implementations from compat/)")
  add_subdirectory(${CMAKE_SOURCE_DIR}/compat ${CMAKE_BINARY_DIR}/compat)
  set(DSD_USING_COMPAT ON CACHE INTERNAL "")
endif()
