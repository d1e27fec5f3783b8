#include "SignerCreator.h"

SignerCreator::~SignerCreator() = default;

const char* SignerCreator::GetFileExtensions() {
    return nullptr;
}
