# A test program that loads the built plug-in as the host does: it provides
# and exports (-rdynamic) the whole session interface from host_session,
# does not link the library, and reaches rpm_verify with dlopen and dlsym.
if(TARGET host_session)
    add_executable(test_dlopen_rpm_verify ${CMAKE_CURRENT_SOURCE_DIR}/dlopen/test_dlopen_rpm_verify.cpp)
    target_include_directories(test_dlopen_rpm_verify PRIVATE
        ${CMAKE_CURRENT_SOURCE_DIR}/support ${CMAKE_SOURCE_DIR}/sources/plugin)
    target_link_libraries(test_dlopen_rpm_verify PRIVATE
        "$<LINK_LIBRARY:WHOLE_ARCHIVE,host_session>" GTest::gtest_main ${CMAKE_DL_LIBS})
    set_target_properties(test_dlopen_rpm_verify PROPERTIES ENABLE_EXPORTS ON)
    target_link_options(test_dlopen_rpm_verify PRIVATE -rdynamic)
    target_compile_definitions(test_dlopen_rpm_verify PRIVATE
        SIGNING_SOURCE_DIR="${CMAKE_SOURCE_DIR}"
        SIGNING_BUILD_DIR="${CMAKE_BINARY_DIR}"
        SIGNING_FIXTURES_DIR="${SIGNING_FIXTURES_DIR}"
        SIGNING_RPM_UPSTREAM_DIR="${SIGNING_RPM_UPSTREAM_DIR}"
        SIGNING_PLUGIN_PATH="$<TARGET_FILE:signing>")
    add_dependencies(test_dlopen_rpm_verify signing)
    gtest_discover_tests(test_dlopen_rpm_verify
        DISCOVERY_TIMEOUT 120
        PROPERTIES FIXTURES_REQUIRED packages ENVIRONMENT "${SIGNING_TEST_ENV}" TIMEOUT 900)
endif()
