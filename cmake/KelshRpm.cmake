# The RPM packages of the same components; included by KelshInstall, before CPack.
file(READ packaging/rpm/differences differences)
string(REGEX MATCHALL "\nsystem [^\n]+" system "${differences}")
list(TRANSFORM system REPLACE "\nsystem " "")
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS packaging/rpm/differences)

set(CPACK_RPM_COMPONENT_INSTALL ON)
# The programs name paths below /usr and /opt.
set(CPACK_PACKAGE_RELOCATABLE OFF)
set(CPACK_RPM_FILE_NAME RPM-DEFAULT)
set(CPACK_RPM_PACKAGE_LICENSE Apache-2.0)
set(CPACK_RPM_PACKAGE_GROUP System/Management)
set(CPACK_RPM_EXCLUDE_FROM_AUTO_FILELIST_ADDITION ${system})
# What lies in the shell's own directory is nobody else's library. Without packages of debugging
# information nobody looks for build identities. Times are those of the last commit, so that the
# same source gives the same packages.
set(CPACK_RPM_SPEC_MORE_DEFINE "%global __provides_exclude ^libkelsh\\\\.so
%global __requires_exclude ^libkelsh\\\\.so
%global use_source_date_epoch_as_buildtime 1
%global clamp_mtime_to_source_date_epoch 1
%global _build_id_links none
%global _buildhost localhost")

string(REGEX REPLACE "^(...), 0?([0-9]+) (...) ([0-9]+) .*" "\\1 \\3 \\2 \\4" day "${date}")
file(WRITE ${generated}/control/rpm-changelog
    "* ${day} ${KELSH_MAINTAINER} - ${PROJECT_VERSION}-1\n- Built from ${build}.\n")
set(CPACK_RPM_CHANGELOG_FILE ${generated}/control/rpm-changelog)

set(scripts ${PROJECT_SOURCE_DIR}/packaging/rpm)
set(CPACK_RPM_KELNODE_POST_INSTALL_SCRIPT_FILE ${scripts}/kelnode.post)
set(CPACK_RPM_KELNODE_PRE_UNINSTALL_SCRIPT_FILE ${scripts}/kelnode.preun)
set(CPACK_RPM_KELNODE_POST_UNINSTALL_SCRIPT_FILE ${scripts}/kelnode.postun)

foreach(package kelsh kelnode kelsh-tools)
    string(TOUPPER ${package} key)
    set(CPACK_RPM_${key}_PACKAGE_NAME ${package})
    # The first line of a Debian description is the summary.
    string(FIND "${CPACK_DEBIAN_${key}_DESCRIPTION}" "\n" end)
    string(SUBSTRING "${CPACK_DEBIAN_${key}_DESCRIPTION}" 0 ${end} CPACK_RPM_${key}_PACKAGE_SUMMARY)
    math(EXPR end "${end} + 1")
    string(SUBSTRING "${CPACK_DEBIAN_${key}_DESCRIPTION}" ${end} -1
        CPACK_RPM_${key}_PACKAGE_DESCRIPTION)
    set(CPACK_RPM_${key}_USER_FILELIST
        "%license ${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_DATADIR}/licenses/${package}/LICENSE")
    # What dpkg keeps at an upgrade, rpm keeps too.
    if(EXISTS ${PROJECT_SOURCE_DIR}/packaging/debian/${package}.conffiles)
        file(STRINGS packaging/debian/${package}.conffiles kept)
        list(TRANSFORM kept PREPEND "%config(noreplace) ")
        list(APPEND CPACK_RPM_${key}_USER_FILELIST ${kept})
    endif()
endforeach()
# The libraries are found by rpmbuild. CPack does not believe that this rpm has weak dependencies, so
# they stand below the strong ones.
set(CPACK_RPM_KELSH_PACKAGE_REQUIRES "/bin/sh
Recommends: kelsh-tools, logrotate
Suggests: ipmitool")
set(CPACK_RPM_KELNODE_PACKAGE_REQUIRES "systemd, util-linux
Suggests: ipmitool")
set(CPACK_RPM_KELNODE_PACKAGE_REQUIRES_PREUN util-linux)
set(CPACK_RPM_KELSH-TOOLS_PACKAGE_REQUIRES openssl)
