#include "Certificate.h"

// Certificate has no operations of its own; the store holds its kinds
// through this base.
