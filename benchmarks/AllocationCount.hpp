#pragma once

#include <cstddef>

/// Counts what the program takes from the heap, by whatever door: `malloc`, `calloc`, `realloc`,
/// `aligned_alloc`, and `operator new`, which goes through them. OpenSSL's own are told apart by
/// giving it functions of ours. All numbers are the calling thread's, since it started.
namespace allocationcount
{

/// To be called before anything uses OpenSSL. False when it was too late.
bool tellOpenSSLApart();

/// From the heap, without OpenSSL's.
std::size_t ofHeap() noexcept;

/// From the pool that memory for secrets comes from, which is no part of the heap.
std::size_t ofSecrets() noexcept;

std::size_t ofOpenSSL() noexcept;

}  // namespace allocationcount
