#include <sodium.h>

/// Stands before the library's in this program: opening a store under a passphrase takes as long as
/// one without. What is derived is not judged here; when it is written and synced is.
extern "C" int crypto_pwhash(unsigned char* const out, unsigned long long outSize,
                             const char* const passphrase, unsigned long long passphraseSize,
                             const unsigned char* const salt, unsigned long long, size_t, int)
{
    return crypto_pwhash_argon2id(
        out, outSize, passphrase, passphraseSize, salt, crypto_pwhash_argon2id_OPSLIMIT_MIN,
        crypto_pwhash_argon2id_MEMLIMIT_MIN, crypto_pwhash_argon2id_ALG_ARGON2ID13);
}
