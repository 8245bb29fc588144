# Most of the time that a file takes to compile goes into the same headers of Qt, the standard library and GoogleTest.
# Where QUILLMARK_PRECOMPILED_HEADERS says so they are read once for all of the product's files, and once for all of the
# tests', whose flags differ. A build without sees that each file includes what it uses.

set(QUILLMARK_COMMON_HEADERS
  <algorithm> <array> <atomic> <chrono> <functional> <memory> <mutex> <optional> <string> <thread> <vector>
  <QtCore/QtCore> <QtWidgets/QtWidgets>)

# quillmark_precompile(WHAT TARGETS target... HEADERS header... LIBRARIES library...): if WHAT is to start from
# precompiled headers, the targets, which must use the libraries too, start from these.
function(quillmark_precompile what)
  if(NOT what IN_LIST QUILLMARK_PRECOMPILED_HEADERS)
    return()
  endif()
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "TARGETS;HEADERS;LIBRARIES")
  set(name "${what}_headers")
  set(source "${CMAKE_CURRENT_BINARY_DIR}/${name}.cpp")
  file(CONFIGURE OUTPUT "${source}" CONTENT "")
  add_library(${name} OBJECT "${source}")
  target_link_libraries(${name} PRIVATE ${arg_LIBRARIES})
  target_precompile_headers(${name} PRIVATE ${arg_HEADERS})
  foreach(target IN LISTS arg_TARGETS)
    target_precompile_headers(${target} REUSE_FROM ${name})
  endforeach()
endfunction()

# Sets a variable to the programs and libraries of a folder and of those below it.
function(quillmark_find_targets variable folder)
  set(found "")
  get_property(targets DIRECTORY "${folder}" PROPERTY BUILDSYSTEM_TARGETS)
  foreach(target IN LISTS targets)
    get_target_property(type ${target} TYPE)
    if(type MATCHES "^(EXECUTABLE|STATIC_LIBRARY)$")
      list(APPEND found ${target})
    endif()
  endforeach()
  get_property(folders DIRECTORY "${folder}" PROPERTY SUBDIRECTORIES)
  foreach(below IN LISTS folders)
    quillmark_find_targets(found_below "${below}")
    list(APPEND found ${found_below})
  endforeach()
  set(${variable} ${found} PARENT_SCOPE)
endfunction()
