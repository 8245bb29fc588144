# What every target is compiled with.
add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual)
if(QUILLMARK_WARNINGS_AS_ERRORS)
  add_compile_options(-Werror)
endif()

# glib's headers use Qt's keywords as names.
add_compile_definitions(QT_NO_KEYWORDS QT_NO_CAST_TO_ASCII QT_NO_URL_CAST_FROM_STRING)

if(QUILLMARK_SANITIZE)
  add_compile_options(-fsanitize=${QUILLMARK_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${QUILLMARK_SANITIZE})
endif()
