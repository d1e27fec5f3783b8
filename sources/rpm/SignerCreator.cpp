#include "SignerCreator.h"

SignerCreator::~SignerCreator() {}

const char* SignerCreator::GetFileExtensions() {
    return nullptr;
}
