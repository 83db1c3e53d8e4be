# Runs when the project is installed, and does what depends on the prefix chosen at that time. Expects PACKAGING, this
# folder, and BOARD, the folder of the example configuration.

if(CMAKE_INSTALL_PREFIX MATCHES "^/usr(/local)?/?$")
    set(configuration /etc/portisolate)
else()
    # A root of its own, to which PORTISOLATE_ROOT leads the daemon.
    set(configuration ${CMAKE_INSTALL_PREFIX}/etc/portisolate)
endif()
foreach(name portisolate.conf board.conf)
    if(NOT EXISTS $ENV{DESTDIR}${configuration}/${name})
        file(INSTALL ${BOARD}/${name} DESTINATION ${configuration})
    endif()
endforeach()

# Below /usr, site-functions is for zsh's own files.
if(CMAKE_INSTALL_PREFIX MATCHES "^/usr/?$")
    set(zsh_functions vendor-completions)
else()
    set(zsh_functions site-functions)
endif()
file(INSTALL ${PACKAGING}/completion/_portisolatectl DESTINATION ${CMAKE_INSTALL_PREFIX}/share/zsh/${zsh_functions})

configure_file(${PACKAGING}/portisolate.service.in
    $ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}/lib/systemd/system/portisolate.service @ONLY)
