// Identity: salted hashes of texts, fresh random identifiers, and whether the network can be reached.
//
// Any thread may call any of these at any time.
#pragma once

#include <string>

#include "lumo/scoped_ptr.h"
#include "lumo/tova/base.h"

namespace AnalyticsSDK {

using lumo::scoped_array;

/// Makes a salted hash of a text: 8 random salt bytes, then 48 bytes of PBKDF2 with HMAC-SHA1 and 1,000 iterations.
///
/// Takes a few milliseconds of processor time. Aborts the process when no random salt can be drawn.
/// @param text    what to hash, up to its terminator; the caller's, not kept
/// @param record  receives a new array of 56 bytes that it owns; an array it held before is deleted
/// @param length  receives 56
/// @return true when `record` holds a valid hash; false when memory or the derivation failed
TOVA_API bool GenerateHash(const char* text, scoped_array<unsigned char>& record, long& length);

/// Tells whether `record` is a hash of `text` that #GenerateHash made.
///
/// @param text    the text that the hash should be of
/// @param record  at least `length` bytes; the caller's
/// @param length  anything but 56 gives false without any work
/// @return true when it is; false for every other text, salt or length
TOVA_API bool TestHash(const char* text, const unsigned char* record, long length);

/// Makes a fresh random (version 4) UUID: 36 chars, lower case, "6f1c2a90-3b7e-4d25-9a61-0c4e8b7d2f13".
///
/// @return the text; empty when the system gave no random bytes
TOVA_API std::string GenerateUuid();

/// Tells whether the system has a route to the network, by its routing tables.
///
/// No packet is sent and no name looked up, so the answer comes at once, and true does not promise that a server
/// answers. False also when a connection would have to be made first.
TOVA_API bool IsOnline();

} // namespace AnalyticsSDK
