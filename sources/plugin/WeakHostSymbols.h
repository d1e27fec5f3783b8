// The host's session functions are weak references in the plug-in. The
// plug-in is linked with immediate binding (-z now, for a read-only
// relocation table), and a strong undefined reference would then stop
// dlopen for every host that does not define it, even one that only calls
// rpm_verify, which never uses the session. As weak references they resolve
// against a host that defines them, exactly as before, and leave the
// plug-in loadable in a host that does not.
//
// The names are the C++ symbols (C++11 library ABI) of the session
// functions the plug-in calls, as declared in <signing/session.h>; the
// hardening test fails when a call to a session function is not weak. Include this header in
// the one file that calls the session functions.
#ifndef SIGNING_PLUGIN_WEAKHOSTSYMBOLS_H
#define SIGNING_PLUGIN_WEAKHOSTSYMBOLS_H

__asm__(".weak _Z9print_logPKcz\n"
        ".weak _Z14env_get_stringB5cxx11P9session_tPKc\n"
        ".weak _Z14env_set_stringP9session_tPKcS2_\n"
        ".weak _Z14expand_operandP9session_tRKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEEb\n"
        ".weak _Z8inttostrB5cxx11x\n"
        ".weak _Z11file_existsRKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEEb\n"
        ".weak _Z21readContentOfTextFileRKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE\n"
        ".weak _Z22castStringToEnvPointerRKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE\n"
        ".weak "
        "_Z23env_get_string_internalPSt3mapINSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEES5_"
        "St4lessIS5_ESaISt4pairIKS5_S5_EEERS9_\n"
        ".weak _ZN3TSD8productsB5cxx11Ev\n"
        ".weak _ZNK9Component4typeB5cxx11Ev\n");

#endif
