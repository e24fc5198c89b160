# tessera_room(TARGET PUBLIC header... PRIVATE source...): adds the files of the current folder to a target.
# PUBLIC headers are installed and are checked to compile on their own.
function(tessera_room target)
  cmake_parse_arguments(ROOM "" "" "PUBLIC;PRIVATE" ${ARGN})
  list(TRANSFORM ROOM_PUBLIC PREPEND ${CMAKE_CURRENT_SOURCE_DIR}/)
  list(TRANSFORM ROOM_PRIVATE PREPEND ${CMAKE_CURRENT_SOURCE_DIR}/)
  target_sources(${target}
    PRIVATE ${ROOM_PRIVATE}
    PUBLIC FILE_SET HEADERS BASE_DIRS ${PROJECT_SOURCE_DIR} FILES ${ROOM_PUBLIC})
endfunction()
