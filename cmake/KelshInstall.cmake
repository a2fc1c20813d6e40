# What is installed where, and the Debian and RPM packages made of it: kelsh (the master), kelnode (a
# node) and kelsh-tools (certificates and packaged tools). Included once, from the top.
include(GNUInstallDirs)

option(KELSH_RPM_LAYOUT "Install where RPM distributions keep their files, not where Debian does" OFF)
if(KELSH_RPM_LAYOUT)
    # /lib is a link there, and a package must not go through it.
    set(unit_dir /usr/lib/systemd/system)
    set(zsh_dir ${CMAKE_INSTALL_DATADIR}/zsh/site-functions)
    # rpmbuild looks for the libraries that a library needs only where that may be executed.
    set(library_extra OWNER_EXECUTE GROUP_EXECUTE WORLD_EXECUTE)
else()
    set(unit_dir /lib/systemd/system)
    set(zsh_dir ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions)
    set(library_extra)
endif()

set(KELSH_HOME /opt/kelsh CACHE PATH "The shell's directory")
set(KELNODE_HOME /opt/kelnode CACHE PATH "The node path")
set(KELSH_MAINTAINER "kelsh maintainers <root@localhost>" CACHE STRING
    "Who answers for the packages, as name and address")

set(generated ${PROJECT_BINARY_DIR}/packaging)
set(private_lib lib/kelsh)
set(private_library ${CMAKE_INSTALL_LIBDIR}/kelsh)

configure_file(packaging/kelsh.sh.in ${generated}/kelsh @ONLY)
# The packaged shell keeps its log in a directory that is closed to others.
file(READ packaging/log4cxx.properties logging)
string(REPLACE "\${KELSH_PATH}/kelsh.log" "\${KELSH_PATH}/log/kelsh.log" logging "${logging}")
file(CONFIGURE OUTPUT ${generated}/log4cxx.properties CONTENT "${logging}" @ONLY)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS packaging/log4cxx.properties)
execute_process(COMMAND git -C ${PROJECT_SOURCE_DIR} log -1 --format=%h
    OUTPUT_VARIABLE build OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
if(NOT build)
    set(build local)
endif()
file(WRITE ${generated}/kelsh_version.cfg "VERSION=${PROJECT_VERSION}\nBUILD=${build}\n")
execute_process(COMMAND git -C ${PROJECT_SOURCE_DIR} log -1 --format=%cD
    OUTPUT_VARIABLE date OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
if(NOT date)
    set(date "Thu, 01 Jan 1970 00:00:00 +0000")
endif()

# kelsh_compress(PACKAGE FILE...): packs installed files, named relative to the prefix.
function(kelsh_compress package)
    foreach(file ${ARGN})
        install(CODE "execute_process(COMMAND gzip -9nf
            \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${file}\" COMMAND_ERROR_IS_FATAL ANY)"
            COMPONENT ${package})
    endforeach()
endfunction()

# kelsh_install_legal(PACKAGE): licence and change log, as the distribution wants them.
function(kelsh_install_legal package)
    if(KELSH_RPM_LAYOUT)
        # The change log is a part of the package's header.
        install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DATADIR}/licenses/${package}
            COMPONENT ${package})
        return()
    endif()
    file(WRITE ${generated}/control/${package}/changelog
        "${package} (${PROJECT_VERSION}) unstable; urgency=medium\n\n"
        "  * Built from ${build}.\n\n -- ${KELSH_MAINTAINER}  ${date}\n")
    set(doc ${CMAKE_INSTALL_DATADIR}/doc/${package})
    install(FILES packaging/debian/copyright ${generated}/control/${package}/changelog
        DESTINATION ${doc} COMPONENT ${package})
    kelsh_compress(${package} ${doc}/changelog)
    if(EXISTS ${PROJECT_SOURCE_DIR}/packaging/debian/${package}.lintian-overrides)
        install(FILES packaging/debian/${package}.lintian-overrides
            DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides RENAME ${package}
            COMPONENT ${package})
    endif()
endfunction()

# kelsh_install_documents(PACKAGE PAGE...): manual pages, licence and change log.
function(kelsh_install_documents package)
    kelsh_install_legal(${package})
    foreach(page ${ARGN})
        string(REGEX REPLACE ".*\\." "" chapter ${page})
        set(man ${CMAKE_INSTALL_MANDIR}/man${chapter})
        install(FILES docs/man/${page} DESTINATION ${man} COMPONENT ${package})
        kelsh_compress(${package} ${man}/${page})
    endforeach()
endfunction()

