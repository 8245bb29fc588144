# What every target is compiled with. Some libraries bring -pthread along; targets that share precompiled headers must
# agree in it.
add_compile_options(-pthread -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual)
if(QUILLMARK_WARNINGS_AS_ERRORS)
  add_compile_options(-Werror)
endif()

# glib's headers use Qt's keywords as names.
add_compile_definitions(QT_NO_KEYWORDS QT_NO_CAST_TO_ASCII QT_NO_URL_CAST_FROM_STRING)

if(QUILLMARK_SANITIZE)
  add_compile_options(-fsanitize=${QUILLMARK_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${QUILLMARK_SANITIZE})
  # Clang's check of an object's type opens a pipe, and reports a fault where a test has taken all descriptors.
  if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang" AND QUILLMARK_SANITIZE MATCHES "undefined")
    add_compile_options(-fno-sanitize=vptr)
  endif()
endif()

# What makes a fault in the code harder to use for an attack; sanitizers bring checks of their own, and without
# optimisation _FORTIFY_SOURCE checks nothing. tests/end_to_end/hardening_test.py looks for each in the built files.
include(CheckCXXCompilerFlag)
include(CheckPIESupported)
check_pie_supported()
if(NOT QUILLMARK_SANITIZE)
  add_compile_options(-fstack-protector-strong -fstack-clash-protection)
  check_cxx_compiler_flag(-fcf-protection QUILLMARK_HAS_CF_PROTECTION)
  if(QUILLMARK_HAS_CF_PROTECTION)
    add_compile_options(-fcf-protection)
  endif()
  add_compile_options("$<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>")
  add_link_options(LINKER:-z,relro LINKER:-z,now LINKER:-z,noexecstack)
endif()
