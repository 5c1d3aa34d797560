# Where things lie. A build folder is laid out like a prefix, so that the run path of a program is the
# same in both: the libraries beside it, and the folders of foreign libraries that the loader does
# not search by itself. Only so is it free of the empty element with which CMake fills up a run path
# that it means to overwrite, and which the loader takes for the current folder.
include(GNUInstallDirs)
foreach(folder CMAKE_INSTALL_BINDIR CMAKE_INSTALL_LIBDIR CMAKE_INSTALL_INCLUDEDIR)
  if(IS_ABSOLUTE ${${folder}})
    message(FATAL_ERROR "${folder} must be relative to the prefix, and is ${${folder}}")
  endif()
endforeach()

set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/${CMAKE_INSTALL_LIBDIR})
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/${CMAKE_INSTALL_LIBDIR})
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/${CMAKE_INSTALL_BINDIR})

file(RELATIVE_PATH kivo_bin_to_lib /${CMAKE_INSTALL_BINDIR} /${CMAKE_INSTALL_LIBDIR})
set(CMAKE_BUILD_WITH_INSTALL_RPATH ON)
set(CMAKE_INSTALL_RPATH $ORIGIN/${kivo_bin_to_lib})
set(CMAKE_INSTALL_RPATH_USE_LINK_PATH ON)

# For hosts: a prefix may be moved after it was installed.
file(RELATIVE_PATH kivo_pc_to_prefix /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" kivo_pc_to_prefix ${kivo_pc_to_prefix})
configure_file(${CMAKE_CURRENT_LIST_DIR}/kivo.pc.in ${CMAKE_BINARY_DIR}/kivo.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/kivo.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
install(DIRECTORY include/kivo platform/include/platform
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN *.h)
