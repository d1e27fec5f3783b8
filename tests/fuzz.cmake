# The fuzz targets' entry functions (fuzz/targets/) are compiled into the
# regression test, which replays each target's seed inputs and every input
# kept under tests/fuzz-regressions/<target>/ with the ordinary build.
if(TARGET test_FuzzRegressions)
    file(GLOB FUZZ_TARGET_SOURCES CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/fuzz/targets/*.cpp)
    target_sources(test_FuzzRegressions PRIVATE ${FUZZ_TARGET_SOURCES})
    target_include_directories(test_FuzzRegressions PRIVATE ${CMAKE_SOURCE_DIR}/fuzz)
    target_compile_definitions(test_FuzzRegressions PRIVATE
        SIGNING_FUZZ_REGRESSIONS_DIR="${CMAKE_CURRENT_SOURCE_DIR}/fuzz-regressions")
endif()
