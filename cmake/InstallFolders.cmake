# Where an installation has its parts. Modules, plug-ins and the platform's libraries are found by
# our programs only, so they have a folder of their own.
include(GNUInstallDirs)

set(VESK_INSTALL_LIBRARIES "${CMAKE_INSTALL_LIBDIR}/vesk")
set(VESK_INSTALL_DATA "${CMAKE_INSTALL_DATADIR}/vesk")

# An installation may be moved: programs find the libraries from where they are.
file(RELATIVE_PATH VESK_LIBRARIES_FROM_PROGRAMS
    "${CMAKE_INSTALL_FULL_BINDIR}" "${CMAKE_INSTALL_FULL_LIBDIR}/vesk"
)
