// The salted, iterated hash that an upload proves its origin with.
//
// A record is 56 bytes: 8 bytes of salt from the cryptographic generator, then 48 bytes derived from text and salt
// with PBKDF2, HMAC-SHA1, 1,000 iterations. This is the only form in which a hash is stored or sent. Any thread.
#pragma once

#include "lumo/scoped_ptr.h"
#include "lumo/tova/base.h"

namespace lumo {

/// Bytes of random salt at the start of a hash record.
inline constexpr long hash_salt_size = 8;
/// Bytes of derived key behind the salt.
inline constexpr long hash_key_size = 48;
/// Bytes of a whole hash record.
inline constexpr long hash_record_size = hash_salt_size + hash_key_size;

/// Hashes `text` with a fresh salt.
///
/// Aborts (assertion "result == 1") when the generator gives no salt: a predictable one would be worse than none.
/// @param text    what to hash, up to its terminator
/// @param record  receives a new array of #hash_record_size bytes that it owns; what it held before is deleted
/// @param length  receives #hash_record_size
/// @return false when memory or the derivation failed
TOVA_API bool generate_hash(const char* text, scoped_array<unsigned char>& record, long& length);

/// Tells whether `record`, of `length` bytes, is a hash of `text`. A record of another length is none: false.
TOVA_API bool test_hash(const char* text, const unsigned char* record, long length);

} // namespace lumo