set(closed OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE)
set(private OWNER_READ OWNER_WRITE OWNER_EXECUTE)
set(program OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

# The master.
add_launcher(kelsh_installed ${CMAKE_INSTALL_PREFIX}/${private_library})
set_target_properties(kelsh_installed PROPERTIES
    RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/installed)
install(TARGETS kelsh_installed RUNTIME DESTINATION ${private_lib} COMPONENT kelsh)
install(TARGETS kelsh LIBRARY DESTINATION ${private_library}
    PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ ${library_extra} COMPONENT kelsh)
install(PROGRAMS ${generated}/kelsh DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT kelsh)
install(TARGETS kelsh-lint kelnodes RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT kelsh)
install(FILES packaging/node.cfg packaging/cmd.cfg packaging/ssl_master.cfg
    ${generated}/log4cxx.properties ${generated}/kelsh_version.cfg
    DESTINATION ${KELSH_HOME} COMPONENT kelsh)
install(DIRECTORY DESTINATION ${KELSH_HOME}/cmdexedump DIRECTORY_PERMISSIONS ${closed}
    COMPONENT kelsh)
install(DIRECTORY DESTINATION ${KELSH_HOME}/log DIRECTORY_PERMISSIONS ${closed} COMPONENT kelsh)
install(DIRECTORY DESTINATION ${KELSH_HOME}/ssl DIRECTORY_PERMISSIONS ${private} COMPONENT kelsh)
install(FILES packaging/kelsh.logrotate DESTINATION /etc/logrotate.d RENAME kelsh COMPONENT kelsh)
install(FILES packaging/kelsh.tmpfiles DESTINATION lib/tmpfiles.d RENAME kelsh.conf
    COMPONENT kelsh)
install(PROGRAMS completions/kelsh-complete DESTINATION ${private_lib} COMPONENT kelsh)
install(FILES completions/kelsh.bash
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME kelsh COMPONENT kelsh)
install(FILES completions/kelnodes.bash
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME kelnodes COMPONENT kelsh)
install(FILES completions/_kelsh DESTINATION ${zsh_dir} COMPONENT kelsh)
kelsh_install_documents(kelsh kelsh.1 kelsh-lint.1 kelnodes.1 node.cfg.5 cmd.cfg.5 ssl_master.cfg.5 kelsh.cfg.5)
# The guides, and the pages to which they lead.
foreach(guide getting-started operating writing-commands journal compatibility security protocol
        privilege-separation)
    install(FILES docs/${guide}.md DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/kelsh COMPONENT kelsh)
endforeach()

# A node.
install(TARGETS kelnode RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR} COMPONENT kelnode)
install(PROGRAMS packaging/wait-for-firmware DESTINATION lib/kelnode COMPONENT kelnode)
install(FILES packaging/kelnode.cfg DESTINATION ${KELNODE_HOME} COMPONENT kelnode)
install(DIRECTORY DESTINATION ${KELNODE_HOME}/tools DIRECTORY_PERMISSIONS ${program}
    COMPONENT kelnode)
install(FILES packaging/kelnode.service DESTINATION ${unit_dir} COMPONENT kelnode)
install(FILES packaging/kelnode.sysusers DESTINATION lib/sysusers.d RENAME kelnode.conf
    COMPONENT kelnode)
kelsh_install_documents(kelnode kelnode.8 kelnode.cfg.5)

# Certificates and packaged tools.
install(TARGETS kelpack RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT kelsh-tools)
install(PROGRAMS scripts/kelsh-pki DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT kelsh-tools)
kelsh_install_documents(kelsh-tools kelpack.1 kelsh-pki.1)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME kelsh)
set(CPACK_PACKAGE_VENDOR "kelsh maintainers")
set(CPACK_PACKAGE_CONTACT "${KELSH_MAINTAINER}")
set(CPACK_COMPONENTS_ALL kelsh kelnode kelsh-tools)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS ${program})
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/lib)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS OFF)

set(scripts ${PROJECT_SOURCE_DIR}/packaging/debian)
foreach(package kelsh kelnode kelsh-tools)
    string(TOUPPER ${package} key)
    set(CPACK_DEBIAN_${key}_PACKAGE_NAME ${package})
    set(CPACK_DEBIAN_${key}_PACKAGE_SECTION admin)
    set(CPACK_DEBIAN_${key}_PACKAGE_CONTROL_EXTRA)
    foreach(control postinst prerm postrm conffiles)
        if(EXISTS ${scripts}/${package}.${control})
            # Debian wants the files under their bare names.
            configure_file(${scripts}/${package}.${control} ${generated}/control/${package}/${control} COPYONLY)
            list(APPEND CPACK_DEBIAN_${key}_PACKAGE_CONTROL_EXTRA
                ${generated}/control/${package}/${control})
        endif()
    endforeach()
endforeach()
set(CPACK_DEBIAN_KELSH_DESCRIPTION "command shell for the servers of a cluster
kelsh runs commands on any nodes of a cluster in parallel over mutual TLS
and flashes BIOS and management controller firmware. This package is for
the master; every node needs the package kelnode.")
set(CPACK_DEBIAN_KELNODE_DESCRIPTION "node agent of the cluster shell kelsh
kelnode runs what the master of a cluster asks for, over mutual TLS, and
never cuts a firmware update short. It needs a certificate of the cluster,
made by kelsh-pki of the package kelsh-tools.")
set(CPACK_DEBIAN_KELSH-TOOLS_DESCRIPTION "certificates and packaged tools for the cluster shell kelsh
kelsh-pki is the certificate authority of a cluster, kelpack seals flash
programs so that only the nodes of the cluster can run them.")
set(CPACK_DEBIAN_KELSH_PACKAGE_RECOMMENDS "kelsh-tools, logrotate")
set(CPACK_DEBIAN_KELSH_PACKAGE_SUGGESTS "ipmitool")
set(CPACK_DEBIAN_KELNODE_PACKAGE_SUGGESTS "ipmitool")
set(CPACK_DEBIAN_KELSH-TOOLS_PACKAGE_DEPENDS openssl)
include(KelshRpm)
include(CPack)
