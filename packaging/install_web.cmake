# As install.cmake, for portisolate-web.

if(CMAKE_INSTALL_PREFIX MATCHES "^/usr/?$")
    file(RPATH_REMOVE FILE $ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}/bin/portisolate-web)
endif()
configure_file(${PACKAGING}/portisolate-web.service.in
    $ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}/lib/systemd/system/portisolate-web.service @ONLY)
