/* Checks package files with the plug-in's rpm_verify: a C host that needs no
 * session. Build it with pkg-config:
 *   cc $(pkg-config --cflags signing) \
 *      -DSIGNING_PLUGIN="\"$(pkg-config --variable=plugin signing)\"" \
 *      verify-package.c -o verify-package -ldl
 * Run: verify-package KEY PACKAGE...   (exit 0 when every package is signed) */
#include <signing/rpm_verify.h>

#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>

int main(int argc, char** argv) {
    if (argc < 3) {
        fprintf(stderr, "usage: verify-package KEY PACKAGE...\n");
        return 2;
    }
    /* RTLD_LAZY: this host defines none of the session functions. */
    void* plugin = dlopen(SIGNING_PLUGIN, RTLD_LAZY | RTLD_LOCAL);
    if (plugin == NULL) {
        fprintf(stderr, "verify-package: %s\n", dlerror());
        return 2;
    }
    rpm_verify_function verify = (rpm_verify_function)dlsym(plugin, "rpm_verify");
    if (verify == NULL) {
        fprintf(stderr, "verify-package: %s\n", dlerror());
        return 2;
    }
    int failed = 0;
    for (int i = 2; i < argc; ++i) {
        RPM_RESULT result = verify(argv[i], argv[1]);
        printf("%d %s\n", (int)result.status, result.message);
        if (result.status != RPM_SIGNED) {
            failed = 1;
        }
        free(result.message);
    }
    return failed;
}
