#pragma once

#include "tools/account-server/Failure.hpp"
#include "tools/account-server/Files.hpp"

#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <filesystem>
#include <memory>
#include <string>

namespace accountserver
{

/// Frees an OpenSSL object with the function that belongs to it.
template <auto release>
struct Releaser
{
    template <class T>
    void operator()(T* object) const
    {
        release(object);
    }
};

using Key = std::unique_ptr<EVP_PKEY, Releaser<EVP_PKEY_free>>;
using Certificate = std::unique_ptr<X509, Releaser<X509_free>>;
using Memory = std::unique_ptr<BIO, Releaser<BIO_free>>;

inline void demand(bool success, const char* what)
{
    if (!success)
        throw Failure(ExitCode::failed, std::string("OpenSSL cannot ") + what +
                                            ". Check the installation of OpenSSL 3.");
}

/// What a `PEM_write_bio_…` call writes, as text.
template <class Write>
std::string pemText(Write write)
{
    const Memory memory(BIO_new(BIO_s_mem()));
    demand(memory && write(memory.get()) == 1, "write PEM");
    char* data = nullptr;
    const auto size = BIO_get_mem_data(memory.get(), &data);
    return {data, static_cast<std::size_t>(size)};
}

inline Memory reading(const std::string& text)
{
    return Memory(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
}

/// The private key in the file; makes it with `generate` and keeps it there when there is none.
template <class Generate>
Key keptKey(const std::filesystem::path& file, Generate generate)
{
    if (const auto text = readFile(file))
    {
        Key key(PEM_read_bio_PrivateKey(reading(*text).get(), nullptr, nullptr, nullptr));
        if (!key)
            throw Failure(ExitCode::state,
                          file.string() + " holds no private key. Remove it for a new one.");
        return key;
    }
    Key key(generate());
    demand(key != nullptr, "make a key");
    writeFile(file, pemText(
                        [&](BIO* out)
                        {
                            return PEM_write_bio_PKCS8PrivateKey(out, key.get(), nullptr, nullptr,
                                                                 0, nullptr, nullptr);
                        }));
    return key;
}

}  // namespace accountserver
