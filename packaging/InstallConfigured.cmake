# Run by the installation: makes and installs the files that name installed directories. Honours DESTDIR.

# quorin_full_path(<variable> <directory>): the directory on the machine that will run the programs. As usual, the
# configuration for the prefix /usr is in /etc.
function(quorin_full_path variable directory)
  if(directory STREQUAL etc AND CMAKE_INSTALL_PREFIX STREQUAL /usr)
    set(directory /etc)
  endif()
  cmake_path(ABSOLUTE_PATH directory BASE_DIRECTORY "${CMAKE_INSTALL_PREFIX}")
  set(${variable} "${directory}" PARENT_SCOPE)
endfunction()

quorin_full_path(SBINDIR "${quorin_sbin_dir}")
quorin_full_path(SYSCONFDIR "${quorin_sysconf_dir}")
quorin_full_path(unit_dir "${quorin_unit_dir}")
quorin_full_path(tmpfiles_dir lib/tmpfiles.d)

# Without the option the file is the default one, which may be missing.
set(MIRROR_CONFIG "")
if(NOT SYSCONFDIR STREQUAL /etc)
  set(MIRROR_CONFIG "--config ${SYSCONFDIR}/quorin/mirror.yaml ")
endif()

function(quorin_install template directory name)
  configure_file("${quorin_source_dir}/${template}" "${quorin_work_dir}/${name}" @ONLY)
  file(INSTALL "${quorin_work_dir}/${name}" DESTINATION "${directory}")
endfunction()

quorin_install(systemd/quorind.service.in "${unit_dir}" quorind.service)
quorin_install(systemd/quorin-mirrord.service.in "${unit_dir}" quorin-mirrord.service)
quorin_install(systemd/tmpfiles.conf.in "${tmpfiles_dir}" quorin.conf)

# A configuration that is there already stays.
function(quorin_install_once source directory name)
  if(NOT EXISTS "$ENV{DESTDIR}${directory}/${name}")
    file(INSTALL "${quorin_source_dir}/config/${source}" DESTINATION "${directory}" RENAME "${name}")
  endif()
endfunction()

quorin_install_once(quorind.conf "${SYSCONFDIR}/quorin" quorind.conf)
quorin_install_once(mirror.yaml "${SYSCONFDIR}/quorin" mirror.yaml)
quorin_install_once(quorin-snmp.default "${SYSCONFDIR}/default" quorin-snmp)
