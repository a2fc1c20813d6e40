# kelsh_room(NAME SOURCES file... [USES target...])
# One folder of the tree as an object library. Its headers are found by their bare names by whoever
# uses the room. USES names the rooms and libraries whose headers it may include, so that an include
# against the arrows of the tree does not build. A program names every room whose objects it wants:
# objects are not handed on.
function(kelsh_room name)
    cmake_parse_arguments(ARG "" "" "SOURCES;USES" ${ARGN})
    add_library(${name} OBJECT ${ARG_SOURCES})
    target_include_directories(${name} PUBLIC ${CMAKE_CURRENT_SOURCE_DIR})
    target_link_libraries(${name} PUBLIC ${ARG_USES} PRIVATE kelsh_flags)
endfunction()

set(KELSH_RUNTIME_ROOMS room_base room_wire room_files room_console room_client)
set(KELSH_ROOMS ${KELSH_RUNTIME_ROOMS} room_model room_config room_sets room_editor room_report room_journal room_engine)
set(KELNODE_ROOMS room_agent_trust room_agent_job room_agent_network room_agent)
