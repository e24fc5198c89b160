#pragma once

#include <string_view>

/// The token that is decoded: account information as a server signs it, RS256 with a 2048-bit key.
/// It never changes, so that figures of different days compare. The private half was not kept.
namespace fixedtoken
{

constexpr std::string_view text =
    "eyJhbGciOiJSUzI1NiIsInR5cCI6IkpXVCJ9."
    "eyJ1c2VyIjoidXNlci00YjFlMGM5ZDdhNTJmMzg2NGUxZCIsInV1aWQiOiI2RjFDMkI3RS05M0Q0LTRB"
    "NTgtQjBFNy0yQzVEODFGNEE5MzYiLCJhdWQiOiJlZGl0b3IubWFjIiwiZW1haWwiOiJhbm5hLmV4YW1w"
    "bGVAbWFpbC5leGFtcGxlLm9yZyIsInRlcm1zIjp7ImFjY2VwdGVkX3JldmlzaW9uIjoiMjAyNi0xMC0w"
    "MSIsImN1cnJlbnRfcmV2aXNpb24iOiIyMDI2LTEwLTAxIn0sImlhdCI6MTc5MDAwMDAwMH0"
    "."
    "gtcn82NtuqX6qPE-Bn3p517VODe5-RJhVteSFndcBMnKK0Rxt0QDu_cogmtXaDQ7AYO0wYCGvQ4l4pwC"
    "RoDfI6sWOMJpGt270zoLFEdTXMlOUzXfINKnnq9Ga5hiT66zALdFtiSOWlVQmpl2T2Vb1BHbYrUwDywt"
    "9BwZ-NCN92IoQHbLpHSw5bQuB8UwUyx45PEiCdmOtosnt2C4iws7T0cfzFs_JX2qoNCcxfqKS8ALcBFO"
    "AfWlyfFwyn3SL02LeiEmU67JnvEiehIHJm7Vus-CqBl38w21foY_HVexiFGJXAUFGQ0_Jd9V6ZM2XWuI"
    "LtMDhkw7C6mLAZMYOzPRbA";

/// The key as the library takes it (PKCS #1).
constexpr std::string_view publicKey =
    "-----BEGIN RSA PUBLIC KEY-----\n"
    "MIIBCgKCAQEAsbK3AXPj/gzofVuFCFiPOlEd7ERSLW1b0jUu2f8UgQTLibSnC6k2\n"
    "z60QlUwQOYMqeZjuRQEYv2yHV8H9PMpurP4mjesctEjzOqmzpwDiufC36XcWOsFl\n"
    "bmHyQgiMgzAC9eoRYmYU5jmL1UARCsTjyGFAaC+ykdND0fo5J9E+ze/iXKM8+Qt9\n"
    "9wHZLv/vB/NrgT19moTQ0SaTIq3hkc1mHQfaNwp8Y+MosJnX+DG3wEb5aXdw+Twr\n"
    "IJDUd6+9m4qwDG3j49OcMXZBR+4OczjnRtmSDJUSxNY0yB2ad30/GC6A9GGbzfR/\n"
    "raawd/E81/XznpqfUdzjW0glmem4CnDZMQIDAQAB\n"
    "-----END RSA PUBLIC KEY-----";

/// The same key in the form that libjwt takes.
constexpr std::string_view subjectPublicKeyInfo =
    "-----BEGIN PUBLIC KEY-----\n"
    "MIIBIjANBgkqhkiG9w0BAQEFAAOCAQ8AMIIBCgKCAQEAsbK3AXPj/gzofVuFCFiP\n"
    "OlEd7ERSLW1b0jUu2f8UgQTLibSnC6k2z60QlUwQOYMqeZjuRQEYv2yHV8H9PMpu\n"
    "rP4mjesctEjzOqmzpwDiufC36XcWOsFlbmHyQgiMgzAC9eoRYmYU5jmL1UARCsTj\n"
    "yGFAaC+ykdND0fo5J9E+ze/iXKM8+Qt99wHZLv/vB/NrgT19moTQ0SaTIq3hkc1m\n"
    "HQfaNwp8Y+MosJnX+DG3wEb5aXdw+TwrIJDUd6+9m4qwDG3j49OcMXZBR+4Oczjn\n"
    "RtmSDJUSxNY0yB2ad30/GC6A9GGbzfR/raawd/E81/XznpqfUdzjW0glmem4CnDZ\n"
    "MQIDAQAB\n"
    "-----END PUBLIC KEY-----\n";

}  // namespace fixedtoken
