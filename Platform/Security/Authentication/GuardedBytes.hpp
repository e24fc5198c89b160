#pragma once

#include <cstddef>
#include <span>

namespace platform
{

/// A key that stays in memory for longer than one call: on pages of its own between pages that
/// nobody may touch, kept out of swap and core dumps where the system allows it, wiped at the end.
/// Shared as `const`, any thread may read it.
class GuardedBytes
{
public:
    explicit GuardedBytes(std::size_t size);
    ~GuardedBytes();
    GuardedBytes(const GuardedBytes&) = delete;
    GuardedBytes& operator=(const GuardedBytes&) = delete;

    const unsigned char* data() const noexcept { return data_; }
    unsigned char* data() noexcept { return data_; }
    std::size_t size() const noexcept { return size_; }

private:
    unsigned char* data_;
    std::size_t size_;
};

/// Makes libsodium ready. Cheap after the first time; every use of it here begins with this.
void prepareSodium();

}  // namespace platform
