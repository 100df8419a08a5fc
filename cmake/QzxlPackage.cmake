# Installing and packaging on Linux: `cmake --install` puts the qzxl tool under bin/ and its
# documentation and example models under share/doc/qzxl/; `cpack` (from the build folder)
# makes a Debian package of everything installed, the library's headers and CMake package
# included where their own install rules add them. The package's dependencies are the
# Debian libraries the tool links against, as dpkg-shlibdeps finds them.
include(GNUInstallDirs)

# Installing and packaging take what is built and build nothing themselves, as
# `cmake --install` does: a package made from a build folder never starts a second build of
# the whole tree.
set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY ON)

if(TARGET qzxl_cli)
  install(TARGETS qzxl_cli RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()
install(FILES ${PROJECT_SOURCE_DIR}/README.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(FILES ${PROJECT_SOURCE_DIR}/examples/model.xlsx ${PROJECT_SOURCE_DIR}/examples/market.xlsx
              ${PROJECT_SOURCE_DIR}/examples/README.md
        DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME qzxllib)
set(CPACK_PACKAGE_VENDOR "QZXLLib developers")
set(CPACK_PACKAGE_CONTACT "QZXLLib developers <qzxllib@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
    "Spreadsheet add-in library over an embedded workbook engine, with the qzxl tool")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION devel)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_STRIP_FILES ON)
# Pictures are drawn in the application's default font where a metric twin of it is there.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS fonts-crosextra-carlito)
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
    "QZXLLib colour-codes, audits and inspects .xlsx and .xlsm models.\n\
The qzxl command-line tool runs the library's AutoColor, audit, model map and range\n\
pictures over workbooks without the spreadsheet application; the library's headers\n\
and CMake package let C++ programs do the same.")
include(CPack)
