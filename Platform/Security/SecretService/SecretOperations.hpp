#pragma once

#include "Platform/Security/SecretService/SecretItems.hpp"

#include <string>

namespace platform
{

/// The operations of a store as sequences of calls. A write runs under the lock between processes,
/// and begins anew from the search when it is tried again. All run on the GLib thread and throw
/// `SecretServiceFailure`; the ones that write return `success`, `duplicateItem` or `itemNotFound`.
///
/// Where other software has made duplicates of an item, the one that was changed last is the item
/// (then the one made last, then the one whose path comes last); a write deletes the others before
/// it changes anything.
namespace secretOperations
{

/// Where new items go: a path of a collection.
using Collection = std::string;

KeychainAnswer copyMatching(SecretItems& items, const ItemPattern& pattern, ItemContent content,
                            std::size_t limit);

/// Deletes what matches `old`, if given, and adds the item. `text` is its sealed text.
KeychainStatus store(SecretItems& items, const Collection& collection, const ItemPattern* old,
                     const KeychainItem& item, const SecretBytes& text);

KeychainStatus deleteMatching(SecretItems& items, const ItemPattern& pattern);

}  // namespace secretOperations

}  // namespace platform
