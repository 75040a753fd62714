# Debian packages: `cpack -G DEB` in the build folder makes spinlane_VERSION_ARCH.deb and
# spinlane-labsim_VERSION_ARCH.deb. The packages install where the build was configured to
# (-DCMAKE_INSTALL_PREFIX=/usr for Debian), so the paths written into the installed files hold.
set(CPACK_PACKAGE_NAME spinlane)
set(CPACK_PACKAGE_VENDOR "The Spinlane developers")
set(CPACK_PACKAGE_CONTACT "Spinlane maintainers <maintainers@users.noreply.c-seed-c7358f06.example>")
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL spinlane labsim)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SECTION science)
set(package_version ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})

set(CPACK_DEBIAN_SPINLANE_PACKAGE_NAME spinlane)
# Qt loads its SQLite driver, which keeps the ledger, as a plugin: no library names it.
set(CPACK_DEBIAN_SPINLANE_PACKAGE_DEPENDS "libqt6sql6-sqlite")
# spinlane-ledger reads a facility's PostgreSQL ledger with Qt's PostgreSQL driver.
set(CPACK_DEBIAN_SPINLANE_PACKAGE_SUGGESTS "libqt6sql6-psql")
set(CPACK_COMPONENT_SPINLANE_DESCRIPTION
  "runs an NMR spectrometer's sample queue unattended
Spinlane keeps the queue of samples waiting at the spectrometer workstation and
runs it while nobody is at the instrument: it loads each sample with the sample
changer (or the single-sample interface), has the experiment set-up program run
the item's experiment and writes every outcome to the queue and to a run log.
It drives the lab's own programs over the D-Bus session bus; the spectrometer
console program must be running.
.
Users log in and queue their samples in the window; the queue and all settings
live in one file, Spinlane.INI, in the console's configuration folder. The
package also holds spinlane-ini, with which administrators read and change that
file from scripts, and spinlane-ledger, which reports from the ledger of every
item run who used the instrument and for how long.")

set(CPACK_DEBIAN_LABSIM_PACKAGE_NAME spinlane-labsim)
set(CPACK_DEBIAN_LABSIM_PACKAGE_DEPENDS "spinlane (= ${package_version}), dbus-daemon, dbus-bin")
set(CPACK_COMPONENT_LABSIM_DESCRIPTION
  "simulated NMR laboratory for training with Spinlane
Stand-ins for the programs Spinlane drives (the spectrometer console, the
experiment set-up program, the sample changer and the single-sample interface),
each with a small window of its state, for learning Spinlane or trying a queue
before the instrument is free.
.
spinlane-simulated-lab runs Spinlane, or any command, on a private session bus
of its own where the simulators answer. Nothing is installed where the
system's or the desktop's bus would find it, so a simulator never answers in
place of the real console.")

# Every package's doc folder holds the copyright file and a changelog, as Debian wants.
string(TIMESTAMP CHANGELOG_DATE "%a, %d %b %Y %H:%M:%S +0000" UTC)
set(PACKAGE_VERSION ${package_version})
foreach(component IN ITEMS spinlane labsim)
  string(TOUPPER ${component} upper)
  set(PACKAGE ${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
  set(changelog ${CMAKE_BINARY_DIR}/doc/${PACKAGE}/changelog.Debian)
  configure_file(doc/changelog.Debian.in ${changelog} @ONLY)
  add_custom_command(OUTPUT ${changelog}.gz COMMAND gzip -9nkf ${changelog} DEPENDS ${changelog})
  add_custom_target(${PACKAGE}-changelog ALL DEPENDS ${changelog}.gz)
  install(FILES doc/copyright ${changelog}.gz DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${PACKAGE}
          COMPONENT ${component})
endforeach()

include(CPack)
