#include "lumo/crypt.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/rand.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <new>

namespace lumo {
namespace {

// Few by today's measure, but a record shows where an upload comes from and guards no password. Servers use the same
// number, so it cannot change.
constexpr int iterations = 1000;

// The last resort of a machine whose generator has found no entropy of its own. rand() is all there is then, and not
// safe among threads, which does no harm here: a torn sequence is as good a seed as a whole one.
void seed_generator_if_needed()
{
    if (RAND_status() != 0)
        return;
    std::srand(static_cast<unsigned int>(std::time(nullptr)));
    unsigned char seed[256];
    for (auto& byte : seed)
        byte = static_cast<unsigned char>(std::rand()); // NOLINT(concurrency-mt-unsafe)
    RAND_seed(seed, sizeof seed);
    // A plain memset before the array goes would be optimised away.
    OPENSSL_cleanse(seed, sizeof seed);
}

void draw_salt(unsigned char* salt)
{
    seed_generator_if_needed();
    const int result = RAND_bytes(salt, hash_salt_size);
    tova_assert(result == 1);
}

// Fills the key of a record whose salt is in place.
bool derive_key(const char* text, unsigned char* record)
{
    return PKCS5_PBKDF2_HMAC_SHA1(text, static_cast<int>(std::strlen(text)), record, hash_salt_size, iterations,
                                  hash_key_size, record + hash_salt_size) == 1;
}

} // namespace

bool generate_hash(const char* text, scoped_array<unsigned char>& record, long& length)
{
    unsigned char salt[hash_salt_size];
    draw_salt(salt);
    length = hash_record_size;
    // Without exceptions: a host short of memory loses an upload and goes on running.
    record.Reset(new (std::nothrow) unsigned char[hash_record_size]());
    if (!record)
        return false;
    std::memcpy(record.Get(), salt, sizeof salt);
    return derive_key(text, record.Get());
}

bool test_hash(const char* text, const unsigned char* record, long length)
{
    if (length != hash_record_size)
        return false;
    // Only the salt is taken from the record; the key is derived anew and compared.
    unsigned char expected[hash_record_size] = {};
    std::memcpy(expected, record, hash_salt_size);
    // A plain comparison: how long it takes tells nothing that the holder of the record does not have already.
    return derive_key(text, expected) && std::memcmp(expected, record, sizeof expected) == 0;
}

} // namespace lumo
