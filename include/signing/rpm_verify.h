/* The plug-in's two exported entry points with plain C names, usable from C
 * and C++. A host that loads signing.so with dlopen finds them with dlsym
 * under these names; the function-pointer types below match them.
 *
 *   rpm_verify                     checks one package file against one key
 *   signing_validate_package_list  checks every "rpm" component of the
 *                                  host's session (needs the C++ session
 *                                  interface of <signing/session.h>)
 */
#ifndef SIGNING_RPM_VERIFY_H
#define SIGNING_RPM_VERIFY_H

#ifdef __cplusplus
#include <cstdint>
extern "C" {
#else
#include <stdint.h>
#endif

/* The status of one package. The numbers are fixed: hosts log them, and
 * every value other than RPM_SIGNED is a failure. */
#ifdef __cplusplus
enum RPM_STATUS : int32_t {
#else
enum RPM_STATUS {
#endif
    RPM_SIGNED = 0,
    RPM_NOT_SIGNED = 1,
    RPM_INVALID_SIGNATURE = 2,
    RPM_INVALID_HASH = 3,
    RPM_INVALID_STRUCTURE = 4,
    RPM_ERROR = 5
};

#ifndef __cplusplus
typedef enum RPM_STATUS RPM_STATUS;
typedef struct RPM_RESULT RPM_RESULT;
#endif

/* Returned by value: a 32-bit status, then the text. message is allocated
 * with malloc; the caller releases it with free. */
struct RPM_RESULT {
    RPM_STATUS status;
    char* message;
};

/* The host's session; its C++ definition is in <signing/session.h>. */
struct session_t;

/* Verifies the package file against the armored OpenPGP public key file.
 * Neither argument may be null. Call from one thread at a time. */
RPM_RESULT rpm_verify(const char* file, const char* keyfile);

/* The installer's entry point: 0 when every verified package is signed,
 * 1 otherwise. Details go to the session and to the host's log. */
int signing_validate_package_list(struct session_t* session);

/* The entry points' types, for the addresses dlsym returns. */
typedef RPM_RESULT (*rpm_verify_function)(const char* file, const char* keyfile);
typedef int (*signing_validate_package_list_function)(struct session_t* session);

#ifdef __cplusplus
}
#endif

#endif
