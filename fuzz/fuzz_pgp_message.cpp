// libFuzzer entry of the pgp_message target (fuzz/targets/FuzzTargets.h).
#include "targets/FuzzTargets.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    return FuzzPgpMessage(data, size);
}
