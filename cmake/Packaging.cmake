# What is installed where, and the Debian packages: aiservice, and aiservice-viewer with the install component
# "viewer", so that a server without a screen gets neither OpenGL nor widgets.
#
#   lib/aiservice/         the service, its recognisers and its model folder, which it looks for beside itself
#   bin/                   a link to the service, and the tools
#   lib/, include/aiclient/       libaiclient, for find_package(aiclient): ai::aiclient
#   include/mirovane/             the recogniser interface, for find_package(mirovane): ai::mirovane
#
# Programs find our libraries by RUNPATH, relative to themselves: the tree can be moved as a whole, and
# LD_LIBRARY_PATH still replaces a recogniser.
include(CMakePackageConfigHelpers)

# One Debian package for each component. What names none is the service's.
set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME service)

set(AI_INSTALL_HOME ${CMAKE_INSTALL_LIBDIR}/aiservice)
file(RELATIVE_PATH AI_HOME_FROM_BIN ${CMAKE_INSTALL_FULL_BINDIR}
     ${CMAKE_INSTALL_FULL_LIBDIR}/aiservice)
file(RELATIVE_PATH AI_LIB_FROM_BIN ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})

# Where an installed program looks for our libraries, relative to itself, and behind that where they lie beside
# it in the build. It is built like this: a RUNPATH that is changed at installation has an empty element until
# then, which stands for the working folder of whoever starts the program.
function(ai_set_runpath name installed)
    set(runpath ${installed} "$ORIGIN/../lib")
    list(REMOVE_DUPLICATES runpath)
    set_target_properties(${name} PROPERTIES INSTALL_RPATH "${runpath}" BUILD_WITH_INSTALL_RPATH ON)
endfunction()

# Installs a program that lies in bin and may link libaiclient.
#
#   ai_install_tool(<name> [COMPONENT <name>])
function(ai_install_tool name)
    cmake_parse_arguments(PARSE_ARGV 1 ARG "" "COMPONENT" "")
    if(NOT ARG_COMPONENT)
        set(ARG_COMPONENT service)
    endif()
    ai_set_runpath(${name} "$ORIGIN/${AI_LIB_FROM_BIN}")
    install(TARGETS ${name} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT ${ARG_COMPONENT})
endfunction()

# Installs the service: into its home, with a link to it in bin.
function(ai_install_service name)
    ai_set_runpath(${name} "$ORIGIN")
    install(TARGETS ${name} RUNTIME DESTINATION ${AI_INSTALL_HOME})
    set(link ${CMAKE_BINARY_DIR}/package/${name})
    file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/package)
    file(CREATE_LINK ${AI_HOME_FROM_BIN}/${name} ${link} SYMBOLIC)
    install(FILES ${link} DESTINATION ${CMAKE_INSTALL_BINDIR})
endfunction()

# Installs a library for others to build with: find_package(<target>) then knows ai::<target>. Its headers are
# included as <header.h>, with PREFIXED as <target/header.h>.
#
#   ai_install_package(<target> [PREFIXED] HEADERS <files> DEPENDS <arguments of find_dependency>)
function(ai_install_package target)
    cmake_parse_arguments(PARSE_ARGV 1 ARG "PREFIXED" "" "HEADERS;DEPENDS")
    set(folder ${CMAKE_INSTALL_LIBDIR}/cmake/${target})
    set(headers ${CMAKE_INSTALL_INCLUDEDIR}/${target})
    install(FILES ${ARG_HEADERS} DESTINATION ${headers} COMPONENT dev)
    if(ARG_PREFIXED)
        set(headers ${CMAKE_INSTALL_INCLUDEDIR})
    endif()
    target_include_directories(${target} INTERFACE $<INSTALL_INTERFACE:${headers}>)
    install(TARGETS ${target} EXPORT ${target} LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT service
            NAMELINK_COMPONENT dev)
    install(EXPORT ${target} NAMESPACE ai:: FILE ${target}Targets.cmake DESTINATION ${folder} COMPONENT dev)

    list(JOIN ARG_DEPENDS " " AI_PACKAGE_DEPENDS)
    set(AI_PACKAGE ${target})
    configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/PackageConfig.cmake.in
                                  ${CMAKE_BINARY_DIR}/package/${target}Config.cmake
                                  INSTALL_DESTINATION ${folder})
    write_basic_package_version_file(${CMAKE_BINARY_DIR}/package/${target}ConfigVersion.cmake
                                     VERSION ${PROJECT_VERSION} COMPATIBILITY SameMinorVersion)
    install(FILES ${CMAKE_BINARY_DIR}/package/${target}Config.cmake
                  ${CMAKE_BINARY_DIR}/package/${target}ConfigVersion.cmake DESTINATION ${folder} COMPONENT dev)
endfunction()

