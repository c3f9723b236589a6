include(GenerateExportHeader)

# What every target of ours is compiled with; nothing of it reaches a consumer.
function(cloudprovider_compile_privately target)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Wconversion
        "-fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=")
    if(CLOUDPROVIDER_WERROR)
        target_compile_options(${target} PRIVATE -Werror)
    endif()
endfunction()

# cloudprovider_add_library(NAME ALIAS [STATIC] [EXPORT_SET] EXPORT_HEADER MACRO SOURCES ... HEADERS ...)
#
# A library with hidden visibility, a generated export header (a path below the include folder), its public headers
# as a file set, and rules to install it all. STATIC: whatever BUILD_SHARED_LIBS says. EXPORT_SET: in whose
# <EXPORT_SET>Targets.cmake it is installed, by default the namespace of its alias.
function(cloudprovider_add_library name alias)
    cmake_parse_arguments(ARG "STATIC" "EXPORT_SET;EXPORT_HEADER;MACRO" "SOURCES;HEADERS" ${ARGN})
    set(type STATIC)
    if(BUILD_SHARED_LIBS AND NOT ARG_STATIC)
        set(type SHARED)
    endif()
    add_library(${name} ${type} ${ARG_SOURCES})
    add_library(${alias} ALIAS ${name})
    string(REGEX REPLACE ".*::" "" export_name ${alias})
    set_target_properties(${name} PROPERTIES
        EXPORT_NAME ${export_name}
        VERSION ${PROJECT_VERSION}
        SOVERSION ${PROJECT_VERSION_MAJOR}
        VERIFY_INTERFACE_HEADER_SETS ON)
    target_compile_features(${name} PUBLIC cxx_std_20)
    cloudprovider_compile_privately(${name})

    set(generated ${CMAKE_CURRENT_BINARY_DIR}/include)
    generate_export_header(${name} BASE_NAME ${ARG_MACRO} EXPORT_FILE_NAME ${generated}/${ARG_EXPORT_HEADER})
    if(type STREQUAL "STATIC")
        target_compile_definitions(${name} PUBLIC ${ARG_MACRO}_STATIC_DEFINE)
    endif()
    target_sources(${name} PUBLIC FILE_SET HEADERS
        BASE_DIRS include ${generated}
        FILES ${ARG_HEADERS} ${generated}/${ARG_EXPORT_HEADER})
    if(NOT ARG_EXPORT_SET)
        string(REGEX REPLACE "::.*" "" ARG_EXPORT_SET ${alias})
    endif()
    install(TARGETS ${name} EXPORT ${ARG_EXPORT_SET}Targets FILE_SET HEADERS)
endfunction()

# cloudprovider_add_test(NAME [NEEDS_SERVER] SOURCES ... LIBRARIES ...)
#
# A GoogleTest program, each test of it known to CTest. NEEDS_SERVER: they run against the store that the environment
# names, see ./dev test-s3; CTest knows them, with the label real-server, if CLOUDPROVIDER_S3_SERVER_TESTS is set.
function(cloudprovider_add_test name)
    cmake_parse_arguments(ARG "NEEDS_SERVER" "" "SOURCES;LIBRARIES" ${ARGN})
    add_executable(${name} ${ARG_SOURCES})
    cloudprovider_compile_privately(${name})
    target_link_libraries(${name} PRIVATE ${ARG_LIBRARIES} GTest::gtest_main)
    if(NOT ARG_NEEDS_SERVER)
        gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST PROPERTIES TIMEOUT 300)
    elseif(CLOUDPROVIDER_S3_SERVER_TESTS)
        gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST PROPERTIES TIMEOUT 600 LABELS real-server)
    endif()
endfunction()
