# The end-to-end tests of signing-host run the built program as a separate
# process; they find it, and a plug-in that loads but lacks the entry
# points, through compile definitions.
if(TARGET signing-host AND TARGET test_HostProgram)
    file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/hostprogram_other_plugin.cpp
         "// A shared object without the plug-in's entry points.\nextern \"C\" int unrelated_entry() { return 0; }\n")
    add_library(hostprogram_other_plugin SHARED ${CMAKE_CURRENT_BINARY_DIR}/hostprogram_other_plugin.cpp)
    set_target_properties(hostprogram_other_plugin PROPERTIES PREFIX "" OUTPUT_NAME other-plugin)

    target_compile_definitions(test_HostProgram PRIVATE
        SIGNING_HOST_PATH="$<TARGET_FILE:signing-host>"
        SIGNING_OTHER_PLUGIN_PATH="$<TARGET_FILE:hostprogram_other_plugin>"
        SIGNING_DEMO_SCRIPT="${CMAKE_SOURCE_DIR}/scripts/demo.sh")
    add_dependencies(test_HostProgram signing-host hostprogram_other_plugin)
endif()
