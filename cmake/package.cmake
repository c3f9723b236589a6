include(CMakePackageConfigHelpers)

set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/cloudprovider)

configure_package_config_file(cmake/cloudproviderConfig.cmake.in
    ${PROJECT_BINARY_DIR}/cloudproviderConfig.cmake INSTALL_DESTINATION ${package_folder})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/cloudproviderConfigVersion.cmake
    COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/cloudproviderConfig.cmake ${PROJECT_BINARY_DIR}/cloudproviderConfigVersion.cmake
    DESTINATION ${package_folder})
foreach(set IN ITEMS foundation cloudprovider)
    install(EXPORT ${set}Targets NAMESPACE ${set}:: DESTINATION ${package_folder})
endforeach()
if(CLOUDPROVIDER_BUILD_TESTING_LIBRARY)
    install(EXPORT cloudproviderTestingTargets NAMESPACE cloudprovider:: DESTINATION ${package_folder})
endif()
