// libFuzzer entry of the pgp_packet target (fuzz/targets/FuzzTargets.h).
#include "targets/FuzzTargets.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    return FuzzPgpPacket(data, size);
}
