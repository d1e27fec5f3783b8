// The keys under which signature containers hold their digests
// (Signature::SetDigest / Signature::GetDigest). The signer fills the slots
// of an RPM package's container, the container judges them, and a PGP
// signature reads the one digest it is lent.
#ifndef SIGNING_DIGEST_SLOT_H
#define SIGNING_DIGEST_SLOT_H

// A plain enumeration, so that a slot is the int key the container takes.
enum DigestSlot : int {
    // The main header by itself.
    kSlotHeaderSha1 = 0,      // SHA-1, compared with the stored SHA-1 header hash
    kSlotHeaderSignature = 1, // the signature's algorithm, for the header-only signature
    kSlotHeaderSpareSha1 = 2, // SHA-1 when the signature's algorithm is another; else empty
    // The main header and the payload.
    kSlotPackageMd5 = 3,       // MD5, compared with the stored MD5 value
    kSlotPackageSignature = 4, // the signature's algorithm, for the header-and-payload signatures
    kSlotPackageSpareSha1 = 5, // SHA-1 when the signature's algorithm is another; else empty

    // A PGP signature holds one digest, of the data it signs, lent to it
    // under this key.
    kSlotSignedData = 0,
};

#endif
