// The common base of the certificate kinds kept by the certificate store.
// It has no data and no virtual operations; the store knows the kind of each
// entry from its format key.
#ifndef SIGNING_CERTIFICATE_H
#define SIGNING_CERTIFICATE_H

class Certificate {};

#endif
