#pragma once

#include "lensid.h"

#include <QByteArray>
#include <QString>

namespace VCam {

// The proof that a lens folder is genuine: a checksum over the contents of
// its files (names take no part) signed together with the lens id by the
// backend's P-384 key.

// Upper-case hex SHA-256 over the sorted upper-case hex SHA-256 digests of
// every regular file below dirPath. Empty when a file can't be read, when
// the folder holds a symbolic link, or when dirPath is not a folder.
QString directoryChecksum(const QString &dirPath);

// True when signatureBase64 (a DER ECDSA-Sig-Value) is a valid P-384
// signature of SHA-384(checksum + lensId) under publicKeyBase64 (base64 of
// the DER SubjectPublicKeyInfo; only its last 97 bytes, the point, are used).
bool verifyLensSignature(const LensId &lensId, const QString &dirPath, const QString &signatureBase64,
                         const QString &publicKeyBase64);

// The signature check on its own, over a ready message digest.
bool verifyDigestSignature(const QByteArray &sha384Digest, const QByteArray &derSignature,
                           const QByteArray &publicKeyDer);

// The build's verification key, or its GLINT_LENS_VERIFICATION_KEY override.
QString defaultLensVerificationKey();

} // namespace VCam
