// SHA-256 digests for pinning streams in tests, from GnuTLS (which libcups already brings along; link
// inkweave_test_digest).
#pragma once

#include <gnutls/crypto.h>

#include <cstddef>
#include <cstdio>
#include <string>

namespace inkweave::testing {

inline std::string Sha256Hex(const void* data, std::size_t size) {
  unsigned char digest[32];
  if (gnutls_hash_fast(GNUTLS_DIG_SHA256, data, size, digest) != 0) return "gnutls_hash_fast failed";
  std::string out(64, '0');
  for (int i = 0; i < 32; ++i) std::snprintf(&out[2 * static_cast<std::size_t>(i)], 3, "%02x", digest[i]);
  return out;
}

}  // namespace inkweave::testing
