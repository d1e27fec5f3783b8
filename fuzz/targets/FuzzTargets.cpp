#include "FuzzTargets.h"

const FuzzTarget kFuzzTargets[] = {
    {"rpm_package", FuzzRpmPackage}, {"rpm_key", FuzzRpmKey}, {"pgp_message", FuzzPgpMessage},
    {"pgp_packet", FuzzPgpPacket},   {"base64", FuzzBase64},  {"slre", FuzzSlre},
};

const size_t kFuzzTargetCount = sizeof(kFuzzTargets) / sizeof(kFuzzTargets[0]);

const FuzzTarget* FindFuzzTarget(const std::string& name) {
    for (size_t i = 0; i < kFuzzTargetCount; ++i) {
        if (name == kFuzzTargets[i].name) {
            return &kFuzzTargets[i];
        }
    }
    return nullptr;
}
