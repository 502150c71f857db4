# The packages for RPM. What programs they need besides libraries is named by file: the packages that have
# these are called differently from one distribution to the next.

# plain_text VARIABLE TEXT: an empty line between paragraphs, where dpkg has a dot.
function(plain_text variable text)
  string(REPLACE "\n.\n" "\n\n" text "${text}")
  set(${variable} "${text}" PARENT_SCOPE)
endfunction()

set(CPACK_RPM_COMPONENT_INSTALL ON)
set(CPACK_RPM_FILE_NAME RPM-DEFAULT)
set(CPACK_RPM_PACKAGE_LICENSE "LicenseRef-all-rights-reserved")
set(CPACK_RPM_PACKAGE_VENDOR "em_talvor developers")
set(CPACK_PACKAGE_RELOCATABLE OFF)
# The programs are stripped already, and keep the note of the compiler as they do in the other packages.
set(CPACK_RPM_SPEC_INSTALL_POST "/bin/true")
set(needs_same_version "em-talvor = ${PROJECT_VERSION}-1")
# The build ids are in em-talvor-debuginfo. The same sources give the same package, wherever and whenever.
set(CPACK_RPM_SPEC_MORE_DEFINE
"%define packager ${CPACK_PACKAGE_CONTACT}
%define _build_id_links none
%define _buildhost localhost
%define use_source_date_epoch_as_buildtime 1
%define clamp_mtime_to_source_date_epoch 1")
# Directories that a system has before.
set(CPACK_RPM_EXCLUDE_FROM_AUTO_FILELIST_ADDITION
    /usr/share/man /usr/share/man/man1 /usr/share/man/man5 /usr/share/man/man8
    /usr/share/bash-completion /usr/share/bash-completion/completions
    /usr/lib64 /usr/lib64/cmake /usr/lib64/pkgconfig /usr/lib/debug /usr/lib/debug/.build-id)

set(CPACK_RPM_RUNTIME_PACKAGE_NAME em-talvor)
set(CPACK_RPM_RUNTIME_PACKAGE_GROUP "System Environment/Base")
set(CPACK_RPM_RUNTIME_PACKAGE_SUMMARY "${runtime_summary}")
plain_text(CPACK_RPM_RUNTIME_PACKAGE_DESCRIPTION "${runtime_description}")
set(CPACK_RPM_RUNTIME_PACKAGE_REQUIRES "/usr/bin/bsdtar, /usr/bin/mount")
set(CPACK_RPM_RUNTIME_POST_INSTALL_SCRIPT_FILE ${CMAKE_CURRENT_SOURCE_DIR}/rpm/post)
set(CPACK_RPM_RUNTIME_PRE_UNINSTALL_SCRIPT_FILE ${CMAKE_CURRENT_SOURCE_DIR}/rpm/preun)
file(STRINGS conffiles configuration)
list(TRANSFORM configuration PREPEND "%config(noreplace) ")
set(CPACK_RPM_RUNTIME_USER_FILELIST ${configuration})

string(REGEX REPLACE "^d" "D" development_summary "${development_summary}")
set(CPACK_RPM_DEVELOPMENT_RPM_PACKAGE_NAME em-talvor-devel)
set(CPACK_RPM_DEVELOPMENT_RPM_PACKAGE_GROUP "Development/Libraries")
set(CPACK_RPM_DEVELOPMENT_RPM_PACKAGE_SUMMARY "${development_summary}")
plain_text(CPACK_RPM_DEVELOPMENT_RPM_PACKAGE_DESCRIPTION "${development_description}")
set(CPACK_RPM_DEVELOPMENT_RPM_PACKAGE_REQUIRES "${needs_same_version}, rapidjson-devel")

string(REGEX REPLACE "^d" "D" debug_summary "${debug_summary}")
set(CPACK_RPM_DEBUG_RPM_PACKAGE_NAME em-talvor-debuginfo)
set(CPACK_RPM_DEBUG_RPM_PACKAGE_GROUP "Development/Debug")
set(CPACK_RPM_DEBUG_RPM_PACKAGE_SUMMARY "${debug_summary}")
plain_text(CPACK_RPM_DEBUG_RPM_PACKAGE_DESCRIPTION "${debug_description}")
set(CPACK_RPM_DEBUG_RPM_PACKAGE_REQUIRES "${needs_same_version}")
set(CPACK_RPM_DEBUG_RPM_PACKAGE_AUTOREQPROV OFF)
