include(CMakePackageConfigHelpers)

set(cloudprovider_package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/cloudprovider)

# Install a library, its headers and its targets file, named by its alias: foundation::host's is foundation-hostTargets.
function(cloudprovider_install_library name alias)
    string(REPLACE "::" "-" set ${alias})
    string(REGEX REPLACE "::.*" "" namespace ${alias})
    set_target_properties(${name} PROPERTIES INSTALL_RPATH $ORIGIN)
    install(TARGETS ${name} EXPORT ${set}
        LIBRARY COMPONENT cloudprovider_runtime NAMELINK_COMPONENT cloudprovider_development
        ARCHIVE COMPONENT cloudprovider_development
        FILE_SET HEADERS COMPONENT cloudprovider_development)
    install(EXPORT ${set} NAMESPACE ${namespace}:: FILE ${set}Targets.cmake
        DESTINATION ${cloudprovider_package_folder} COMPONENT cloudprovider_development)
endfunction()

# Install a program, which finds our shared libraries wherever the install tree is moved.
function(cloudprovider_install_tool name manual completion)
    file(RELATIVE_PATH libraries ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
    set_target_properties(${name} PROPERTIES INSTALL_RPATH $ORIGIN/${libraries})
    install(TARGETS ${name} COMPONENT cloudprovider_tool)
    install(FILES ${manual} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT cloudprovider_tool)
    install(FILES ${completion} DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
        COMPONENT cloudprovider_tool)
endfunction()

# cloudprovider_install_pkgconfig(FILE DESCRIPTION [REQUIRES MODULE...] [LIBS FLAG...] [CFLAGS FLAG...]
#     [STATIC_REQUIRES MODULE...] [STATIC_LIBS FLAG...] [STATIC_CFLAGS FLAG...])
#
# STATIC_...: what consumers of static libraries need besides. It is not private to pkg-config --static, which would
# ask for static forms of all that libcurl needs, too: there are only static libraries of ours then, so all need it.
function(cloudprovider_install_pkgconfig file description)
    set(lists REQUIRES LIBS CFLAGS)
    cmake_parse_arguments(ARG "" "" "${lists};STATIC_REQUIRES;STATIC_LIBS;STATIC_CFLAGS" ${ARGN})
    foreach(list IN LISTS lists)
        if(NOT BUILD_SHARED_LIBS)
            list(APPEND ARG_${list} ${ARG_STATIC_${list}})
        endif()
        list(JOIN ARG_${list} " " ${list})
    endforeach()
    file(RELATIVE_PATH up ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
    string(REGEX REPLACE "/$" "" up ${up})
    set(libraries "\${prefix}")
    set(headers "\${prefix}")
    cmake_path(APPEND libraries ${CMAKE_INSTALL_LIBDIR})
    cmake_path(APPEND headers ${CMAKE_INSTALL_INCLUDEDIR})
    configure_file(cmake/pkgconfig.pc.in ${PROJECT_BINARY_DIR}/pkgconfig/${file}.pc @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/pkgconfig/${file}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
        COMPONENT cloudprovider_development)
endfunction()

# What find_package and pkg-config read, for what is built.
function(cloudprovider_install_package_files)
    configure_package_config_file(cmake/cloudproviderConfig.cmake.in
        ${PROJECT_BINARY_DIR}/cloudproviderConfig.cmake INSTALL_DESTINATION ${cloudprovider_package_folder})
    write_basic_package_version_file(${PROJECT_BINARY_DIR}/cloudproviderConfigVersion.cmake
        COMPATIBILITY SameMinorVersion)
    install(FILES ${PROJECT_BINARY_DIR}/cloudproviderConfig.cmake
        ${PROJECT_BINARY_DIR}/cloudproviderConfigVersion.cmake
        DESTINATION ${cloudprovider_package_folder} COMPONENT cloudprovider_development)

    cloudprovider_install_pkgconfig(cloudprovider ${PROJECT_DESCRIPTION}
        LIBS -lcloudprovider -lfoundation_host -lboost_filesystem
        STATIC_LIBS -lboost_chrono -lboost_iostreams -lboost_log -lboost_thread -pthread
        STATIC_CFLAGS -DCLOUDPROVIDER_STATIC_DEFINE -DFOUNDATION_HOST_STATIC_DEFINE)
    if(CLOUDPROVIDER_BUILD_SQLITE)
        # SQLiteCpp has no module of its own.
        cloudprovider_install_pkgconfig(cloudprovider-sqlite "The embedded store of cloudprovider"
            REQUIRES cloudprovider
            LIBS -lcloudprovider_sqlite
            STATIC_REQUIRES sqlite3
            STATIC_LIBS -lSQLiteCpp
            STATIC_CFLAGS -DCLOUDPROVIDER_SQLITE_STATIC_DEFINE)
    endif()
    if(CLOUDPROVIDER_BUILD_S3)
        cloudprovider_install_pkgconfig(cloudprovider-s3 "The client of S3-compatible stores of cloudprovider"
            REQUIRES cloudprovider
            LIBS -lcloudprovider_s3
            STATIC_REQUIRES libcurl libcrypto pugixml
            STATIC_CFLAGS -DCLOUDPROVIDER_S3_STATIC_DEFINE)
    endif()
    if(CLOUDPROVIDER_BUILD_TESTING_LIBRARY)
        cloudprovider_install_pkgconfig(cloudprovider-testing "Tests for clients of cloudprovider"
            REQUIRES cloudprovider gtest
            LIBS -lcloudprovider_testing
            CFLAGS -DCLOUDPROVIDER_TESTING_STATIC_DEFINE)
    endif()
endfunction()
