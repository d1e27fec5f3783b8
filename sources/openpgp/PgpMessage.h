// An OpenPGP public-key file (ASCII-armored "PUBLIC KEY BLOCK" or binary
// old-format packets) or a signature blob, reduced to the packets that
// signature checking needs: the RSA public key and the last signature.
#ifndef SIGNING_PGP_MESSAGE_H
#define SIGNING_PGP_MESSAGE_H

#include "Base.h"
#include "PgpPacket.h"

class PgpMessage : public Base {
public:
    // Parses the whole input; throws on any format error.
    PgpMessage(char* data, unsigned int length);
    ~PgpMessage() override;

    PgpMessage(const PgpMessage&) = delete;
    PgpMessage& operator=(const PgpMessage&) = delete;

    // Parses the packet at data (length bytes remain in the input) and
    // returns its total length.
    unsigned int ParsePacket(char* data, unsigned int length);

    // Finds the Base64 body of an armored public key block: from the byte
    // after the blank line that ends the armor headers up to the line end
    // before the checksum line.
    static bool SkipHeader(const char* data, unsigned long length, char** body, unsigned int& bodyLength);
    // Reached by no entry point: the constructor takes the armor apart with SkipHeader.
    // Trims three line ends at the front and two at the back; returns the
    // number of line-end bytes skipped at the front.
    static int DeArmor(const char* data, unsigned long length, char** body, unsigned int& bodyLength);

    // Null until parsed; owned by the message.
    PgpPublicKey* GetPublicKey() const { return _PublicKey; }
    PgpSignatureData* GetSignature() const { return _Signature; }

private:
    void ParsePackets(char* data, unsigned int length);

    PgpPublicKey* _PublicKey;
    PgpSignatureData* _Signature;
};

#endif