# The pages and the examples lie to each other as in the source, so that their links lead somewhere.
set(AI_INSTALL_DOC ${CMAKE_INSTALL_DATADIR}/doc/aiservice)
install(FILES ${PROJECT_SOURCE_DIR}/README.md DESTINATION ${AI_INSTALL_DOC})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs DESTINATION ${AI_INSTALL_DOC})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples DESTINATION ${AI_INSTALL_DOC} USE_SOURCE_PERMISSIONS
        PATTERN __pycache__ EXCLUDE)
foreach(folder IN ITEMS bench fuzz mirovane/opencv)
    install(FILES ${PROJECT_SOURCE_DIR}/${folder}/README.md DESTINATION ${AI_INSTALL_DOC}/${folder})
endforeach()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME aiservice)
set(CPACK_PACKAGE_CONTACT "The AIService developers <aiservice@localhost>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL service dev)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION video)
find_program(AI_SHLIBDEPS dpkg-shlibdeps)
if(AI_SHLIBDEPS)
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
    # The bridge and the viewer link a library of the package aiservice.
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
endif()
set(AI_MAINTAINER_SCRIPTS ${PROJECT_SOURCE_DIR}/packaging/debian)
set(AI_SAME_VERSION "aiservice (= ${PROJECT_VERSION})")

set(CPACK_DEBIAN_SERVICE_PACKAGE_NAME aiservice)
set(CPACK_COMPONENT_SERVICE_DESCRIPTION "headless vision service for a classroom
Takes the camera's picture out of shared memory, finds the students in it and tells
its clients over a local socket whose hand is up, how attentive the class is, who
smiles and where a student goes. With a command line client, a camera program for
network cameras and devices, and units for systemd.")
# Plugins that Qt loads at run time, which no program links: the store's driver and the JPEG format.
set(CPACK_DEBIAN_SERVICE_PACKAGE_DEPENDS "libqt5sql5-sqlite, libqt5gui5, debconf")
# Cascades with which aictl cuts faces out of photographs.
set(CPACK_DEBIAN_SERVICE_PACKAGE_RECOMMENDS "opencv-data")
set(CPACK_DEBIAN_SERVICE_PACKAGE_SUGGESTS "aiservice-bridge, opencv-doc")
set(CPACK_DEBIAN_SERVICE_PACKAGE_CONTROL_EXTRA
    ${AI_MAINTAINER_SCRIPTS}/service/postinst ${AI_MAINTAINER_SCRIPTS}/service/prerm
    ${AI_MAINTAINER_SCRIPTS}/service/postrm ${AI_MAINTAINER_SCRIPTS}/service/templates
    ${AI_MAINTAINER_SCRIPTS}/service/config)

set(CPACK_DEBIAN_DEV_PACKAGE_NAME libaiclient-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_COMPONENT_DEV_DESCRIPTION "client library and recogniser interface of AIService
Headers and CMake files of libaiclient, the client's side of the service's socket,
and of the interface behind which recogniser libraries fit.")
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "${AI_SAME_VERSION}, qtbase5-dev, libopencv-dev")

if(AI_BRIDGE)
    list(APPEND CPACK_COMPONENTS_ALL bridge)
    set(CPACK_DEBIAN_BRIDGE_PACKAGE_NAME aiservice-bridge)
    set(CPACK_COMPONENT_BRIDGE_DESCRIPTION "bridge between AIService and an MQTT broker
Keeps the vision service of a room running as it is configured, lets other clients
look without ending anything, and tells a broker what happens.")
    set(CPACK_DEBIAN_BRIDGE_PACKAGE_DEPENDS "${AI_SAME_VERSION}")
    set(CPACK_DEBIAN_BRIDGE_PACKAGE_CONTROL_EXTRA ${AI_MAINTAINER_SCRIPTS}/bridge/postinst
        ${AI_MAINTAINER_SCRIPTS}/bridge/prerm ${AI_MAINTAINER_SCRIPTS}/bridge/postrm)
endif()

if(AI_VIEWER)
    list(APPEND CPACK_COMPONENTS_ALL viewer)
    set(CPACK_DEBIAN_VIEWER_PACKAGE_NAME aiservice-viewer)
    set(CPACK_COMPONENT_VIEWER_DESCRIPTION
        "desktop viewer for the vision service\nShows the classroom's camera with what the service tells of it, \
and lets one enrol\nstudents and run the analyses with the mouse.")
    # The client library, and the plugin that paints the icons.
    set(CPACK_DEBIAN_VIEWER_PACKAGE_DEPENDS "${AI_SAME_VERSION}, libqt5svg5")
    set(CPACK_DEBIAN_VIEWER_PACKAGE_RECOMMENDS "opencv-data, fonts-wqy-microhei")
    set(CPACK_DEBIAN_VIEWER_PACKAGE_SUGGESTS "")
endif()
include(CPack)
