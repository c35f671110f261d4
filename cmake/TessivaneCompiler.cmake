# Warnings, sanitizers and the generated version header, for every target of the project.

add_compile_options(
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast
  -Wnon-virtual-dtor -Woverloaded-virtual -Wswitch-enum -Wundef -Wcast-align)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  add_compile_options(-Wduplicated-cond -Wduplicated-branches -Wlogical-op -Wsuggest-override)
else()
  add_compile_options(-Wthread-safety)
endif()
if(TESSIVANE_WERROR)
  add_compile_options(-Werror)
endif()

if(TESSIVANE_SANITIZE)
  # A report ends the program, so that no test can pass over it.
  set(sanitize
    "-fsanitize=${TESSIVANE_SANITIZE}" -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_compile_options(${sanitize})
  add_link_options(${sanitize})
endif()

# Headers made at configure time are included like those of src/: "support/Version.h".
set(TESSIVANE_GENERATED "${PROJECT_BINARY_DIR}/generated")
configure_file("${CMAKE_CURRENT_LIST_DIR}/Version.h.in"
  "${TESSIVANE_GENERATED}/support/Version.h" @ONLY)
