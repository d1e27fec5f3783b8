# Read by CTest after the discovered test lists: gives every test its labels.
#   unit      a test of one class or layer (tests/unit/<layer>/)
#   scenario  an end-to-end suite (tests/scenario/)
#   host      a suite of the reference host program (tests/host/)
#   tools     needs gpg, rpmbuild or rpmsign (the fixtures, or its own keys)
#   upstream  needs rpm's own test data in ../shared/rpm-upstream
#   slow      takes more than a few seconds
# Select with `ctest -L unit`, `ctest -LE slow` and so on.

# Tests whose names match these expressions get the label; the names are
# <Suite>.<Test>, with parameters after a slash.
set(SIGNING_LABEL_UPSTREAM "Upstream")
set(SIGNING_LABEL_SLOW "HostileInput\\.|LeakCheck\\.|Memory\\.|Demo|DownloadDeadline\\.")
set(SIGNING_LABEL_TOOLS ".")

foreach(entry ${SIGNING_TEST_PROGRAMS})
    string(REPLACE "=" ";" pair "${entry}")
    list(GET pair 0 program)
    list(GET pair 1 folder_label)
    foreach(test ${SIGNING_TESTS_${program}})
        set(labels ${folder_label})
        if(test MATCHES "${SIGNING_LABEL_TOOLS}")
            list(APPEND labels tools)
        endif()
        if(test MATCHES "${SIGNING_LABEL_UPSTREAM}")
            list(APPEND labels upstream)
        endif()
        if(test MATCHES "${SIGNING_LABEL_SLOW}")
            list(APPEND labels slow)
        endif()
        set_tests_properties("${test}" PROPERTIES LABELS "${labels}")
    endforeach()
endforeach()
