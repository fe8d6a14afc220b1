#include "Platform/Digest.h"

#include <CommonCrypto/CommonDigest.h>

#include <limits>

namespace ombrix::platform {

std::optional<Sha1Digest> sha1(std::string_view bytes) {
  static_assert(sizeof(Sha1Digest) == CC_SHA1_DIGEST_LENGTH);
  if (bytes.size() > std::numeric_limits<CC_LONG>::max()) return std::nullopt;
  Sha1Digest digest{};
// Later systems deprecate it as too weak for signatures, which these digests are not.
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wdeprecated-declarations"
  const unsigned char* const done =
      ::CC_SHA1(bytes.data(), static_cast<CC_LONG>(bytes.size()), digest.data());
#pragma clang diagnostic pop
  if (done == nullptr) return std::nullopt;
  return digest;
}

}  // namespace ombrix::platform
