include(GenerateExportHeader)

# What every target of ours is compiled with; nothing of it reaches a consumer, or the project that includes this one.
# That project's CMAKE_CXX_STANDARD counts, if it is one that will do.
function(cloudprovider_compile_privately target)
    set_target_properties(${target} PROPERTIES
        CXX_EXTENSIONS OFF
        CXX_VISIBILITY_PRESET hidden
        VISIBILITY_INLINES_HIDDEN ON
        POSITION_INDEPENDENT_CODE ON)
    target_compile_features(${target} PRIVATE cxx_std_20)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Wconversion
        "-fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=")
    target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR}/host/internal)
    if(CLOUDPROVIDER_WERROR)
        target_compile_options(${target} PRIVATE -Werror)
    endif()
    if(CLOUDPROVIDER_HARDENING)
        cloudprovider_harden(${target})
    endif()
endfunction()

# Which versions are binary compatible: until 1.0 each minor version may change the ABI, see docs/versioning.md.
set(cloudprovider_abi ${PROJECT_VERSION_MAJOR})
if(PROJECT_VERSION_MAJOR EQUAL 0)
    string(APPEND cloudprovider_abi .${PROJECT_VERSION_MINOR})
endif()

configure_file(cmake/exports.map.in ${PROJECT_BINARY_DIR}/exports.map @ONLY)

# Keep everything but our own namespaces inside a shared library: what is linked into it would clash with another copy in
# the program.
function(cloudprovider_export_own_symbols target)
    target_link_options(${target} PRIVATE "LINKER:--version-script=${PROJECT_BINARY_DIR}/exports.map")
    set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${PROJECT_BINARY_DIR}/exports.map)
endfunction()

# cloudprovider_add_library(NAME ALIAS [STATIC] EXPORT_HEADER MACRO SOURCES ... HEADERS ...)
#
# A library with hidden visibility, a generated export header (a path below the include folder), its public headers
# as a file set, and rules to install it all. STATIC: whatever BUILD_SHARED_LIBS says.
function(cloudprovider_add_library name alias)
    cmake_parse_arguments(ARG "STATIC" "EXPORT_HEADER;MACRO" "SOURCES;HEADERS" ${ARGN})
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
        SOVERSION ${cloudprovider_abi}
        VERIFY_INTERFACE_HEADER_SETS ON)
    target_compile_features(${name} PUBLIC cxx_std_20)
    cloudprovider_compile_privately(${name})

    set(generated ${CMAKE_CURRENT_BINARY_DIR}/include)
    generate_export_header(${name} BASE_NAME ${ARG_MACRO} EXPORT_FILE_NAME ${generated}/${ARG_EXPORT_HEADER})
    if(type STREQUAL "STATIC")
        target_compile_definitions(${name} PUBLIC ${ARG_MACRO}_STATIC_DEFINE)
    else()
        cloudprovider_export_own_symbols(${name})
    endif()
    target_sources(${name} PUBLIC FILE_SET HEADERS
        BASE_DIRS include ${generated}
        FILES ${ARG_HEADERS} ${generated}/${ARG_EXPORT_HEADER})
    if(CLOUDPROVIDER_INSTALL)
        cloudprovider_install_library(${name} ${alias})
    endif()
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
