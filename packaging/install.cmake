# Runs when the project is installed, and does what depends on the prefix chosen at that time. Expects PACKAGING, this
# folder, and BOARD, the folder of the example configuration.

# A root of its own, to which PORTISOLATE_ROOT leads the daemon, gets a board to try. A system does not: a simulated
# board isolates nothing.
if(NOT CMAKE_INSTALL_PREFIX MATCHES "^/usr(/local)?/?$")
    foreach(name portisolate.conf board.conf)
        if(NOT EXISTS $ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}/etc/portisolate/${name})
            file(INSTALL ${BOARD}/${name} DESTINATION ${CMAKE_INSTALL_PREFIX}/etc/portisolate)
        endif()
    endforeach()
endif()

# Below /usr the system's own search finds the library.
if(CMAKE_INSTALL_PREFIX MATCHES "^/usr/?$")
    file(RPATH_REMOVE FILE $ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}/bin/portisolatectl)
endif()

# Below /usr, site-functions is for zsh's own files.
if(CMAKE_INSTALL_PREFIX MATCHES "^/usr/?$")
    set(zsh_functions vendor-completions)
else()
    set(zsh_functions site-functions)
endif()
file(INSTALL ${PACKAGING}/completion/_portisolatectl DESTINATION ${CMAKE_INSTALL_PREFIX}/share/zsh/${zsh_functions})

foreach(unit portisolate.service portisolate-keep.service)
    configure_file(${PACKAGING}/${unit}.in $ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}/lib/systemd/system/${unit} @ONLY)
endforeach()
