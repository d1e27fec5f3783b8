// libFuzzer entry of the base64 target (fuzz/targets/FuzzTargets.h).
#include "targets/FuzzTargets.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    return FuzzBase64(data, size);
}
