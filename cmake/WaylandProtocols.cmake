# Client code for the Wayland protocol extensions, generated at build time by
# wayland-scanner from the XML that the distribution ships.
#
#   quillery_wayland_protocols(<target> <xml files...>)
#     A static library with the generated code; its headers are named
#     <xml name without .xml>-client-protocol.h. Protocols that refer to one
#     another's interfaces (layer-shell names xdg_popup) must share a library.

enable_language(C)
pkg_check_modules(WAYLAND REQUIRED IMPORTED_TARGET wayland-client wayland-cursor xkbcommon)
pkg_get_variable(_quillery_scanner_pc wayland-scanner wayland_scanner)
if(_quillery_scanner_pc)
    get_filename_component(_quillery_scanner_dir "${_quillery_scanner_pc}" DIRECTORY)
endif()
find_program(WAYLAND_SCANNER wayland-scanner HINTS "${_quillery_scanner_dir}" REQUIRED)

set(WAYLAND_PROTOCOLS_DIR /usr/share/wayland-protocols CACHE PATH
    "The XML of the wayland-protocols package")
# Debian ships the wlroots protocols only inside the Rust crate's source.
file(GLOB _quillery_wlr_dirs LIST_DIRECTORIES true
    /usr/share/cargo/registry/wayland-protocols-*/wlr-protocols/unstable)
set(_quillery_wlr_default "")
if(_quillery_wlr_dirs)
    list(SORT _quillery_wlr_dirs COMPARE NATURAL ORDER DESCENDING)
    list(GET _quillery_wlr_dirs 0 _quillery_wlr_default)
endif()
set(WLR_PROTOCOLS_DIR "${_quillery_wlr_default}" CACHE PATH
    "The wlroots protocol XML (wlr-layer-shell-unstable-v1.xml and others)")
if(NOT EXISTS "${WLR_PROTOCOLS_DIR}/wlr-layer-shell-unstable-v1.xml")
    message(FATAL_ERROR "wlr-layer-shell-unstable-v1.xml not found: install "
        "librust-wayland-protocols-dev or set WLR_PROTOCOLS_DIR")
endif()

function(quillery_wayland_protocols target)
    set(dir ${CMAKE_CURRENT_BINARY_DIR}/wayland-protocols/${target})
    set(sources)
    foreach(xml IN LISTS ARGN)
        if(NOT EXISTS "${xml}")
            message(FATAL_ERROR "Wayland protocol not found: ${xml}")
        endif()
        get_filename_component(name "${xml}" NAME_WLE)
        set(header ${dir}/${name}-client-protocol.h)
        set(code ${dir}/${name}-protocol.c)
        # The generated header is included from C++, where an argument named
        # "namespace" (layer-shell) does not compile.
        add_custom_command(OUTPUT ${header} ${code}
            COMMAND ${CMAKE_COMMAND} -E make_directory ${dir}
            COMMAND ${WAYLAND_SCANNER} client-header ${xml} ${header}
            COMMAND sed -i -E "s/([*, ])namespace([),])/\\1name_space\\2/g" ${header}
            COMMAND ${WAYLAND_SCANNER} private-code ${xml} ${code}
            DEPENDS ${xml}
            COMMENT "Generating the Wayland client code for ${name}"
            VERBATIM)
        list(APPEND sources ${header} ${code})
    endforeach()
    add_library(${target} STATIC ${sources})
    set_target_properties(${target} PROPERTIES POSITION_INDEPENDENT_CODE ON AUTOMOC OFF)
    target_include_directories(${target} PUBLIC ${dir})
    target_link_libraries(${target} PUBLIC PkgConfig::WAYLAND)
endfunction()

quillery_wayland_protocols(quillery_wayland_protocols
    ${WAYLAND_PROTOCOLS_DIR}/stable/xdg-shell/xdg-shell.xml
    ${WAYLAND_PROTOCOLS_DIR}/unstable/xdg-output/xdg-output-unstable-v1.xml
    ${WAYLAND_PROTOCOLS_DIR}/stable/viewporter/viewporter.xml
    ${WAYLAND_PROTOCOLS_DIR}/staging/fractional-scale/fractional-scale-v1.xml
    ${WLR_PROTOCOLS_DIR}/wlr-layer-shell-unstable-v1.xml)

# Only the tests drive the pointer.
quillery_wayland_protocols(quillery_wayland_test_protocols
    ${WLR_PROTOCOLS_DIR}/wlr-virtual-pointer-unstable-v1.xml)
