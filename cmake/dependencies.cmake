# Debian's packages; `make deps` installs them. ACE and yajl ship no CMake files.
find_package(Threads REQUIRED)
find_package(Boost 1.74 REQUIRED)
find_path(ACE_INCLUDE ace/ACE.h REQUIRED)
find_library(ACE_LIBRARY ACE REQUIRED)
find_library(ACE_SSL_LIBRARY ACE_SSL REQUIRED)
find_package(OpenSSL REQUIRED)
find_path(YAJL_INCLUDE yajl/yajl_parse.h REQUIRED)
find_library(YAJL_LIBRARY yajl REQUIRED)

add_library(third_party INTERFACE)
target_include_directories(third_party SYSTEM INTERFACE ${ACE_INCLUDE} ${YAJL_INCLUDE}
                                                        ${Boost_INCLUDE_DIRS})
target_link_libraries(third_party INTERFACE ${ACE_LIBRARY} ${YAJL_LIBRARY} ${CMAKE_DL_LIBS}
                                            Threads::Threads)

# Only what speaks TLS links these.
add_library(third_party_tls INTERFACE)
target_link_libraries(third_party_tls INTERFACE third_party ${ACE_SSL_LIBRARY} OpenSSL::SSL
                                                OpenSSL::Crypto)
