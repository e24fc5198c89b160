#include "Platform/Security/SecretBytes.hpp"

#include "Platform/Basics/Wipe.hpp"

#include <sys/mman.h>

#include <algorithm>
#include <cstring>
#include <memory_resource>
#include <mutex>
#include <new>
#include <utility>

#include <openssl/crypto.h>

namespace platform
{
namespace
{

/// Whole pages from the system, marked so that a core dump leaves them out.
class UndumpedPages final : public std::pmr::memory_resource
{
    void* do_allocate(std::size_t bytes, std::size_t) override
    {
        void* pages =
            mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (pages == MAP_FAILED)
            throw std::bad_alloc();
        // The value works without this advice, and a kernel too old for it has no way to obey.
        (void)madvise(pages, bytes, MADV_DONTDUMP);
        return pages;
    }

    void do_deallocate(void* pages, std::size_t bytes, std::size_t) override
    {
        munmap(pages, bytes);
    }

    bool do_is_equal(const memory_resource& other) const noexcept override
    {
        return this == &other;
    }
};

/// Small blocks come from a pool over such pages. One lock for all threads costs a fraction of what
/// a pool with a share for each thread does: a secret is taken on one and given back on another.
class SecretMemory
{
public:
    void* allocate(std::size_t bytes)
    {
        const std::lock_guard lock(mutex_);
        return pool_.allocate(bytes);
    }
    void deallocate(void* memory, std::size_t bytes)
    {
        const std::lock_guard lock(mutex_);
        pool_.deallocate(memory, bytes);
    }

private:
    static constexpr std::size_t largestPooledBlock = std::size_t{64} * 1024;

    std::mutex mutex_;
    UndumpedPages pages_;
    std::pmr::unsynchronized_pool_resource pool_{
        std::pmr::pool_options{.max_blocks_per_chunk = 64,
                               .largest_required_pool_block = largestPooledBlock},
        &pages_};
};

// Never torn down: a secret in a static object of the host may be released after our statics.
SecretMemory& secretMemory()
{
    static auto& memory = *new SecretMemory;
    return memory;
}

}  // namespace

void SecretBytes::append(std::span<const std::byte> bytes)
{
    if (bytes.empty())
        return;
    if (bytes.size() > capacity_ - size_)
    {
        // Appending a part of this value to itself must survive the move to larger memory.
        SecretBytes grown;
        grown.reserve(std::max(size_ + bytes.size(), capacity_ + capacity_ / 2));
        grown.append(view());
        grown.append(bytes);
        swap(grown);
        return;
    }
    std::memmove(data_ + size_, bytes.data(), bytes.size());
    size_ += bytes.size();
}

void SecretBytes::reserve(std::size_t capacity)
{
    if (capacity <= capacity_)
        return;
    constexpr std::size_t step = 64;
    const std::size_t rounded = (capacity + step - 1) / step * step;
    auto* memory = static_cast<std::byte*>(secretMemory().allocate(rounded));
    if (size_ > 0)
        std::memcpy(memory, data_, size_);
    const std::size_t size = size_;
    clear();
    data_ = memory;
    size_ = size;
    capacity_ = rounded;
}

void SecretBytes::resize(std::size_t size)
{
    if (size < size_)
        wipe(data_ + size, size_ - size);
    reserve(size);
    if (size > size_)
        std::memset(data_ + size_, 0, size - size_);
    size_ = size;
}

void SecretBytes::clear() noexcept
{
    if (!data_)
        return;
    wipe(data_, size_);
    secretMemory().deallocate(data_, capacity_);
    data_ = nullptr;
    size_ = capacity_ = 0;
}

bool operator==(const SecretBytes& left, const SecretBytes& right) noexcept
{
    return left.size_ == right.size_ &&
           (left.size_ == 0 || CRYPTO_memcmp(left.data_, right.data_, left.size_) == 0);
}

}  // namespace platform
