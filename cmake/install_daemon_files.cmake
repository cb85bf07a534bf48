# Installs the sample port.conf and the systemd units (component daemon).
# Included by cmake_install.cmake, so it runs at install time, when
# CMAKE_INSTALL_PREFIX is the prefix given to "cmake --install --prefix" and
# DESTDIR, if set, is honoured by file(INSTALL). The including code sets:
#   tactord_source_dir, tactord_stage_dir (where the units are generated),
#   tactord_sbindir, tactord_bindir, tactord_sysconfdir (GNUInstallDirs
#   values, relative to the prefix or absolute), tactord_unitdir (may be
#   empty).

# An install directory as an absolute path under the current prefix.
function(tactord_full_dir out dir)
  if(IS_ABSOLUTE "${dir}")
    set(${out} "${dir}" PARENT_SCOPE)
  else()
    set(${out} "${prefix}/${dir}" PARENT_SCOPE)
  endif()
endfunction()

# The units need absolute paths: a relative --prefix is taken from the
# directory cmake --install runs in, as file(INSTALL) takes it.
get_filename_component(prefix "${CMAKE_INSTALL_PREFIX}" ABSOLUTE BASE_DIR "$ENV{PWD}")
string(REGEX REPLACE "(.)/+$" "\\1" prefix "${prefix}")
tactord_full_dir(TACTORD_SBINDIR "${tactord_sbindir}")
tactord_full_dir(TACTORD_BINDIR "${tactord_bindir}")
# The configuration directory as GNUInstallDirs puts it: the prefixes / and
# /usr keep theirs in /etc, /opt/NAME in /etc/opt/NAME, any other prefix
# below itself.
if(IS_ABSOLUTE "${tactord_sysconfdir}")
  set(sysconfdir "${tactord_sysconfdir}")
elseif(prefix MATCHES "^/(usr)?$")
  set(sysconfdir "/${tactord_sysconfdir}")
elseif(prefix MATCHES "^/opt/")
  set(sysconfdir "/${tactord_sysconfdir}${prefix}")
else()
  set(sysconfdir "${prefix}/${tactord_sysconfdir}")
endif()
set(TACTORD_CONFDIR "${sysconfdir}/tactord")
# systemd reads units from <prefix>/lib/systemd/system for /usr and
# /usr/local; a packager can name another directory.
if(tactord_unitdir)
  set(unitdir "${tactord_unitdir}")
else()
  set(unitdir "${prefix}/lib/systemd/system")
endif()

file(INSTALL DESTINATION "${TACTORD_CONFDIR}" TYPE FILE FILES "${tactord_source_dir}/etc/port.conf")
foreach(unit tactord.service tactord-calibration.service)
  configure_file("${tactord_source_dir}/packaging/${unit}.in" "${tactord_stage_dir}/${unit}" @ONLY)
  file(INSTALL DESTINATION "${unitdir}" TYPE FILE FILES "${tactord_stage_dir}/${unit}")
endforeach()
