# Installation into the standard places under the prefix, and a Debian package.
include(GNUInstallDirs)

install(TARGETS quillery RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
# One application id names the desktop entry, the AppStream metainfo that
# software centres read, and what the program tells the desktop it is.
set(QUILLERY_APP_ID io.github.quillery.Quillery)
install(FILES ${CMAKE_SOURCE_DIR}/data/${QUILLERY_APP_ID}.desktop
        DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)
install(FILES ${CMAKE_SOURCE_DIR}/data/${QUILLERY_APP_ID}.metainfo.xml
        DESTINATION ${CMAKE_INSTALL_DATADIR}/metainfo)

# Man pages are installed compressed, as Debian expects.
configure_file(${CMAKE_SOURCE_DIR}/data/quillery.1 ${CMAKE_BINARY_DIR}/man/quillery.1 @ONLY)
add_custom_command(OUTPUT ${CMAKE_BINARY_DIR}/man/quillery.1.gz
    COMMAND gzip -9nkf ${CMAKE_BINARY_DIR}/man/quillery.1
    DEPENDS ${CMAKE_BINARY_DIR}/man/quillery.1
    COMMENT "Compressing the man page")
add_custom_target(manpage ALL DEPENDS ${CMAKE_BINARY_DIR}/man/quillery.1.gz)
install(FILES ${CMAKE_BINARY_DIR}/man/quillery.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)

# Icons are drawn by the program's own icon code, so the installed ones match the tray.
set(QUILLERY_ICON_SIZES 16 22 24 32 48 64 128 256)
set(icon_dir ${CMAKE_BINARY_DIR}/icons)
set(icon_outputs ${icon_dir}/scalable/apps/quillery.svg
                 ${icon_dir}/scalable/status/quillery-idle.svg
                 ${icon_dir}/scalable/status/quillery-drawing.svg)
foreach(size ${QUILLERY_ICON_SIZES})
    list(APPEND icon_outputs ${icon_dir}/${size}x${size}/apps/quillery.png)
endforeach()
add_custom_command(OUTPUT ${icon_outputs}
    COMMAND ${CMAKE_COMMAND} -E env QT_QPA_PLATFORM=offscreen
            $<TARGET_FILE:quillery_icons> ${icon_dir} ${QUILLERY_ICON_SIZES}
    DEPENDS quillery_icons
    COMMENT "Drawing the icons")
add_custom_target(icons ALL DEPENDS ${icon_outputs})
install(DIRECTORY ${icon_dir}/ DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME quillery)
set(CPACK_PACKAGE_VENDOR "Quillery")
set(CPACK_PACKAGE_CONTACT "Quillery developers <quillery@users.noreply.example>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Draw over everything on your screen")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
    "Draw over everything on your screen during talks, screen shares and recordings.\n Press a global shortcut and draw pen strokes, arrows, ellipses, rectangles,\n highlighter marks and text on every monitor; drawings fade away on their own.")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE "https://example.org/quillery")
# Library dependencies are computed by dpkg-shlibdeps from the binary; the
# platform plugin Qt loads at run time is not linked, so it is named here.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "qt6-qpa-plugins")
# On Wayland: a cursor theme with a crosshair for the overlay, and Qt's own
# Wayland platform for the tray menu and windows.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "adwaita-icon-theme | dmz-cursor-theme, qt6-wayland")
set(CPACK_STRIP_FILES ON)
include(CPack)
