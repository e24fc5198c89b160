#pragma once

/// While one lives, the look-up of any name that ends in ".held.test" waits, as with a name server
/// that does not answer. The program's `getaddrinfo` is replaced for it; all other names are looked
/// up as ever.
class HeldNames
{
public:
    HeldNames();
    HeldNames(const HeldNames&) = delete;
    HeldNames& operator=(const HeldNames&) = delete;

    /// Lets go of all look-ups, which then find nothing.
    ~HeldNames();

    /// Waits up to ten seconds until this many look-ups are waiting.
    bool waitForLookUps(int count) const;
};
