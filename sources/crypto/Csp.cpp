#include "Csp.h"

Csp::~Csp() = default;
