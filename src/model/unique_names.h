// Telling items of one name apart by numbers, one after another.
#pragma once

#include "model/collection.h"

#include <memory>

namespace vimbo {

/// Item::EnsureUniqueName for many items that come one after another: O(log n) comparisons for each, with n
/// names. Meanwhile nobody else may rename items of the kind.
class UniqueNames {
public:
    UniqueNames(const Collection& collection, ItemKind kind);
    ~UniqueNames();
    UniqueNames(const UniqueNames&) = delete;
    UniqueNames& operator=(const UniqueNames&) = delete;
    /// For an item that came since, once. @return true if the name changed
    bool Add(Item& item);

private:
    struct Names;
    std::unique_ptr<Names> names_;
};

} // namespace vimbo
