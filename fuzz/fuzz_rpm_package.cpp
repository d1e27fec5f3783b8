// libFuzzer entry of the rpm_package target (fuzz/targets/FuzzTargets.h).
#include "targets/FuzzTargets.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    return FuzzRpmPackage(data, size);
}
