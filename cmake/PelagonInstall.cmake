# The installed layout, relative to any prefix:
#   bin/pelagon                                  the tool
#   <libdir>/libpelagon_grabber.so, libpelagon_vboard.so   the public libraries
#   <libdir>/pelagon/                            the virtual runtime libraries
#   <libdir>/pelagon/applets/libPelagon.so       the applet
#   <includedir>/pelagon/                        the headers (#include <vboard/grabber.h>)
#   <libdir>/cmake/Pelagon/, <libdir>/pkgconfig/pelagon.pc
#   lib/python3/dist-packages/pelagon/           the Python package
# The runtime libraries stay in a folder of their own: in <libdir> they would
# clash with a real runtime's libraries of the same names. Everything finds
# its neighbours through $ORIGIN, so the tree can be moved as a whole.
include(CMakePackageConfigHelpers)

set(PELAGON_PRIVATE_LIBDIR ${CMAKE_INSTALL_LIBDIR}/pelagon)
set(PELAGON_APPLET_DIR ${PELAGON_PRIVATE_LIBDIR}/applets)
set(PELAGON_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/Pelagon)
set(pelagon_runtime_libraries haprt fglib5 quoriolibrt quor_hw)
# <libdir> seen from bin/ and from <libdir>/pelagon, for the RUNPATHs.
file(RELATIVE_PATH pelagon_bin_to_lib /p/${CMAKE_INSTALL_BINDIR} /p/${CMAKE_INSTALL_LIBDIR})

set_target_properties(pelagon_grabber PROPERTIES EXPORT_NAME grabber VERSION ${PROJECT_VERSION}
                      SOVERSION ${PROJECT_VERSION_MAJOR} INSTALL_RPATH "$ORIGIN:$ORIGIN/pelagon")
set_target_properties(pelagon_vboard PROPERTIES EXPORT_NAME vboard VERSION ${PROJECT_VERSION}
                      SOVERSION ${PROJECT_VERSION_MAJOR})
set_target_properties(${pelagon_runtime_libraries} PROPERTIES INSTALL_RPATH "$ORIGIN/..")
set_target_properties(pelagon PROPERTIES INSTALL_RPATH "$ORIGIN/${pelagon_bin_to_lib}")

install(TARGETS pelagon RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(TARGETS pelagon_grabber pelagon_vboard EXPORT PelagonTargets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
# Exported too because the grabber needs them at link time as well: the
# imported grabber names them, and a consumer's linker finds them that way.
install(TARGETS ${pelagon_runtime_libraries} EXPORT PelagonTargets LIBRARY DESTINATION ${PELAGON_PRIVATE_LIBDIR})
install(TARGETS Pelagon LIBRARY DESTINATION ${PELAGON_APPLET_DIR})
# The application-side API and the interface types it is written in.
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/pelagon
        FILES_MATCHING PATTERN "*.h")
install(FILES ${PROJECT_SOURCE_DIR}/vboard/include/vboard/grabber.h ${PROJECT_SOURCE_DIR}/vboard/include/vboard/vboard.h
              ${PROJECT_SOURCE_DIR}/vboard/include/vboard/applet_exports.h
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/pelagon/vboard)

# The Python package, where Debian's python3 looks for packaged modules
# (lib/python3/dist-packages, the same for every Python 3 version: the
# module's file name carries its ABI). Under /usr, as the .deb installs it,
# `import pelagon` works as it is; under another prefix PYTHONPATH names the
# folder. The module finds <libdir> and through it the applet.
if(TARGET pelagon_python)
  set(PELAGON_PYTHON_INSTALL_DIR lib/python3/dist-packages CACHE STRING
      "Where the Python package goes, relative to the prefix")
  file(RELATIVE_PATH pelagon_python_to_lib /p/${PELAGON_PYTHON_INSTALL_DIR}/pelagon /p/${CMAKE_INSTALL_LIBDIR})
  set_target_properties(pelagon_python PROPERTIES INSTALL_RPATH "$ORIGIN/${pelagon_python_to_lib}")
  install(TARGETS pelagon_python LIBRARY DESTINATION ${PELAGON_PYTHON_INSTALL_DIR}/pelagon)
  list(TRANSFORM PELAGON_PYTHON_FILES PREPEND ${PROJECT_SOURCE_DIR}/python/pelagon/ OUTPUT_VARIABLE pelagon_python_files)
  install(FILES ${pelagon_python_files} DESTINATION ${PELAGON_PYTHON_INSTALL_DIR}/pelagon)
endif()

# find_package(Pelagon): Pelagon::grabber, Pelagon::vboard, and the applet as
# Pelagon::applet and Pelagon_APPLET.
install(EXPORT PelagonTargets NAMESPACE Pelagon:: DESTINATION ${PELAGON_CMAKE_DIR})
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/PelagonConfig.cmake.in
                              ${PROJECT_BINARY_DIR}/cmake/PelagonConfig.cmake INSTALL_DESTINATION ${PELAGON_CMAKE_DIR}
                              PATH_VARS PELAGON_APPLET_DIR)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/cmake/PelagonConfigVersion.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/cmake/PelagonConfig.cmake ${PROJECT_BINARY_DIR}/cmake/PelagonConfigVersion.cmake
        DESTINATION ${PELAGON_CMAKE_DIR})

# pkg-config: the prefix found from the file's own place.
file(RELATIVE_PATH pelagon_pc_to_prefix /p/${CMAKE_INSTALL_LIBDIR}/pkgconfig /p)
string(REGEX REPLACE "/$" "" pelagon_pc_to_prefix ${pelagon_pc_to_prefix})
configure_file(${CMAKE_CURRENT_LIST_DIR}/pelagon.pc.in ${PROJECT_BINARY_DIR}/cmake/pelagon.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/cmake/pelagon.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# cpack -G DEB: the same tree under /usr.
set(CPACK_PACKAGE_NAME pelagon)
set(CPACK_PACKAGE_VENDOR "Pelagon developers")
set(CPACK_PACKAGE_CONTACT "Pelagon developers <pelagon@example.org>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "acquisition applet for a CoaXPress frame grabber, with a virtual board")
# Debian wants the long description in lines of under 80 characters.
string(CONCAT CPACK_PACKAGE_DESCRIPTION
    "libPelagon.so is the acquisition applet that a frame grabber runtime loads\n"
    "to drive one FPGA design: a two-link CoaXPress area-scan camera, 12-bit\n"
    "Bayer colour, white balance, lookup table, trigger system and camera\n"
    "simulator. The package brings a virtual board to run it without hardware\n"
    "(its own runtime libraries, kept in a private folder), the application-side\n"
    "library libpelagon_grabber with its headers, CMake and pkg-config files, and\n"
    "the pelagon command-line tool.")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# dpkg-shlibdeps runs in the staging folder; the runtime libraries there
# belong to this package, not to any installed one.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS usr/${PELAGON_PRIVATE_LIBDIR})
include(CPack)
