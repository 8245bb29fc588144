# embed_files(TARGET NAMESPACE file...): compiles the files into TARGET, each as a
# `const std::string_view` of its bytes, named after the file's stem, in NAMESPACE.
function(embed_files target namespace)
  set(definitions "")
  foreach(file IN LISTS ARGN)
    cmake_path(ABSOLUTE_PATH file BASE_DIRECTORY "${CMAKE_CURRENT_SOURCE_DIR}" NORMALIZE)
    cmake_path(GET file STEM stem)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${file}")
    file(READ "${file}" hex HEX)
    string(REGEX REPLACE "(..)" "'\\\\x\\1'," bytes "${hex}")
    string(REGEX REPLACE "((......,)(......,)(......,)(......,)(......,)(......,)(......,)(......,))" "\\1\n" bytes "${bytes}")
    string(APPEND definitions
      "static const char ${stem}Bytes[] = {${bytes}};\n"
      "extern const std::string_view ${stem};\n"
      "constinit const std::string_view ${stem}(${stem}Bytes, sizeof ${stem}Bytes);\n")
  endforeach()
  set(source "${CMAKE_CURRENT_BINARY_DIR}/${target}EmbeddedFiles.cpp")
  file(CONFIGURE OUTPUT "${source}" @ONLY CONTENT
    "#include <string_view>\n\nnamespace @namespace@ {\n@definitions@} // namespace @namespace@\n")
  target_sources(${target} PRIVATE "${source}")
endfunction()
