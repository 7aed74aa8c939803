#pragma once
// The built-in verification key of the requirements signature, for people and for other tools
// that check the signature (the key is also written into every signature's KeyInfo, which our own
// verification never trusts).
#include <cstdint>
#include <string>
#include <vector>

#include "package/xml_part_type.h"

namespace addon::packaging {

// DER SubjectPublicKeyInfo (294 bytes) of the RSA-2048 verification key.
[[nodiscard]] ZV_API std::vector<std::uint8_t> getVerificationKey();
// The same key as PEM text ("-----BEGIN PUBLIC KEY-----"). Throws opc::Exception if it cannot be
// encoded (never for the built-in key).
[[nodiscard]] ZV_API std::string getVerificationKeyPem();

}  // namespace addon::packaging
