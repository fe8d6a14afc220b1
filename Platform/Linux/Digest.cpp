#include "Platform/Digest.h"

#include <nettle/sha1.h>

namespace ombrix::platform {

std::optional<Sha1Digest> sha1(std::string_view bytes) {
  static_assert(sizeof(Sha1Digest) == SHA1_DIGEST_SIZE);
  sha1_ctx context;
  sha1_init(&context);
  sha1_update(&context, bytes.size(), reinterpret_cast<const std::uint8_t*>(bytes.data()));
  Sha1Digest digest;
  sha1_digest(&context, digest.size(), digest.data());
  return digest;
}

}  // namespace ombrix::platform
