# How every target of the project is compiled and linked, and where it lands.
set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)

set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)

# -fno-gnu-unique: a library that defines a GNU-unique symbol is never unloaded by the C library.
# -fmacro-prefix-map: log lines name files by their place in the project, not on the build machine.
add_compile_options(-Wall -Wextra -Wpedantic -Werror -Wno-unused-parameter
                    -fmacro-prefix-map=${CMAKE_SOURCE_DIR}/=
                    $<$<CXX_COMPILER_ID:GNU>:-fno-gnu-unique>)
set(CMAKE_CXX_FLAGS_RELWITHDEBINFO "-O2 -g1 -DNDEBUG")
set(CMAKE_CXX_FLAGS_DEBUG "-O1 -g")
set(SANITIZE "" CACHE STRING "Comma-separated sanitizers, as -fsanitize takes them")
if(SANITIZE)
  add_compile_options(-fsanitize=${SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${SANITIZE})
  # Asio has fences, which ThreadSanitizer does not model; what they order here, locks order too.
  if(SANITIZE MATCHES thread AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    add_compile_options(-Wno-tsan)
  endif()
endif()
if(NOT (SANITIZE AND CMAKE_CXX_COMPILER_ID STREQUAL "Clang"))
  add_link_options(-Wl,--no-undefined)
endif()
# A library calls its own functions straight, not through its table: nobody puts others in their place.
add_link_options(-Wl,-Bsymbolic-functions)

# Sources include by folder: "json_rpc/json_rpc_reader.h".
include_directories(${CMAKE_SOURCE_DIR})
